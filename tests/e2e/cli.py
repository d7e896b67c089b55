#!/usr/bin/env python3
"""What the commands print, store and return.

usage: cli.py VESK-ADMIN [-v] [Test.NAME...], under scripts/with-postgres.
"""

import gzip
import json
import os
import pathlib
import subprocess
import sys
import unittest
import unittest.mock

import vesk

SCRIPTS = sorted(p.name for p in (pathlib.Path(__file__).parents[2] / "sql").glob("*.sql"))
LEVEL = len(SCRIPTS)
TRIGGER = "RETURNS trigger LANGUAGE plpgsql AS $$BEGIN RAISE 'not now'; END$$"
REFUSE = f"CREATE FUNCTION public.refuse() {TRIGGER};"
DUPLICATE = "1||sql: ERROR:  duplicate key value violates unique constraint "
RULED_OUT = '1||sql: ERROR:  new row for relation "users" violates check constraint '
os.chdir(vesk.FOLDER)
DATABASE = vesk.Database("cli")


def outcome(run):
    """The status and both outputs, of a database error only the first line."""
    error = run.stderr.split("\n")[0] if run.stderr.startswith("sql: ") else run.stderr
    return f"{run.returncode}|{run.stdout}|{error}"


def admin(*arguments, **options):
    return outcome(DATABASE.admin(*arguments, **options))


def file(name, content):
    pathlib.Path(name).write_bytes(content if isinstance(content, bytes) else content.encode())
    return name


def hits(day, *paths):
    return "".join(vesk.log_line(path, time=f"{day}/Mar/2026:12:00:00 +0000") for path in paths)


def ranges(first, count):
    return "".join(f"{first}.0.{i // 256}.{i % 256},{first}.9.9.9,DE\n" for i in range(count))


