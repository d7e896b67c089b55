#!/usr/bin/env python3
"""Nights of vesk-nightly, with made-up logs.

usage: scripts/with-postgres tests/e2e/nightly.py VESK-ADMIN VESK-NIGHTLY [-v] [TEST...]
"""

import datetime
import gzip
import hashlib
import json
import os
import random
import shutil
import sys
import time
import unittest

import vesk
from nights import Nights, lines

FIRST_TABLES = """
CREATE SCHEMA vesk_nightly;
CREATE TABLE vesk_nightly.logs (id bigint GENERATED ALWAYS AS IDENTITY PRIMARY KEY, site_id integer
    NOT NULL REFERENCES vesk.sites (id) ON DELETE CASCADE, first_line text NOT NULL, content text
    NOT NULL, bytes bigint NOT NULL, name text NOT NULL, lines bigint, stored bigint,
    at timestamptz NOT NULL DEFAULT now());
CREATE INDEX ON vesk_nightly.logs (site_id, first_line);
CREATE TABLE vesk_nightly.days (site_id integer NOT NULL REFERENCES vesk.sites (id)
    ON DELETE CASCADE, day date NOT NULL, PRIMARY KEY (site_id, day))"""


PARTITIONED = "VESK_TEST_PARTITION" in os.environ


def checksum(text):
    return hashlib.sha256(text.encode()).hexdigest()


