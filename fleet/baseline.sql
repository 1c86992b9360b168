-- What is usual of the whole reports here: how often which number (in bins of 2 %) and which word came?
SELECT part, model, name, word, CASE WHEN size < 0.000001 THEN toInt64(0) WHEN number < 0 THEN -bin_of_size ELSE bin_of_size END AS bin,
       count(*) AS times, min(number) AS least, max(number) AS most
FROM (SELECT part, model, name, word, number, abs(number) AS size,
             toInt64(floor(ln(least(greatest(abs(number), 0.000001), toFloat64(1000000000000000)) / 0.000001) / ln(1.02))) + 1 AS bin_of_size
      FROM (
SELECT 'reports' AS part, device AS model, '' AS name, '' AS word, toFloat64(0) AS number FROM reports WHERE complete
UNION ALL
SELECT 'seconds' AS part, '' AS model, name, '' AS word, number
FROM (SELECT key, title AS name, max(seconds) AS number FROM sections GROUP BY key, title)
JOIN (SELECT key FROM reports WHERE complete) USING (key)
UNION ALL
SELECT 'failure' AS part, '' AS model, name, word, toFloat64(0) AS number
FROM (SELECT key, title AS name, coalesce(failure, '') AS word FROM sections WHERE failure IS NOT NULL)
JOIN (SELECT key FROM reports WHERE complete) USING (key)
UNION ALL
SELECT 'number' AS part, model, name, '' AS word, value AS number
FROM (SELECT key, fact AS name, toFloat64(coalesce(number, 0)) AS value FROM facts
      WHERE number IS NOT NULL AND fact NOT IN ('uptime', 'worn'))
JOIN (SELECT key, device AS model FROM reports WHERE complete) USING (key)
UNION ALL
SELECT 'number' AS part, model, concat('battery.current at battery.status ', status) AS name, '' AS word, value AS number
FROM (SELECT key, value, status
      FROM (SELECT key, toFloat64(coalesce(number, 0)) AS value FROM facts WHERE fact = 'battery.current')
      JOIN (SELECT key, text AS status FROM facts WHERE fact = 'battery.status') USING (key))
JOIN (SELECT key, device AS model FROM reports WHERE complete) USING (key)
UNION ALL
SELECT 'number' AS part, model, concat('battery.voltage at battery.level ', level) AS name, '' AS word, value AS number
FROM (SELECT key, value, level
      FROM (SELECT key, toFloat64(coalesce(number, 0)) AS value FROM facts WHERE fact = 'battery.voltage')
      JOIN (SELECT key, CAST(20 * toUInt64(floor(coalesce(number, 0) / 20)) AS String) AS level
            FROM facts WHERE fact = 'battery.level') USING (key))
JOIN (SELECT key, device AS model FROM reports WHERE complete) USING (key)
UNION ALL
SELECT 'word' AS part, model, name, word, toFloat64(0) AS number
FROM (SELECT key, fact AS name, text AS word FROM facts WHERE number IS NULL AND fact NOT IN
      ('device', 'build', 'serial', 'boot.time', 'report.time', 'slowest', 'modem.last_restart'))
JOIN (SELECT key, device AS model FROM reports WHERE complete) USING (key)
UNION ALL
SELECT 'rate' AS part, model, name, '' AS word, number
FROM (SELECT key, name, toFloat64(coalesce(rate, 0)) AS number FROM sensors WHERE sensor IN (1, 6, 8, 10) AND rate > 0)
JOIN (SELECT key, device AS model FROM reports WHERE complete) USING (key)
))
GROUP BY part, model, name, word, bin
ORDER BY part, model, name, word, bin
