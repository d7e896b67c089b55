#!/usr/bin/env python3
"""The overview and the check of a busy site, a silent one and an international one.

usage: sites.py VESK-ADMIN VESK-REPORT VESK-NIGHTLY, under scripts/with-postgres.
"""

import datetime
import json
import os
import re
import subprocess
import sys
import urllib.parse
import xml.etree.ElementTree

import media
from reports import Reports
from vesk import FOLDER, log_line

TODAY = datetime.datetime.now(datetime.timezone.utc).date()
SITES = {"busy.example": (-1, 40), "silent.example": (3, 30), "bücher.example": (-1, 20)}
LISTED = "visitors visits pageviews requests bot_share bytes errors".split()


def night(reports, host, text, status=0):
    (FOLDER / "log").write_text(text)
    os.utime(FOLDER / "log", (1e9, 1e9))
    names = {"VESK_CONFIG": str(reports.config), "VESK_LOGS": f"{FOLDER}/log"}
    command = [sys.argv[3], "import", host]
    run = subprocess.run(command, env=os.environ | names, capture_output=True)
    assert run.returncode == status, run


def add_sites(reports):
    reports.sql("DELETE FROM vesk.sites")
    for host, (silent, count) in SITES.items():
        reports.admin("add-site", host, "<b>Name</b>")
        log = ""
        for n in range(12, silent, -1):
            time = f"{TODAY - datetime.timedelta(n):%d/%b/%Y}:{{}}:00:01 +0000"
            many = count + 12 * (n > 8)
            for i in range(
                many - 1
            ):  # each address takes a page and a style sheet, but for the last
                agent = "Googlebot/2.1" if i < count / 4 else "Firefox/140.0"
                path = ("/", "/a.css")[i % 2]
                log += log_line(path, f"192.0.2.{i // 2}", time.format("00"), agent)
            for path in ("/", "/vesk-b?p=/&t=9"):  # and one comes again
                log += log_line(path, f"192.0.2.{many // 2 - 2}", time.format("02"), agent)
        night(reports, host, log)


def expect(reports, status, *lines, arguments=(), **options):
    run = reports.run("--check", *arguments, **options)
    assert run.returncode == status, run
    for line, pattern in zip(run.stdout.splitlines(), lines, strict=True):
        assert re.search(pattern, line), (pattern, run)


def check_check(reports):
    silent = "^WARNING silent.example: no requests for 3 days, since "
    for role, more in (("panel", ", server errors unknown, nights unknown"), ("reader", "")):
        fine = [f"^OK {host}: {n} requests on [^,]*{more}$" for host, (_, n) in SITES.items()]
        expect(reports, 1, silent, fine[0], fine[2], role=role)
        expect(reports, 0, fine[0], arguments=["busy.example"], role=role)
        nightly = "SCHEMA vesk_nightly TO reader"
        reports.sql(f"GRANT USAGE ON {nightly}; GRANT SELECT ON ALL TABLES IN {nightly}")
    night(reports, "bücher.example", "a|b\n", status=1)
    since = reports.sql("SELECT failing_since FROM vesk_nightly.runs WHERE failing_since < at")
    refused = "^WARNING bücher.example: the import of .* failed: .*not one line is .*: a/b$"
    reports.sql("UPDATE vesk.hits SET status = CASE site_id WHEN 2 THEN 500 ELSE 499 END")
    reports.sql("TRUNCATE vesk_nightly.figures")  # the next night makes up those of its site
    busy = "^CRITICAL busy.example: 40 of 40 requests on .* were server errors$"
    expect(reports, 2, busy, refused, silent)
    night(reports, "bücher.example", "a|b\n", status=1)
    since += reports.sql("SELECT count(*) FROM vesk_nightly.runs WHERE failing_since < at")
    assert since == "1", since  # the second failure keeps the time of the first
    found = json.loads(reports.run("--check", "--json").stdout)
    levels = [site["level"] for site in found["sites"]]
    assert (found["format"], found["status"], levels) == (1, 2, ["critical", "warning", "warning"])
    for wrong in (["nosuch.example"], ["--silent", "7,2"], ["--nosuch"], ["a", "b"]):
        run = reports.run("--check", *wrong)
        assert run.returncode == 3 and run.stderr and run.stdout.startswith("UNKNOWN: "), run
    assert reports.run("--check", role="nobody").stdout.startswith("UNKNOWN: ")


