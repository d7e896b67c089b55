#!/usr/bin/env python3
"""share/partition-requests: nothing is lost, and the way back leads to what was.

usage: partitions.py VESK-ADMIN SCRIPT [-v] [Partitions.NAME...], under scripts/with-postgres.
"""

import os
import subprocess
import sys
import unittest

import vesk

SCRIPT = os.path.abspath(sys.argv.pop(2))
SETTING = """
CREATE ROLE {0}; CREATE ROLE {0}_reader; ALTER SCHEMA vesk OWNER TO {0};
ALTER TABLE vesk.sites OWNER TO {0}; ALTER TABLE vesk.hits OWNER TO {0};
ALTER DEFAULT PRIVILEGES FOR ROLE {0} GRANT SELECT ON TABLES TO {0}_reader;
GRANT SELECT (path), UPDATE ON vesk.hits TO {0}_reader WITH GRANT OPTION;
GRANT USAGE ON vesk.hits_id_seq TO PUBLIC; COMMENT ON TABLE vesk.hits IS 'it''s';
CREATE INDEX "a b" ON vesk.hits (path) WHERE status = 404;
CREATE FUNCTION vesk.tell() RETURNS trigger LANGUAGE plpgsql AS
    'BEGIN UPDATE vesk.sites SET name = name || ''!''; RETURN NULL; END';
CREATE TRIGGER tell AFTER INSERT ON vesk.hits FOR EACH ROW EXECUTE FUNCTION vesk.tell();
CREATE FUNCTION wait() RETURNS event_trigger LANGUAGE plpgsql AS
    'BEGIN PERFORM pg_advisory_xact_lock_shared(1); END';
CREATE EVENT TRIGGER wait ON ddl_command_end WHEN TAG IN ('CREATE TRIGGER')
    EXECUTE FUNCTION wait()"""
ADD = """INSERT INTO vesk.hits (site_id, at, method, path, status, is_page, visitor, session_id,
    source_kind) SELECT 1, (at || ' UTC')::timestamptz, 'GET', at, 200, true, '', 1, 'direct'
    FROM unnest('{%s}'::text[]) at"""
DUMP = r"""\d+ vesk.hits \\ \dtp vesk.hits \\ \dp vesk.hits \\ \dp vesk.hits_id_seq
SELECT obj_description('vesk.hits'::regclass, 'pg_class'); SELECT last_value FROM vesk.hits_id_seq;
TABLE vesk.sites; SELECT tableoid::regclass, * FROM vesk.hits ORDER BY id"""
PARTS = "SELECT string_agg(tableoid::regclass || ' ' || path, ',' ORDER BY id) FROM vesk.hits"


class Partitions(unittest.TestCase):
    def setUp(self):
        self.name = self.id().split(".")[-1]
        self.sql = vesk.Database(self.name).sql
        self.sql(SETTING.format(self.name))
        self.sql(ADD % "2025-12-31, 2026-01-01, 2026-02-01, 9000-01-01")
        self.before = self.dump()

    def dump(self):
        command = ["psql", "-Xd", self.name]
        return subprocess.run(command, input=DUMP, capture_output=True, text=True).stdout

    def start(self, *arguments):
        command = ["env", f"PGDATABASE={self.name}", SCRIPT, *arguments]
        return subprocess.Popen(command, stdout=subprocess.PIPE, stderr=subprocess.PIPE, text=True)

    def expect(self, program, error="^$"):
        self.assertRegex(program.communicate()[1], error)
        self.assertEqual(program.returncode != 0, error != "^$")

    def test_partitions(self):
        self.expect(self.start("split", "2026-01"))
        parts = ["hits_before 2025-12-31", "hits_2026_01 2026-01-01", "hits_2026_02 2026-02-01"]
        parts = [f"vesk.{part}" for part in [*parts, "hits_rest 9000-01-01"]]
        self.assertEqual(self.sql(PARTS), ",".join(parts))
        readable = f"relname ~ '^hits' AND has_table_privilege('{self.name}_reader', oid, 'SELECT')"
        self.assertEqual(self.sql(f"SELECT count(*) FROM pg_class WHERE {readable}"), "0")
        self.sql("ALTER TABLE vesk.hits DETACH PARTITION vesk.hits_before")
        self.sql(ADD % "2025-12-01, 2025-11-30")
        self.expect(self.start("ahead"))
        parts += ["vesk.hits_2025_12 2025-12-01", "vesk.hits_2025_11 2025-11-30"]
        self.assertEqual(self.sql(PARTS), ",".join(parts[1:]))
        self.expect(self.start("join"))
        self.sql("CREATE VIEW vesk.v AS SELECT FROM vesk.hits")
        self.expect(self.start("split"), "^ERROR: .* rule _RETURN on view vesk.v$")

    def test_interrupted(self):
        """One that is cut off when nearly all is done, then two at once."""
        waiting = "FROM pg_stat_activity WHERE wait_event = 'advisory'"
        for action, refused in (("split", "partitioned already"), ("join", "not partitioned")):
            before = self.dump()
            holder = vesk.Session(self.name, "SELECT pg_advisory_lock(1)")
            program = self.start(action)
            vesk.until(lambda: self.sql(f"SELECT count(*) {waiting}") == "1")
            self.sql(f"SELECT pg_terminate_backend(pid) {waiting}")
            self.expect(program, "terminating connection")
            self.assertEqual(self.dump(), before)
            both = [self.start(action), self.start(action)]
            vesk.until(lambda: self.sql(f"SELECT count(*) {waiting}") == "1")
            holder.end()
            said = sorted(program.communicate()[1] for program in both)
            self.assertEqual(said, ["", f"ERROR:  vesk.hits is {refused}\n"])
        self.assertEqual(self.dump(), self.before)


unittest.main(argv=sys.argv[1:])
