#!/usr/bin/env python3
"""Reports by the built program, as a role that may only select.

usage: report.py VESK-ADMIN VESK-REPORT SHARE, under scripts/with-postgres.
"""

import html.parser
import pathlib
import re
import sys
import unicodedata
import urllib.parse

import media
from reports import Reports
from vesk import FOLDER

SHARE = pathlib.Path(sys.argv[3])
AGENTS = {
    "phone": "Mozilla/5.0 (iPhone; CPU iPhone OS 18_5) Version/18.5 Mobile/15E148 Safari/604.1",
    "desktop": "Mozilla/5.0 (X11; Linux x86_64; rv:140.0) Gecko/20100101 Firefox/140.0",
    "bot": "Googlebot/2.1",
}
# Day and time of March 2026, address, agent, target, status, bytes, referrer, duration.
LOG = """
01:10:00:00 192.0.2.1 phone / 200 1000 https://www.google.com/
02:09:00:00 192.0.2.1 phone / 200 1000 https://ecosia.org/?q=raised+beds
02:09:00:01 192.0.2.1 phone /files/book.pdf 200 1000000 http://example.org/
02:09:00:02 192.0.2.1 phone /files/gone.zip 404 300 http://example.org/about
02:09:00:02 192.0.2.1 phone /files/gone.zip 404 300 http://example.org/about
02:09:00:03 192.0.2.1 phone /slow.js 200 10 - 400000
02:09:00:50 192.0.2.1 phone /vesk-b?p=/&t=30 204 0 http://example.org/
02:11:00:00 192.0.2.2 desktop /shop?utm_source=flyer&utm_campaign=may+day 200 2000
02:11:00:05 192.0.2.2 desktop /about 200 500 http://example.org/shop
02:11:00:09 192.0.2.2 desktop /broken 500 50
02:11:00:10 192.0.2.2 desktop /old 410 70
02:12:00:00 198.51.100.9 desktop /.env 404 100
02:12:00:01 198.51.100.9 desktop /wp.php 404 100
02:13:00:00 66.249.66.1 bot / 200 1000
02:14:00:00 203.0.113.5 desktop / 200 1000
03:00:05:00 203.0.113.5 desktop / 200 1000
"""
LOG += "02:09:00:03 192.0.2.1 phone /quick.js 200 10 - 900000\n" * 4
for duration in (9, 1, 5, 3, 7, 2, 8, 4, 6):
    LOG += f"02:09:00:03 192.0.2.1 phone /slow.js 200 10 - {duration}000\n"
# What the report lists of 2 March, worked out by hand: name, columns, rows.
LISTS = """
pages path,views,views_before,visitors,seconds: / 1 1 1 30; /about 1 0 1 None; /shop 1 0 1 None
entry_pages path,visits,share: / 1 0.5; /shop 1 0.5
exit_pages path,visits,share: / 1 0.5; /about 1 0.5
visit_lengths bucket,visits: 0 1; 1 1
visit_pages bucket,visits: 0 1; 1 1
search_terms term,visits: raised beds 1
campaigns campaign,visits: may day 1
clients client,requests,bytes,visitors:
    people 22 1004360 2; scanners 2 200 1; crawlers 1 1000 1; unverified 1 1000 1
statuses status,requests: 200 20; 404 4; 410 1; 500 1
file_types type,requests,bytes: pdf 1 1000000; pages 8 5720; zip 2 600; js 14 140; env 1 100
missing_files path,requests,by_scanners,referrer:
    /files/gone.zip 2 0 http://example.org/about; /.env 1 1 None; /wp.php 1 1 None; /old 1 0 None
errors path,status,requests: /broken 500 1
slow_paths path,percentile_95_us,median_us,longest_us,requests: /slow.js 400000 5000 400000 10
downloads path,bytes,requests: /files/book.pdf 1000000 1
scanner_addresses address,requests: 198.51.100.9 2
"""
# In Python's notation, at blanks.
HOSTILE = r"""/<script>alert(1)</script> /"><img\x20src=x\x20onerror='alert(1)'>
    /'\x20onmouseover='x /a&amp;b&#x3c;&lt; /</title></svg></style>-->]]> /\u202egpj.exe
    /\u2066x\u2028\u2069 /\x1b[2J\x07\x9b31m\r\ttab\nline /\u0645\u0631\u062d /\u200b\ufeff\xad\U000e0041
    /%s%1$s\\';\x20DROP\x20TABLE\x20x;"""
HOSTILE = [text.encode().decode("unicode_escape") for text in HOSTILE.split()]
HOSTILE += ["/" + "a" * 1900, "/" + "日" * 600, "/e" + "\u0301" * 500]


