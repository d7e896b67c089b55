#!/usr/bin/env python3
"""What vesk-nightly keeps of the requests.

usage: scripts/with-postgres tests/e2e/kept.py VESK-ADMIN VESK-NIGHTLY [-v] [TEST...]
"""

import os
import random
import string
import sys
import unittest

from nights import Nights, lines

FIGURES = "SELECT string_agg(DISTINCT extract(day FROM day)::text, ' ') FROM vesk_nightly.figures"


class Kept(Nights):
    def night(self, out="^", err=None):
        run = self.start()
        printed, complained = run.communicate()
        self.assertRegex(printed, out, complained)
        self.assertRegex(complained, err or "^$")
        self.assertEqual(run.returncode, 1 if err else 0)

    def import_by_hand(self, text):
        log, zone = self.write("by-hand", text), os.environ | {"TZ": "Asia/Tokyo"}
        run = self.database.admin("import-log", "example.org", log, env=zone)
        self.assertEqual(run.returncode, 0, run)

    def test_made_up(self):
        """Of days with all requests of their report, whatever it was that kept figures away."""
        self.import_by_hand(lines("/", "/a") + lines("/b", day=11))
        self.sql("DELETE FROM vesk.hits WHERE path = '/a'")
        self.write(".1", lines("/new", day=12))
        self.night("rolled up 1 days\nmade up the figures of 1 days\n$")
        self.assertEqual(self.sql(FIGURES), "12 13")
        self.sql("DROP TABLE vesk_nightly.figures")  # the ledger of an earlier version
        self.night("^no new logs of example.org\nmade up the figures of 2 days\n$")
        self.night("^no new logs of example.org\n$")
        self.import_by_hand(lines("/b", day=11))
        self.night("made up the figures of 1 days")
        self.sql(
            "DELETE FROM vesk.hits WHERE id = (SELECT min(id) FROM vesk.hits WHERE path = '/b')"
        )
        figures = "SELECT array_agg(f ORDER BY day, list, scope) FROM vesk_nightly.figures f"
        before = self.sql(figures)
        self.sql("INSERT INTO vesk_nightly.days VALUES (1, '2026-03-12')")
        self.night(err="2026-03-12 keeps its report")
        self.assertEqual(self.sql(figures), before)

    def test_with_the_roll_up(self):
        """Both or neither."""
        self.night("no file matches")
        self.sql(
            "ALTER TABLE vesk_nightly.figures ADD CONSTRAINT refuse CHECK (day < '2026-03-11')"
        )
        self.write(".1", lines("/"))
        self.night(err="refuse(?s:.*)\n2026-03-11 is not rolled up, the next run")
        self.assertEqual(self.sql("SELECT count(*) FROM vesk.rollup"), "0")
        self.sql("ALTER TABLE vesk_nightly.figures DROP CONSTRAINT refuse")
        self.night("rolled up 1 days\n$")
        self.assertEqual(self.sql(FIGURES), "11")

    def test_strangers(self):
        """However much they make up, a day takes no more than a megabyte, and loses no request."""
        chance = random.Random(1)
        for length in 30, 1500:
            text = ""
            for n in range(4400):
                name = "".join(chance.choices(string.ascii_letters + string.digits, k=length))
                to = f"/{name}.{name[:6]}" if n % 2 else f"/{name}?utm_source=a&utm_campaign={name}"
                line = lines(to, day=10 + length // 1000).replace(
                    "192.0.2.1", f"10.0.{n % 250}.{n % 99}"
                )
                status = ("200", "200", "500", "404")[n % 4]
                line = line.replace('" 200 5 "-"', f'" {status} 5 "https://{name[:900]}.example/"')
                text += line.rstrip("\n") + f" {n**2}\n"
            self.write(f".{length}", text)
        self.night("rolled up 2 days\n$")
        sizes = "SELECT day, sum(pg_column_size(f.*)) FROM vesk_nightly.figures f GROUP BY day"
        sizes = [int(line.split("|")[1]) for line in self.sql(sizes).split("\n")]
        self.assertTrue(300_000 < min(sizes) and max(sizes) < 1_000_000, sizes)
        found = self.sql(
            "SELECT list, cardinality(key) <= 1001 AND (cardinality(key) = 1001 OR list = 'link'"
            " OR day = '2026-03-12'),"
            " cardinality(key) - 1 + n3[cardinality(key)], (SELECT sum(n) FROM unnest(n1) AS n)"
            " FROM vesk_nightly.figures WHERE key[cardinality(key)] IS NULL AND scope <> 'people'"
            " ORDER BY list, day"
        )
        bytes = {"download": 5500, "type": 22000}  # before requests
        counts = dict.fromkeys("campaign_name download entry error exit link missing".split(), 1100)
        counts |= {"slow": 4400, "type": 2201}
        wanted = (f"{name}|t|{n}|{bytes.get(name, n)}" for name, n in sorted(counts.items()))
        self.assertEqual(found.split("\n")[::2], list(wanted))
        self.assertEqual(found.split("\n")[::2], found.split("\n")[1::2])


unittest.main(argv=sys.argv[1:])
