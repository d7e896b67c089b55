#!/usr/bin/env python3
"""A season of nights of vesk-nightly, whatever happens to it. SEED in the environment repeats one.

usage: scripts/with-postgres tests/e2e/season.py VESK-ADMIN VESK-NIGHTLY [-v]
"""

import datetime
import os
import pathlib
import random
import shutil
import sys
import time
import unittest

import vesk
from nights import PACK, Nights, start_server, stop_server

NIGHTS, KEPT = 30, 20
EPOCH = time.time() - 10**6
SHAPES = (  # the host, how its logs are rotated and compressed, and whether they are read every hour
    ("numbers.example", "number", ".gz", False),
    ("dates.example", "date", ".xz", False),
    ("hourly.example", "number", ".gz", True),
    ("copied.example", "copy", ".bz2", True),
)


class Site:
    """The lines of a site, and what logrotate makes of them."""

    def __init__(self, season, host, naming, suffix, hourly):
        self.chance, self.host, self.naming, self.suffix = season.chance, host, naming, suffix
        self.live = season.folder / f"{host}.log"
        logs = f"{self.live}*" if hourly else f"{self.live}[-.][0-9]*"
        self.environment = {"VESK_LOGS": logs, "VESK_HOURLY": "yes" if hourly else ""}
        season.database.admin("add-site", host, host)
        self.rotated = []  # the files, the latest first
        self.imported = []  # night and content of each
        self.all = self.rest = ""
        self.live.touch()

    def append(self, text):
        with open(self.live, "a") as file:
            file.write(text)

    def live_a_day(self, night):
        """Requests, at times with rotations in between, at times up to the middle of a line."""
        day = datetime.datetime(2026, 1, 1) + datetime.timedelta(days=night)
        seconds = [
            self.chance.randrange(86400)
            for _ in range(self.chance.choice((0, 1, 2, 40, 300, 1500)))
        ]
        for second in sorted(seconds):
            at = f"{day + datetime.timedelta(seconds=second):%d/%b/%Y:%H:%M:%S} +0000"
            ip = f"192.0.2.{self.chance.randrange(9)}"
            line = vesk.log_line(f"/{len(self.all):08}", ip, at)
            self.append(self.rest + line[:20])
            self.rest = line[20:]
            self.all += line
            if self.chance.random() < 2 / (len(seconds) + 2):
                self.rotate(night + second / 86400)
        if self.chance.random() < 0.7:
            self.rotate(night + 1)

    def rotate(self, night):
        self.append(self.rest)
        self.rest = ""
        text = self.live.read_text()
        if not text:
            return
        self.imported.append((night, text))
        if self.naming != "date":
            for number, old in reversed(list(enumerate(self.rotated))):
                suffix = old.suffix if old.suffix in PACK else ""
                self.rotated[number] = old.rename(f"{self.live}.{number + 2}{suffix}")
        latest = "-%012.0f" % (night * 10**6) if self.naming == "date" else ".1"
        latest = pathlib.Path(f"{self.live}{latest}")
        if self.naming == "copy":
            shutil.copyfile(self.live, latest)
            os.truncate(self.live, 0)
        else:
            self.live.rename(latest)
            self.live.touch()
        pack(latest, text, night)
        if self.rotated and self.rotated[0].suffix not in PACK:
            plain = self.rotated[0]
            self.rotated[0] = pathlib.Path(f"{plain}{self.suffix}")
            pack(self.rotated[0], plain.read_text(), *os.stat(plain)[8:9])
            plain.unlink()
        self.rotated.insert(0, latest)
        if len(self.rotated) > KEPT:
            self.rotated.pop().unlink()


def pack(path, text, night):
    """Writes a log of a night, or of that time."""
    path.write_bytes(PACK.get(path.suffix, bytes)(text.encode()))
    os.utime(path, (night if night > 10**6 else EPOCH + 6000 * night,) * 2)


