-- The days whose figures are those of as many requests as their report counts.
SELECT f.day
FROM vesk_nightly.figures AS f
    JOIN vesk.rollup AS r ON r.site_id = f.site_id AND r.day = f.day
        AND (r.scope, r.dim, r.key) = ('all', 'totals', 'requests') AND r.n1 = f.n1[1]
WHERE f.site_id = :site AND f.day BETWEEN :first AND :last AND f.list = 'day'
