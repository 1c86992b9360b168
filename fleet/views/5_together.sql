-- How many reports have a trouble and a trait, where each is had by eight and not by all but eight.
CREATE VIEW together AS
SELECT what, trait, together_in, has, of_trait, reports
FROM (SELECT what, trait, together_in, has, of_trait, 1 AS one
      FROM (SELECT what, trait, together_in, has
            FROM (SELECT what, trait, count(*) AS together_in
                  FROM (SELECT key, what FROM troubles) JOIN (SELECT key, trait FROM traits) USING (key)
                  GROUP BY what, trait)
            JOIN (SELECT what, count(*) AS has FROM troubles GROUP BY what) USING (what))
      JOIN (SELECT trait, count(*) AS of_trait FROM traits GROUP BY trait) USING (trait))
JOIN (SELECT count(*) AS reports, 1 AS one FROM reports) USING (one)
WHERE has >= 8 AND reports - has >= 8 AND of_trait >= 8 AND reports - of_trait >= 8
