#!/usr/bin/env python3
"""Runs the reports of share/ on the sample and on hand-made report lines.

usage: report.py VESK-ADMIN SHARE, under scripts/with-postgres.
"""

import collections
import datetime
import html.parser
import json
import os
import pathlib
import re
import subprocess
import sys
import tempfile
import unicodedata

PROGRAM, SHARE = sys.argv[1], pathlib.Path(sys.argv[2])

# What a person may have set for psql must not matter.
PSQLRC = r"""\set QUIET on
\timing on
\x on
\set AUTOCOMMIT off
\set FETCH_COUNT 2
\set VERBOSITY verbose
\pset format html
\pset null NULL
\pset recordsep ;
\pset title Title
\pset numericlocale on
\set QUIET off
"""

HOSTILE = ["/<script>alert(1)</script>", "/\"><img src=x onerror='alert(1)'>", "/' onmouseover='x", "/a&amp;b&#x3c;&lt;",
           "/</title></svg></style>-->]]>", "/\u202egpj.exe", "/\u2066x\u2069", "/\x1b[2J\x07\x9b31m\r\ttab\nline", "/مرحبا",
           "/\u200b\ufeff\u00ad\U000e0041", "/" + "a" * 1999, "/" + "日" * 600, "/e" + "\u0301" * 500, "/%s%1$s\\'; DROP TABLE x;"]
DIMENSIONS = ["page", "source", "terms", "country", "device", "browser", "os", "bot", "notfound"]


def sql(text):
    return subprocess.run(["psql", "-XAtq", "-v", "ON_ERROR_STOP=1"], input=text, check=True, capture_output=True, text=True).stdout


def report(script, **variables):
    options = [f"--set={name}={value}" for name, value in variables.items()]
    return subprocess.run(["psql", *options, "-f", SHARE / script], capture_output=True, text=True)


def printed(script, **variables):
    run = report(script, **variables)
    assert run.returncode == 0 and run.stderr == "", run.stderr
    return run.stdout


class Page(html.parser.HTMLParser):
    """The start tags of a page with their attributes, and its texts in their order."""

    def __init__(self, text):
        super().__init__()
        self.tags, self.texts = [], []
        self.feed(text)
        self.close()

    def handle_starttag(self, tag, attributes):
        self.tags.append((tag, attributes))

    def handle_data(self, text):
        self.texts.append(text)

    def handle_comment(self, text):
        raise AssertionError("a comment: " + text)

    def after(self, text, count=4):
        texts = [t for t in self.texts if t.strip()]
        return texts[texts.index(text) + 1:][:count]


def row(text, name):
    """The columns of the line of a text that begins with a name."""
    return next(re.split(" {2,}", line.strip())[1:] for line in text.splitlines() if line.startswith(f"  {name} "))


def add_lines(host, lines):
    """Report lines: day, scope, dim, key, n1, n2, n3, x."""
    values = json.dumps([list(line) + [0] * (8 - len(line)) for line in lines])
    sql(f"INSERT INTO vesk.sites (host, name) VALUES ('{host}', 'Fish & <Chips>') ON CONFLICT DO NOTHING;"
        "INSERT INTO vesk.rollup SELECT (SELECT id FROM vesk.sites WHERE host = '" + host + "'), (v->>0)::date, v->>1, v->>2, v->>3,"
        " (v->>4)::bigint, (v->>5)::bigint, (v->>6)::bigint, (v->>7)::float8 FROM json_array_elements($json$" + values + "$json$) AS v")


def totals(day, scope, visitors, visits, secs, pageviews, bounces, requests, bots, unverified, scanners):
    values = {"visitors": visitors, "visits": visits, "pageviews": pageviews, "bounces": bounces, "requests": requests,
              "bot_requests": bots, "unverified": unverified, "scanners": scanners}
    return [(day, scope, "totals", key, n, 0, 0, secs if key == "visits" else 0) for key, n in values.items()]


