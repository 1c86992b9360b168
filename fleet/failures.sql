-- Which section fails most often, and on which build?
WITH builds AS (SELECT build, count(*) AS made FROM reports GROUP BY build)
SELECT title AS section, build, count(*) AS failures, made AS reports,
       round(100.0 * count(*) / made, 1) AS percent, mode(failure) AS mostly
FROM records JOIN reports USING (file) JOIN builds USING (build)
WHERE type = 'section' AND failure IS NOT NULL
GROUP BY title, build, made ORDER BY failures DESC, section, build LIMIT 10;
