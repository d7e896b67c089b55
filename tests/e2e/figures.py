#!/usr/bin/env python3
"""Every figure of JSON, page and text against a count of its own.

A hundred days with a gap are put straight into the roll-up of two sites. What a report must say
is counted here. The part of the requests is tested in report.py.

usage: figures.py VESK-ADMIN VESK-REPORT, under scripts/with-postgres.
"""

import datetime
import itertools
import math
import random
import re

import media
from reports import Reports
from vesk import FOLDER

DAY = datetime.timedelta(1)
FIRST = datetime.date(2026, 3, 1)
GAP = [datetime.date(2026, 4, 30) + n * DAY for n in range(3)]
DAYS = [day for day in (FIRST + n * DAY for n in range(100)) if day not in GAP]
UNTIL = {"garden.example": "21:30", "shop.example": "23:00"}  # on 8 June
# What is said of the days of a period, and of the period before.
PERIODS = """
garden.example 2026-06-07 Compared with 6 June 2026.
garden.example 2026-05-05 Compared with 4 May 2026.
garden.example 2026-03-01 There is no report for 28 February 2026 to compare with.
garden.example 2026-06-02..2026-06-08 There are requests until 8 June 2026, 21:30.
| Not compared with 26 May to 1 June 2026, since hours are missing.
garden.example 2026-05-03..2026-06-01
Compared with 3 April to 2 May 2026; there is a report for 27 of those days.
garden.example 2026-05-03..2026-05-12
Not compared with 23 April to 2 May 2026: there is a report for 7 of those days.
garden.example 2026-04-30..2026-05-09 There is a report for 7 of these days, none for 30 April to 2 May 2026.
| Not compared with 20 to 29 April 2026: there is a report for 10 of those days.
garden.example 2026-01-01..2026-12-31 There is a report for 97 of these days,
none for 1 January to 28 February 2026, 30 April to 2 May 2026 and 9 June to 31 December 2026.
| There are requests until 8 June 2026, 21:30.
| Not compared with 1 January to 31 December 2025, since hours are missing.
shop.example 2026-06-08 There are requests until 8 June 2026, 23:00. | Compared with 7 June 2026.
shop.example 2026-05-10..2026-06-08 There are requests until 8 June 2026, 23:00.
| Compared with 10 April to 9 May 2026; there is a report for 27 of those days.
"""
KEYS = {
    "totals": "visitors visits pageviews bounces requests bot_requests unverified scanners",
    "hour": "00 07 08 13 22 23",
    "page": " ".join("/" + letter for letter in "abcdefghijklmnopqr"),
    "source": r"search\tGoogle search\tBing direct\t referral\tfriend.example campaign\tflyer",
    "terms": "beds raised+beds spring+sale a++b",
    "country": "DE FR US ~",
    "device": "desktop mobile tablet",
    "browser": "Firefox Safari Chrome",
    "os": "Linux iOS",
    "notfound": "/x /y /z",
    "bot": "Googlebot Bingbot GPTBot curl",
}
SAME = "notfound bot requests bot_requests unverified scanners".split()  # for people and all


# List, dimension, and the columns of both.
LISTS = """
pages page path views visitors
sources source source visits
countries country country visitors
devices device device visitors
browsers browser browser visitors
systems os system visitors
crawlers bot crawler requests pages
missing_pages notfound path requests
search_terms_and_campaigns terms term visits
"""
# Site, engine, day, clicks, impressions and position; the same of queries. Then what a report of the
# 28 days up to 8 June makes of them.
SEARCH_DAYS = """
2 google 2026-06-06 5 30 6, 2 google 2026-06-05 1 10 2, 2 google 2026-05-12 4 40 3,
2 google 2026-05-11 2 20 9, 2 google 2026-05-01 3 8 1.5, 2 google 2026-04-14 1 2 3,
2 google 2026-04-13 70 70 70, 3 google 2026-06-06 700 700 7,
2 bing 2026-05-20 0 0 1, 2 bing 2026-05-21 3 4 1.5, 2 bing 2026-05-11 1 1 1
"""
SEARCH_ROWS = """
2 google 2026-06-04 hoe / 5 6 2, 2 google 2026-06-05 beds / 1 10 2, 2 bing 2026-06-06 beds / 3 30 6,
2 google 2026-05-12 soil / 4 5 1, 2 google 2026-05-11 soil / 9 9 9, 3 google 2026-06-05 soil / 9 9 9
"""
ENGINES = [
    ("bing", "2026-05-21", (3, None), (4, None), (0.75, None), (1.5, None)),
    ("google", "2026-06-06", (10, 6), (80, 30), (0.125, 0.2), (4, 6.6)),
]
QUERIES = [("hoe", 5, 6, 5 / 6, 2), ("beds", 4, 40, 0.1, 5), ("soil", 4, 5, 0.8, 1)]


