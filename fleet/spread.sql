-- How is each fact spread over the reports of each model and build?
SELECT device, build, fact, reports, sorted[1] AS least,
       sorted[toUInt64(floor(0.05 * (reports - 1))) + 1] AS p5, sorted[toUInt64(floor(0.25 * (reports - 1))) + 1] AS p25,
       sorted[toUInt64(floor(0.5 * (reports - 1))) + 1] AS half, sorted[toUInt64(floor(0.75 * (reports - 1))) + 1] AS p75,
       sorted[toUInt64(floor(0.95 * (reports - 1))) + 1] AS p95, sorted[reports] AS most
FROM (SELECT device, build, fact, count(*) AS reports, arraySort(groupArray(number)) AS sorted
      FROM (SELECT key, fact, number FROM facts WHERE number IS NOT NULL)
      JOIN (SELECT key, device, build FROM reports) USING (key)
      GROUP BY device, build, fact)
ORDER BY fact, device, build
