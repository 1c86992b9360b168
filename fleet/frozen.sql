-- Which devices' sensors froze?
SELECT serial, device, build, says
FROM (SELECT key, says FROM findings WHERE "check" = 'sensor-frozen')
JOIN (SELECT key, serial, device, build FROM reports) USING (key)
ORDER BY serial, says