class Site:
    """A site with figures by chance, which are the same in every run."""

    def __init__(self, reports, host):
        reports.admin("add-site", host, host)
        self.id = reports.sql(f"SELECT id FROM vesk.sites WHERE host = '{host}'")
        self.lines = []  # day, scope, dimension, key, n1, n2, n3, x
        chance = random.Random(host)
        for day, (dim, keys) in itertools.product(DAYS, KEYS.items()):
            for key in keys.replace("~", "").split(" "):
                if dim != "totals" and chance.random() < 0.2:
                    continue
                people = [chance.randint(1, 40), chance.randint(1, 40), chance.randint(0, 2)]
                more = [0 if key in SAME or dim in SAME else chance.randint(1, 9) for _ in people]
                for scope, n in (("people", people), ("all", [*map(sum, zip(people, more))])):
                    self.lines.append((day, scope, dim, key, *n, 37.5 * n[2]))
        lines = ("\t".join(map(str, (self.id, *line))) + "\n" for line in self.lines)
        (FOLDER / "lines").write_text("".join(lines))
        reports.sql(f"\\copy vesk.rollup FROM '{FOLDER}/lines'")
        reports.sql(
            "INSERT INTO vesk.hits (site_id, at, method, path, status, bytes, is_page, visitor,"
            f" session_id, source_kind) VALUES ({self.id}, '2026-06-08 {UNTIL[host]}', 'GET', '/',"
            " 200, 5, true, 'v', 1, 'direct')"
        )

    def sums(self, scope, dim, first, last):
        """Of each key of a dimension the sums of its figures."""
        found = {}
        for day, its_scope, its_dim, key, *n in self.lines:
            if (its_scope, its_dim) == (scope, dim) and first <= day <= last:
                found[key] = [a + b for a, b in zip(found.get(key, [0] * 4), n)]
        return found

    def totals(self, scope, first, last):
        sums = self.sums(scope, "totals", first, last)
        found = {name: sums.get(name, [0])[0] for name in KEYS["totals"].split(" ")}
        found["bounce_rate"] = ratio(found["bounces"], found["visits"])
        found["visit_seconds"] = ratio(sums.get("visits", [0] * 4)[3], found["visits"])
        return found


def ratio(part, whole):
    return part / whole if whole else None


def rows_of(now, before, name, *columns):
    """The rows of a list: by the first figure, then the second, then the key."""
    whole = sum(n[0] for n in now.values())
    for key, n in sorted(now.items(), key=lambda line: (-line[1][0], -line[1][1], line[0]))[:15]:
        row = dict(zip((name, *columns), (key, *n)))
        if columns[0] in ("visits", "visitors") and name != "term":
            row["share"] = n[0] / whole
        if name == "path" and "views" in columns:
            row["seconds"] = ratio(n[3], n[2])
        if name == "source":
            row["kind"], row["source"] = key.split(r"\t")
        if name == "term":  # a plus sign between words is a blank
            row["term"] = {"raised+beds": "raised beds", "spring+sale": "spring sale"}.get(key, key)
        if before is not None:
            row[columns[0] + "_before"] = before.get(key, [0])[0]
        yield row


def expected_lists(site, scope, now, before):
    for line in LISTS.strip().split("\n"):
        name, dim, *columns = line.split()
        sums = site.sums(scope, dim, *now)
        rows = rows_of(sums, before and site.sums(scope, dim, *before), *columns)
        yield name, {"total": len(sums), "rows": list(rows)}


def expected_charts(site, first, last):
    days = [first + n * DAY for n in range((last - first).days + 1)]
    if first == last:
        start = min(day for day in DAYS if day > last - 31 * DAY)
        days = [start + n * DAY for n in range((last - start).days + 1)]

    def average(days):
        days = [day for day in days if day in DAYS]
        people, everyone = ([site.totals(s, day, day) for day in days] for s in ("people", "all"))
        sums = {
            name: sum(day[name] for day in people) for name in ("visitors", "visits", "pageviews")
        }
        sums["unverified"] = sum(day["visitors"] for day in everyone) - sums["visitors"]
        return {name: ratio(figure, len(days)) for name, figure in sums.items()}

    charts = {"course": [{"first_day": str(day)} | average([day]) for day in days], "hours": []}
    if last - first >= 27 * DAY:
        sevens = [[day for day in days if day.isoweekday() == n] for n in range(1, 8)]
        charts["weekdays"] = list(map(average, sevens))
    people, everyone = (site.sums(scope, "hour", first, last) for scope in ("people", "all"))
    for hour in map("{:02}".format, range(24)):
        few, more = (part.get(hour, [0, 0]) for part in (people, everyone))
        row = {
            "hour": hour,
            "pageviews": few[1],
            "unverified": more[1] - few[1],
            "visitors": few[0],
        }
        charts["hours"].append(row)
    return charts


