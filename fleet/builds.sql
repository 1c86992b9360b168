-- How many of each build's reports have which trouble?
SELECT what, build, has, of_build, round(100 * has / of_build, 1) AS percent
FROM (SELECT what, build, count(*) AS has
      FROM (SELECT key, what FROM troubles) JOIN (SELECT key, build FROM reports) USING (key)
      GROUP BY what, build)
JOIN (SELECT build, count(*) AS of_build FROM reports GROUP BY build) USING (build)
ORDER BY what, build
