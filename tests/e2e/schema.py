#!/usr/bin/env python3
"""What the migrations are, and what they put into the tables.

usage: schema.py VESK-ADMIN, under scripts/with-postgres.
"""

import json
import pathlib
import re
import subprocess

import vesk

TESTS = pathlib.Path(__file__).parents[1]
SCRIPTS = TESTS.parent / "sql"
STANDARD = pathlib.Path("/usr/share/iso-codes/json/iso_3166-1.json")


def check_scripts():
    """A database that has a script would not notice that it was edited."""
    names = sorted(path.name for path in SCRIPTS.glob("*.sql"))
    run = subprocess.run(["sha256sum", *names], cwd=SCRIPTS, capture_output=True, text=True)
    assert run.stdout == (TESTS / "data/migrations.sha256").read_text(), run.stdout


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


check_scripts()
check_contents(vesk.Database("one"), vesk.Database("two"))
