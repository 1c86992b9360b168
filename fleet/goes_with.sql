-- Which facts go with which trouble, more than by chance (Fisher's exact test, by Bonferroni below 0.01)?
SELECT what, trait, together_in, of_trait, round(100 * together_in / of_trait, 1) AS percent_with, has - together_in AS others,
       round(100 * (has - together_in) / (reports - of_trait), 1) AS percent_without, p * tests AS p_corrected
FROM (SELECT what, trait, together_in, has, of_trait, reports, sum(exp(
                 lgamma(has + 1) - lgamma(x + 1) - lgamma(has - x + 1)
                 + lgamma(reports - has + 1) - lgamma(of_trait - x + 1) - lgamma(reports - has - of_trait + x + 1)
                 - lgamma(reports + 1) + lgamma(of_trait + 1) + lgamma(reports - of_trait + 1))) AS p, 1 AS one
      FROM (SELECT what, trait, together_in, has, of_trait, reports,
                   together_in + arrayJoin(range(toUInt64(least(has, of_trait) - together_in + 1))) AS x
            FROM together)
      GROUP BY what, trait, together_in, has, of_trait, reports)
JOIN (SELECT count(*) AS tests, 1 AS one FROM together) USING (one)
WHERE p * tests < 0.01
ORDER BY p_corrected, what, trait
