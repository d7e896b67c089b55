#!/usr/bin/env python3
"""Has vesk-nightly import rotated logs, whatever happens to it.

usage: scripts/with-postgres tests/e2e/season.py VESK-ADMIN VESK-NIGHTLY [-v] [TEST...]
"""

import random
import subprocess
import sys
import time
import unittest

import vesk
from nights import Nights, lines, start_server, stop_server

KILLS, STOPS = 32, 5


class Season(Nights):
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


unittest.main(argv=sys.argv[1:])
