-- What is the matter with which report: its findings, and its sections that took more than twice as long as
-- they usually take and 0.1 s more.
CREATE VIEW troubles AS
SELECT DISTINCT key, concat("check", CASE WHEN coalesce(section, name, '') = '' THEN '' ELSE ': ' END,
                            coalesce(section, name, '')) AS what
FROM findings
UNION ALL
SELECT DISTINCT key, concat('slow: ', title) AS what
FROM (SELECT key, title, seconds FROM sections)
JOIN (SELECT title, arraySort(groupArray(seconds))[toUInt64(floor(0.5 * (count(*) - 1))) + 1] AS half
      FROM sections GROUP BY title) USING (title)
WHERE seconds > 2 * half AND seconds > half + 0.1
