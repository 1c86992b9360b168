-- Which devices' accelerometer froze: repeats its last value for ten seconds or more?
WITH samples AS (
    SELECT file, unnest(times) AS time, unnest("values") AS value, "values"[-1] AS final
    FROM records WHERE type = 'sensor' AND name = 'Accelerometer'),
stills AS (
    SELECT file, count(*) FILTER (value = final) AS records,
           (max(time) - max(time) FILTER (value <> final)) / 1e9 AS seconds
    FROM samples GROUP BY file)
SELECT serial, device, build, round(seconds, 1) AS still_for_s, records
FROM stills JOIN reports USING (file) WHERE seconds >= 10 ORDER BY still_for_s DESC, serial;