def check_sample(folder):
    """The figures of the sample are those of vesk.rollup and of the export, added up here."""
    run = subprocess.run([PROGRAM, "-c", folder / "vesk.ini", "import-log", "example.org", SHARE / "sample.log.gz"])
    assert run.returncode == 0
    subprocess.run([PROGRAM, "-c", folder / "vesk.ini", "import-gsc", "example.org", SHARE / "sample-gsc.json"], check=True)

    for variables, days in (({"day": "2026-03-02"}, ["2026-03-02"]), ({}, ["2026-03-03"]),
                            ({"from": "2026-03-01"}, ["2026-03-01", "2026-03-02", "2026-03-03"])):
        sums = collections.Counter()
        for day, scope, dim, key, n1 in json.loads(sql("SELECT json_agg(json_build_array(day, scope, dim, key, n1)) FROM vesk.rollup")):
            if day in days:
                sums[scope, dim, key] += n1
        text = printed("report.sql", site="example.org", **variables)
        page = Page(printed("report-html.sql", site="EXAMPLE.org", **variables))
        for name, key in (("Visitors", "visitors"), ("Visits", "visits"), ("Page views", "pageviews")):
            people, everyone = f"{sums['people', 'totals', key]:,}", f"{sums['all', 'totals', key]:,}"
            assert row(text, name)[0] == people and row(text, name)[3] == everyone, (name, text)
            assert page.after(name)[0] == people and f"{everyone} with unverified" in page.after(name), (name, page.after(name))
        pages = sorted((-n, key) for (scope, dim, key), n in sums.items() if (scope, dim) == ("people", "page"))
        assert page.after("Time")[1] == f"{-pages[0][0]:,}", pages[0]

        last = datetime.date.fromisoformat(days[-1])
        window = [str(last - datetime.timedelta(back)) for back in range(28)]
        export = json.loads((SHARE / "sample-gsc.json").read_text())
        clicks = f"{sum(total['clicks'] for total in export['totals'] if total['keys'][0] in window):,}"
        assert page.after("Clicks")[0] == clicks and re.search(rf"^ *{clicks} .* google, up to ", text, re.M), clicks


def check_periods():
    """Two days against the two before, worked out by hand."""
    lines = []
    for day in ("2026-05-01", "2026-05-02"):
        lines += totals(day, "people", 10, 20, 600, 40, 5, 1000, 10, 7, 1) + totals(day, "all", 20, 25, 600, 50, 9, 1000, 10, 7, 1)
    for day in ("2026-05-03", "2026-05-04"):
        lines += totals(day, "people", 15, 20, 900, 50, 10, 1001, 60, 7, 0) + totals(day, "all", 1250, 30, 900, 90, 9, 1001, 60, 7, 0)
    lines += [("2026-05-01", "people", "page", "/a", 6, 6), ("2026-05-02", "people", "page", "/gone", 9, 9),
              ("2026-05-03", "people", "page", "/a", 7, 3, 2, 60), ("2026-05-04", "people", "page", "/a", 5, 3, 2, 130),
              ("2026-05-04", "people", "page", "/b", 4, 4), ("2026-05-04", "people", "country", "DE", 3)]
    add_lines("hand.example", lines)
    variables = {"site": "hand.example", "from": "2026-05-03", "to": "2026-05-04"}
    text, page = printed("report.sql", **variables), Page(printed("report-html.sql", **variables))

    for name, expected in {"Visitors": "30 20 +50_% 2,500 ×63", "Visits": "40 40 0_% 60 +20_%", "Page views": "100 80 +25_% 180 +80_%",
                           "Bounces": "20 10 +100_% 18 0_%", "Bounce rate": "50.0_% 25.0_% +25.0_pt 30.0_% −6.0_pt",
                           "Average visit": "0:45 0:30 +50_% 0:30 +25_%", "Requests": "2,002 2,000 0_% of_all_kinds",
                           "By crawlers": "120 20 +500_% 6.0_%_of_all", "Scanners": "0 2 −100_% looked_for_weak_spots"}.items():
        assert row(text, name) == [column.replace("_", " ") for column in expected.split()], (name, row(text, name))
    assert "3 to 4 May 2026 (2 days)\nCompared with 1 to 2 May 2026.\n" in text
    assert re.search(r"^ +12 +\+100 % +6 +0:48  /a\n +4 +new +4 +-  /b\n\n", text, re.M) and "/gone" not in text, text
    assert re.search(r"^ +Sun 3 May 2026 +15 +50  █+░+\n +Mon 4 May 2026 +15 +50  █+░+\n\n", text, re.M), text

    assert page.after("Visitors") == ["30", "+50 % from 20", "2,500 with unverified", "Visits"]
    assert page.after("Bounce rate") == ["50.0 %", "+25.0 pt from 25.0 %", "30.0 % with unverified", "Average visit"]
    assert page.after("/a", 10) == ["12", "+100 %", "6", "0:48", "/b", "4", "new", "4", "-", "Sources of visits"]
    assert page.after("Germany", 3) == ["3", "new", "100.0 %"]
    assert page.after("Sun 3 May 2026") == ["15", "1,235", "20", "50"]
    people = [a for tag, a in page.tags if tag == "rect" and ("class", "people") in a]
    assert [dict(a)["height"] for a in people[1:3]] == ["1.8", "1.8"], people  # 15 of 1,500, which are 180 pixels

    # Days without a report are told, and sums of different numbers of days are not compared.
    text = printed("report.sql", site="hand.example", **{"from": "2026-05-02", "to": "2026-05-05"})
    assert ("There is a report for 3 of these days.\nNot compared with 28 April to 1 May 2026: there is a report for 1 of those"
            in text) and row(text, "Visitors")[:3] == ["40", "-", "-"], text


