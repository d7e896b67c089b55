#!/usr/bin/env python3
"""Rotates made-up logs and has vesk-nightly import them, whatever happens to it.

usage: scripts/with-postgres tests/e2e/nightly.py VESK-ADMIN VESK-NIGHTLY [-v] [TEST...]
"""

import bz2
import gzip
import hashlib
import lzma
import os
import pathlib
import random
import subprocess
import sys
import time
import unittest

import vesk

NIGHTLY = os.path.abspath(sys.argv.pop(2))
LIB = pathlib.Path(__file__).resolve().parents[2] / "scripts/lib.sh"
KILLS, STOPS = 32, 5
PACK = {".gz": gzip.compress, ".bz2": bz2.compress, ".xz": lzma.compress}
PACK[".zst"] = lambda data: subprocess.run("zstd", input=data, capture_output=True).stdout


def server(function):
    """Calls a function of scripts/lib.sh, or a command of it as the server's account."""
    script = f"source '{LIB}'; find_server; {function}"
    subprocess.run(["bash", "-euc", script], check=True, stdout=subprocess.DEVNULL)


def stop_server():
    server(f"as_server $server_bin/pg_ctl stop -s -m immediate -D '{vesk.CLUSTER}/data'")


def start_server():
    server(f"start_cluster '{vesk.CLUSTER}/data' '{vesk.CLUSTER}' '{vesk.CLUSTER}/server.log'")


def lines(*paths, day=10):
    return "".join(vesk.log_line(path, time=f"{day:02}/Mar/2026:12:00:00 +0000") for path in paths)


