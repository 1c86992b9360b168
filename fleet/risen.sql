-- What has risen with the newest build, against the one before, and is no noise (Fisher's exact test, by Bonferroni below 0.01)?
SELECT what, has_before, of_before, round(100 * has_before / of_before, 1) AS percent_before,
       has_now, of_now, round(100 * has_now / of_now, 1) AS percent_now, p * tests AS p_corrected
FROM (SELECT what, has_before, of_before, has_now, of_now, sum(exp(
                 lgamma(has + 1) - lgamma(x + 1) - lgamma(has - x + 1)
                 + lgamma(reports - has + 1) - lgamma(of_now - x + 1) - lgamma(reports - has - of_now + x + 1)
                 - lgamma(reports + 1) + lgamma(of_now + 1) + lgamma(reports - of_now + 1))) AS p, 1 AS one
      FROM (SELECT what, has_before, of_before, has_now, of_now, has_now + has_before AS has, of_now + of_before AS reports,
                   has_now + arrayJoin(range(toUInt64(least(has_before, of_now - has_now) + 1))) AS x
            FROM compared)
      GROUP BY what, has_before, of_before, has_now, of_now)
JOIN (SELECT count(*) AS tests, 1 AS one FROM compared) USING (one)
WHERE p * tests < 0.01
ORDER BY p_corrected, what
