#!/usr/bin/env python3
"""What people see who run the program on a terminal: prompts, progress, and how it is interrupted.

usage: terminal.py VESK-ADMIN, under scripts/with-postgres.
"""

import json
import os
import signal
import sys
import time
import unittest

import pexpect
import pyte

import vesk

SECRET = "a long secret"
DATABASE = vesk.Database("terminal")
IMPORT = ["import-log", "example.org"]


class Terminal(pexpect.spawn):
    """The program on a terminal of 80 columns; with a script, bash runs that with it as "$@"."""

    def __init__(self, *arguments, script='exec "$@"'):
        self.screen = pyte.Screen(80, 24)
        self.stream = pyte.ByteStream(self.screen)
        command = ["-c", script, "bash", *DATABASE.command, *arguments]
        environment = os.environ | {"TERM": "xterm"}
        super().__init__(
            "bash", command, timeout=20, cwd=vesk.FOLDER, env=environment, dimensions=(24, 80)
        )

    def read_nonblocking(self, *arguments):
        output = super().read_nonblocking(*arguments)
        self.stream.feed(output)
        return output

    def lines(self):
        """What the screen shows."""
        return "\n".join(line.rstrip() for line in self.screen.display).rstrip("\n").split("\n")

    def text(self):
        """The same as one line, wherever the terminal broke it."""
        return " ".join("".join(f"{line:80}" for line in self.lines()).split())

    def end(self):
        """The exit status, or the negative number of the signal that ended the program."""
        self.expect(pexpect.EOF)
        self.wait()
        return -self.signalstatus if self.signalstatus else self.exitstatus

    def answer(self, prompt, text):
        self.expect_exact(prompt)
        assert self.waitnoecho(), self.lines()
        self.sendline(text)