class Nightly(Nights):
    def test_nights(self):
        self.environment["TZ"] = "America/New_York"  # the configuration decides
        self.expect("", "^$", command="list")
        self.assertEqual(self.sql("SELECT to_regnamespace('vesk_nightly')"), "")
        one = self.write(".1", lines("/1"))
        self.write(".2.gz", lines("/0"), 90000)
        self.night("/0 /1", "(?s)2.gz: 1 lines, 1 stored, 0 not.*rolled up 1 days")
        self.night("/0 /1", "^no new logs of example.org\n$")
        self.assertEqual(self.expect("/0 /1", command="list", host=None), "example.org\n")
        # All move on, one is compressed now, an empty one and a dated name come along.
        (self.folder / "a b.log.2.gz").rename(self.folder / "a b.log.3.gz")
        one.unlink()
        self.write(".2.bz2", lines("/1"))
        self.write("-20260311", lines("/2", day=11))
        self.write(".4", "")
        self.write(".5.zst", lines("/zst", day=11), -100000)  # in the future
        self.night("/0 /1 /2 /zst")
        known = f"SELECT lines, bytes FROM vesk_nightly.logs WHERE first_line = '{checksum(lines('/0'))}'"
        self.assertEqual(self.sql(known), f"1|{len(lines('/0'))}")
        self.write(".7.xz", lines("/by-hand"))
        self.night("/0 /1 /2 /zst", "noted as imported: 1 logs", command="mark")
        shown = self.expect("/0 /1 /2 /zst", command="list").splitlines()
        self.assertRegex(shown[0], r"^2.{18}  1 lines, 1 stored +/.*a b.log.2.gz$")
        self.assertRegex(shown[-1], r"  only noted +/.*a b.log.7.xz$")
        self.night("/0 /1 /2 /zst", "no new logs")

    def test_content_decides(self):
        self.write(".1", lines("/1", "/a"))
        self.write(".2", lines("/1", "/b"))
        self.write(".3", lines("/c"), 9000)
        self.night("/c /1 /a /1 /b")
        self.write(".4", lines("/c", "/d"))  # .3 is still there
        self.night("/c /1 /a /1 /b /c /d")
        (self.folder / "a b.log.3").unlink()
        self.night("/c /1 /a /1 /b /c /d", "no new logs")
        self.write(".3", lines("/c"))
        self.night("/c /1 /a /1 /b /c /d", "no new logs")
        archive = self.write(".5.gz", lines("/5"))
        self.night("/c /1 /a /1 /b /c /d /5")
        size = archive.stat().st_size  # with a second member of the same length
        archive.write_bytes(archive.read_bytes() + gzip.compress(lines("/6").encode()))
        self.assertEqual(archive.read_bytes()[size - 4 : size], archive.read_bytes()[-4:])
        os.utime(archive, (5, 5))
        self.night("/c /1 /a /1 /b /c /d /5 /6")

    def test_grown(self):
        whole = lines("/1", "/2", "/3")
        cut = len(lines("/1", "/2")) + 20
        self.write(".1", whole[:cut])
        self.night("/1 /2")
        self.write(".copy", lines("/1", "/2"))  # not looked at
        self.write(".8", lines("/1", "/2"))
        self.night("/1 /2", "no new logs")
        self.write(".1", whole, keep=cut)
        self.night("/1 /2 /3")
        self.write(".2", lines("/1", "/other"))
        self.night("/1 /2 /3 /1 /other")
        open_line = self.write(".3", lines("/4", "/last")[:-1])
        self.night("/1 /2 /3 /1 /other /4")
        os.utime(open_line, (1, 1))  # a day goes by
        files = "UPDATE vesk_nightly.files SET modified = 10^9 WHERE inode ="
        self.sql(f"{files} {open_line.stat().st_ino}")
        self.night("/1 /2 /3 /1 /other /4 /last")
        self.write(".3", lines("/4", "/last", "/more"))
        self.night("/1 /2 /3 /1 /other /4 /last /more")
        newest = "SELECT lines FROM vesk_nightly.logs ORDER BY id DESC LIMIT 1"
        self.assertEqual(self.sql(newest), "3")
        self.write(".3", lines("/4", "/last"))  # cut off, so what it was goes on elsewhere
        self.night("/1 /2 /3 /1 /other /4 /last /more", "^no new")
        self.write(".9", lines("/4", "/last", "/more", "/end"))
        self.night("/1 /2 /3 /1 /other /4 /last /more /end")

    def test_changed_afterwards(self):
        text = lines("/1", "/2") + lines("/3", at="21:00:00")
        self.write(".1", text)
        self.night("/1 /2 /3")
        self.write(".1", lines("/1", "/2"))  # put back from a backup
        self.night("/1 /2 /3", "no new logs")
        self.write(".1", lines("/1", "/2") + lines("/4", at="22:00:00"))
        told = "most of it was imported as /.*a b.log.1 on 2.*vesk-nightly mark example.org FILE\n$"
        self.expect("/1 /2 /3", err=told)
        self.write(".1", text.replace("192.0.2.1", "192.0.2.0"))
        self.expect("/1 /2 /3", err=told)
        self.expect("/1 /2 /3", err=told)
        other = lines("/5", "/6", "/7", at="20:30:00")  # of another server
        self.write(".2", lines("/1") + other)
        self.expect("/1 /2 /3 /1 /5 /6 /7", err=told)
        changed = str(self.folder / "a b.log.1")
        self.expect("/1 /2 /3 /1 /5 /6 /7", "imported: 1 logs", command="mark", files=[changed])
        self.night("/1 /2 /3 /1 /5 /6 /7", "no new logs")
        self.expect(
            "/1 /2 /3 /1 /5 /6 /7", command="mark", files=["nothing"], err="nothing is no file"
        )

    def test_first_tables(self):
        """The ledger of the first version: a log grown since, a renamed and a compressed one."""
        self.sql(FIRST_TABLES)
        for number, text in enumerate((lines("/1"), lines("/2", "/3"), lines("/4"))):
            values = f"'{checksum(text.splitlines(True)[0])}', '{checksum(text)}', {len(text)}"
            self.sql(
                "INSERT INTO vesk_nightly.logs (site_id, first_line, content, bytes, name, lines,"
                f" stored) VALUES (1, {values}, 'log', 1, 1)"
            )
        self.sql("INSERT INTO vesk_nightly.days VALUES (1, '2026-03-01')")
        self.assertEqual(self.expect("", command="list").count("1 lines"), 3)
        self.write(".1", lines("/1", "/new"))
        self.write(".2", lines("/2", "/3"))
        self.write(".3.gz", lines("/4"))
        self.expect("/new", "rolled up 2 days")
        self.expect("/new", "^no new")
        self.write(".2", lines("/3"))
        self.expect("/new /3")  # what was imported by the first version is not in this database
        times = "SELECT count(*) FROM vesk_nightly.logs WHERE first_at = '2026-03-11 5:00+9'"
        self.assertEqual(self.sql(times), "4")

    def test_marks_of_the_package_of_before(self):
        self.environment["STATE_DIRECTORY"] = str(self.folder)
        (self.folder / "imported").mkdir()
        marks = [(lines("/1"), lines("/1")), (lines("/2"), lines("/2", "/3"))]
        notes = "".join(f"{checksum(first)} {len(all)} /a name\n" for first, all in marks)
        (self.folder / "imported/example.org").write_text(notes)
        begun = self.folder / "imported/example.org.begun"
        begun.write_text(notes)
        self.write(".1", lines("/1"))
        self.write(".2.gz", lines("/2", "/3", "/4"))
        self.write(".3", lines("/5"))
        self.expect("", err="interrupted")
        begun.unlink()
        self.night("/4 /5", "^noted as imported by the package of before: 2 logs\n")
        self.night("/4 /5", "^no new")
        self.database.admin("add-site", "b.example", "B")
        (self.folder / "imported/b.example").write_text(notes)
        self.expect("/4 /5 /4 /5", "package of before: 2 logs\n", host="b.example")

    def test_late_lines(self):
        self.write(".1", lines(*range(50)))
        paths = " ".join(map(str, range(50)))
        self.night(paths)
        self.sql("DELETE FROM vesk.hits")
        self.write(".2", lines("/late") + lines("/today", day=12))
        told = "^2026-03-11 keeps its report: some of the requests that it counts are deleted"
        self.expect("/late /today", "rolled up 1 days", told)
        report = "SELECT n1 FROM vesk.rollup WHERE (scope, key) = ('all', 'requests') ORDER BY day"
        self.assertEqual(self.sql(report), "50\n1")
        self.expect("/late /today", "^no new")

    def test_retention(self):
        """Of days whose report and figures have all requests, one site without the other."""

        def retain(border, paths, out="^", err=None, host="example.org"):
            days = f"((now() AT TIME ZONE 'Asia/Tokyo')::date - date '2026-{border}')::text"
            self.sql(f"UPDATE vesk.settings SET value = {days} WHERE key = 'raw_hit_days'")
            self.expect(paths, out, err, "retain", host)

        self.assertEqual(self.database.admin("add-site", "b.example", "B").returncode, 0)
        self.write(".1", lines("/1", "/2"))
        self.write(".2", lines("/3", day=11))
        self.night("/1 /2 /3")
        self.expect("/1 /2 /3 /1 /2 /3", host="b.example")
        retain(
            "03-11",
            "/1 /2 /3 /1 /2 /3",
            "^(dropped.*_(before|2026_0[12])\n)*example.org has no.* before 2026-03-11\n$",
        )
        told = "^deleted 2 requests of 1 days, 2026-03-11 to 2026-03-11\n$"
        retain("03-12", "/3 /1 /2 /3", told)
        self.write(".3", lines("/4", "/5", "/6"))  # more than were deleted
        self.expect("/3 /1 /2 /3 /4 /5 /6", err="^2026-03-11 keeps its report")
        retain("04-02", "/3 /4 /5 /6", "^deleted 3 requests of 2 days", host="b.example")
        self.sql("UPDATE vesk.rollup SET n1 = 0 WHERE (site_id, day) = (1, '2026-03-12')")
        told = "^2026-03-12 keeps 1 requests: its report does not count all"
        retain("04-02", "/3", "^deleted 3 requests of 1 days", told)
        self.expect("/3", "rolled up 1 days")
        self.sql("DELETE FROM vesk_nightly.figures")
        retain("04-02", "/3", "^$", "^2026-03-12 keeps 1 requests: its figures are not stored;")
        self.expect("/3", "made up the figures of 1 days")
        dropped = "dropped the partition vesk.hits_2026_03\n" if PARTITIONED else ""
        retain("04-02", "", f"^{dropped}deleted 1 requests of 1 days, 2026-03-12 to 2026-03-12\n$")
        report = (
            "SELECT n1 FROM vesk.rollup WHERE site_id = 1 AND (scope, key) = ('all', 'requests')"
        )
        self.assertEqual(self.sql(report + " ORDER BY day"), "2\n1")
        self.assertEqual(self.sql("SELECT count(*) FROM vesk_nightly.deleted_days"), "4")
        self.database.admin("set", "raw_hit_days", "0")
        self.expect("", err='"0", and no number of days', command="retain", out="^$")

    def test_hourly(self):
        """A day in the log that is written to, with a rotation by copying and one by renaming."""
        self.environment["VESK_HOURLY"] = "yes"
        self.environment["VESK_LOGS"] += f" {self.folder}/a?b.log"
        written = ""
        live = self.folder / "a b.log"
        for hour in range(24):
            text = lines(f"/{hour}") + lines(f"/{hour}b", at=f"20:{hour + 1:02}:00")
            written += f" /{hour} /{hour}b"
            with open(live, "a") as file:
                file.write(text.replace("20:00:00", f"20:{hour:02}:50") + text[:40])
            self.night(written.strip())
            os.truncate(live, live.stat().st_size - 40)
            if hour == 8:
                shutil.copyfile(live, self.folder / "a b.log.1")
                os.truncate(live, 0)
            elif hour == 16:
                self.write(".2.gz", (self.folder / "a b.log.1").read_bytes())
                live.rename(self.folder / "a b.log.1")
        visits = "SELECT count(*), count(DISTINCT session_id) FROM vesk.hits"
        self.assertEqual(self.sql(visits), "48|1")

    def test_formats_and_hosts(self):
        """One log of several hosts, which two sites read, and one that changes its format."""
        self.assertEqual(self.database.admin("add-site", "b.example", "B").returncode, 0)
        self.environment["VESK_HOSTS"] = "blog.example.org"
        hosts = "www.EXAMPLE.org:443", "b.example", "blog.example.org", "c.example"
        vhost = "".join(f"{host} {lines(f'/{i}')}" for i, host in enumerate(hosts))
        entry = {"request": {"method": "GET", "host": "example.org", "uri": '/4"\n', "proto": "x"}}
        entry |= {"ts": 1773172800.5, "status": 200, "size": 5}
        entry["request"]["client_ip"] = "192.0.2.1"
        self.write(".1", vhost + json.dumps(entry) + "\nnonsense\n")
        told = r"1: 4 lines, 3 stored, 1 not log entries \(combined with host, Caddy's JSON, 2 lines of other"
        self.night('/0 /2 /4"%0A'.replace("%0A", "\n"), told)
        self.environment["VESK_HOSTS"] = ""
        self.expect('/0 /2 /4"\n /1', "1: 2 lines, 1 stored", host="b.example")
        self.sql("INSERT INTO vesk_nightly.days VALUES (1, '2026-03-11')")
        self.expect('/0 /2 /4"\n /1', "^no new logs of b.example\n$", host="b.example")

    def test_several_servers(self):
        """200 visitors with two visits each, whose lines two servers have, in zones of their own."""
        chance = random.Random(1)
        start = datetime.datetime(2026, 3, 10, 16, tzinfo=datetime.timezone.utc)
        requests = []
        for visitor in range(200):
            for visit in 0, 1:
                begin = start + datetime.timedelta(seconds=chance.randrange(3600) + 9000 * visit)
                requests += [
                    (begin + datetime.timedelta(seconds=at), visitor) for at in (0, 60, 135)
                ]
        servers = {"web1": "", "web2": ""}
        for at, visitor in sorted(requests):
            server, hours = chance.choice((("web1", 0), ("web2", 2)))
            local = at.astimezone(datetime.timezone(datetime.timedelta(hours=hours)))
            time = local.strftime("%d/%b/%Y:%H:%M:%S %z")
            servers[server] += vesk.log_line("/", f"192.0.2.{visitor}", time)
        servers["web3"] = lines(*range(9), at="17:00:00")
        for server, text in servers.items():
            (self.folder / server).mkdir()
            log = self.write(f"{server}/a b.log.1.gz", text)
        copy = self.write("web1/copy of a b.log.1", servers["web1"])
        log.write_bytes(log.read_bytes()[:-9])
        os.utime(log, (5, 5))
        self.environment["VESK_LOGS"] = f"{self.folder}/web*/*.log.1*"
        stored = " ".join(["/"] * 1200)
        told = "(?s)(2 logs are merged by time)\n(.*lines, .* stored, 0 not log entries.*){2}"
        self.expect(stored, told, "^.*web3/a b.log.1.gz is damaged and is not imported\n$")
        self.expect(stored, "^no new|^$", "damaged")
        totals = "SELECT n1, x FROM vesk.rollup WHERE (scope, dim) = ('all', 'totals') AND key ="
        self.assertEqual(self.sql(f"{totals} 'visits'"), f"400|{400 * 135}")
        self.assertEqual(self.sql(f"{totals} 'bounces'"), "0|0")
        noted = "SELECT count(*), sum(stored) FROM vesk_nightly.logs"
        self.assertEqual(self.sql(noted), "2|1200")
        log.unlink()
        copy.unlink()
        self.write("web1/a b.log.1.gz", servers["web1"].replace("192.0.2.", "198.51.100."))
        self.write("web3/a b.log.1", lines("/a", at="16:30:00") + lines("/b", at="18:30:00"), 9000)
        told = "^.*web1/a b.log.1.gz is not imported: most of it was imported"
        self.expect(stored + " /a /b", "^2 logs are merged", told)

    def test_default_logs(self):
        """In the folders of the web servers; [ and so on in a name match themselves alone."""
        del self.environment["VESK_LOGS"]
        self.environment["VESK_LOG_FOLDER"] = str(self.folder)
        self.assertEqual(self.database.admin("add-site", "[a]*.org", "A").returncode, 0)
        for server in "nginx", "apache2":
            (self.folder / server).mkdir()
            for host in "[a]*.org", "a.org", "[a]b.org":
                log = self.folder / server / f"{host}.log.1"
                log.write_text(lines(f"/{server}/{host}"))
                os.utime(log, (len(server), 1000 + len(server)))
        self.night("/nginx/[a]*.org /apache2/[a]*.org", host="[a]*.org")
        (self.folder / ":a").write_text(lines("/colon"))
        os.utime(self.folder / ":a", (1, 1))
        self.environment["VESK_LOGS"] = ":a"
        self.ended(self.start(cwd=self.folder), "/nginx/[a]*.org /apache2/[a]*.org /colon")

    def test_forgotten(self):
        """After 400 days, unless a file is there that is older."""
        there = self.write(".1", lines("/1"), 410 * 86400)
        self.write(".2", lines("/2"))
        self.night("/1 /2")
        (self.folder / "a b.log.2").unlink()
        known = "SELECT count(*) FROM vesk_nightly.logs"
        for days, age, count in (399, 0, 2), (405, 410, 2), (405, 0, 1):
            seen = f"now() - interval '{days} days'"
            self.sql(f"UPDATE vesk_nightly.logs SET seen = {seen} WHERE name LIKE '%2'")
            os.utime(there, (time.time() - age * 86400 - 1000,) * 2)
            self.night("/1 /2", "^no new")
            self.assertEqual(self.sql(known), str(count))


unittest.main(argv=sys.argv[1:])