class Nightly(unittest.TestCase):
    def setUp(self):
        self.database = vesk.Database(self.id().split(".")[-1], settings="timezone=Asia/Tokyo")
        self.addCleanup(vesk.psql, f"DROP DATABASE {self.database.name} WITH (FORCE)")
        self.sql = self.database.sql
        self.folder = vesk.FOLDER / self.database.name
        self.folder.mkdir()
        logs = f"{self.folder}/none-* {self.folder}/a?b.log[-.][0-9]*"
        config = str(self.database.config)
        self.environment = os.environ | {"VESK_CONFIG": config, "VESK_LOGS": logs}

    def write(self, suffix, text, age=3600):
        target = self.folder / f"a b.log{suffix}"
        target.write_bytes(PACK.get(target.suffix, bytes)(text.encode()))
        os.utime(target, (time.time() - age,) * 2)
        return target

    def start(self, *arguments, **options):
        command = [NIGHTLY, *(arguments or ("import", "example.org"))]
        pipes = {"stdout": subprocess.PIPE, "stderr": subprocess.PIPE, "text": True}
        return subprocess.Popen(command, env=self.environment, **(pipes | options))

    def expect(self, paths, out="^", err=None, command="import", host="example.org"):
        """A run after which exactly these paths are stored, in order; a failed one with err."""
        process = self.start(command, host)
        printed, complained = process.communicate()
        seen = (process.returncode, printed, complained)
        self.assertEqual(process.returncode, 0 if err is None else 1, seen)
        self.assertRegex(printed, out, seen)
        self.assertRegex(complained, "^$" if err is None else err, seen)
        stored = self.sql("SELECT string_agg(path, ' ' ORDER BY id) FROM vesk.hits")
        self.assertEqual(stored, paths, seen)
        self.assertEqual(self.unfinished(), "0|0", seen)
        return printed

    def unfinished(self):
        """Days whose report lines differ from the requests, and days that wait to be rolled up."""
        return self.sql(
            "SET timezone = 'Asia/Tokyo'; WITH a AS (SELECT at::date AS day, count(*) AS n"
            " FROM vesk.hits GROUP BY 1), b AS (SELECT day, n1 AS n FROM vesk.rollup WHERE"
            " (scope, dim, key) = ('all', 'totals', 'requests')) SELECT (SELECT count(*) FROM a"
            " FULL JOIN b USING (day) WHERE a.n IS DISTINCT FROM b.n),"
            " (SELECT count(*) FROM vesk_nightly.days)"
        )

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

    def test_nights(self):
        one = self.write(".1", lines("/1"))
        self.write(".2.gz", lines("/0"), 90000)
        self.expect("/0 /1", "(?s)2.gz: 1 lines, 1 stored, 0 not.*rolled up 1 days")
        self.expect("/0 /1", "^no new logs of example.org\n$")
        # All move on, one is compressed now, an empty one and a dated name come along.
        (self.folder / "a b.log.2.gz").rename(self.folder / "a b.log.3.gz")
        one.unlink()
        self.write(".2.bz2", lines("/1"))
        self.write("-20260311", lines("/2", day=11))
        self.write(".4", "")
        self.write(".5.zst", lines("/zst", day=11), 100000)
        self.expect("/0 /1 /zst /2")
        first = hashlib.sha256(lines("/0").encode()).hexdigest()
        known = f"SELECT lines, bytes FROM vesk_nightly.logs WHERE first_line = '{first}'"
        self.assertEqual(self.sql(known), f"1|{len(lines('/0'))}")
        self.write(".7.xz", lines("/by-hand"))
        self.expect("/0 /1 /zst /2", "noted as imported: 1 logs", command="mark")
        shown = self.expect("/0 /1 /zst /2", command="list").splitlines()
        self.assertRegex(shown[0], r"^2.{18}  1 lines, 1 stored +/.*a b.log.2.gz$")
        self.assertRegex(shown[-1], r"  only noted +/.*a b.log.7.xz$")
        self.expect("/0 /1 /zst /2", "no new logs")

    def test_grown(self):
        whole = lines("/1", "/2", "/3")
        cut = len(lines("/1", "/2")) + 20
        self.write(".1", whole[:cut])
        self.expect("/1 /2")
        self.write(".1", whole[:cut])
        self.expect("/1 /2", "no new logs")
        self.write(".1", whole)
        self.expect("/1 /2 /3")
        self.write(".2", lines("/1", "/other", "/other2", "/other3"))
        self.expect("/1 /2 /3 /1 /other /other2 /other3")
        self.write(".3", lines("/last")[:-1])
        self.expect("/1 /2 /3 /1 /other /other2 /other3", "no new logs")
        self.write(".3", lines("/last")[:-1], 100000)
        self.expect("/1 /2 /3 /1 /other /other2 /other3 /last")
        self.write(".3", lines("/last", "/more"))
        self.expect("/1 /2 /3 /1 /other /other2 /other3 /last /more")
        newest = "SELECT lines FROM vesk_nightly.logs ORDER BY id DESC LIMIT 1"
        self.assertEqual(self.sql(newest), "2")

    def test_what_is_wrong(self):
        self.expect("", command="list")
        self.expect("", err="unknown site b.example", host="b.example")
        self.expect("", err=f"no file matches {self.folder}/none-\\* or {self.folder}/a", out="^$")
        self.write(".5", lines("/young"), 10)
        self.expect("", "last five minutes and is left for the next run")
        self.write(".5", lines("/3"))
        damaged = self.write(".6.gz", lines("/4", *range(20000)))
        archive = damaged.read_bytes()
        damaged.write_bytes(archive[:-9])
        os.utime(damaged, (1, 1))
        self.expect("/3", err="^.*a b.log.6.gz is damaged and is not imported\n$")
        damaged.write_bytes(PACK[".gz"](lines("/4").encode()))
        os.utime(damaged, (1, 1))
        self.expect("/3 /4")
        vhost = "".join(f"a.example:80 {line}\n" for line in lines("/5", "/6").splitlines())
        self.write(".7", vhost.replace("UA", "\x1b[7m"))
        self.expect("/3 /4", "2 lines, 0 stored, 2 not", "\ufffd\\[7m.*host name in front")
        self.write(".8", lines("/7").replace("GET", 'G"ET'))
        self.expect(
            "/3 /4", err="(?s)not one line is an access-log entry, the first is: 192(?!.*host)"
        )
        (self.folder / "a b.log.9").symlink_to("/proc/self/mem")
        self.expect("/3 /4", err="log.9 cannot be read to its end")
        (self.folder / "a b.log.9").unlink()
        self.sql("ALTER TABLE vesk.hits ADD CONSTRAINT refuse CHECK (path <> '/refused')")
        nine = ["/fine"] * 5500 + ["/refused"] + ["/fine"] * 500
        self.write(".9", lines(*nine), 9000)
        self.write(".10", lines("/refused"))
        self.write(".13", lines("/8"), 3000)
        told = "sql: .*log.9 is not imported: the database did not keep lines 5001 to.*sql: .*log.10 is"
        self.expect("/3 /4 /8", err="(?s)^(?!.*aborted).*" + told)
        self.sql("ALTER TABLE vesk.hits DROP CONSTRAINT refuse")
        stored = " ".join(["/3 /4 /8", *nine, "/refused"])
        self.expect(stored)
        self.sql("ALTER TABLE vesk_nightly.days ADD CONSTRAINT refuse CHECK (day <> '2026-03-12')")
        self.write(".12", lines("/12", day=12))
        self.expect(stored, err="log.12 may not be imported: the next run finds out and does it")
        self.sql("ALTER TABLE vesk_nightly.days DROP CONSTRAINT refuse")
        self.expect(stored + " /12")
        self.environment["PATH"] = "/nowhere"
        self.write(".11.xz", lines("/11"))
        self.expect(stored + " /12", err="xz is missing, install it")
        ini = self.database.config
        ini.write_text(ini.read_text().replace("Tokyo", "Tokio"))
        self.expect(stored + " /12", err="Tokio, which the database")

    def test_two_at_once_and_missed_days(self):
        """The first run is killed while it rolls up, which the second one waits for and does."""
        self.write(".1", lines("/1"))
        holder = vesk.Session(self.database.name, "BEGIN", "LOCK vesk.rollup")
        first = self.start(stdout=subprocess.DEVNULL)
        vesk.until(self.database.waiting)
        second = self.start()
        self.assertEqual(second.stdout.readline(), "waiting for another run for example.org\n")
        self.assertEqual(self.sql("SELECT count(*) FROM vesk_nightly.days"), "1")
        first.kill()
        first.communicate()
        holder.end()
        told = "no new logs of example.org\nrolled up 1 days\n"
        self.assertEqual(second.communicate(), (told, ""))
        self.expect("/1", "no new logs", host="Example\\x2eorg")  # as systemd escapes it


unittest.main(argv=sys.argv[1:])
