#!/usr/bin/env python3
"""Reports by the built program, as a role that may only select.

usage: report.py VESK-ADMIN VESK-REPORT SHARE, under scripts/with-postgres.
"""

import html.parser
import json
import os
import pathlib
import subprocess
import sys
import tempfile
import unicodedata
import urllib.parse

ADMIN, REPORT, SHARE = sys.argv[1], sys.argv[2], pathlib.Path(sys.argv[3])
PHONE = "Mozilla/5.0 (iPhone; CPU iPhone OS 18_5 like Mac OS X) Version/18.5 Mobile/15E148 Safari/604.1"
DESKTOP = "Mozilla/5.0 (X11; Linux x86_64; rv:140.0) Gecko/20100101 Firefox/140.0"
HOSTILE = [
    "/<script>alert(1)</script>",
    "/\"><img src=x onerror='alert(1)'>",
    "/' onmouseover='x",
    "/a&amp;b&#x3c;&lt;",
    "/</title></svg></style>-->]]>",
    "/\u202egpj.exe",
    "/\u2066x\u2069",
    "/\x1b[2J\x07\x9b31m\r\ttab\nline",
    "/مرحبا",
    "/\u200b\ufeff\u00ad\U000e0041",
    "/" + "a" * 1900,
    "/" + "日" * 600,
    "/e" + "\u0301" * 500,
    "/%s%1$s\\'; DROP TABLE x;",
]


def sql(text):
    return subprocess.run(["psql", "-XAtq", "-v", "ON_ERROR_STOP=1"], input=text, check=True, capture_output=True, text=True).stdout


def line(address, time, target, status=200, size=0, referrer="-", agent=DESKTOP, duration=""):
    return f'{address} - - [{time} +0000] "GET {target} HTTP/1.1" {status} {size} "{referrer}" "{agent}" {duration}\n'


class Reports:
    """The programs, with a configuration each: the owner's, a reader's, and one of the reports alone."""

    def __init__(self, folder):
        self.folder = pathlib.Path(folder)
        for role in (os.environ["PGUSER"], "reader", "panel"):
            self.config(role).write_text(f"[database]\nhost={os.environ['PGHOST']}\nname=postgres\nuser={role}\ntimezone=UTC\n")
        self.admin("migrate")
        sql(
            "REVOKE TEMPORARY ON DATABASE postgres FROM PUBLIC; CREATE ROLE reader LOGIN; CREATE ROLE panel LOGIN;"
            "GRANT USAGE ON SCHEMA vesk TO reader, panel; GRANT SELECT ON ALL TABLES IN SCHEMA vesk TO reader;"
            "GRANT SELECT ON vesk.rollup, vesk.sites, vesk.search_days, vesk.search_rows TO panel"
        )

    def config(self, role):
        return self.folder / f"{role}.ini"

    def admin(self, *arguments):
        subprocess.run([ADMIN, "-c", self.config(os.environ["PGUSER"]), *arguments], check=True, stdout=subprocess.DEVNULL)

    def add(self, host, log):
        self.admin("add-site", host, "Fish & <Chips>")
        (self.folder / "access.log").write_text(log)
        self.admin("import-log", host, self.folder / "access.log")

    def run(self, *arguments, role="reader"):
        return subprocess.run([REPORT, "-c", self.config(role), *arguments], capture_output=True, text=True)

    def text(self, *arguments, **options):
        run = self.run(*arguments, **options)
        assert run.returncode == 0 and run.stderr == "", run
        return run.stdout

    def json(self, *arguments, **options):
        return json.loads(self.text("--json", *arguments, **options))


