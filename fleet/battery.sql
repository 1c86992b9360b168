-- How are battery levels (%) and temperatures (degrees) spread over the devices of each model?
SELECT device, fact, count(*) AS devices, min(value) AS least, quantile_cont(value, 0.25) AS quarter,
       median(value) AS half, quantile_cont(value, 0.75) AS three_quarters, max(value) AS most
FROM (SELECT device, unnest(['battery.level', 'battery.temperature']) AS fact, facts[fact]::DOUBLE AS value
      FROM reports)
WHERE value IS NOT NULL GROUP BY device, fact ORDER BY fact, device;