def check_strangers():
    """What strangers send is text: it adds no element, no attribute, and nothing that a terminal obeys."""
    day = "2026-06-01"
    for host, keys in (("hostile.example", HOSTILE), ("harmless.example", [f"/{n}" for n in range(len(HOSTILE))])):
        lines = totals(day, "people", 9, 9, 9, 9, 9, 9, 9, 9, 9) + totals(day, "all", 9, 9, 9, 9, 9, 9, 9, 9, 9)
        lines += [(day, "people", dim, keys[0] + "\t" + key if dim == "source" else key, 90 - n, 9) for dim in DIMENSIONS
                  for n, key in enumerate(keys)]
        add_lines(host, lines)
        rows = json.dumps([{"query": key, "clicks": 90 - n} for n, key in enumerate(keys)])
        sql(f"INSERT INTO vesk.search_days SELECT id, 'google', '{day}', 9, 99, 3 FROM vesk.sites WHERE host = '{host}';"
            f"INSERT INTO vesk.search_rows (site_id, engine, day, query, page, clicks, impressions, position) SELECT id, 'google', '{day}',"
            f" query, '/', clicks, 99, 3 FROM vesk.sites, json_to_recordset($json${rows}$json$) AS r (query text, clicks integer)"
            f" WHERE host = '{host}'")
    hostile, harmless = (Page(printed("report-html.sql", site=f"{name}.example")) for name in ("hostile", "harmless"))
    assert hostile.tags == harmless.tags
    assert {tag for tag, _ in harmless.tags}.isdisjoint({"script", "img", "link", "a", "iframe", "form"})
    assert ("http-equiv", "Content-Security-Policy") in [pair for _, a in harmless.tags for pair in a]
    assert hostile.texts.count(HOSTILE[0]) > 20 and {"Fish & <Chips>", *HOSTILE[:5], HOSTILE[-1]} <= set(hostile.texts)

    text = printed("report.sql", site="hostile.example")
    for output in ("".join(hostile.texts), text):
        bad = {hex(ord(c)) for c in output if unicodedata.category(c) in ("Cc", "Cf", "Zl", "Zp", "Cs", "Co", "Cn") and c != "\n"}
        assert not bad, bad
        assert "/�[2J��31m��tab�line" in output and "a" * 101 not in output and "日" * 101 not in output
    wide = [line for line in text.splitlines()
            if sum(2 if unicodedata.east_asian_width(c) in "WF" else 0 if unicodedata.combining(c) else 1 for c in line) > 80]
    assert not wide, wide


def check_failures():
    sql("INSERT INTO vesk.sites (host, name) VALUES ('empty.example', 'Empty')")
    example = {"site": "example.org"}
    for variables, message in (
            ({"site": "nosuch.example"}, "unknown site nosuch.example\nHINT:  There are these: empty.example, "),
            ({"site": "\x1b[2J"}, "unknown site �[2J"),
            ({}, "which site?\nHINT:  Add -v site=HOST"),
            ({"site": "empty.example"}, "the site has no reports yet"),
            ({**example, "day": "2026-03-04"}, "there is no report for 4 March 2026\nHINT:  There are reports for 3 days from 2026-03-01"),
            ({**example, "day": "31.31."}, '"31.31." is not a day'),
            ({**example, "from": "infinity"}, '"infinity" is not a day'),
            ({**example, "from": "2026-03-03", "to": "2026-03-01"}, "the period ends before it begins"),
            ({**example, "from": "2001-01-01"}, "the period is too long"),
            ({**example, "day": "2026-03-01", "to": "2026-03-02"}, "both a day and a period"),
            ({**example, "scope": "some"}, "unknown scope some")):
        for script in ("report.sql", "report-html.sql"):
            run = report(script, **variables)
            assert run.returncode == 3 and run.stdout == "" and f" ERROR:  {message}" in run.stderr, (variables, run)
            assert run.stderr.count("ERROR") == 1, run.stderr


def main():
    folder = pathlib.Path(tempfile.mkdtemp())
    (folder / "psqlrc").write_text(PSQLRC)
    os.environ["PSQLRC"] = str(folder / "psqlrc")
    (folder / "vesk.ini").write_text(f"[database]\nhost={os.environ['PGHOST']}\nname=postgres\nuser={os.environ['PGUSER']}\ntimezone=UTC\n")
    subprocess.run([PROGRAM, "-c", folder / "vesk.ini", "migrate"], check=True)
    run = report("report.sql")
    assert run.returncode == 3 and "there are no sites yet" in run.stderr, run
    subprocess.run([PROGRAM, "-c", folder / "vesk.ini", "add-site", "example.org", "Garden notes"], check=True)

    for name, check in {"sample": lambda: check_sample(folder), "periods": check_periods, "strangers": check_strangers,
                        "failures": check_failures}.items():
        check()
        print("ok:", name)
    missing = sql(f"\\ir {SHARE}/report-countries.sql\nSELECT alpha2 FROM vesk.country_codes LEFT JOIN country ON code = alpha2"
                  " WHERE name IS NULL")
    assert missing == "", "countries without a name: " + missing
    print("ok: countries")


main()