def check_figures(reports):
    """All figures of 2 March are worked out by hand."""
    day, own = "02/Mar/2026:", "http://example.org"
    reports.add(
        "example.org",
        "".join(
            [
                line("192.0.2.1", "01/Mar/2026:10:00:00", "/", 200, 1000, "https://www.google.com/", PHONE),
                line("192.0.2.1", day + "09:00:00", "/", 200, 1000, "https://duckduckgo.com/?q=raised+beds", PHONE),
                line("192.0.2.1", day + "09:00:01", "/files/book.pdf", 200, 1000000, own + "/", PHONE),
                *[line("192.0.2.1", day + "09:00:02", "/files/gone.zip", 404, 300, own + "/about", PHONE)] * 2,
                *[line("192.0.2.1", day + "09:00:03", "/slow.js", 200, 10, "-", PHONE, us) for us in (4000, 1000, 100000, 3000, 2000)],
                line("192.0.2.1", day + "09:00:50", "/vesk-b?p=/&t=30", 204, 0, own + "/", PHONE),
                line("192.0.2.2", day + "11:00:00", "/shop?utm_source=flyer&utm_campaign=may+day", 200, 2000),
                line("192.0.2.2", day + "11:00:05", "/about", 200, 500, own + "/shop"),
                line("192.0.2.2", day + "11:00:09", "/broken", 500, 50),
                line("192.0.2.2", day + "11:00:10", "/old", 410, 70),
                line("198.51.100.9", day + "12:00:00", "/.env", 404, 100),
                line("198.51.100.9", day + "12:00:01", "/wp.php", 404, 100),
                line("66.249.66.1", day + "13:00:00", "/", 200, 1000, "-", "Googlebot/2.1"),
                line("203.0.113.5", day + "14:00:00", "/", 200, 1000),
                line("203.0.113.5", "03/Mar/2026:00:05:00", "/", 200, 1000),
            ]
        ),
    )
    report = reports.json("--addresses")  # the only site, its last complete day
    assert report["period"] == {"first": "2026-03-02", "last": "2026-03-02", "days": 1} and len(report["charts"]["course"]) == 2
    assert report["totals"]["visitors"] == {"people": 2, "people_before": 1, "all": 3, "all_before": 1}
    assert report["totals"]["visit_seconds"]["people"] == 2.5 and report["totals"]["bounce_rate"]["people"] == 0.5
    server = report["server"]
    for part, name, expected in (
        (
            report,
            "pages",
            [
                {"path": "/", "views": 1, "views_before": 1, "visitors": 1, "seconds": 30},
                {"path": "/about", "views": 1, "views_before": 0, "visitors": 1, "seconds": None},
                {"path": "/shop", "views": 1, "views_before": 0, "visitors": 1, "seconds": None},
            ],
        ),
        (report, "entry_pages", [{"path": "/", "visits": 1, "share": 0.5}, {"path": "/shop", "visits": 1, "share": 0.5}]),
        (report, "exit_pages", [{"path": "/", "visits": 1, "share": 0.5}, {"path": "/about", "visits": 1, "share": 0.5}]),
        (report, "visit_lengths", [{"bucket": "0", "visits": 1, "share": 0.5}, {"bucket": "1", "visits": 1, "share": 0.5}]),
        (report, "search_terms", [{"term": "raised beds", "visits": 1, "visits_before": 0}]),
        (report, "campaigns", [{"campaign": "may day", "visits": 1, "visits_before": 0}]),
        (
            server,
            "clients",
            [
                {"client": "people", "requests": 13, "share": 13 / 17, "bytes": 1004270, "visitors": 2},
                {"client": "scanners", "requests": 2, "share": 2 / 17, "bytes": 200, "visitors": 1},
                {"client": "crawlers", "requests": 1, "share": 1 / 17, "bytes": 1000, "visitors": 1},
                {"client": "unverified", "requests": 1, "share": 1 / 17, "bytes": 1000, "visitors": 1},
            ],
        ),
        (
            server,
            "missing_files",
            [
                {"path": "/files/gone.zip", "requests": 2, "by_scanners": 0, "referrer": own + "/about"},
                {"path": "/.env", "requests": 1, "by_scanners": 1, "referrer": None},
                {"path": "/wp.php", "requests": 1, "by_scanners": 1, "referrer": None},
                {"path": "/old", "requests": 1, "by_scanners": 0, "referrer": None},
            ],
        ),
        (server, "errors", [{"path": "/broken", "requests": 1, "status": "500"}]),
        (server, "slow_paths", [{"path": "/slow.js", "percentile_95_us": 100000, "median_us": 3000, "longest_us": 100000, "requests": 5}]),
        (server, "downloads", [{"path": "/files/book.pdf", "bytes": 1000000, "requests": 1}]),
        (server, "scanner_addresses", [{"address": "198.51.100.9", "requests": 2, "bytes": 200}]),
    ):
        assert part["lists"][name] == {"total": len(expected), "rows": expected}, (name, part["lists"][name])
    assert {row["status"]: row["requests"] for row in server["lists"]["statuses"]["rows"]} == {"200": 11, "404": 4, "410": 1, "500": 1}
    assert {row["type"]: (row["requests"], row["bytes"]) for row in server["lists"]["file_types"]["rows"]} == {
        "pages": (8, 5720),
        "pdf": (1, 1000000),
        "zip": (2, 600),
        "js": (5, 50),
        "env": (1, 100),
    }
    assert server["totals"]["bytes"]["value"] == 1006470 and "scanner_addresses" not in reports.json()["server"]["lists"]

    text = reports.text("--rows", "1", "example.org", "2026-03-02")
    assert "\nMonday, 2 March 2026\nCompared with 1 March 2026.\n" in text and "+3  more (--rows all)\n" in text
    assert "  /files/gone.zip\n" in text and "from /about\n" in text, text
    report = reports.json("2026-03")
    assert report["notes"][1:] == [
        "There are requests until 3 March 2026, 00:05.",
        "Not compared with 29 January to 28 February 2026, since hours are missing.",
    ], report["notes"]
    report = reports.json(role="panel")
    assert not report["server"]["known"] and "may not read" in report["server"]["note"]
    sql("DELETE FROM vesk.hits WHERE at < '2026-03-03'")
    report = reports.json()
    assert "have been deleted" in report["server"]["note"] and report["totals"]["visits"]["people"] == 2
    terms = [row["term"] for row in report["lists"]["search_terms_and_campaigns"]["rows"]]
    assert terms == ["may day", "raised beds"], terms


