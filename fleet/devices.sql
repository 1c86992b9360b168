-- Which devices are the worst, and why (by what at most half of the fleet has)?
SELECT who, model, latest_build, reports, errors_in_all, warnings_in_all, why, a_report
FROM (SELECT CASE WHEN serial = '' THEN key ELSE serial END AS who, max(device) AS model, max(build) AS latest_build,
             count(*) AS reports, sum(errors) AS errors_in_all, sum(warnings) AS warnings_in_all, max(key) AS a_report
      FROM reports GROUP BY who)
JOIN (SELECT who, arrayStringConcat(arraySort(groupUniqArray(what)), ', ') AS why
      FROM (SELECT key, what
            FROM (SELECT key, what FROM troubles)
            JOIN (SELECT what FROM troubles GROUP BY what
                  HAVING 2 * count(*) <= (SELECT count(*) FROM reports)) USING (what))
      JOIN (SELECT key, CASE WHEN serial = '' THEN key ELSE serial END AS who FROM reports) USING (key)
      GROUP BY who) USING (who)
ORDER BY errors_in_all DESC, warnings_in_all DESC, who
