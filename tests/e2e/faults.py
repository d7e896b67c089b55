#!/usr/bin/env python3
"""What is left when something goes wrong: each test breaks something around a running program.

usage: scripts/with-postgres tests/e2e/faults.py PROGRAM [-v] [TEST...]

Access logs come through a FIFO where the program has to be in the middle of its work: a slice of 5,000
lines is committed once the next one has been read.
"""

import gzip
import json
import os
import pathlib
import re
import shutil
import signal
import subprocess
import sys
import tempfile
import unittest

import vesk

LIB = pathlib.Path(__file__).resolve().parents[2] / "scripts/lib.sh"
PASSWORD = "connection-pass'word\\"
DAY = "2026-03-10"


def cluster(function):
    """Calls a function of scripts/lib.sh, or a command of it as the server's account."""
    subprocess.run(
        ["bash", "-euc", f"source '{LIB}'; find_server; {function}"],
        check=True,
        stdout=subprocess.DEVNULL,
    )


def lines(first, last):
    made = (vesk.log_line(f"/{i}", f"192.0.2.{i % 50}") for i in range(first, last + 1))
    return "".join(made).encode()


def alive(pid):
    try:
        return pathlib.Path(f"/proc/{pid}/stat").read_text().rsplit(")", 1)[1].split()[0] != "Z"
    except (FileNotFoundError, ProcessLookupError):
        return False


def children(program):
    """The processes that the program has started and not yet seen end."""
    return pathlib.Path(f"/proc/{program.pid}/task/{program.pid}/children").read_text().split()


def unfinished_archive():
    """Of 14,000 lines, big enough that gunzip gives out most of them while it waits for the end."""
    return gzip.compress(lines(1, 14000), compresslevel=0)[:-8]


