#!/usr/bin/env python3
"""What vesk-nightly keeps of the requests.

usage: scripts/with-postgres tests/e2e/kept.py VESK-ADMIN VESK-NIGHTLY VESK-REPORT SHARE [-v] [TEST...]
"""

import gzip
import json
import os
import random
import string
import subprocess
import sys
import unittest

import vesk
from nights import Nights, lines

REPORT, SHARE = sys.argv.pop(2), sys.argv.pop(2)

FIGURES = "SELECT string_agg(DISTINCT extract(day FROM day)::text, ' ') FROM vesk_nightly.figures"
# Hour of 5 March 2026 in UTC, of which 15:00 is midnight at the site; visitor, path, status, where it is
# linked, duration. The links to /lost tie over both days, on the first one leads b, on the second a; the
# first day of /gone says a. /slow has few durations on either day. Of visitors .8 and .9 one is a person.
LOG = """
10 1 /lost 404 b 9, 10 2 /lost 404 b 9, 10 3 /lost 404 a 9, 16 1 /lost 404 a 9,
10 1 /gone 410 a 9, 11 1 /gone 410 a 9, 12 1 /gone 410 b 9, 16 1 /gone 404 b 9, 17 1 /gone 410 b 9,
10 4 /slow.js 200 - 70, 11 4 /slow.js 200 - 4000, 12 4 /slow.js 200 - 1000000, 16 4 /slow.js 200 - 0,
17 4 /slow.js 500 - 3, 10 4 /part.zip 206 - 1, 16 4 /part.zip 200 - 2147483646,
10 8 / 200 - 1, 11 9 /a 200 a 1, 16 9 / 200 - 1, 16 8 /a 200 a 1
"""


def log():
    for hour, visitor, path, status, link, duration in map(str.split, LOG.split(",")):
        link = link if link == "-" else f"https://{link}.example/"
        line = vesk.log_line(path, f"198.51.100.{visitor}", f"05/Mar/2026:{hour}:00:00 +0000")
        yield line.replace('200 5 "-"', f'{status} 5 "{link}"').rstrip("\n") + f" {duration}\n"


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
        self.sql("DROP TABLE vesk_nightly.figures, vesk_nightly.deleted_days")  # an earlier ledger
        self.night("^no new logs of example.org\nmade up the figures of 2 days\n$")
        self.night("^no new logs of example.org\n$")
        self.import_by_hand(lines("/b", day=11))
        self.sql("UPDATE vesk_nightly.figures SET list = 'error' WHERE list = 'type'")
        self.night("made up the figures of 1 days")
        errors = "SELECT string_agg(day::text, '') FROM vesk_nightly.figures WHERE list = 'error'"
        self.assertEqual(self.sql(errors), "2026-03-13")
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

    def make_roles(self):
        vesk.psql("CREATE ROLE kept LOGIN; CREATE ROLE single LOGIN")
        self.addCleanup(vesk.psql, "DROP ROLE kept; DROP ROLE single")
        self.addCleanup(self.sql, "DROP OWNED BY kept, single")
        self.start().communicate()  # makes the tables
        self.sql(
            "GRANT USAGE ON SCHEMA vesk TO kept, single; GRANT USAGE ON SCHEMA vesk_nightly TO kept;"
            "GRANT SELECT ON ALL TABLES IN SCHEMA vesk TO kept, single;"
            "GRANT SELECT ON vesk_nightly.figures TO kept"
        )

    def report(self, *arguments, role="kept"):
        """Of a role that may read the figures, as kept may, or the requests, as single may."""
        config = self.folder / f"{role}.ini"
        config.write_text(self.database.config.read_text() + f"user={role}\n")
        command = [REPORT, "-c", config, "--json", "--rows", "all", "example.org", *arguments]
        run = subprocess.run(command, capture_output=True, text=True)
        self.assertEqual((run.returncode, run.stderr), (0, ""), run)
        return json.loads(run.stdout)

    def expect_same(self, found, wanted):
        """But for percentiles, which are of buckets."""
        slow = [report["server"]["lists"]["slow_paths"]["rows"] for report in (found, wanted)]
        ranks = [(-row["percentile_95_us"], -row["requests"], row["path"]) for row in slow[0]]
        self.assertEqual(ranks, sorted(ranks))
        for rows in slow:
            rows.sort(key=lambda row: row["path"])
        for one, other in zip(*slow, strict=True):
            for name in "percentile_95_us", "median_us":
                self.assertAlmostEqual(one[name], other[name], delta=0.025 * other[name] + 0.5)
                self.assertLessEqual(one[name], one["longest_us"])
                one[name] = other[name]
        self.assertEqual(found, wanted)

    def test_reports(self):
        """Those of figures, before and after the requests are deleted, are those of requests."""
        self.make_roles()
        self.write(".1.gz", gzip.open(f"{SHARE}/sample.log.gz").read())
        self.write(".2", "".join(log()))
        self.night("rolled up 6 days")
        self.sql("UPDATE vesk.hits SET session_id = 1 WHERE ip <<= '198.51.100.0/24'")
        self.sql("TRUNCATE vesk_nightly.figures")
        self.night("made up the figures of 6 days")
        periods = "2026-03 2026-03-02 2026-03-03..2026-03-05 2026-03-05..2026-03-06".split()
        asked = [(period, "--scope", scope) for scope in ("people", "all") for period in periods]
        wanted = {each: self.report(*each, role="single") for each in asked}
        for each in asked:
            self.assertTrue(wanted[each]["server"]["complete"])
            self.expect_same(self.report(*each), wanted[each])
        all_slow, slowest = (
            self.report(*more, "2026-03")["server"]["lists"]["slow_paths"]["rows"]
            for more in ([], ["--rows", "1"])
        )
        self.assertEqual(slowest, all_slow[:1])
        missing = wanted[asked[3]]["server"]["lists"]["missing_files"]["rows"]
        links = {row["path"]: row["referrer"] for row in missing}
        self.assertEqual((links["/lost"][8], links["/gone"][8]), ("a", "b"))
        asked_all = ("2026-03-02", "--addresses")  # which figures have not
        self.expect_same(self.report(*asked_all), self.report(*asked_all, role="single"))
        self.sql("DELETE FROM vesk.hits WHERE at < '2026-03-05 15:00Z'")
        for each in asked:
            self.expect_same(self.report(*each), wanted[each])
        found = self.report(*asked_all)["server"]
        self.assertIn("Requests of 1 day have been deleted, and their addresses", found["note"])
        self.assertTrue(found["complete"])
        self.sql("REVOKE SELECT ON vesk.hits FROM kept")
        self.expect_same(self.report(*asked[1]), wanted[asked[1]])
        self.assertFalse(self.report(*asked[1], role="single")["server"]["known"])
        # One more request of a day: its figures are of no use any more, and the others are.
        self.sql("GRANT SELECT ON vesk.hits TO kept")
        self.import_by_hand(next(log()).replace("10:00:00", "16:00:00"))
        found, other = (self.report("2026-03-06", role=role) for role in ("kept", "single"))
        self.assertEqual(found, other)

    def test_strangers(self):
        """However much they make up, a day takes no more than a megabyte, and loses no request."""
        self.make_roles()
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
        for role, left in ("kept", 100), ("single", 0):
            for name in "missing_files", "entry_pages":
                server = self.report("2026-03-11", role=role)
                found = (server if name in server["lists"] else server["server"])["lists"][name]
                rows = (found["total"], found["summed_up"], len(found["rows"]))
                self.assertEqual(rows, (1100, left, 1100 - left))


unittest.main(argv=sys.argv[1:])
