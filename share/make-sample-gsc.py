#!/usr/bin/env python3
"""Writes a made-up search-console export that fits the sample log.

The pages and the last day come from the log, so that the search figures of the sample site and its
visits speak of the same pages. The same log gives the same export.

usage: make-sample-gsc.py LOG.gz > EXPORT.json
"""

import collections
import datetime
import gzip
import json
import random
import re
import sys
import urllib.parse

SITE = "https://example.org"
DAYS = 28
ROWS = 300
PAGE_VIEW = re.compile(r'\[(\d\d/\w{3}/\d{4}):[^"]*"GET (/(?:blog|guides)/[^? ]+) \S+" 200 ')
COUNTRIES = [
    ("deu", 40),
    ("usa", 22),
    ("gbr", 12),
    ("fra", 7),
    ("aut", 6),
    ("che", 5),
    ("ind", 4),
    ("nld", 3),
    ("zzz", 1),
]
DEVICES = [("MOBILE", 60), ("DESKTOP", 36), ("TABLET", 4)]


def weighted(choices):
    # random.choices() may change between versions of Python, random() does not.
    rest = random.random() * sum(weight for _, weight in choices)
    for value, weight in choices:
        rest -= weight
        if rest < 0:
            return value
    return choices[-1][0]


def read_log(path):
    """The views of each page and the last day."""
    views = collections.Counter()
    last = None
    with gzip.open(path, "rt", encoding="utf-8", errors="replace") as log:
        for line in log:
            if match := PAGE_VIEW.search(line):
                last = datetime.datetime.strptime(match[1], "%d/%b/%Y").date()
                views[match[2]] += 1
    return views.most_common(), last


def query_for(page):
    words = urllib.parse.unquote(page).rstrip("/").split("/")[-1].split("-")
    return " ".join(word for word in words if word != "guide" or random.random() < 0.3)


def figures(impressions, position):
    clicks = min(impressions, int(impressions * (0.02 + 0.5 * random.random()) / position))
    return {
        "clicks": clicks,
        "impressions": impressions,
        "ctr": round(clicks / impressions, 4),
        "position": round(position, 1),
    }


def main():
    random.seed(2026)
    pages, last = read_log(sys.argv[1])
    days = [str(last - datetime.timedelta(days=back)) for back in reversed(range(DAYS))]
    rows = []
    for number in range(ROWS):
        page = weighted(pages)
        keys = [
            days[number * DAYS // ROWS],
            query_for(page),
            SITE + page,
            weighted(COUNTRIES),
            weighted(DEVICES),
        ]
        rows.append(
            {
                "keys": keys,
                **figures(1 + int(120 * random.random() ** 3), 1 + 25 * random.random() ** 2),
            }
        )

    # The engine leaves rare queries out of the rows, so the totals are higher than their sums.
    totals = []
    for day in days:
        listed = [row for row in rows if row["keys"][0] == day]
        impressions = sum(row["impressions"] for row in listed) * 2 + int(200 * random.random())
        clicks = sum(row["clicks"] for row in listed) + int(impressions * 0.02)
        totals.append(
            {
                "keys": [day],
                "clicks": clicks,
                "impressions": impressions,
                "ctr": round(clicks / impressions, 4),
                "position": round(9 + 4 * random.random(), 1),
            }
        )
    # One line each, so that changes can be read.
    print(
        '{"totals": [',
        ",\n".join(map(json.dumps, totals)),
        '], "rows": [',
        ",\n".join(map(json.dumps, rows)),
        "]}",
        sep="\n",
    )


if __name__ == "__main__":
    main()
