-- The reports of the newest build and of the one before; builds are ordered by their names.
CREATE VIEW newest AS
SELECT key, build, CASE WHEN build = (SELECT max(build) FROM reports) THEN 1 ELSE 0 END AS is_new
FROM reports
WHERE build <> '' AND build >= (SELECT max(build) FROM reports
                                WHERE build < (SELECT max(build) FROM reports))
