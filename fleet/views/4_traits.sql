-- What reports have in common: a fact's words, or that a fact's number lies above the fleet's half.
CREATE VIEW traits AS
SELECT key, concat(fact, ' = ', text) AS trait
FROM facts
WHERE number IS NULL AND fact NOT IN ('serial', 'build', 'boot.time', 'report.time', 'slowest')
UNION ALL
SELECT key, concat('build = ', build) AS trait FROM reports WHERE build <> ''
UNION ALL
SELECT key, concat(fact, ' above its half') AS trait
FROM (SELECT key, fact, number FROM facts WHERE number IS NOT NULL AND fact NOT IN ('failed', 'sections'))
JOIN (SELECT fact, arraySort(groupArray(number))[toUInt64(floor(0.5 * (count(*) - 1))) + 1] AS half
      FROM facts WHERE number IS NOT NULL GROUP BY fact) USING (fact)
WHERE number > half
