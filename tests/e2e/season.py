#!/usr/bin/env python3
"""Has vesk-nightly import rotated logs, whatever happens to it.

usage: scripts/with-postgres tests/e2e/season.py VESK-ADMIN VESK-NIGHTLY [-v] [TEST...]
"""

import datetime
import os
import random
import shutil
import subprocess
import sys
import time
import unittest

import vesk
from nights import PACK, Nights, lines, start_server, stop_server

KILLS, STOPS = 32, 5
NIGHTS, KEPT = 60, 40
EPOCH = time.time() - 10**6
SHAPES = (
    ("numbers.example", "number", ".gz", False),
    ("dates.example", "date", ".xz", False),
    ("hourly.example", "number", ".gz", True),
    ("copied.example", "copy", ".bz2", True),
)


def pack(path, text, age):
    path.write_bytes(PACK.get(path.suffix, bytes)(text.encode()))
    os.utime(path, (EPOCH + 600 * age,) * 2)


class Site:
    """A site, its lines and what logrotate makes of them."""

    def __init__(self, season, host, naming, suffix, hourly):
        self.chance, self.host, self.naming, self.suffix = season.chance, host, naming, suffix
        self.folder = season.folder / host
        self.folder.mkdir()
        self.live = self.folder / f"{host}.log"
        logs = f"{self.live}[-.][0-9]*"
        self.environment = {"VESK_LOGS": f"{self.live}* " if hourly else logs}
        self.environment["VESK_HOURLY"] = "yes" if hourly else ""
        season.database.admin("add-site", host, host)
        self.kept = []  # the nights and contents of rotated logs
        self.all = self.rest = ""
        self.live.touch()

    def live_a_day(self, night):
        """Requests up to the middle of a line, with rotations in between."""
        day = datetime.datetime(2026, 1, 1) + datetime.timedelta(days=night)
        count = self.chance.choice((0, 1, 2, 40, 300))
        seconds = sorted(self.chance.randrange(86400) for _ in range(count))
        parts = 1 if self.chance.random() < 0.7 else self.chance.randrange(2, 4)
        for part in range(parts):
            for second in seconds[count * part // parts : count * (part + 1) // parts]:
                at = day + datetime.timedelta(seconds=second)
                self.write(
                    vesk.log_line(
                        f"/{len(self.all):08}",
                        f"192.0.2.{self.chance.randrange(9)}",
                        f"{at:%d/%b/%Y:%H:%M:%S} +0000",
                    )
                )
            self.rotate(night + 0.1 * part)
        if count and self.chance.random() < 0.3:
            line = vesk.log_line("/half", time=f"{day:%d/%b/%Y}:23:59:59 +0000")
            self.all += line
            self.rest = line[20:]
            self.append(line[:20])

    def write(self, line):
        self.all += line
        self.append(line)

    def append(self, text):
        with open(self.live, "a") as file:
            file.write(text)

    def end_line(self):
        self.append(self.rest)
        self.rest = ""

    def rotate(self, night):
        self.end_line()
        text = self.live.read_text()
        if not text:
            return
        self.kept.append((night, text))
        name = f"{self.live.name}-{night * 10:08.0f}" if self.naming == "date" else None
        if not name:
            for number in range(KEPT, 0, -1):
                for old in self.folder.glob(f"*.log.{number}*"):
                    if old.name.split(".log.")[1].split(".")[0] == str(number):
                        tail = old.name.split(f".log.{number}")[1]
                        old.rename(self.folder / f"{self.live.name}.{number + 1}{tail}")
        late = [old for old in self.folder.glob("*.log[-.]*") if not PACK.get(old.suffix)]
        rotated = self.folder / (name or f"{self.live.name}.1")
        if self.naming == "copy":
            shutil.copyfile(self.live, rotated)
            os.truncate(self.live, 0)
        else:
            self.live.rename(rotated)
            self.live.touch()
        os.utime(rotated, (EPOCH + 600 * night,) * 2)
        for old in late if self.suffix else []:
            state = old.stat()
            packed = old.with_name(old.name + self.suffix)
            packed.write_bytes(PACK[self.suffix](old.read_bytes()))
            os.utime(packed, ns=(state.st_atime_ns, state.st_mtime_ns))
            old.unlink()


class Season(Nights):
    def test_killed_again_and_again(self):
        seed = random.randrange(10**6)
        print("seed", seed)
        chance = random.Random(seed)
        written = kills = round = 0
        longest = 0.5
        while kills < KILLS:
            round += 1
            count = chance.choice((10, 3000, 12000))
            text = lines(*(f"/{round}-{i}" for i in range(count)), day=1 + round % 28)
            self.write(f"-{round}" + (".gz" if round % 3 == 0 else ""), text, 10**6 - round)
            written += count
            begun = time.monotonic()
            process = self.start(stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)
            try:
                self.assertEqual(process.wait(chance.uniform(0, longest)), 0)
                longest = max(longest, time.monotonic() - begun)
            except subprocess.TimeoutExpired:
                kills += 1
                if kills % (KILLS // STOPS) == 0:
                    stop_server()
                    self.assertEqual(process.wait(), 1)
                    start_server()
                process.kill()
                process.wait()
            if self.sql("SELECT to_regclass('vesk_nightly.logs')"):
                noted = "SELECT coalesce(sum(stored), 0) FROM vesk_nightly.logs"
                self.assertEqual(self.sql(noted), self.sql("SELECT count(*) FROM vesk.hits"))
        self.assertEqual(self.start().communicate()[1], "")
        counts = self.sql("SELECT count(*), count(DISTINCT path) FROM vesk.hits")
        self.assertEqual(counts, f"{written}|{written}")
        self.assertEqual(self.sql("SELECT count(*) FROM vesk_nightly.logs"), str(round))
        self.assertEqual(self.unfinished(), "0|0")

    def test_season(self):
        seed = int(os.environ.get("SEED", random.randrange(10**6)))
        print("seed", seed)
        self.chance = random.Random(seed)
        sites = [Site(self, *shape) for shape in SHAPES]
        faults = [self.killed, self.rotated, self.refused, self.lost, self.two, self.put_back]
        for night in range(NIGHTS):
            for site in sites:
                site.live_a_day(night)
                fault = self.chance.choice(faults + [None] * len(faults))
                if fault:
                    fault(site, night)
                if night % 7 != 6:  # when the machine is off
                    self.check(site)
                site.end_line()
            if night % 20 == 10:
                self.copy("backup", self.database.name)
            if night % 20 == 14:
                self.copy(self.database.name, "backup")
        for site in sites:
            site.rotate(NIGHTS)
            self.check(site)
        self.compare(sites)

    def run_of(self, site, **options):
        self.environment.update(site.environment)
        return self.start("import", site.host, **options)

    def check(self, site):
        """A run without a fault says nothing but what it has done."""
        run = self.run_of(site)
        seen = run.communicate()
        self.assertEqual((run.returncode, seen[1]), (0, ""), seen)

    def held(self, site, change):
        """A run that waits for a table while something changes."""
        holder = vesk.Session(self.database.name, "BEGIN", "LOCK vesk.hits, vesk_nightly.logs")
        run = self.run_of(site)
        vesk.until(lambda: run.poll() is not None or self.database.waiting())
        change()
        holder.end()
        return run.communicate()

    def killed(self, site, night):
        run = self.run_of(site)
        time.sleep(self.chance.uniform(0, 0.15))
        run.kill()
        run.communicate()

    def rotated(self, site, night):
        self.held(site, lambda: site.rotate(night + 0.5))

    def refused(self, site, night):
        vesk.psql(f"ALTER DATABASE {self.database.name} SET default_transaction_read_only = on")
        self.run_of(site).communicate()
        vesk.psql(f"ALTER DATABASE {self.database.name} RESET default_transaction_read_only")

    def lost(self, site, night):
        pid = "SELECT pid FROM pg_stat_activity WHERE application_name = 'vesk-nightly'"
        self.held(site, lambda: self.sql(f"SELECT pg_terminate_backend(pid) FROM ({pid}) p"))

    def two(self, site, night):
        runs = [self.run_of(site), self.run_of(site)]
        self.assertEqual([(run.communicate()[1], run.returncode) for run in runs], [("", 0)] * 2)

    def put_back(self, site, night):
        """A log of some night that was imported, whole or cut off."""
        self.check(site)
        if not site.kept:
            return
        kept, text = self.chance.choice(site.kept)
        back = site.folder / f"{site.host}.log.99{self.chance.choice(('', '.gz', '.xz'))}"
        part = (
            text
            if self.chance.random() < 0.5
            else text[: self.chance.randrange(text.index("\n") + 1, len(text) + 1)]
        )
        pack(back, part, 5 + kept)
        self.check(site)
        back.unlink()

    def copy(self, to, of):
        vesk.psql(f"DROP DATABASE IF EXISTS {to} WITH (FORCE)")
        vesk.psql(f"CREATE DATABASE {to} TEMPLATE {of}")

    def compare(self, sites):
        """Everything is as after one import of each site's lines, but for the numbers of visits."""
        other = vesk.Database("whole", settings="timezone=Asia/Tokyo")
        secret = self.sql("SELECT value FROM vesk.settings WHERE key = 'visitor_secret'")
        other.sql(f"UPDATE vesk.settings SET value = '{secret}' WHERE key = 'visitor_secret'")
        for site in sites:
            other.admin("add-site", site.host, site.host)
            whole = self.folder / f"{site.host}-whole"
            whole.write_text(site.all)
            other.admin("import-log", site.host, whole, env=os.environ | {"TZ": "Asia/Tokyo"})
        rows = (
            "SELECT string_agg(x, ',' ORDER BY x) FROM (SELECT format('%s %s %s %s', site_id, path,"
            " visitor, min(path) OVER (PARTITION BY session_id)) x FROM vesk.hits) y"
        )
        report = "SELECT string_agg(r::text, ',' ORDER BY r) FROM vesk.rollup r"
        for statement in "SELECT count(*) FROM vesk.hits", rows, report:
            self.assertEqual(self.sql(statement), other.sql(statement))
        self.assertEqual(self.sql("SELECT count(*) FROM vesk_nightly.days"), "0")


unittest.main(argv=sys.argv[1:])