def check_rules(reports):
    """The requests are told apart, and visits counted, as by the roll-up, of the sample as of a real site."""
    reports.admin("add-site", "sample.example", "sample.example")
    reports.admin("import-log", "sample.example", SHARE / "sample.log.gz")
    for scope, key in (("people", "people"), ("all", "all")):
        report = reports.json("--scope", scope, "sample.example", "2026-03-01..2026-03-03")
        clients = {row["client"]: row for row in report["server"]["lists"]["clients"]["rows"]}
        counted = [
            clients["scanners"]["visitors"],
            clients["unverified"]["visitors"],
            sum(c["requests"] for c in clients.values()),
            *[sum(row["visits"] for row in report["lists"][name]["rows"]) for name in ("visit_pages", "visit_lengths")],
            report["lists"]["visit_pages"]["rows"][0]["visits"],
        ]
        totals = {name: total[key] for name, total in report["totals"].items()}
        totals.update({name: total["value"] for name, total in report["requests"].items()})
        names = ["scanners", "unverified", "requests", "visits", "visits", "bounces"]
        assert counted == [totals[name] for name in names] and min(counted) > 0, (scope, counted, totals)


class Page(html.parser.HTMLParser):
    """The start tags of a page with the names of their attributes, and all texts."""

    def __init__(self, text):
        super().__init__()
        self.tags, self.texts = [], []
        self.feed(text)
        self.close()

    def handle_starttag(self, tag, attributes):
        self.tags.append((tag, *[name for name, _ in attributes if name != "title"]))
        self.texts += [value for name, value in attributes if name == "title"]

    def handle_data(self, text):
        self.texts.append(text)

    def handle_comment(self, text):
        raise AssertionError("a comment: " + text)


