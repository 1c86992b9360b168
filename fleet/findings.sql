-- Which findings rise with which build: in what part of its reports, beside that of the build before?
WITH builds AS (SELECT build, count(*) AS made FROM reports GROUP BY build),
rates AS (
    SELECT checks.name AS check, build, 100.0 * count(findings.file) / made AS percent
    FROM (SELECT DISTINCT "check" AS name FROM findings) AS checks CROSS JOIN builds
    LEFT JOIN (SELECT DISTINCT "check", file, build FROM findings) AS findings
        ON findings."check" = checks.name AND findings.build = builds.build
    GROUP BY checks.name, builds.build, made),
steps AS (SELECT *, lag(percent) OVER (PARTITION BY "check" ORDER BY build) AS before FROM rates)
SELECT "check" AS finding, build, round(before, 1) AS percent_before, round(percent, 1) AS percent
FROM steps WHERE percent - before >= 3 ORDER BY percent - before DESC, finding LIMIT 10;
