"""The database of the tests of vesk-report, and a run of it as a role that may only select.

The program is the second argument of the test.
"""

import json
import subprocess
import sys

from vesk import FOLDER, Database, psql


class Reports(Database):
    """The database, with the roles reader, and panel for reports without requests."""

    def __init__(self):
        super().__init__("reports")
        psql("CREATE ROLE reader LOGIN; CREATE ROLE panel LOGIN")
        self.sql(
            "REVOKE TEMPORARY ON DATABASE reports FROM PUBLIC;"
            "GRANT USAGE ON SCHEMA vesk TO reader, panel;"
            "GRANT SELECT ON vesk.rollup, vesk.sites, vesk.search_days, vesk.search_rows"
            " TO reader, panel; GRANT SELECT ON vesk.hits TO reader"
        )
        for role in ("reader", "panel"):
            settings = self.config.read_text() + f"user={role}\n"
            (FOLDER / f"{role}.ini").write_text(settings)

    def run(self, *arguments, role="reader"):
        command = [sys.argv[2], "-c", FOLDER / f"{role}.ini", *arguments]
        return subprocess.run(command, capture_output=True, text=True)

    def text(self, *arguments, **options):
        run = self.run(*arguments, **options)
        assert run.returncode == 0 and run.stderr == "", run
        return run.stdout

    def json(self, *arguments, **options):
        return json.loads(self.text("--json", *arguments, **options))
