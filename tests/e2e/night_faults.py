#!/usr/bin/env python3
"""Nights of vesk-nightly in which something is wrong: logs, accounts, the database, other runs.

usage: scripts/with-postgres tests/e2e/night_faults.py VESK-ADMIN VESK-NIGHTLY [-v] [TEST...]
"""

import os
import shutil
import subprocess
import sys
import unittest

import vesk
from nights import NIGHTLY, Nights, lines, start_server, stop_server


class NightFaults(Nights):
    def test_damaged(self):
        paths = ["/4", *map(str, range(8000))]
        damaged = self.write(".6.gz", lines(*paths))
        archive = damaged.read_bytes()
        damaged.write_bytes(archive[:-900])
        os.utime(damaged, (1, 1))
        for _ in range(2):
            self.expect("", err="^.*a b.log.6.gz is damaged and is not imported\n$")
        os.utime(damaged)
        self.expect("", "6.gz was written to in the last five minutes")  # gzip is not done with it
        damaged.write_bytes(archive)
        os.utime(damaged, (1, 1))
        stored = " ".join(paths)
        self.night(stored)
        half = len(archive) // 2
        for part in archive[:-900], archive[:3], archive[:half] + bytes(99) + archive[half + 99 :]:
            damaged.write_bytes(part)
            os.utime(damaged, (2, 2))
            self.night(stored, "6.gz is damaged, but it was imported as /.*a b.log.6.gz on 2")
            self.night(stored, "^no new")
        other = self.write(".7.gz", lines("/never", "/seen"))
        other.write_bytes(other.read_bytes()[:20])
        os.utime(other, (3, 3))
        self.expect(stored, err="7.gz is damaged and is not")
        self.expect(stored, "imported: 1 logs", command="mark")
        self.night(stored, "^no new")

    def test_what_is_wrong(self):
        self.expect("", err="unknown site b.example", host="b.example")
        patterns = f"{self.folder}/none-\\* or {self.folder}/a"
        self.night("", f"no file matches {patterns}.* yet: the first rotation is awaited")
        self.expect("", err=f"no file matches {patterns}.*VESK_LOGS", command="mark", out="^$")
        self.sql("UPDATE vesk.sites SET created_at = now() - interval '4 days'")
        self.expect("", err=f"no file matches {patterns}", out="^$")
        for _ in range(2):
            self.write(".5", lines("/3"), 10)
            self.expect("", "last five minutes and is left for the next run")
        self.write(".5", lines("/3"), 10)
        self.night("/3")
        self.write(".8", lines("/7").replace("GET", 'G"ET\x1b'))
        for _ in range(2):
            strange = "^.*log.8 not one line is an access-log entry, the first is: 192.*\ufffd.*\n$"
            self.expect("/3", "1 lines, 0 stored, 1 not log entries .no known", strange)
        self.expect("/3", "imported: 1 logs", command="mark")
        self.write(".9", bytes(5000), 100000)
        self.expect("/3", err="log.9 holds no text")
        (self.folder / "a b.log.9").rename(self.folder / "a b.log.10")
        self.write(".9.xz", bytes(5000), 90000)
        self.night("/3", "^no new")
        (self.folder / "a b.log.11").symlink_to("/proc/self/mem")
        self.expect("/3", err="log.11 cannot be read to its end")
        (self.folder / "a b.log.11").unlink()
        path = self.environment["PATH"]
        self.environment["PATH"] = "/nowhere"
        self.write(".11.xz", lines("/11"))
        self.expect("/3", err="xz is missing, install it")
        self.environment["PATH"] = path
        ini = self.database.config
        settings = ini.read_text()
        ini.write_text(settings.replace("Asia/Tokyo", "-7"))
        self.expect("/3 /11")
        ini.write_text(settings.replace("Tokyo", "Tokio"))
        self.expect("/3 /11", err="Tokio, which the database")

    def test_refused_by_the_database(self):
        self.sql("ALTER TABLE vesk.hits ADD CONSTRAINT refuse CHECK (path <> '/refused')")
        nine = ["/fine"] * 5500 + ["/refused"] + ["/fine"] * 500
        self.write(".9", lines(*nine), 9000)
        self.write(".10", lines("/refused"))
        self.write(".13", lines("/8"), 3000)
        told = "sql: .*log.9 is not imported: the database did not keep lines 5001 to.*sql: .*log.10 is"
        self.expect("/8", err="(?s)^(?!.*aborted).*" + told)
        self.sql("ALTER TABLE vesk.hits DROP CONSTRAINT refuse")
        stored = " ".join(["/8", *nine, "/refused"])
        self.night(stored)
        self.sql("ALTER TABLE vesk_nightly.days ADD CONSTRAINT refuse CHECK (day < '2026-03-13')")
        self.write(".12", lines("/12", day=12))
        self.expect(stored, err="log.12 may not be imported: the next run finds out and does it")
        self.sql("ALTER TABLE vesk_nightly.days DROP CONSTRAINT refuse")
        self.sql("ALTER TABLE vesk.rollup ADD CONSTRAINT refuse CHECK (day < '2026-03-13')")
        self.expect(stored + " /12", err="sql: (?s:.*)\n2026-03-13 is not rolled up, the next run")
        self.sql("ALTER TABLE vesk.rollup DROP CONSTRAINT refuse")
        self.night(stored + " /12", "rolled up 1 days")
        self.sql("ALTER TABLE vesk.sites RENAME TO elsewhere")
        self.expect(stored + " /12", err="(?s)^sql: (?!.*unknown site)")

    def test_two_at_once_and_missed_days(self):
        """The first run is killed while it rolls up, which the second one waits for and does."""
        self.write(".1", lines("/1"))
        holder = vesk.Session(self.database.name, "BEGIN", "LOCK vesk.rollup")
        first = self.start(stdout=subprocess.DEVNULL)
        vesk.until(self.database.waiting)
        second = self.start()
        self.assertEqual(second.stdout.readline(), "waiting for another run for example.org\n")
        self.assertEqual(self.sql("SELECT count(*) FROM vesk_nightly.days"), "1")
        self.write(".2", lines("/2", "/3"))  # meanwhile all are rotated
        (self.folder / "a b.log.1").rename(self.folder / "a b.log.3")
        first.kill()
        first.communicate()
        holder.end()
        self.ended(second, "/1 /2 /3", "b.log.2: 2 lines, 2 stored, 0 not.*\nrolled up 1 days\n$")
        self.night("/1 /2 /3", "no new logs", host="Example\\x2eorg")  # as systemd escapes it

    def test_first_runs_at_once(self):
        self.database.admin("add-site", "b.example", "")
        self.write(".1", lines("/1"))
        lock = "SELECT pg_advisory_lock(hashtextextended('vesk nightly', 0))"
        holder = vesk.Session(self.database.name, lock)
        runs = [self.start(), self.start("import", "b.example")]
        vesk.until(lambda: self.database.waiting(2))
        holder.end()
        self.assertEqual([run.communicate()[1] for run in runs], ["", ""])

    def test_rotation_meanwhile(self):
        for number in 3, 2, 1:
            self.write(f".{number}", lines(f"/{number}", f"/{number}b"), 9000 + number)
        holder = vesk.Session(self.database.name, "BEGIN", "LOCK vesk.hits")
        run = self.start()
        vesk.until(self.database.waiting)
        for number in 3, 2, 1:
            (self.folder / f"a b.log.{number}").rename(self.folder / f"a b.log.{number + 1}")
        self.write(".1", lines("/0"))
        holder.end()
        self.ended(run, "/3 /3b /2 /2b /1 /1b")
        self.night("/3 /3b /2 /2b /1 /1b /0", "^.*log.1: 1 lines.*\n")

    def test_copied_and_truncated_meanwhile(self):
        """And grown beyond what was read."""
        self.environment["VESK_HOURLY"] = "yes"
        before, after = (lines(*(f"/{part}{i}" for i in range(15000))) for part in "ab")
        log = self.write(".1", before, 10)
        holder = vesk.Session(self.database.name, "BEGIN", "LOCK vesk.hits")
        run = self.start()
        vesk.until(self.database.waiting)
        self.write(".2", before)
        log.write_text(after)
        holder.end()
        self.ended(
            run, self.sql("SELECT string_agg(path, ' ' ORDER BY id) FROM vesk.hits"), "changed"
        )
        self.start().communicate()
        counts = "SELECT count(*), count(DISTINCT path) FROM vesk.hits"
        self.assertEqual(self.sql(counts), "30000|30000")

    def test_lost_connection(self):
        for number in 1, 2:
            self.write(f".{number}", lines(f"/{number}"), 9000 - number)
        holder = vesk.Session(self.database.name, "BEGIN", "LOCK vesk.hits")
        run = self.start()
        vesk.until(self.database.waiting)
        stop_server()
        complained = run.communicate()[1]
        start_server()
        self.assertRegex(complained, "^sql: .*\n.*log.1 is not imported.*\n.*log.2 is not.*\n$")
        self.assertEqual(run.returncode, 1)
        holder = vesk.Session(self.database.name, "BEGIN", "LOCK vesk.hits")
        run = self.start()
        vesk.until(self.database.waiting)
        site = vesk.Session(self.database.name, "\\set AUTOCOMMIT on")
        key = "hashtextextended('vesk nightly 1', 0)"
        site.psql.stdin.write(f"SELECT pg_advisory_lock({key});\n")
        site.psql.stdin.flush()
        vesk.until(lambda: self.database.waiting(2))
        pid = "SELECT pid FROM pg_stat_activity WHERE application_name = 'vesk-nightly'"
        self.sql(f"SELECT pg_terminate_backend(({pid}))")
        holder.end()
        vesk.until(self.database.waiting)  # for the site, which is another session's now
        site.end()
        self.ended(run, "/2", err="^sql: .*\n.*log.1 is not imported.*\n$")
        self.night("/2 /1")

    def test_closed(self):
        """As another account than root, which may read and search everything."""
        program = shutil.copy(NIGHTLY, vesk.FOLDER)
        vesk.FOLDER.chmod(0o755)
        command = ["setpriv", "--reuid=postgres", "--regid=postgres", "--clear-groups", program]
        self.write(".1", lines("/1"))
        command = command if os.getuid() == 0 else command[-1:]
        for closed, mode, told in (
            (self.folder, 0o444, "the folder /.*/ cannot be searched"),
            (self.database.config, 0, "^the configuration /.* cannot be read: .*root:vesk.*\n$"),
        ):
            closed.chmod(mode)
            run = subprocess.run(
                [*command, "import", "example.org"], env=self.environment, capture_output=True
            )
            closed.chmod(0o755)
            self.assertRegex(run.stderr.decode(), told)
            self.assertEqual(run.returncode, 1)


unittest.main(argv=sys.argv[1:])
