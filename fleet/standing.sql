-- How do the ten worst devices stand among their model's: how many percent of its reports have less of a fact?
SELECT who, device, fact, its AS value, round(100 * sum(CASE WHEN number < its THEN 1 ELSE 0 END) / count(*), 1) AS percent_below,
       count(*) AS reports
FROM (SELECT who, device, fact, its
      FROM (SELECT key, fact, number AS its FROM facts WHERE number IS NOT NULL)
      JOIN (SELECT key, device, CASE WHEN serial = '' THEN key ELSE serial END AS who FROM reports
            ORDER BY errors DESC, warnings DESC, who LIMIT 10) USING (key))
JOIN (SELECT device, fact, number
      FROM (SELECT key, fact, number FROM facts WHERE number IS NOT NULL)
      JOIN (SELECT key, device FROM reports) USING (key)) USING (device, fact)
GROUP BY who, device, fact, its
ORDER BY who, fact, value
