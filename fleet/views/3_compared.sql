-- Of each trouble that eight reports of those two builds have or more, how many have it; of what is rarer
-- nothing can be said. This is chosen by both builds together, which no test is biased by.
CREATE VIEW compared AS
SELECT what, has_now, has_before, of_now, of_before
FROM (SELECT what, sum(is_new) AS has_now, sum(1 - is_new) AS has_before, 1 AS one
      FROM (SELECT key, what FROM troubles) JOIN (SELECT key, is_new FROM newest) USING (key)
      GROUP BY what)
JOIN (SELECT sum(is_new) AS of_now, sum(1 - is_new) AS of_before, 1 AS one FROM newest) USING (one)
-- The sizes are asked for, as ClickHouse of 2018 makes rows of a sum that nobody reads.
WHERE has_now + has_before >= 8 AND of_now + of_before > 0