class Faults(unittest.TestCase):
    number = 0

    def setUp(self):
        Faults.number += 1
        self.name = f"fault{Faults.number}"
        self.folder = pathlib.Path(tempfile.mkdtemp())
        self.log = self.folder / "a.log"
        self.addCleanup(shutil.rmtree, self.folder)
        self.create()

    def create(self, options=""):
        quoted = PASSWORD.replace("\\", "\\\\")
        settings = f'password="{quoted}"\ntimezone=UTC'
        self.database = vesk.Database(self.name, options, settings)
        self.command = self.database.command
        self.sql = self.database.sql
        self.sql(f"ALTER DATABASE {self.name} SET synchronous_commit = on")

    def start(self, *arguments, **options):
        program = subprocess.Popen(
            [*self.command, *map(str, arguments)],
            **{
                "stdin": subprocess.DEVNULL,
                "stdout": subprocess.PIPE,
                "stderr": subprocess.PIPE,
                "text": True,
                **options,
            },
        )
        self.addCleanup(program.wait)
        self.addCleanup(program.kill)
        return program

    def admin(self, *arguments, status=0, **options):
        program = self.start(*arguments, **options)
        out, err = program.communicate()
        self.assertEqual(program.returncode, status, err)
        return out, err

    def hits(self):
        return int(self.sql("SELECT count(*) FROM vesk.hits"))

    def requests(self):
        return self.sql(
            f"SELECT n1 FROM vesk.rollup WHERE day = '{DAY}' AND scope = 'all' AND key = 'requests'"
        )

    def feed(self, name="a.log", content=lines(1, 14000)):
        """Starts an import in the middle of which the first 5,000 of the lines are committed."""
        self.log = self.folder / name
        os.mkfifo(self.log)
        program = self.start("import-log", "example.org", self.log)
        fifo = open(self.log, "wb", buffering=0)
        self.addCleanup(fifo.close)
        fifo.write(content)
        vesk.until(lambda: self.hits() >= 5000)
        return program, fifo

    def finish(self, program, fifo, rest=b""):
        fifo.write(rest)
        fifo.close()
        out, err = program.communicate()
        self.assertEqual(program.returncode, 0, err)
        return out, err

    def lost(self, err):
        """The slices that warnings name, and their causes."""
        return re.findall(rf"^{self.log}: lines (\d+ to \d+) were not kept(.*)$", err, re.M)

    # ---- The server ----

    def test_server_stopped(self):
        program, fifo = self.feed()
        cluster(
            f"as_server $server_bin/pg_ctl stop --silent --mode=immediate --pgdata='{vesk.CLUSTER}/data'"
        )
        try:
            out, err = self.finish(program, fifo, lines(14001, 14010))
        finally:
            cluster(
                f"start_cluster '{vesk.CLUSTER}/data' '{vesk.CLUSTER}' '{vesk.CLUSTER}/server.log'"
            )
        self.assertRegex(
            out, rf"^{self.log}: 14010 lines, \d+ stored, 0 not log entries\nrolled up 1 days\n$"
        )
        self.assertEqual(
            [slice for slice, _ in self.lost(err)], ["5001 to 10000", "10001 to 14010"], err
        )
        self.assertEqual(
            self.sql(
                "SELECT count(*), count(DISTINCT path), max(substr(path, 2)::int) FROM vesk.hits"
            ),
            "5000|5000|5000",
        )

    def test_connection_cut(self):
        program, fifo = self.feed()
        vesk.psql(
            f"SELECT pg_terminate_backend(pid) FROM pg_stat_activity WHERE datname = '{self.name}'"
        )
        out, err = self.finish(program, fifo, lines(14001, 16000))
        self.assertIn("16000 lines, ", out)
        self.assertEqual(self.lost(err), [("5001 to 10000", "")], err)
        self.assertEqual(
            self.sql(
                "SELECT count(*) FROM vesk.hits WHERE substr(path, 2)::int NOT BETWEEN 5001 AND 10000"
            ),
            "11000",
        )
        self.assertEqual((self.hits(), self.requests()), (11000, "11000"))

    def test_connection_cut_and_refused(self):
        program, fifo = self.feed()
        vesk.psql(f"ALTER DATABASE {self.name} ALLOW_CONNECTIONS false")
        vesk.psql(
            f"SELECT pg_terminate_backend(pid) FROM pg_stat_activity WHERE datname = '{self.name}'"
        )
        out, err = self.finish(program, fifo, lines(14001, 16000))
        self.assertEqual(
            [slice for slice, _ in self.lost(err)],
            ["5001 to 10000", "10001 to 15000", "15001 to 16000"],
            err,
        )
        self.assertRegex(self.lost(err)[2][1], "not currently accepting connections")
        vesk.psql(f"ALTER DATABASE {self.name} ALLOW_CONNECTIONS true")
        self.assertEqual(self.hits(), 5000)

    def test_connection_cut_before_loading(self):
        """As happens during a long download: the table is replaced all the same, and at once."""
        self.sql(
            "INSERT INTO vesk.geo_country VALUES ('1.0.0.0', '1.0.0.255', 'AU');"
            " ALTER TABLE vesk.geo_country ADD CHECK (country <> 'XX')"
        )
        ranges = "".join(f"10.0.{i // 256}.{i % 256},10.9.9.9,DE\n" for i in range(2000)).encode()
        for content, status, stored in (
            (ranges + b"11.0.0.0,11.0.0.1,XX", 1, "1"),
            (ranges, 0, "2000"),
        ):
            fifo = self.folder / f"ranges{status}.csv"
            os.mkfifo(fifo)
            program = self.start("geoip-update", fifo)
            with open(fifo, "wb") as ends:
                cut = f"SELECT count(pg_terminate_backend(pid)) FROM pg_stat_activity WHERE datname = '{self.name}'"
                vesk.until(lambda: vesk.psql(cut) == "1")
                ends.write(content)
            program.communicate()
            self.assertEqual(
                (program.returncode, self.sql("SELECT count(*) FROM vesk.geo_country")),
                (status, stored),
            )

    def test_disk_full(self):
        disk = self.folder / "disk"
        disk.mkdir()
        if (
            subprocess.run(
                ["mount", "-t", "tmpfs", "-o", "size=24m", "tmpfs", disk], capture_output=True
            ).returncode
            != 0
        ):
            self.skipTest("file systems cannot be mounted here")
        self.addCleanup(subprocess.run, ["umount", "-l", disk])
        self.folder.chmod(0o755)
        shutil.chown(
            disk, vesk.psql("SHOW data_directory") and pathlib.Path(vesk.CLUSTER / "data").owner()
        )
        vesk.psql(f"DROP DATABASE {self.name}")
        vesk.psql(f"CREATE TABLESPACE small LOCATION '{disk}'")
        self.addCleanup(vesk.psql, "DROP TABLESPACE small")
        self.create("TABLESPACE small")
        self.addCleanup(vesk.psql, f"DROP DATABASE {self.name}")
        self.log.write_bytes(lines(1, 150000))
        out, err = self.admin("import-log", "example.org", self.log)
        self.assertIn("150000 lines, ", out)
        self.assertIn("No space left on device", err)
        lost = self.lost(err)
        self.assertTrue(lost and self.hits() > 0)
        self.assertEqual(self.hits() + 5000 * len(lost), 150000)

    def test_read_only_database(self):
        vesk.psql(f"ALTER DATABASE {self.name} SET default_transaction_read_only = on")
        self.log.write_bytes(lines(1, 10))
        out, err = self.admin("import-log", "example.org", self.log)
        self.assertEqual(
            out, f"{self.log}: 10 lines, 0 stored, 0 not log entries\nrolled up 1 days\n"
        )
        self.assertEqual([slice for slice, _ in self.lost(err)], ["1 to 10"])
        self.assertIn("read-only transaction", self.lost(err)[0][1])
        for command in (["migrate"], ["set", "a", "b"], ["add-site", "b.example", "B"]):
            out, err = self.admin(*command, status=1)
            self.assertEqual(out, "")
            self.assertIn("read-only transaction", err)

    def test_lock_wait(self):
        self.log.write_bytes(lines(1, 6000))
        holder = vesk.Session(self.name, "BEGIN", "LOCK vesk.hits")
        program = self.start("import-log", "example.org", self.log)
        vesk.until(self.database.waiting)
        holder.end()
        out, err = program.communicate()
        self.assertEqual(
            (out, err),
            (f"{self.log}: 6000 lines, 6000 stored, 0 not log entries\nrolled up 1 days\n", ""),
        )

    def test_statement_timeout(self):
        self.log.write_bytes(lines(1, 250))
        vesk.psql(f"ALTER DATABASE {self.name} SET statement_timeout = 300")
        holder = vesk.Session(self.name, "BEGIN", "LOCK vesk.hits")
        out, err = self.admin("import-log", "example.org", self.log)
        holder.end()
        self.assertIn("250 lines, 0 stored", out)
        self.assertIn("statement timeout", err)
        self.assertEqual(self.lost(err), [("1 to 250", "")])
        self.assertEqual(self.hits(), 0)

    # ---- Two at the same time ----

    def test_two_imports(self):
        first = self.feed()
        second = self.feed("b.log", lines(20001, 34000))
        vesk.until(lambda: self.hits() == 10000)
        for program, fifo in (first, second):
            self.finish(program, fifo)
        self.assertEqual((self.hits(), self.requests()), (28000, "28000"))

    def test_two_rollups(self):
        self.log.write_bytes(lines(1, 100))
        self.admin("import-log", "example.org", self.log)
        first = vesk.Session(self.name, "BEGIN", f"SELECT vesk.rollup_day(1, '{DAY}')")
        self.sql(
            "INSERT INTO vesk.hits (site_id, at, method, path, status, is_page, visitor, session_id, source_kind)"
            f" VALUES (1, '{DAY} 13:00', 'GET', '/late', 200, false, '', 0, 'direct')"
        )
        second = self.start("rollup", "example.org")
        vesk.until(self.database.waiting)
        first.run("COMMIT")
        first.end()
        self.assertEqual(second.communicate(), ("example.org: rolled up 1 days\n", ""))
        self.assertEqual(self.requests(), "101")

    def test_rollups_after_a_lost_connection(self):
        for day in (8, 9, 10):
            self.log.write_bytes(lines(1, 3).replace(b"[10/", b"[%02d/" % day))
            self.admin("import-log", "example.org", self.log)
        self.sql("TRUNCATE vesk.rollup")
        holder = vesk.Session(self.name, "BEGIN", "LOCK vesk.rollup")
        program = self.start("rollup", "example.org")
        vesk.until(self.database.waiting)
        vesk.psql(
            f"SELECT pg_terminate_backend(pid) FROM pg_stat_activity WHERE datname = '{self.name}' AND wait_event_type = 'Lock'"
        )
        holder.end()
        out, err = program.communicate()
        self.assertEqual((out, err.count("sql: ")), ("example.org: rolled up 3 days\n", 1), err)
        self.assertEqual(self.sql("SELECT count(DISTINCT day) FROM vesk.rollup"), "3")

    def test_two_migrations(self):
        self.sql(
            "DROP SCHEMA vesk CASCADE; CREATE SCHEMA vesk; CREATE TABLE vesk.schema_migrations"
            " (version integer PRIMARY KEY, name text NOT NULL, applied_at timestamptz NOT NULL DEFAULT now())"
        )
        holder = vesk.Session(self.name, "BEGIN", "LOCK vesk.schema_migrations")
        programs = [self.start("migrate"), self.start("migrate")]
        vesk.until(lambda: self.database.waiting(2))
        holder.end()
        ends = sorted(program.communicate()[0].splitlines()[-1] for program in programs)
        self.assertEqual(
            ends, ["schema at version 11 (0 applied)", "schema at version 11 (11 applied)"]
        )
        self.assertEqual([program.returncode for program in programs], [0, 0])

    # ---- Signals, streams and the child process ----

    def test_signals(self):
        for number, name, content in (
            (signal.SIGINT, "a.log", lines(1, 14000)),
            (signal.SIGTERM, "b.log.gz", unfinished_archive()),
            (signal.SIGKILL, "c.log.gz", unfinished_archive()),
        ):
            with self.subTest(name=name):
                self.sql("TRUNCATE vesk.hits")
                program, fifo = self.feed(name, content)
                started = children(program)
                self.assertEqual(len(started), int(name.endswith(".gz")))
                program.send_signal(number)
                program.communicate()
                self.assertEqual(program.returncode, -number)
                vesk.until(lambda: not any(map(alive, started)))
                vesk.until(
                    lambda: self.sql(
                        "SELECT count(*) FROM pg_stat_activity WHERE application_name = 'vesk-admin'"
                    )
                    == "0"
                )
                self.assertEqual(self.hits(), 5000)

    def test_output_lost(self):
        self.log.write_bytes(lines(1, 10))
        reader, writer = os.pipe()
        os.close(reader)
        with open("/dev/full", "wb") as full:
            for stdout, preparation, reason in (
                (full, None, "No space left on device"),
                (writer, None, "Broken pipe"),
                (None, lambda: os.close(1), "Bad file descriptor"),
            ):
                with self.subTest(reason=reason):
                    self.sql("TRUNCATE vesk.hits, vesk.rollup")
                    _, err = self.admin(
                        "import-log",
                        "example.org",
                        self.log,
                        status=1,
                        stdout=stdout,
                        preexec_fn=preparation,
                    )
                    self.assertEqual(err, f"cannot write to standard output: {reason}\n")
                    self.assertEqual((self.hits(), self.requests()), (10, "10"))
        os.close(writer)

    def test_gunzip_missing(self):
        archive = self.folder / "a.log.gz"
        archive.write_bytes(gzip.compress(lines(1, 10)))
        out, err = self.admin(
            "import-log", "example.org", archive, env={**os.environ, "PATH": "/nowhere"}
        )
        self.assertEqual(
            (out, err), (f"{archive}: 0 lines, 0 stored, 0 not log entries\nrolled up 0 days\n", "")
        )
        out, _ = self.admin(
            "geoip-update", archive, env={**os.environ, "PATH": "/nowhere"}, status=1
        )
        self.assertEqual(out, "that does not look like a DB-IP country file\n")

    def test_gunzip_killed(self):
        program, fifo = self.feed("a.log.gz", unfinished_archive())
        (child,) = children(program)
        os.kill(int(child), signal.SIGKILL)
        out, err = program.communicate()
        self.assertEqual((program.returncode, err), (0, ""))
        cut = int(
            out.endswith(" 1 not log entries\nrolled up 1 days\n")
        )  # the last line, in its middle
        self.assertTrue(
            out.startswith(
                f"{self.log}: {self.hits() + cut} lines, {self.hits()} stored, {cut} not"
            ),
            out,
        )

    # ---- Messages ----

    def test_control_characters_in_errors(self):
        export = self.folder / "export.json"
        export.write_text(json.dumps({"totals": [{"keys": ["\x1b]0;title\x07\u202e\x9b1"]}]}))
        _, err = self.admin("import-gsc", "example.org", export, status=1)
        self.assertTrue(
            err.startswith(
                'sql: ERROR:  invalid input syntax for type date: "\ufffd]0;title\ufffd\ufffd\ufffd1"\n'
            ),
            err,
        )

    def test_secrets(self):
        self.sql("ALTER TABLE vesk.settings ADD CHECK (value <> 'refused')")
        secret = self.sql("SELECT value FROM vesk.settings WHERE key = 'visitor_secret'")
        login = "login password of anna"
        program, fifo = self.feed()
        seen = [path.read_bytes() for path in pathlib.Path("/proc").glob("[0-9]*/cmdline")]
        seen += [pathlib.Path(f"/proc/{program.pid}/environ").read_bytes()]
        seen.append(
            vesk.psql(
                "SELECT string_agg(query || application_name, ' ') FROM pg_stat_activity"
            ).encode()
        )
        outputs = [self.finish(program, fifo)]
        with open(self.folder / "login", "w+") as typed:
            typed.write(login + "\n")
            for status, command in (
                (0, ["add-user", "anna"]),
                (1, ["add-user", "anna"]),
                (1, ["add-user", "a/b"]),
                (1, ["set", "key", "refused"]),
                (1, ["import-gsc", "example.org", vesk.PROGRAM]),
                (0, ["migrate"]),
            ):
                typed.seek(0)
                outputs.append(self.admin(*command, status=status, stdin=typed))
        self.assertIn("users_username_check", outputs[3][1])
        vesk.psql(f"ALTER DATABASE {self.name} ALLOW_CONNECTIONS false")
        outputs.append(self.admin("migrate", status=1))
        seen += [text.encode() for pair in outputs for text in pair]
        seen.append((vesk.CLUSTER / "server.log").read_bytes())
        for text in (secret, login, PASSWORD, "connection-pass"):
            self.assertEqual([part for part in seen if text.encode() in part], [], text)
        self.assertNotIn("pbkdf2", "".join(text for pair in outputs for text in pair))


unittest.main(argv=sys.argv[1:])
