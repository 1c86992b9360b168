-- The reports of the newest build and of the one before; builds are ordered by their names.
CREATE VIEW newest AS
SELECT key, build, CASE WHEN build = builds[length(builds)] THEN 1 ELSE 0 END AS is_new
FROM (SELECT key, build, 1 AS one FROM reports WHERE build <> '')
JOIN (SELECT arraySort(groupUniqArray(build)) AS builds, 1 AS one FROM reports WHERE build <> '') USING (one)
WHERE build >= builds[length(builds) - 1]
