#!/usr/bin/env python3
"""Rotates made-up logs night by night and has packaging/import-rotated import them.

usage: import_rotated.py VESK-ADMIN IMPORT-ROTATED, under scripts/with-postgres.
"""

import gzip
import os
import pathlib
import signal
import subprocess
import sys
import tempfile
import time

folder = pathlib.Path(tempfile.mkdtemp())
program, script = (pathlib.Path(argument).resolve() for argument in sys.argv[1:3])
state = folder / "state" / "imported"
(folder / "bin").mkdir()
(folder / "bin" / "vesk-admin").symlink_to(program)
(folder / "vesk.ini").write_text(f"[database]\nhost={os.environ['PGHOST']}\nname=postgres\nuser={os.environ['PGUSER']}\n")
environment = os.environ | {
    "PATH": f"{folder / 'bin'}:{os.environ['PATH']}",
    "VESK_CONFIG": str(folder / "vesk.ini"),
    "VESK_LOGS": f"{folder}/none-* {folder}/a?b.log[-.][0-9]*",
    "STATE_DIRECTORY": str(folder / "state"),
}
log = folder / "a b.log"


def sql(statement):
    return subprocess.run(["psql", "-XAtc", statement], check=True, capture_output=True, text=True).stdout.strip()


def write(suffix, *paths, age=3600):
    """A rotated log, or a live one; gzipped when its name says so."""
    text = "".join(f'192.0.2.1 - - [10/Mar/2026:12:00:00 +0000] "GET {path} HTTP/1.1" 200 5 "-" "UA"\n' for path in paths)
    target = pathlib.Path(f"{log}{suffix}")
    target.write_bytes(gzip.compress(text.encode()) if suffix.endswith(".gz") else text.encode())
    set_age(target, age)
    return target


def set_age(target, age):
    os.utime(target, (time.time() - age,) * 2)


def run(*arguments):
    return subprocess.run([script, *arguments, "Example.org"], env=environment, capture_output=True, text=True)


def expect(what, got, status, stored, said=""):
    """The exit status, the paths stored since the test began, in their order, and a part of what was said."""
    paths = sql("SELECT coalesce(string_agg(path, ' ' ORDER BY id), '') FROM vesk.hits")
    assert (got.returncode, paths) == (status, stored) and said in got.stderr and bool(said) == bool(got.stderr), (what, got, paths)
    print("ok:", what)


assert subprocess.run([program, "migrate"], env=environment, capture_output=True).returncode == 0
expect("no logs", run(), 0, "", "no new logs of example.org")
one = write(".1", "/1")
expect("unknown site", run(), 1, "", "unknown site example.org (add it with add-site)")
assert not (state / "example.org.begun").exists()
subprocess.run([program, "add-site", "example.org", "Name"], env=environment, check=True, capture_output=True)

write(".2.gz", "/0", age=90000)
expect("oldest first", run(), 0, "/0 /1")
expect("nothing twice", run(), 0, "/0 /1", "no new logs")

# The next night: all move on, one is compressed now, and a dated name is as good.
pathlib.Path(f"{log}.2.gz").rename(f"{log}.3.gz")
write(".2.gz", "/1")
one.unlink()
short = write("-20260311", "/2").stat().st_size
write(".4", age=90000)
expect("renamed and compressed", run(), 0, "/0 /1 /2")

long = write("-20260311", "/2", "/late").stat().st_size
expect("grown after the import", run(), 1, "/0 /1 /2", f"was imported with {short} bytes and has {long} now")
expect("told once", run(), 0, "/0 /1 /2", "no new logs")

write(".5", "/3", age=10)
expect("still written to", run(), 0, "/0 /1 /2", "left for the next run")
set_age(pathlib.Path(f"{log}.5"), 400)
damaged = write(".6.gz", "/4")
damaged.write_bytes(damaged.read_bytes()[:-9])
set_age(damaged, 3600)
expect("a damaged archive does not hold up the others", run(), 1, "/0 /1 /2 /3", "is damaged and is not imported")
damaged.unlink()
other = write(".6.xz", "/4")
expect("another compression", run(), 1, "/0 /1 /2 /3", "only those by gzip can be read")
other.unlink()

write(".7", "/by-hand")
expect("noted as imported", run("--mark"), 0, "/0 /1 /2 /3", "noted as imported: 1 logs")
expect("and not imported", run(), 0, "/0 /1 /2 /3", "no new logs")

sql("ALTER TABLE vesk.hits ADD CONSTRAINT refuse CHECK (path <> '/refused')")
write(".8", "/refused")
expect("refused by the database", run(), 1, "/0 /1 /2 /3", "not everything was stored, see above")
expect("and not tried again", run(), 0, "/0 /1 /2 /3", "no new logs")

# Killed while the database keeps the second slice waiting, as by a power cut.
sql("TRUNCATE vesk.hits; CREATE FUNCTION vesk.hold() RETURNS trigger LANGUAGE plpgsql AS "
    "$$BEGIN IF NEW.path = '/hold' THEN PERFORM pg_sleep(60); END IF; RETURN NEW; END$$; "
    "CREATE TRIGGER hold BEFORE INSERT ON vesk.hits FOR EACH ROW EXECUTE FUNCTION vesk.hold()")
write(".9", *["/stored"] * 5000, "/hold")
with subprocess.Popen([script, "example.org"], env=environment, start_new_session=True,
                      stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL) as process:
    while sql("SELECT count(*) FROM vesk.hits") != "5000":
        assert process.poll() is None
        time.sleep(0.1)
    second = run()
    os.killpg(process.pid, signal.SIGKILL)
assert second.returncode == 1 and "another import of example.org is running" in second.stderr, second
sql("SELECT pg_terminate_backend(pid) FROM pg_stat_activity WHERE application_name = 'vesk-admin'")
sql("DROP TRIGGER hold ON vesk.hits; DELETE FROM vesk.hits")
interrupted = run()
expect("interrupted", interrupted, 1, "", f"rm {state}/example.org.begun")
assert f"\n{log}.9\n" in interrupted.stderr, interrupted
(state / "example.org.begun").unlink()
again = run()
assert again.returncode == 0 and sql("SELECT count(*) FROM vesk.hits") == "5001", again
for name in ("../x", "", "a/b"):
    bad = subprocess.run([script, name], env=environment, capture_output=True, text=True)
    assert bad.returncode == 1 and "is no host name" in bad.stderr, bad
print("ok: interrupted and imported anew")