class Season(Nights):
    def test_season(self):
        seed = int(os.environ.get("SEED", random.randrange(10**6)))
        print("seed", seed)
        self.chance = random.Random(seed)
        sites = [Site(self, *shape) for shape in SHAPES]
        faults = [self.killed, self.stopped, self.rotated, self.refused, self.lost, self.two]
        faults.append(self.put_back)
        for night in range(NIGHTS):
            for site in sites:
                site.live_a_day(night)
                if self.chance.random() < 0.6:
                    self.chance.choice(faults)(site, night)
                if night % 7 != 6:  # when the machine is off
                    self.check(site)
            if night % 20 == 10:
                self.copy("backup", self.database.name)
            if night % 20 == 14:
                self.copy(self.database.name, "backup")
        for site in sites:
            site.rotate(NIGHTS)
            self.check(site)
        self.compare(sites)

    def run_of(self, site):
        self.environment.update(site.environment)
        return self.start("import", site.host)

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
        run.communicate()

    def killed(self, site, night):
        run = self.run_of(site)
        time.sleep(self.chance.uniform(0, 0.3))
        run.kill()
        run.communicate()

    def stopped(self, site, night):
        run = self.run_of(site)
        time.sleep(self.chance.uniform(0, 0.3))
        stop_server()
        start_server()
        run.communicate()

    def rotated(self, site, night):
        self.held(site, lambda: site.rotate(night + 1))

    def refused(self, site, night):
        database = f"ALTER DATABASE {self.database.name}"
        vesk.psql(f"{database} SET default_transaction_read_only = on")
        self.run_of(site).communicate()
        vesk.psql(f"{database} RESET default_transaction_read_only")
        vesk.psql("CHECKPOINT")  # or a crash takes it back

    def lost(self, site, night):
        run = "FROM pg_stat_activity WHERE application_name = 'vesk-nightly'"
        self.held(site, lambda: self.sql(f"SELECT pg_terminate_backend(pid) {run}"))

    def two(self, site, night):
        runs = [self.run_of(site), self.run_of(site)]
        self.assertEqual([(run.communicate()[1], run.returncode) for run in runs], [("", 0)] * 2)

    def put_back(self, site, night):
        """A log of some night that was imported, whole or cut off behind its first line."""
        self.check(site)
        if site.imported:
            night, text = self.chance.choice(site.imported)
            end = self.chance.choice(
                (len(text), self.chance.randrange(text.index("\n"), len(text)))
            )
            back = pathlib.Path(f"{site.live}.99{self.chance.choice(('', '.gz', '.xz'))}")
            pack(back, text[: end + 1], night)
            self.check(site)
            back.unlink()

    def copy(self, to, of):
        vesk.psql(f"DROP DATABASE IF EXISTS {to} WITH (FORCE)")
        vesk.psql(f"CREATE DATABASE {to} TEMPLATE {of}")
        vesk.psql("CHECKPOINT")  # or a crash gives numbers of the copied sequences twice

    def compare(self, sites):
        """Everything is as after one import of each site's lines, but for the numbers of visits."""
        other = vesk.Database("whole", settings="timezone=Asia/Tokyo")
        secret = self.sql("SELECT value FROM vesk.settings WHERE key = 'visitor_secret'")
        other.sql(f"UPDATE vesk.settings SET value = '{secret}' WHERE key = 'visitor_secret'")
        for site in sites:
            other.admin("add-site", site.host, site.host)
            site.live.write_text(site.all)
            other.admin("import-log", site.host, site.live, env=os.environ | {"TZ": "Asia/Tokyo"})
        rows = (
            "SELECT string_agg(x, ',' ORDER BY x) FROM (SELECT format('%s %s %s %s', site_id, path,"
            " visitor, min(path) OVER (PARTITION BY session_id)) x FROM vesk.hits) y"
        )
        report = "SELECT string_agg(r::text, ',' ORDER BY r) FROM vesk.rollup r"
        for statement in "SELECT count(*) FROM vesk.hits", rows, report:
            self.assertEqual(self.sql(statement), other.sql(statement))
        self.assertEqual(self.sql("SELECT count(*) FROM vesk_nightly.days"), "0")


unittest.main(argv=sys.argv[1:])
