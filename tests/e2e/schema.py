#!/usr/bin/env python3
"""What other programs rely on: the schema's tables, and what they come with.

usage: schema.py VESK-ADMIN, under scripts/with-postgres.
"""

import difflib
import json
import pathlib
import re

import vesk

STORED = pathlib.Path(__file__).parents[1] / "data/schema.txt"
STANDARD = pathlib.Path("/usr/share/iso-codes/json/iso_3166-1.json")
CATALOGUE = r"""
WITH relation AS (
    SELECT oid, relname AS name, relkind FROM pg_class WHERE relnamespace = 'vesk'::regnamespace
), part (name, place, text) AS (
    SELECT name, attnum, concat_ws(' ', attname, format_type(atttypid, atttypmod),
                                   CASE WHEN attnotnull THEN 'not null' END,
                                   nullif('identity ' || attidentity::text, 'identity '),
                                   'default ' || pg_get_expr(adbin, adrelid))
    FROM relation JOIN pg_attribute ON attrelid = oid AND attnum > 0 AND NOT attisdropped
    LEFT JOIN pg_attrdef ON adrelid = attrelid AND adnum = attnum
    WHERE relkind = 'r'
    UNION ALL
    SELECT conrelid::regclass::text, 100, pg_get_constraintdef(oid)
    FROM pg_constraint WHERE connamespace = 'vesk'::regnamespace AND contype <> 'n'
    UNION ALL
    SELECT indrelid::regclass::text, 101, regexp_replace(pg_get_indexdef(oid), 'ON .*? USING btree ', '')
    FROM relation JOIN pg_index ON indexrelid = oid
    WHERE relkind = 'i' AND oid NOT IN (SELECT conindid FROM pg_constraint)
    UNION ALL
    SELECT 'sequence ' || name, 0, concat_ws(' ', seqstart, seqincrement, seqtypid::regtype)
    FROM relation JOIN pg_sequence ON seqrelid = oid WHERE name NOT LIKE '%\_id\_seq'
    UNION ALL
    SELECT 'function ' || p.oid::regprocedure, 0, concat_ws(' ', proargnames, prorettype::regtype, lanname)
    FROM pg_proc p JOIN pg_language l ON l.oid = prolang WHERE pronamespace = 'vesk'::regnamespace
    UNION ALL
    SELECT relkind::text || ' ' || name, 0, '' FROM relation WHERE relkind NOT IN ('r', 'i', 'S')
)
SELECT table_name || ': ' || string_agg(text, ', ' ORDER BY place, text COLLATE "C")
FROM part, replace(name, 'vesk.', '') AS table_name GROUP BY table_name ORDER BY table_name COLLATE "C"
"""


def shortened(text):
    """The catalogue, without what all of it repeats."""
    for long, short in (
        ("timestamp with time zone", "timestamptz"),
        ("double precision", "float8"),
        ("character(", "char("),
        ("vesk.", ""),
    ):
        text = text.replace(long, short)
    return text.split("\n")


def check_catalogue(database):
    stored = re.sub(r"(?m)^#.*\n", "", STORED.read_text()).rstrip("\n")
    expected = re.sub(r"\n +", " ", stored).split("\n")
    got = shortened(database.sql(CATALOGUE))
    assert got == expected, "\n".join(difflib.unified_diff(expected, got, "stored", "database"))


def check_contents(database, other):
    settings = "SELECT key, value FROM vesk.settings ORDER BY key"
    secrets = set()
    for one in (database, other):
        kept, secret = one.sql(settings).split("\n")
        assert kept == "raw_hit_days|90" and re.fullmatch("visitor_secret[|][0-9a-f]{64}", secret)
        secrets.add(secret)
    assert len(secrets) == 2
    standard = json.loads(STANDARD.read_text())["3166-1"]
    codes = sorted(f"{country['alpha_3'].lower()}|{country['alpha_2']}" for country in standard)
    got = database.sql('SELECT alpha3, alpha2 FROM vesk.country_codes ORDER BY alpha3 COLLATE "C"')
    assert got.split("\n") == codes and len(codes) == 249


database = vesk.Database("one")
check_catalogue(database)
check_contents(database, vesk.Database("two"))
