-- The figures of the days that have them, as a relation like the line of requests.sql.
kept AS (
    SELECT list, unnest(key) AS key, unnest(detail) AS detail,
           unnest(n1) AS v1, unnest(n2) AS v2, unnest(n3) AS v3
    FROM vesk_nightly.figures
    WHERE site_id = :site AND day = ANY (CAST(:kept AS date[])) AND scope IN ('', :scope)
          AND (list = 'slow') = CAST(:slow AS boolean)
)
