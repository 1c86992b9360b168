-- Which section fails most often, and on which build?
SELECT section, build, failures, reports, round(100 * failures / reports, 1) AS percent, mostly
FROM (SELECT title AS section, build, count(*) AS failures, min(failure) AS mostly
      FROM (SELECT key, title, failure FROM sections WHERE failure IS NOT NULL AND expected IS NULL)
      JOIN (SELECT key, build FROM reports) USING (key)
      GROUP BY title, build)
JOIN (SELECT build, count(*) AS reports FROM reports GROUP BY build) USING (build)
ORDER BY failures DESC, section, build LIMIT 20