class Test(unittest.TestCase):
    def setUp(self):
        DATABASE.sql("TRUNCATE vesk.users, vesk.hits, vesk.rollup CASCADE")
        self.written = 0

    def open_log(self, name="log"):
        """A pipe for a log: while the test has it open the program waits for more."""
        path = vesk.FOLDER / name
        path.unlink(missing_ok=True)
        os.mkfifo(path)
        self.pipe = open(path, "r+b", buffering=0)  # does not wait for a reader
        self.addCleanup(self.pipe.close)
        return self.pipe

    def import_log(self, script='exec "$@"'):
        """An import that has shown how far it is."""
        self.open_log()
        terminal = Terminal(*IMPORT, "log", script=script)
        self.show(terminal)
        return terminal

    def show(self, terminal):
        """Feeds the import until it shows its progress."""
        for _ in range(200):
            self.pipe.write(vesk.log_line().encode())
            self.written += 1
            if terminal.expect_exact(["lines/s", pexpect.TIMEOUT], timeout=0.1) == 0:
                break
        self.assertRegex(terminal.lines()[-1], r"^log  \d+ lines  \d+ lines/s$")

    def results(self, log="log"):
        counts = f"{self.written} lines, {self.written} stored, 0 not log entries"
        return [f"{log}: {counts}", "rolled up 1 days"]

    # ---- The prompt ----

    def test_passwords(self):
        """They are asked for on the terminal, also when standard output goes elsewhere."""
        both = ["Password:", "Again:"]
        differ, short = "passwords do not match\n", "password must be at least 12 characters\n"
        for first, second, shown, printed in (
            (SECRET, SECRET, both, "created admin (maintainer)\n"),
            (SECRET, SECRET.upper(), both + [differ.strip()], ""),
            ("x" * 1100, None, both + [differ.strip()], ""),  # cut in two
            ("\x04", None, ["Password:", short.strip()], ""),
        ):
            with self.subTest(first):
                terminal = Terminal("add-user", "admin", script='exec "$@" >out')
                terminal.answer("Password: ", first)
                if second:
                    terminal.answer("Again: ", second)
                status = int(second != SECRET)
                self.assertEqual((terminal.end(), terminal.lines()), (status, shown))
                self.assertEqual((vesk.FOLDER / "out").read_text(), printed)
                self.assertTrue(terminal.getecho())
                self.assertEqual(DATABASE.sql("SELECT count(*) FROM vesk.users"), str(1 - status))
                DATABASE.sql("TRUNCATE vesk.users CASCADE")

    def test_signals_find_the_echo_on(self):
        for number in (signal.SIGINT, signal.SIGTERM, signal.SIGHUP, signal.SIGQUIT):
            terminal = Terminal("add-user", "admin")
            terminal.expect_exact("Password: ")
            self.assertTrue(terminal.waitnoecho())
            terminal.kill(number)
            self.assertEqual((terminal.end(), terminal.getecho()), (-number, True))

    def test_stopped_prompt(self):
        script = 'set -m; "$@"; echo first; read; fg; echo second; read; fg'
        terminal = Terminal("add-user", "admin", script=script)
        terminal.expect_exact("Password: ")
        for stop in ("first", "second"):
            self.assertTrue(terminal.waitnoecho())
            terminal.sendcontrol("z")
            terminal.expect_exact(stop)
            self.assertTrue(terminal.getecho())
            terminal.sendline()
        self.assertTrue(terminal.waitnoecho())
        terminal.sendline(SECRET)
        terminal.answer("Again: ", SECRET)
        terminal.expect_exact("created admin (maintainer)")

    # ---- Progress ----

    def test_the_line_is_erased(self):
        terminal = self.import_log()
        self.pipe.close()
        self.assertEqual((terminal.end(), terminal.lines()), (0, self.results()))

        DATABASE.sql("ALTER TABLE vesk.hits ADD CONSTRAINT refused CHECK (status = 0) NOT VALID")
        self.addCleanup(DATABASE.sql, "ALTER TABLE vesk.hits DROP CONSTRAINT refused")
        terminal = self.import_log()
        self.pipe.close()
        terminal.expect_exact("were not kept")
        terminal.end()
        self.assertRegex(terminal.lines()[0], "^sql: ERROR:  new row for relation")
        self.assertNotIn("/s", "".join(terminal.lines()))

    def test_silent_elsewhere(self):
        background = 'set -m; "$@" & set +m; wait'
        running = [
            (f"log{i}", self.open_log(f"log{i}"), Terminal(*IMPORT, f"log{i}", script=script))
            for i, script in enumerate(('"$@" 2> >(cat)', background, 'TERM=dumb "$@"'))
        ]
        for self.written in range(1, 26):
            for _, pipe, _ in running:
                pipe.write(vesk.log_line().encode())
            time.sleep(0.1)
        for log, pipe, terminal in running:
            pipe.close()
            self.assertEqual((terminal.end(), terminal.lines()), (0, self.results(log)))
            self.assertNotIn(b"\x1b", terminal.before)

    def test_interrupted(self):
        for told, interrupted in (
            (
                "interrupted: log is stored up to line 0 or a little further; delete the time that"
                " the log covers and import it again",
                self.import_log,
            ),
            (
                "whole: 1 lines, 1 stored, 0 not log entries interrupted: all lines are stored, but"
                " not all days are rolled up; run vesk-admin rollup example.org",
                self.import_that_rolls_up,
            ),
        ):
            terminal = interrupted()
            terminal.sendcontrol("c")
            self.assertEqual((terminal.end(), terminal.text()), (-signal.SIGINT, told))

    def import_that_rolls_up(self):
        (vesk.FOLDER / "whole").write_text(vesk.log_line())
        holder = vesk.Session(DATABASE.name, "BEGIN", "LOCK vesk.rollup")
        self.addCleanup(holder.end)
        terminal = Terminal(*IMPORT, "whole")
        vesk.until(DATABASE.waiting)
        return terminal

    def test_stopped_import(self):
        terminal = self.import_log(script='set -m; "$@"; echo stopped; read; fg')
        terminal.sendcontrol("z")
        terminal.expect_exact("stopped\r\n")
        left = [line for line in terminal.lines() if "lines" in line or "inter" in line]
        self.assertEqual(left, [])
        terminal.sendline()
        self.show(terminal)
        self.pipe.close()
        terminal.end()
        self.assertEqual(terminal.lines()[-2:], self.results())

    def test_ignored_signals_stay_ignored(self):
        terminal = self.import_log(script="trap '' INT HUP; exec \"$@\"")
        for number in (signal.SIGINT, signal.SIGHUP):
            terminal.kill(number)
        self.show(terminal)
        self.pipe.close()
        self.assertEqual((terminal.end(), terminal.lines()), (0, self.results()))

    def test_reference_data(self):
        ranges = "".join(f"10.{i // 256}.{i % 256}.0,10.255.255.255,DE\n" for i in range(5000))
        days = [{"keys": [f"2026-03-{i:02}"]} for i in range(1, 32)]  # more than are sent at a time
        rows = [{"keys": ["2026-03-01", str(i), "/", "deu", "mobile"]} for i in range(2000)]
        export = json.dumps({"totals": days, "rows": rows})
        loaded = "loaded 5000 country ranges (IP data by DB-IP, CC BY 4.0)"
        stored = "example.org: 31 days (2026-03-01 to 2026-03-31), 2000 detail rows"
        for command, content, table, shown, result in (
            (["geoip-update"], ranges, "geo_country", "  0 lines", loaded),
            (["import-gsc", "example.org"], export, "search_days", "  0 rows", stored),
        ):
            (vesk.FOLDER / "data").write_text(content)
            holder = vesk.Session(DATABASE.name, "BEGIN", f"LOCK vesk.{table}")
            terminal = Terminal(*command, "data")
            vesk.until(DATABASE.waiting)
            time.sleep(1.1)  # before that nothing is shown
            holder.end()
            terminal.expect_exact(shown)
            self.assertEqual((terminal.end(), terminal.lines()), (0, [result]))

    # ---- Usage ----

    def test_wrong_usage_is_named(self):
        help_text = DATABASE.admin("--help").stdout
        for arguments, named in (
            (["frobnicate"], "there is no command frobnicate"),
            (["a\x1b[7m\u202e"], "there is no command a\ufffd[7m\ufffd"),
            (["rollup"], "wrong number of arguments, it is: vesk-admin rollup HOST"),
            ([], ""),
        ):
            terminal = Terminal(*arguments, script='"$@" >out')
            self.assertEqual((terminal.end(), "\n".join(terminal.lines())), (1, named))
            self.assertEqual((vesk.FOLDER / "out").read_text(), help_text)


unittest.main(argv=sys.argv[1:])