def line(time, ip, agent, target, status, size, referrer="-", duration=""):
    request = f'"GET {target} HTTP/1.1" {status} {size} "{referrer}" "{AGENTS[agent]}"'
    return f"{ip} - - [{time} +0000] {request} {duration}\n"


def add(reports, host, log):
    reports.admin("add-site", host, "Fish & <Chips>")
    (FOLDER / "access.log").write_text(log)
    assert reports.admin("import-log", host, FOLDER / "access.log").returncode == 0


def table(part, name, columns):
    """The rows of a list, each with the columns in one text."""
    rows = part["lists"][name]["rows"]
    return [" ".join(str(row[column]) for column in columns.split(",")) for row in rows]


def check_figures(reports):
    entries = (entry.replace(":", "/Mar/2026:", 1).split() for entry in LOG.strip().split("\n"))
    add(reports, "example.org", "".join(line(*entry) for entry in entries))
    report = reports.json("--addresses")  # of the only site and its last complete day
    server = report["server"]
    assert report["period"] == {"first": "2026-03-02", "last": "2026-03-02", "days": 1}
    assert report["people_by"] == {"beacon": 1, "style_sheet": 0, "referrer": 1}
    assert server["totals"]["bytes"]["value"] == 1006560
    for name, columns, rows in re.findall(r"(\S+) (\S+):\s+(.*)", LISTS):
        part = report if name in report["lists"] else server
        found = table(part, name, columns)
        assert found == rows.split("; "), (name, found)
        assert part["lists"][name]["total"] == len(found), name
    assert "scanner_addresses" not in reports.json()["server"]["lists"]
    media.check(report, *(reports.text(form, "--addresses") for form in ("--html", "--rows=15")))

    text = reports.text("--rows", "1", "example.org", "2026-03-02")
    assert "\nMonday, 2 March 2026\nCompared with 1 March 2026.\n" in text
    assert "  /files/gone.zip\n" in text and "from /about\n" in text, text
    assert "+3  more (--rows all)\n" in text
    server = reports.json(role="panel")["server"]
    assert not server["known"] and "may not read" in server["note"]
    reports.sql("REVOKE SELECT ON vesk.search_rows FROM panel")
    assert "(vesk.search_*)" in reports.json(role="panel")["search"]["note"]
    assert all("(vesk.search_*)" in reports.text(*form, role="panel") for form in ((), ["--html"]))
    reports.sql("DELETE FROM vesk.hits WHERE at < '2026-03-03'")
    report = reports.json()
    assert "have been deleted" in report["server"]["note"]
    terms = table(report, "search_terms_and_campaigns", "term")
    assert terms == ["may day", "raised beds"], terms


# Views and seconds of visits, on both sides of each limit; how many of each length and depth.
VISITS = (
    "1 0, 2 1, 3 9, 4 10, 5 29, 6 30, 10 59, 11 60, 20 179, 21 180, 2 599, 2 600, 2 1799, 2 1800"
)
LENGTHS = "0 1; 1 2; 2 2; 3 2; 4 2; 5 2; 6 2; 7 1"
DEPTHS = "0 1; 1 5; 2 1; 3 1; 4 1; 5 2; 6 2; 7 1"


def check_limits(reports):
    log = []
    for n, visit in enumerate(VISITS.split(", ")):
        views, seconds = map(int, visit.split())
        for second in (0, *[seconds] * (views - 1)):
            time = f"02/Mar/2026:10:{second // 60:02}:{second % 60:02}"
            log.append(line(time, f"192.0.2.{n}", "phone", "/", 200, 5, "https://www.google.com/"))
    add(reports, "limits.example", "".join(log))
    report = reports.json("limits.example")
    assert table(report, "visit_lengths", "bucket,visits") == LENGTHS.split("; "), report
    assert table(report, "visit_pages", "bucket,visits") == DEPTHS.split("; "), report
    media.check(report, *(reports.text(form, "limits.example") for form in ("--html", "--rows=15")))


def check_rules(reports):
    """Requests are told apart, and visits counted, as by the roll-up."""
    reports.admin("add-site", "sample.example", "sample.example")
    reports.admin("import-log", "sample.example", SHARE / "sample.log.gz")
    for scope in ("people", "all"):
        report = reports.json("--scope", scope, "sample.example", "2026-03-01..2026-03-03")
        clients = dict(map(str.split, table(report["server"], "clients", "client,visitors")))
        depths = list(map(int, table(report, "visit_pages", "visits")))
        lengths = list(map(int, table(report, "visit_lengths", "visits")))
        found = [int(clients[kind]) for kind in ("scanners", "unverified")]
        found += [sum(depths), sum(lengths), depths[0]]
        expected = [report["requests"][name]["value"] for name in ("scanners", "unverified")]
        expected += [report["totals"][name][scope] for name in ("visits", "visits", "bounces")]
        found.append(sum(report["people_by"].values()))
        expected.append(report["totals"]["visitors"]["people"])
        assert found == expected and min(found) > 0, (scope, found, expected)


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


