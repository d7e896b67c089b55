#!/usr/bin/env python3
"""What is left when something goes wrong: each test breaks something around a running program.

usage: faults.py VESK-ADMIN [-v] [Faults.NAME...], under scripts/with-postgres.

Access logs come through a FIFO where the program has to be in the middle of its work: a slice of
5,000 lines is committed once the next one has been read.
"""

import gzip
import json
import os
import pathlib
import re
import signal
import subprocess
import sys
import unittest

import vesk

PASSWORD = "connection-pass'word\\"
QUOTED = PASSWORD.replace("\\", "\\\\")
DAY = "2026-03-10"


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
        self.folder = vesk.FOLDER / self.name
        self.folder.mkdir()
        self.log = self.folder / "a.log"
        settings = f'password="{QUOTED}"\ntimezone=UTC'
        self.database = vesk.Database(self.name, settings=settings)
        self.sql = self.database.sql

    def start(self, *arguments, **options):
        pipes = {"stdin": subprocess.DEVNULL, "stdout": subprocess.PIPE, "stderr": subprocess.PIPE}
        command = [*self.database.command, *map(str, arguments)]
        program = subprocess.Popen(command, text=True, **(pipes | options))
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
        """Each day that was rolled up with its requests."""
        figures = "SELECT day, n1 FROM vesk.rollup WHERE scope = 'all' AND key = 'requests'"
        return self.sql(figures + " ORDER BY day").split("\n")

    def cut(self, condition="true"):
        """Cuts the connections to the database that are like that, and tells how many."""
        cut = "SELECT count(pg_terminate_backend(pid)) FROM pg_stat_activity"
        return int(vesk.psql(f"{cut} WHERE datname = '{self.name}' AND {condition}"))

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
        """The slices that warnings name, and the last one's cause."""
        found = re.findall(rf"^{self.log}: lines (\d+ to \d+) were not kept(.*)$", err, re.M)
        return [lines for lines, _ in found], found[-1][1]

    # ---- The server ----

    def test_connection_cut(self):
        program, fifo = self.feed()
        self.cut()
        out, err = self.finish(program, fifo, lines(14001, 16000))
        self.assertIn("16000 lines, ", out)
        self.assertEqual(self.lost(err), (["5001 to 10000"], ""), err)
        kept = "count(*) FILTER (WHERE substr(path, 2)::int NOT BETWEEN 5001 AND 10000)"
        self.assertEqual(self.sql(f"SELECT count(*), {kept} FROM vesk.hits"), "11000|11000")
        self.assertEqual(self.requests(), [f"{DAY}|11000"])

    def test_connection_cut_and_refused(self):
        program, fifo = self.feed()
        vesk.psql(f"ALTER DATABASE {self.name} ALLOW_CONNECTIONS false")
        self.cut()
        out, err = self.finish(program, fifo, lines(14001, 16000))
        lost, cause = self.lost(err)
        self.assertEqual(lost, ["5001 to 10000", "10001 to 15000", "15001 to 16000"], err)
        self.assertRegex(cause, "not currently accepting connections")
        vesk.psql(f"ALTER DATABASE {self.name} ALLOW_CONNECTIONS true")
        self.assertEqual(self.hits(), 5000)

    def test_connection_cut_before_loading(self):
        """As happens during a long download: the table is replaced all the same, and at once."""
        self.sql(
            "INSERT INTO vesk.geo_country VALUES ('1.0.0.0', '1.0.0.255', 'AU');"
            " ALTER TABLE vesk.geo_country ADD CHECK (country <> 'XX')"
        )
        ranges = "".join(f"10.0.{i // 256}.{i % 256},10.9.9.9,DE\n" for i in range(2000)).encode()
        refused = ranges + b"11.0.0.0,11.0.0.1,XX"
        for content, status, stored in ((refused, 1, "1"), (ranges, 0, "2000")):
            fifo = self.folder / f"ranges{status}.csv"
            os.mkfifo(fifo)
            program = self.start("geoip-update", fifo)
            with open(fifo, "wb") as ends:
                vesk.until(lambda: self.cut() == 1)
                ends.write(content)
            program.communicate()
            self.assertEqual(program.returncode, status)
            self.assertEqual(self.sql("SELECT count(*) FROM vesk.geo_country"), stored)

    def test_read_only_database(self):
        vesk.psql(f"ALTER DATABASE {self.name} SET default_transaction_read_only = on")
        self.log.write_bytes(lines(1, 10))
        out, err = self.admin("import-log", "example.org", self.log)
        self.assertIn(": 10 lines, 0 stored, 0 not log entries\nrolled up 1 days\n", out)
        lost, cause = self.lost(err)
        self.assertEqual(lost, ["1 to 10"])
        self.assertIn("read-only transaction", cause)
        out, err = self.admin("migrate", status=1)
        self.assertEqual((out, "read-only transaction" in err), ("", True), err)

    # ---- Two at the same time ----

    def test_two_rollups(self):
        self.log.write_bytes(lines(1, 100))
        self.admin("import-log", "example.org", self.log)
        first = vesk.Session(self.name, "BEGIN", f"SELECT vesk.rollup_day(1, '{DAY}')")
        row = f"1, '{DAY} 13:00', 'GET', '/late', 200, false, '', 0, 'direct'"
        columns = "site_id, at, method, path, status, is_page, visitor, session_id, source_kind"
        self.sql(f"INSERT INTO vesk.hits ({columns}) VALUES ({row})")
        second = self.start("rollup", "example.org")
        vesk.until(self.database.waiting)
        first.run("COMMIT")
        self.assertEqual(second.communicate(), ("example.org: rolled up 1 days\n", ""))
        first.end()
        self.assertEqual(self.requests(), [f"{DAY}|101"])

    def test_rollups_after_a_lost_connection(self):
        """The others are rolled up all the same, by days of the same time zone."""
        zone = self.database.config.read_text().replace("UTC", "Pacific/Kiritimati")
        self.database.config.write_text(zone)
        for day in (8, 9, 10):
            self.log.write_bytes(lines(1, 3).replace(b"[10/", b"[%02d/" % day))
            self.admin("import-log", "example.org", self.log)
        self.sql("TRUNCATE vesk.rollup")
        holder = vesk.Session(self.name, "BEGIN", "LOCK vesk.rollup")
        program = self.start("rollup", "example.org")
        vesk.until(self.database.waiting)
        self.cut("wait_event_type = 'Lock'")
        holder.end()
        out, err = program.communicate()
        self.assertEqual((out, err.count("sql: ")), ("example.org: rolled up 3 days\n", 1), err)
        self.assertEqual(self.requests(), ["2026-03-09|3", "2026-03-10|3", "2026-03-11|3"])

    def test_two_migrations(self):
        self.sql(
            "DROP SCHEMA vesk CASCADE; CREATE SCHEMA vesk; CREATE TABLE vesk.schema_migrations"
            " (version int PRIMARY KEY, name text NOT NULL, applied_at timestamptz DEFAULT now())"
        )
        holder = vesk.Session(self.name, "BEGIN", "LOCK vesk.schema_migrations")
        programs = [self.start("migrate"), self.start("migrate")]
        vesk.until(lambda: self.database.waiting(2))
        holder.end()
        ends = sorted(program.communicate()[0].splitlines()[-1] for program in programs)
        level = self.sql("SELECT max(version) FROM vesk.schema_migrations")
        applied = f"schema at version {level} ({{}} applied)"
        self.assertEqual(ends, [applied.format(0), applied.format(level)])

    # ---- Signals, streams and the child process ----

    def test_signals(self):
        plain = ("a.log", lines(1, 14000), 0)
        archive = ("b.log.gz", unfinished_archive(), 1)
        sessions = "SELECT count(*) FROM pg_stat_activity WHERE application_name = 'vesk-admin'"
        cases = {signal.SIGINT: plain, signal.SIGTERM: archive, signal.SIGKILL: archive}
        for number, (name, content, processes) in cases.items():
            with self.subTest(number):
                self.sql("TRUNCATE vesk.hits")
                self.log.unlink(missing_ok=True)
                program, fifo = self.feed(name, content)
                started = children(program)
                self.assertEqual(len(started), processes)
                program.send_signal(number)
                program.communicate()
                self.assertEqual(program.returncode, -number)
                vesk.until(lambda: not any(map(alive, started)))
                vesk.until(lambda: self.sql(sessions) == "0")
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
                with self.subTest(reason):
                    self.sql("TRUNCATE vesk.hits, vesk.rollup")
                    options = {"stdout": stdout, "preexec_fn": preparation}
                    _, err = self.admin("import-log", "example.org", self.log, status=1, **options)
                    self.assertEqual(err, f"cannot write to standard output: {reason}\n")
                    self.assertEqual((self.hits(), self.requests()), (10, [f"{DAY}|10"]))
        os.close(writer)

    # ---- Messages ----

    def test_control_characters_in_errors(self):
        export = self.folder / "export.json"
        export.write_text(json.dumps({"totals": [{"keys": ["\x1b]0;title\x07\u202e\x9b1"]}]}))
        _, err = self.admin("import-gsc", "example.org", export, status=1)
        shown = '"\ufffd]0;title\ufffd\ufffd\ufffd1"'
        self.assertIn(f"sql: ERROR:  invalid input syntax for type date: {shown}\n", err)

    def test_secrets(self):
        self.sql(
            "ALTER TABLE vesk.settings ADD CHECK (value <> 'refused');"
            " CREATE FUNCTION vesk.forget() RETURNS trigger LANGUAGE plpgsql AS"
            " $$BEGIN IF NEW.username = 'berta' THEN NEW.role := NULL; END IF; RETURN NEW; END$$;"
            " CREATE TRIGGER forget BEFORE INSERT ON vesk.users FOR EACH ROW EXECUTE FUNCTION"
            " vesk.forget()"
        )
        secret = self.sql("SELECT value FROM vesk.settings WHERE key = 'visitor_secret'")
        login = "login password of anna"
        program, fifo = self.feed()
        seen = [path.read_bytes() for path in pathlib.Path("/proc").glob("[0-9]*/cmdline")]
        seen += [pathlib.Path(f"/proc/{program.pid}/environ").read_bytes()]
        running = "SELECT string_agg(query || application_name, ' ') FROM pg_stat_activity"
        seen += [vesk.psql(running).encode()]
        told = [*self.finish(program, fifo)]
        for status, command in (
            (0, ["add-user", "anna"]),
            (1, ["add-user", "anna"]),
            (1, ["add-user", "a/b"]),
            (1, ["add-user", "berta"]),  # whom a column without a value refuses
            (1, ["set", "key", "refused"]),
            (1, ["import-gsc", "example.org", vesk.PROGRAM]),
            (0, ["migrate"]),
        ):
            run = self.database.admin(*command, input=login + "\n")
            self.assertEqual(run.returncode, status)
            told += [run.stdout, run.stderr]
        vesk.psql(f"ALTER DATABASE {self.name} ALLOW_CONNECTIONS false")
        told += self.admin("migrate", status=1)
        said = "".join(told)
        for text in ("users_username_check", "null value in column"):
            self.assertIn(text, said)
        seen += [said.encode(), (vesk.CLUSTER / "server.log").read_bytes()]
        for text in (secret, login, PASSWORD, "connection-pass"):
            self.assertEqual([part for part in seen if text.encode() in part], [], text)
        self.assertNotIn("pbkdf2", said)


unittest.main(argv=sys.argv[1:])
