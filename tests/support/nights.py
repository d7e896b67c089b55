"""What the tests of vesk-nightly share: a site with a database and a folder of logs of its own.

The second argument is the program.
"""

import bz2
import gzip
import lzma
import os
import pathlib
import subprocess
import sys
import time
import unittest

import vesk

NIGHTLY = os.path.abspath(sys.argv.pop(2))
LIB = pathlib.Path(__file__).resolve().parents[2] / "scripts/lib.sh"
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


def lines(*paths, day=10, at="20:00:00"):
    """Of an evening in UTC, which is the next morning where the site is."""
    time = f"{day:02}/Mar/2026:{at} +0000"
    return "".join(vesk.log_line(path, time=time) for path in paths)


class Nights(unittest.TestCase):
    def setUp(self):
        self.database = vesk.Database(self.id().split(".")[-1], settings="timezone=Asia/Tokyo")
        self.addCleanup(vesk.psql, f"DROP DATABASE {self.database.name} WITH (FORCE)")
        self.sql = self.database.sql
        self.folder = vesk.FOLDER / self.database.name
        self.folder.mkdir()
        logs = f"{self.folder}/none-* {self.folder}/a?b.log[-.][0-9]*"
        config = str(self.database.config)
        self.environment = os.environ | {"VESK_CONFIG": config, "VESK_LOGS": logs}

    def write(self, suffix, text, age=3600, keep=None):
        """A log. With keep its file stays the same one with so many bytes of it, as when it grows."""
        target = self.folder / (suffix if "/" in suffix else f"a b.log{suffix}")
        data = text if isinstance(text, bytes) else text.encode()
        with open(target, "wb" if keep is None else "r+b") as file:
            file.seek(keep or 0)
            file.write(PACK.get(target.suffix, bytes)(data)[keep or 0 :])
        os.utime(target, (time.time() - age,) * 2)
        return target

    def start(self, *arguments, **options):
        command = [NIGHTLY, *(arguments or ("import", "example.org"))]
        pipes = {"stdout": subprocess.PIPE, "stderr": subprocess.PIPE, "text": True}
        return subprocess.Popen(command, env=self.environment, **(pipes | options))

    def expect(self, paths, out="^", err=None, command="import", host="example.org", files=()):
        """A run after which exactly these paths are stored, in order; a failed one with err."""
        return self.ended(self.start(command, *([host] if host else []), *files), paths, out, err)

    def ended(self, process, paths, out="^", err=None):
        printed, complained = process.communicate()
        seen = (process.returncode, printed, complained)
        self.assertEqual(process.returncode, 0 if err is None else 1, seen)
        self.assertRegex(printed, out, seen)
        self.assertRegex(complained, "^$" if err is None else err, seen)
        stored = self.sql("SELECT string_agg(path, ' ' ORDER BY id) FROM vesk.hits")
        self.assertEqual(stored, paths, seen)
        return printed

    def night(self, *arguments, **options):
        """A run after which all days are rolled up."""
        printed = self.expect(*arguments, **options)
        self.assertEqual(self.unfinished(), "0|0")
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