def hostile_log(names):
    log = ""
    for n, name in enumerate(names):
        target = urllib.parse.quote(name, safe="/")
        referrer = "https://" + name.replace('"', '\\"').replace("\n", "")
        campaign = f"/?utm_source={target}&utm_campaign={target}"
        targets = (target, target, target, target + ".zip", campaign)
        for status, what in zip((200, 404, 500, 200, 200), targets):
            time, ip = "01/Jun/2026:10:00:00", f"192.0.2.{n}"
            log += line(time, ip, "desktop", what, status, 5, referrer)
    return log


def check_strangers(reports):
    """What strangers send adds no element, no attribute, and nothing that a terminal obeys."""
    harmless = [f"/{n}.exe" if name.endswith(".exe") else f"/{n}" for n, name in enumerate(HOSTILE)]
    pages = []
    for host, names in (("hostile.example", HOSTILE), ("harmless.example", harmless)):
        add(reports, host, hostile_log(names))
        pages.append(Page(reports.text("--html", host)))
    assert pages[0].tags == pages[1].tags
    assert {tag for tag, *_ in pages[0].tags}.isdisjoint({"script", "img", "link", "iframe"})
    missing = {"Fish & <Chips>", *HOSTILE[:5], *HOSTILE[-4:]} - set(pages[0].texts)
    assert not missing, missing
    text = reports.text("hostile.example")
    unfit = ("Cc", "Cf", "Zl", "Zp", "Cs", "Co", "Cn")
    for output in ("".join(pages[0].texts), text):
        bad = {hex(ord(c)) for c in output if unicodedata.category(c) in unfit and c != "\n"}
        assert not bad, bad
    for each in text.splitlines():
        wide = sum(unicodedata.east_asian_width(c) in "WF" for c in each)
        marks = sum(unicodedata.combining(c) > 0 for c in each)
        assert len(each) + wide - marks <= 80, each
    assert "/�[2J��31m��tab�line" in text


def check_pages(reports):
    folder = FOLDER / "pages"
    folder.mkdir()
    reports.text("--pages", folder, "sample\\x2eexample")  # as systemd escapes it
    names = {path.name for path in folder.iterdir()}
    linked = {"2026-03.html", "last-30-days.html", "last-7-days.html", "last-day.html"}
    assert names == linked | {"index.html"}, names
    index = (folder / "index.html").read_text()
    assert all(f'href="{name}"' in index for name in linked), index
    for days in ("7 days: 24 February", "30 days: 1 February"):
        assert f"Last {days} to 2 March 2026" in index, index
    assert "Monday, 2 March 2026" in (folder / "last-day.html").read_text()
    (folder / "last-day.html").unlink()
    (folder / "last-day.html").mkdir()
    assert reports.run("--pages", folder, "sample.example").returncode == 1


def check_failures(reports):
    reports.admin("add-site", "empty.example", "Empty")
    for arguments, message in (
        (["nosuch.example"], "unknown site nosuch.example; there are: empty.example, "),
        (["\x1b[2J"], "unknown site �[2J"),
        ([], "which site? There are: "),
        (["empty.example"], "empty.example has no reports yet (import its logs with vesk-nightly "),
        (["sample.example", "2026-03-04"], "sample.example has no report for 4 March 2026"),
        (["sample.example", "31.31."], "31.31. is no period. Periods are: 2026-03-02, "),
        (["--scope", "some", "sample.example"], "unknown scope some"),
        (["--rows", "0", "sample.example"], "--rows takes a number"),
    ):
        run = reports.run(*arguments)
        found = (run.returncode, run.stdout, run.stderr[: len(message)])
        assert found == (1, "", message), (arguments, run)
    reports.sql("DROP OWNED BY panel")
    run = reports.run(role="panel")
    assert run.returncode == 1 and re.fullmatch("sql: .*permission denied[^\0]*", run.stderr), run
    assert "no sites" not in run.stderr, run


shared = Reports()
for check in (
    check_figures,
    check_limits,
    check_rules,
    check_strangers,
    check_pages,
    check_failures,
):
    check(shared)
    print("ok:", check.__name__)