def check_strangers(reports):
    """What strangers send is text: it adds no element, no attribute, and nothing that a terminal obeys."""
    for host, names in (
        ("hostile.example", HOSTILE),
        ("harmless.example", [f"/{n}{name[-4:] * name.endswith('.exe')}" for n, name in enumerate(HOSTILE)]),
    ):
        log = ""
        for n, name in enumerate(names):
            target = urllib.parse.quote(name, safe="/")
            campaign = f"/?utm_source={target}&utm_campaign={target}"
            for status, what in ((200, target), (404, target), (500, target), (200, campaign), (200, target + ".zip")):
                log += line(
                    f"192.0.2.{n}", "01/Jun/2026:10:00:00", what, status, 5, "https://" + name.replace('"', r"\"").replace("\n", "")
                )
        reports.add(host, log)
    hostile, harmless = (Page(reports.text("--html", f"{name}.example")) for name in ("hostile", "harmless"))
    assert hostile.tags == harmless.tags, [(n, t, u) for n, (t, u) in enumerate(zip(hostile.tags, harmless.tags)) if t != u][:2]
    assert {tag for tag, *_ in harmless.tags}.isdisjoint({"script", "img", "link", "a", "iframe", "form"})
    missing = {"Fish & <Chips>", *HOSTILE[:5], *HOSTILE[-4:]} - set(hostile.texts)
    assert hostile.texts.count(HOSTILE[0]) >= 5 and not missing, missing
    text = reports.text("hostile.example")
    for output in ("".join(hostile.texts), text):
        bad = {hex(ord(c)) for c in output if unicodedata.category(c) in ("Cc", "Cf", "Zl", "Zp", "Cs", "Co", "Cn") and c != "\n"}
        assert not bad, bad
    wide = [
        line
        for line in text.splitlines()
        if sum(2 if unicodedata.east_asian_width(c) in "WF" else 0 if unicodedata.combining(c) else 1 for c in line) > 80
    ]
    assert "/�[2J��31m��tab�line" in text and not wide, wide


def check_pages(reports):
    folder = reports.folder / "pages"
    folder.mkdir()
    reports.text("--pages", folder, "sample.example")
    names = sorted(path.name for path in folder.iterdir())
    assert names == ["2026-03.html", "index.html", "last-30-days.html", "last-7-days.html", "last-day.html"], names
    index = (folder / "index.html").read_text()
    assert all(f'href="{name}"' in index for name in names if name != "index.html")
    assert "Monday, 2 March 2026" in (folder / "last-day.html").read_text()
    assert reports.run("--pages", folder / "missing", "sample.example").returncode == 1


def check_failures(reports):
    reports.admin("add-site", "empty.example", "Empty")
    for arguments, message in (
        (["nosuch.example"], "unknown site nosuch.example; there are: empty.example, "),
        (["\x1b[2J"], "unknown site �[2J"),
        ([], "which site? There are: "),
        (["empty.example"], "empty.example has no reports yet"),
        (["sample.example", "2026-03-04"], "sample.example has no report for 4 March 2026"),
        (["sample.example", "31.31."], "31.31. is no period. Periods are: 2026-03-02, "),
        (["--scope", "some", "sample.example"], "unknown scope some"),
        (["--rows", "0", "sample.example"], "--rows takes a number"),
    ):
        run = reports.run(*arguments)
        assert run.returncode == 1 and run.stdout == "" and run.stderr.startswith(message), (arguments, run)


def main():
    with tempfile.TemporaryDirectory() as folder:
        reports = Reports(folder)
        for check in (check_figures, check_rules, check_strangers, check_pages, check_failures):
            check(reports)
            print("ok:", check.__name__)


main()