def expected(site, first, last, scope, compared):
    """What comes from the roll-up, as JSON has it."""
    report = {"totals": {}, "requests": {}, "charts": expected_charts(site, first, last)}
    now, before = (first, last), (first - (last - first) - DAY, first - DAY)
    report["lists"] = dict(expected_lists(site, scope, now, before if compared else None))
    for part, days in (("", now), ("_before", before)):
        people, everyone = (site.totals(scope, *days) for scope in ("people", "all"))
        for name in people:
            figure = report["requests" if name in SAME else "totals"].setdefault(name, {})
            if name in SAME:
                figure[part.strip("_") or "value"] = people[name] if compared or not part else None
            else:
                figure["people" + part] = people[name] if compared or not part else None
                figure["all" + part] = everyone[name] if compared or not part else None
    return report


def compare(found, wanted, place="report"):
    """All that is wanted is found, and lists have nothing else."""
    if isinstance(wanted, dict):
        for key in wanted:
            compare(found.get(key), wanted[key], f"{place}.{key}")
    elif isinstance(wanted, list):
        assert len(found) == len(wanted), (place, found, wanted)
        for n, pair in enumerate(zip(found, wanted)):
            compare(*pair, f"{place}[{n}]")
    else:
        equal = math.isclose(found, wanted) if isinstance(wanted, float) else found == wanted
        assert equal, (place, found, wanted)


def check_figures(reports):
    sites = {host: Site(reports, host) for host in UNTIL}
    entries = re.findall(r"(\w+\.example) (\S+)\s([^.]+(?:(?!\w+\.example).|\n)*)", PERIODS)
    for (host, period, notes), scope in zip(entries, itertools.cycle(("people", "all"))):
        arguments = ("--scope", scope, host, period)
        report = reports.json(*arguments)
        notes = " ".join(notes.split()).split(" | ")
        assert report["notes"] == notes, (report["notes"], notes)
        first, _, last = period.partition("..")
        days = [datetime.date.fromisoformat(day) for day in (first, last or first)]
        compare(report, expected(sites[host], *days, scope, notes[-1].startswith("Compared")))
        media.check(report, reports.text("--html", *arguments), reports.text(*arguments))


def check_search(reports):
    for table, rows in (("days", SEARCH_DAYS), ("rows", SEARCH_ROWS)):
        columns = "site_id, engine, day, clicks, impressions, position"
        columns = columns.replace("day,", "day, query, page,") if table == "rows" else columns
        for row in rows.split(","):
            values = "', '".join(row.split())
            reports.sql(f"INSERT INTO vesk.search_{table} ({columns}) VALUES ('{values}')")
    arguments = ("garden.example", "2026-06-08")
    report = reports.json(*arguments)
    for engine, (name, newest, *figures) in zip(report["search"]["engines"], ENGINES, strict=True):
        assert (engine["engine"], engine["newest"]) == (name, newest), engine
        found = [
            (engine["totals"][name]["value"], engine["totals"][name]["before"])
            for name in media.ENGINE
        ]
        assert found == figures, found
    rows = report["search"]["lists"]["queries"]["rows"]
    assert [tuple(row[name] for name in ("query", *media.ENGINE)) for row in rows] == QUERIES, rows
    media.check(report, reports.text("--html", *arguments), reports.text(*arguments))


def check_failed_statements(reports):
    """A report of which a part cannot be read is none."""
    columns = "rollup.x rollup.n2 rollup.n3 hits.referrer hits.response_us"
    for place in f"{columns} search_days.position search_rows.position".split():
        name, column = place.split(".")
        reports.sql(f"ALTER TABLE vesk.{name} RENAME {column} TO away")
        run = reports.run("garden.example", "2026-06-08")
        reports.sql(f"ALTER TABLE vesk.{name} RENAME away TO {column}")
        assert (run.returncode, run.stdout) == (1, "") and run.stderr.count("sql: ") == 1, run
        assert "free" not in run.stderr, run


def check_pages(reports):
    """A month that is over for long is not written anew, all others are."""
    folder = FOLDER / "pages"
    folder.mkdir()
    reports.text("--pages", folder, "garden.example")
    pages = {path.name: path for path in folder.iterdir()}
    for page in pages.values():
        page.write_text("old")
    site = "site_id = (SELECT id FROM vesk.sites WHERE host = 'garden.example')"
    reports.sql(f"UPDATE vesk.rollup SET n1 = n1 + 900 WHERE {site} AND dim = 'totals'")
    reports.text("--pages", folder, "garden.example")
    kept = {name for name, page in pages.items() if page.read_text() == "old"}
    assert kept == {"2026-03.html", "2026-04.html"}, kept
    months = re.findall('"(2026-.*?)"', pages["index.html"].read_text())
    assert months == [f"2026-0{n}.html" for n in (6, 5, 4, 3)], months


shared = Reports()
check_figures(shared)
check_search(shared)
check_failed_statements(shared)
check_pages(shared)
print("ok")