class Test(unittest.TestCase):
    maxDiff = None

    def setUp(self):
        DATABASE.sql(
            "TRUNCATE vesk.users, vesk.sites, vesk.geo_country RESTART IDENTITY CASCADE;"
            " INSERT INTO vesk.sites (host, name) VALUES ('example.org', '')"
        )

    def table(self, rows, run=admin):
        for arguments, expected in rows:
            with self.subTest(arguments):
                words = arguments.split() if isinstance(arguments, str) else arguments
                self.assertEqual(run(*words), expected)

    def test_usage(self):
        broken = file("broken.ini", "[database]\nhost=/nowhere\n")
        good = str(DATABASE.config)
        show = subprocess.run([vesk.PROGRAM, "--help"], capture_output=True, text=True).stdout
        self.assertRegex(
            show, r"^Usage: [^|]* command\n[^$]*migrate \| add-user NAME \| add-site HOST"
        )

        def run(*arguments):
            got = subprocess.run([vesk.PROGRAM, *arguments], capture_output=True, text=True)
            all = f"{got.returncode}|{got.stdout}|{got.stderr}".replace(show, "HELP")
            return all.split("\n")[0]

        rows = [
            ("--help", "0|HELP|"),
            ("-c /nowhere.ini migrate", "1|HELP|config file not found: /nowhere.ini"),
            (f"-c {good}", "1|HELP|"),
            (f"-c {broken}", "1|HELP|"),
            (f"-c {good} set KEY -1", "1||vesk-admin: Unknown option '1'."),
            ("migrate -c", "1||vesk-admin: Missing value after '-c'."),
            (f"migrate now please -c {good} --role x", f"0|schema at version {LEVEL} (0 applied)"),
        ]
        wrong = "frobnicate,Migrate,add-site h,add-log a b c,add-user a b,import-log h,import-gsc h"
        self.table(rows + [(f"-c {good} {text}", "1|HELP|") for text in wrong.split(",")], run)
        self.assertRegex(run("-c", broken, "frobnicate"), r"^1\|\|database: ")

    def test_translate(self):
        """Two servers' logs, of which one is Caddy's, become one of the site's own lines."""
        caddy = "".join(
            json.dumps({"ts": 1773144000.9 + second, "status": 200, "request": request}) + "\n"
            for second, host, path in ((1, "www.example.org:80", "/2"), (2, "b.example", "/3"))
            for request in [{"host": host, "method": "GET", "uri": path}]
        )
        file("caddy.log.gz", gzip.compress(caddy.encode()))
        own = [hits(10, "/1"), "noise\x1b\n\n", vesk.log_line(time="10/Mar/2026:11:00:02 -0100")]
        file("own.log", "".join(own)[:-1])
        own.insert(2, '- - - [10/Mar/2026:12:00:01 +0000] "GET /2 " 200 - "-" "-"\n')
        nightly = str(pathlib.Path(vesk.PROGRAM).with_name("vesk-nightly"))
        arguments = "translate own.log --host example.org caddy.log.gz none".split()
        run = subprocess.run([nightly, *arguments], capture_output=True, text=True)
        self.assertEqual((run.returncode, run.stdout), (1, "".join(own)))
        found = "0 of other hosts, 0 not translated\ncaddy.log.gz: Caddy's JSON, 2 lines, 1 of"
        self.assertRegex(run.stderr, f"^own.log: combined, 4 lines, {found} .*\nnone cannot be")

    def test_configuration(self):
        """Which file is taken: that of the option, of the variable, or the usual one."""
        good = os.path.relpath(file("good.ini", DATABASE.config.read_text()))
        os.makedirs("folder.ini")
        os.symlink("good.ini", "link.ini")
        usual = "/etc/hollowquarry/hollowquarry.ini"
        for options, variable, missing in (
            ([f"--config={good}"], "missing.ini", None),
            (["-c", "missing.ini"], good, "missing.ini"),
            (["--config="], good, None),
            ([], good, None),
            ([], "missing.ini", "missing.ini"),
            (["--config="], "", usual),
            ([], None, usual),
            (["-c", "link.ini"], None, None),
            ([], "folder.ini", "folder.ini"),
        ):
            with self.subTest((options, variable)):
                environment = os.environ | ({} if variable is None else {"VESK_CONFIG": variable})
                command = [vesk.PROGRAM, *options, "set", "key", "value"]
                run = subprocess.run(command, capture_output=True, text=True, env=environment)
                said = f"config file not found: {missing}\n" if missing else ""
                self.assertEqual((run.returncode, run.stderr), (bool(missing), said))

    def test_a_failing_script_leaves_nothing(self):
        # 006_health.sql alters vesk.host_samples before it creates vesk.alerts.
        DATABASE.sql("DROP SCHEMA vesk CASCADE; CREATE SCHEMA vesk; CREATE TABLE vesk.alerts ()")
        applied = "".join(f"applied {name}\n" for name in SCRIPTS)
        first, rest = applied.split("applied 006")
        self.assertTrue(admin("migrate").startswith(f"1|{first}|006_health.sql: "))
        added = "SELECT count(*) FROM information_schema.columns WHERE column_name = 'cpu_pct'"
        self.assertEqual(DATABASE.sql(added), "0")
        DATABASE.sql("DROP TABLE vesk.alerts")
        rest = f"0|applied 006{rest}schema at version {LEVEL} ({LEVEL - 5} applied)\n|"
        self.assertEqual(admin("migrate"), rest)
        names = DATABASE.sql("SELECT name FROM vesk.schema_migrations ORDER BY version")
        self.assertEqual(names.split("\n"), SCRIPTS)

        # The commit fails.
        DATABASE.sql(
            "DROP SCHEMA vesk CASCADE; CREATE SCHEMA vesk; CREATE TABLE vesk.schema_migrations"
            f" (version int PRIMARY KEY, name text NOT NULL); {REFUSE} CREATE CONSTRAINT TRIGGER late"
            " AFTER INSERT ON vesk.schema_migrations DEFERRABLE INITIALLY DEFERRED"
            " FOR EACH ROW EXECUTE FUNCTION public.refuse()"
        )
        self.assertEqual(admin("migrate"), "1||sql: ERROR:  not now")
        self.assertEqual(DATABASE.sql("SELECT to_regclass('vesk.users')"), "")
        DATABASE.sql("DROP SCHEMA vesk CASCADE; DROP FUNCTION public.refuse")
        admin("migrate")

    def test_records(self):
        here = os.getcwd()
        self.table(
            [
                ("add-site Example.COM Name", "0|added site example.com\n|"),
                ("add-site EXAMPLE.com Name", DUPLICATE + '"sites_host_key"'),
                ("add-log eXample.org logs/a", "0|vesk-collect will follow logs/a\n|"),
                ("add-log example.org logs/a", DUPLICATE + '"log_sources_path_key"'),
                (["add-log", "example.org", ""], "1||the path of a log must not be empty\n"),
                (["set", "key", "é'\\ \""], "0||"),
                (["set", "key", ""], "0||"),
                (["set", "other", "--", "-1"], "0||"),
            ]
        )
        self.assertEqual(
            DATABASE.sql("SELECT host FROM vesk.sites WHERE name = 'Name'"), "example.com"
        )
        paths = "SELECT site_id, path FROM vesk.log_sources"
        self.assertEqual(DATABASE.sql(paths), f"1|{here}/logs/a")
        settings = "SELECT key, value FROM vesk.settings WHERE key IN ('key', 'other') ORDER BY 1"
        self.assertEqual(DATABASE.sql(settings), "key|\nother|-1")

    def test_users(self):
        short = "1||password must be at least 12 characters\n"
        for arguments, typed, expected in (
            ("a", "123456789012\nrest\n", "0|created a (maintainer)\n|"),
            ("a --role customer", "123456789012", "0|created a (customer)\n|"),
            ("a", "12345678901\r\n", "0|created a (maintainer)\n|"),
            ("a", "\U0001f600" * 6, "0|created a (maintainer)\n|"),  # twice as many code units
            ("a", "12345678901\n", short),
            ("a", "1234\00056789012345\n", short),
            ("a", "", short),
            ("a --role Maintainer", "", "1||role must be maintainer or customer\n"),
            ("a/b", "123456789012\n", RULED_OUT + '"users_username_check"'),
        ):
            with self.subTest((arguments, typed)):
                DATABASE.sql("TRUNCATE vesk.users CASCADE")
                self.assertEqual(admin("add-user", *arguments.split(), input=typed), expected)
                count = DATABASE.sql("SELECT count(*) FROM vesk.users")
                self.assertEqual(count, str(int(expected[0] == "0")))

    def test_import_and_rollup(self):
        own = hits(11, "/b").replace('"-"', '"https://www.example.org/"').rstrip("\n")
        file("a.log", hits(10, "/a") + "junk\n\n" + own)
        file("b.log", hits(11, "/c", "/vesk-b?p=/c&t=0"))
        expected = (
            "0|a.log: 3 lines, 2 stored, 1 not log entries\nmissing: 0 lines, 0 stored, 0 not log"
            " entries\nb.log: 2 lines, 1 stored, 0 not log entries\nrolled up 2 days\n|"
        )
        self.assertEqual(admin("import-log", "Example.org", "a.log", "missing", "b.log"), expected)
        kinds = DATABASE.sql("SELECT string_agg(source_kind, ' ' ORDER BY id) FROM vesk.hits")
        self.assertEqual(kinds, "direct internal direct")  # the host is compared in lower case
        views = (
            "SELECT day, n1 FROM vesk.rollup WHERE (scope, key) = ('all', 'pageviews') ORDER BY 1"
        )
        self.assertEqual(DATABASE.sql(views), "2026-03-10|1\n2026-03-11|2")
        DATABASE.sql("TRUNCATE vesk.rollup")
        self.assertEqual(admin("rollup", "EXAMPLE.org"), "0|EXAMPLE.org: rolled up 2 days\n|")
        self.assertEqual(DATABASE.sql(views), "2026-03-10|1\n2026-03-11|2")

    def test_archives(self):
        """One of several slices."""
        archive = gzip.compress(hits(10, *(f"/{i * 7919 % 12001}" for i in range(12001))).encode())
        expected = "0|a.gz: 12001 lines, 12001 stored, 0 not log entries\nrolled up 1 days\n|"
        self.assertEqual(admin("import-log", "example.org", file("a.gz", archive)), expected)
        self.assertEqual(DATABASE.sql("SELECT count(DISTINCT path) FROM vesk.hits"), "12001")

    def test_odd_file_names(self):
        """A colon in front of a name means nothing, and an empty name no file."""
        file(":c", DATABASE.config.read_text())
        file(":a", hits(10, "/a"))
        file(":gsc", '{"totals": [{"keys": ["2024-05-01"]}]}')
        file(":csv", "10.0.0.0,10.0.9.9,DE\n" + "\n" * 1000)
        one, none = (f"{n} lines, {n} stored, 0 not log entries\n" for n in (1, 0))
        rows = [
            (["import-log", "example.org", ":a", ""], f"0|:a: {one}: {none}rolled up 1 days\n|"),
            ("import-gsc example.org :gsc", self.searched("example.org")),
            ("geoip-update :csv", "0|loaded 1 country ranges (IP data by DB-IP, CC BY 4.0)\n|"),
            ("add-log example.org :log", "0|vesk-collect will follow :log\n|"),
        ]
        with unittest.mock.patch.object(DATABASE, "command", [vesk.PROGRAM, "-c", ":c"]):
            self.table(rows)
        self.assertEqual(DATABASE.sql("SELECT path FROM vesk.log_sources"), f"{os.getcwd()}/:log")

    def searched(self, host):
        return f"0|{host}: 1 days (2024-05-01 to 2024-05-01), 0 detail rows\n|"

    def test_unknown_sites(self):
        unknown = "1||unknown site No.example (add it with add-site)\n"
        commands = ("add-log {} x", "import-log {} /dev/null", "rollup {}", "import-gsc {} x")
        self.table([(text.format("No.example"), unknown) for text in commands])

    def test_what_is_missing_in_the_database(self):
        secret = DATABASE.sql(
            "DELETE FROM vesk.settings WHERE key = 'visitor_secret' RETURNING value;"
            " ALTER TABLE vesk.hits RENAME TO gone"
        )
        self.assertEqual(admin("import-log", "example.org", "/dev/null"), "1||")
        gone = 'sql: ERROR:  relation "vesk.hits" does not exist'
        self.assertEqual(
            admin("rollup", "example.org"), f"0|example.org: rolled up 0 days\n|{gone}"
        )
        DATABASE.sql("ALTER TABLE vesk.gone RENAME TO hits")
        admin("set", "visitor_secret", secret)

    def test_reference_data(self):
        refusal = "1|that does not look like a DB-IP country file\n|"
        loaded = "0|loaded 1000 country ranges (IP data by DB-IP, CC BY 4.0)\n|"
        file("ranges.csv", ranges(10, 1000))
        self.table([("geoip-update ranges.csv ignored", loaded), ("geoip-update none.gz", refusal)])
        DATABASE.sql(
            f"{REFUSE} CREATE TRIGGER t BEFORE TRUNCATE ON vesk.geo_country"
            " EXECUTE FUNCTION public.refuse()"
        )
        failed = "1|database error while loading\n|sql: ERROR:  not now"
        self.assertEqual(admin("geoip-update", file("again.csv", ranges(11, 1000))), failed)
        DATABASE.sql("DROP FUNCTION public.refuse CASCADE")
        self.assertEqual(DATABASE.sql("SELECT count(*) FROM vesk.geo_country"), "1000")

        export = json.dumps({"totals": [{"keys": ["2024-05-01"], "clicks": 1}]}).encode()
        file("a.json.gz", gzip.compress(export))
        got = admin("import-gsc", "Example.org", "a.json.gz")
        self.assertEqual(got, self.searched("Example.org"))
        nothing = "1|example.org: no daily totals in the data\n|"
        for broken in ("[1]", '{"totals": ['):
            self.assertEqual(admin("import-gsc", "example.org", file("broken", broken)), nothing)

    def test_case_of_hosts(self):
        """As the database folds it, and how that is told: its locale C knows the letters of ASCII."""
        plain = vesk.Database("plain", "TEMPLATE template0 LOCALE 'C'")
        told = "it is stored as bÜcher.de: this database folds the case of ASCII letters alone, so"
        told = f"0|added site bücher.de\n|{told} name the site by that spelling\n"
        rows = [(["add-site", "BÜCHER.de", "Books"], told)]
        rows += [(["rollup", "BÜCHER.DE"], "0|BÜCHER.DE: rolled up 0 days\n|")]
        unknown = "1||unknown site bücher.de (add it with add-site)\n"
        rows += [(["rollup", "bücher.de"], unknown)]
        self.table(rows, lambda *arguments: outcome(plain.admin(*arguments)))


unittest.main(argv=sys.argv[1:])