def check_figures(reports, scope):
    period = "..".join(str(TODAY - datetime.timedelta(n)) for n in (6, 1))
    arguments = ("--sites", "--scope", scope, period)
    overview = reports.json(*arguments)
    hosts = [site["site"] for site in overview["sites"]]
    assert hosts == ["busy.example", "bücher.example", "silent.example"], hosts
    sums = dict.fromkeys([*LISTED, "bots"], 0)
    for site in overview["sites"]:
        report = reports.json(site["site"], period)
        wanted = {name: report["totals"][name][scope] for name in LISTED[:3]}
        wanted["requests"] = report["requests"]["requests"]["value"]
        bots = report["requests"]["bot_requests"]["value"]
        wanted |= {"bot_share": bots / wanted["requests"], "bots": bots}
        wanted["bytes"] = report["server"]["totals"]["bytes"]["value"]
        statuses = report["server"]["lists"]["statuses"]["rows"]
        wanted["errors"] = sum(row["requests"] for row in statuses if row["status"] == "500")
        assert all(site[name] == wanted[name] for name in LISTED), (site, wanted)
        before = report["totals"]["visitors"][scope + "_before"]
        assert (site["name"], site["visitors_before"]) == ("<b>Name</b>", before), site
        sums = {name: sums[name] + wanted[name] for name in sums}
    sums["bot_share"] = sums["bots"] / sums["requests"]
    rows = [*overview["sites"], overview["totals"]]
    assert all(rows[3][name] == sums[name] for name in LISTED), (rows[3], sums)

    page = reports.text("--html", *arguments)
    body = xml.etree.ElementTree.fromstring(re.search("<body>.*</body>", page, re.S)[0])
    text = [" ".join(line.split()) for line in reports.text(*arguments).splitlines()]
    for row, line in zip(rows, body.findall(".//table/*/tr")[1:], strict=True):
        figures = [media.shown(name, row[name]) for name in LISTED]
        change = media.change("", row["visitors_compared"], row["visitors_before"])
        cells = ["".join(cell.itertext()) for cell in line]
        days, level = row.get("days_with_report", 6), row.get("level", "fine")
        gap = f"Of {days} of the 6 days." * (days < 6)
        head = row.get("site", "All 3 sites") + gap + level.title() * (level != "fine")
        assert cells[:-1] == [head, figures[0] + "".join(change), *figures[1:]], (cells, figures)
        place = text.index(" ".join([figures[0], *(change or ["-"]), *figures[1:]]))
        assert text[place + 1] == gap or not gap, (gap, text)
    wrong = " ".join("".join(item.itertext()) for item in body.iter("li"))
    assert "Critical busy.example: 40 of 40" in wrong and "first is: a|b" in wrong, wrong


def check_overview(reports):
    for scope in ("people", "all"):
        check_figures(reports, scope)
    old = "method = 'GET' AND at < current_date"
    reports.sql(f"DELETE FROM vesk.hits WHERE id = (SELECT max(id) FROM vesk.hits WHERE {old})")
    for role, unknown in (("reader", (0, 0, 1)), ("panel", (1, 1, 1)), ("reader", (0, 1, 1))):
        overview = reports.json("--sites", role=role)
        assert overview["period"]["first"] == str(TODAY - datetime.timedelta(1)), overview
        sites = overview["sites"]
        assert [site["bytes"] is None for site in sites] == [*map(bool, unknown)], sites
        reports.sql("TRUNCATE vesk_nightly.figures")


def check_pages(reports):
    folder = FOLDER / "all"
    folder.mkdir()
    old = r"s\x69lent.example"
    (folder / old).mkdir()
    for host in SITES:
        reports.text("--pages-below", folder, host)
    reports.text("--sites", "--pages", folder)
    assert {path.name for path in folder.glob("*.example")} == {*SITES, old} - {"silent.example"}
    pages = {path.name: path.read_text() for path in folder.glob("*.html")}
    assert len(pages) == 3, pages.keys()
    for name, period in (("index", ()), ("last-7-days", ("week",)), ("last-30-days", ("month",))):
        title, *notes = reports.text("--sites", *period).strip().split("\n\n")[0].split("\n")
        shown = [f">{text}<" for text in (title.removeprefix("All sites, "), " ".join(notes))]
        assert all(text in pages[name + ".html"] for text in shown), (name, shown)
    for links in (re.findall('href="(.*?)"', page) for page in pages.values()):
        assert len(links) == 8, links  # three sites, each where it is wrong, two pages
        for link in map(urllib.parse.unquote, links):
            assert (folder / link / ("" if link.endswith("html") else "index.html")).is_file(), link
    reports.sql("UPDATE vesk.sites SET host = '..' WHERE host = 'silent.example'")
    reports.text("--pages-below", folder, "..")
    assert (folder / "%2e2e/index.html").is_file()


shared = Reports()
add_sites(shared)
for check in (check_check, check_overview, check_pages):
    check(shared)
    print("ok:", check.__name__)
