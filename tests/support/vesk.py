"""What the tests in Python share: psql, and the built program with a database of its own.

To be run under scripts/with-postgres, with the program as the first argument and this folder in
PYTHONPATH.
"""

import atexit
import os
import pathlib
import shutil
import subprocess
import sys
import tempfile
import time

PROGRAM = os.path.abspath(sys.argv[1])
CLUSTER = pathlib.Path(os.environ["PGHOST"])
FOLDER = pathlib.Path(tempfile.mkdtemp())
atexit.register(shutil.rmtree, FOLDER, ignore_errors=True)


def psql(statement, database="postgres"):
    """What a statement, or several, gives: unaligned, a row on a line, NULL as nothing."""
    command = ["psql", "-XAqt", "-v", "ON_ERROR_STOP=1", "-d", database, "-c", statement]
    run = subprocess.run(command, capture_output=True, text=True)
    assert run.returncode == 0, run.stderr
    return run.stdout.removesuffix("\n")


def log_line(path="/", ip="192.0.2.1", time="10/Mar/2026:12:00:00 +0000", agent="UA"):
    return f'{ip} - - [{time}] "GET {path} HTTP/1.1" 200 5 "-" "{agent}"\n'


def until(condition):
    """Waits for what is bound to happen; the time limit of the test run ends a wait in vain."""
    while not condition():
        time.sleep(0.02)


class Session:
    """A psql session that goes on, to hold a lock in."""

    def __init__(self, database, *statements):
        command = ["psql", "-XAqt", "-d", database]
        pipes = {"stdin": subprocess.PIPE, "stdout": subprocess.PIPE, "stderr": subprocess.DEVNULL}
        self.psql = subprocess.Popen(command, text=True, **pipes)
        self.run(*statements)

    def run(self, *statements):
        for statement in statements:
            self.psql.stdin.write(statement + ";\n")
        self.psql.stdin.write("\\echo done\n")
        self.psql.stdin.flush()
        while self.psql.stdout.readline() != "done\n":
            pass

    def end(self):
        self.psql.communicate()


class Database:
    """A database with the schema and the site example.org, and a configuration file for it.

    With the script VESK_TEST_PARTITION of the environment it has its requests in partitions.
    """

    def __init__(self, name, options="", settings="timezone=UTC"):
        self.name = name
        psql(f"CREATE DATABASE {name} {options}")
        self.config = FOLDER / f"{name}.ini"
        server = f"host={CLUSTER}\nname={name}\nuser={os.environ['PGUSER']}\n"
        self.config.write_text(f"[database]\n{server}{settings}\n")
        self.command = [PROGRAM, "-c", str(self.config)]
        for arguments in (["migrate"], ["add-site", "example.org", "Example"]):
            run = self.admin(*arguments)
            assert run.returncode == 0, run.stderr
        if script := os.environ.get("VESK_TEST_PARTITION"):
            command = ["env", f"PGDATABASE={name}", script, "split", "2026-01"]
            subprocess.run(command, check=True, stdout=subprocess.DEVNULL)

    def sql(self, statement):
        return psql(statement, self.name)

    def waiting(self, count=1):
        """Whether so many sessions wait for a lock."""
        waits = "datname = current_database() AND wait_event_type = 'Lock'"
        return self.sql(f"SELECT count(*) FROM pg_stat_activity WHERE {waits}") == str(count)

    def admin(self, *arguments, **options):
        """A finished run of the program."""
        return subprocess.run(
            [*self.command, *map(str, arguments)], capture_output=True, text=True, **options
        )
