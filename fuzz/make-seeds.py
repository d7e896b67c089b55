#!/usr/bin/env python3
"""Writes what the fuzz targets start from: FOLDER/seeds/TARGET/* and the dictionary FOLDER/words.

usage: fuzz/make-seeds.py LOG FOLDER

LOG is a log made by loggen. The dictionary holds the texts that the sources compare with.
"""

import hashlib
import json
import pathlib
import re
import sys

ROOT = pathlib.Path(__file__).resolve().parent.parent
LINE = re.compile(
    r'\S+ \S+ \S+ \[[^]]*\] "(?:\S+) ?((?:[^"\\ ]|\\.)*)[^"]*" \S+ \S+ "((?:[^"\\]|\\.)*)" "((?:[^"\\]|\\.)*)"'
)
ADDRESSES = [
    "192.0.2.7",
    "010.000.02.7",
    "::1",
    "2001:db8::7",
    "::ffff:192.0.2.7",
    "1:2:3:4:5:6:7:8",
    "1:2:3:4:5:6:7:8::",
    "1:2:3:4:5:6:192.0.2.7",
    "fe80::1%eth0",
    "host.example.org",
    "-",
]
TIMES = [
    "10/Oct/2000:13:55:36 -0700",
    "29/Feb/2000:24:00:00 +1600",
    "01/Jan/0001:01:00:00 +0100",
    "31/Dec/9999:22:59:59 -0100",
]
TARGETS = [
    "/",
    "/a%20b?c=d",
    "/vesk-b?p=/caf%C3%A9/&t=12.5",
    "/vesk-b?p=%2Fabout&t=21600",
    "/feed/",
    "/a.PHP?x",
    "/?utm_source=a&utm_campaign=b",
    "*",
    "",
    "/%E2%82%AC\xe9",
    "http://example.org/x",
]
REFERRERS = [
    "",
    "-",
    "http://www.example.org/",
    "https://www.google.co.uk/search?q=a%20b",
    "https://yandex.ru/?text=%D1%8F",
    "https://www.bing.com/?q=a",
    "https://search.yahoo.com/?p=a",
    "android-app://com.google.android.gm/",
    "https://xn--bcher-kva.example/",
    "http://b\u00fccher.example:80/",
    "https://[2001:db8::7]:8080/a",
    "ftp://user:pw@host/a",
    "//host/x",
    "mailto:a@b",
    'a\\"b\\\\c',
]
OTHER_FORMATS = [
    '{"ts":1772533230.5,"logger":"http.log.access","request":{"remote_ip":"::1","method":"GET",'
    '"host":"example.org","uri":"/","headers":{"User-Agent":["UA"]}},"duration":1,"status":200}',
    '{"ClientHost":"::1","RequestHost":"example.org","RequestMethod":"GET","RequestPath":"/",'
    '"StartUTC":"2026-03-03T10:20:30.9Z","Duration":1,"DownstreamStatus":200}',
    '{"time":"2026-03-03T10:20:30+00:00","remote_addr":"::1","request":"GET / HTTP/1.1",'
    '"status":"200","request_time":"0.1","http_user_agent":"\udcff\\u0001"}',
    'example.org:80 ::1 - - [03/Mar/2026:10:20:30 +0000] "GET / HTTP/1.1" 200 5 "-" "UA"',
    '::1 - - [03/Mar/2026:10:20:30 +0000] "GET /" 200 5 "-" "UA" 1 "a@b" "http://::1" 5ms',
]
PASSWORDS = [
    "pbkdf2-sha256$310000$MDEyMzQ1Njc4OWFiY2RlZg==$J7HfxlC+tq0OjprN9Pfd4r5VRE+ZpxjAytDSHMB2U+I=",
    "pbkdf2-sha256$1$$",
    "pbkdf2-sha256$ 2147483647 $A A$=B-_",
    "pbkdf2-sha256$-1$a$b",
    "PBKDF2-SHA256$1$a$b",
    "$$$",
]


def texts_of(*sources):
    """What stands between quotes in C++ sources, without what has escapes or blanks at the ends."""
    found = set()
    for source in sources:
        found.update(
            re.findall(r'"([!#-\[\]-~][ !#-\[\]-~]{0,40})"', (ROOT / "src" / source).read_text())
        )
    return sorted(text for text in found if not text.endswith((".h", " ")))


def test_data(name):
    """The texts behind ": " in the lines of the tests' file."""
    lines = (ROOT / "tests/data" / name).read_text().splitlines()
    return [line.partition(": ")[2] for line in lines if not line.startswith("#")]


def main():
    log = (
        pathlib.Path(sys.argv[1]).read_text(encoding="utf-8", errors="surrogateescape").splitlines()
    )
    folder = pathlib.Path(sys.argv[2])
    written = set()

    def seed(target, text):
        data = text.encode("utf-8", errors="surrogateescape")
        path = folder / "seeds" / target / hashlib.sha1(data).hexdigest()
        if path not in written:
            written.add(path)
            path.parent.mkdir(parents=True, exist_ok=True)
            path.write_bytes(data)

    made_up = [
        f'{a} - - [{t}] "GET {g} HTTP/1.1" 200 5 "{r}" "Mozilla/5.0 \\"x\\" \u00e9" 11'
        for i, a in enumerate(ADDRESSES)
        for j, g in enumerate(TARGETS)
        for t, r in [(TIMES[(i + j) % 4], REFERRERS[(i * 7 + j) % 15])]
    ]
    common = [line.rsplit('"', 4)[0] for line in made_up[::9]]
    some = log[::40][:250] + made_up + common
    # Texts that are cut, with a character of two code units at the cut.
    emoji = "%F0%9F%98%80"
    for target, referrer in [
        ("/" + "a" * 1998 + emoji + "b", "-"),
        ("/vesk-b?t=1&p=" + "a" * 1999 + emoji + "b", "-"),
        ("/?utm_source=" + "a" * 99 + emoji + "b&utm_campaign=" + "a" * 199 + emoji + "b", "-"),
        ("/", "https://www.bing.com/?q=" + "a" * 199 + emoji + "b"),
        ("/", "https://www.google.com/?q=" + "a" * 1100),
        ("/", "http://example.net/" + "\u20ac" * 333),
    ]:
        some.append(
            f'::1 - - [{TIMES[0]}] "GET {target} HTTP/1.1" 200 5 "{referrer}" "Mozilla/5.0" 2147483647'
        )
        seed("source", referrer + "\n" + target)
    # Numbers on both sides of what is accepted.
    for seconds in (
        "0",
        "-1",
        "1e-50",
        "1e-45",
        "21600",
        "21600.0001",
        "21601",
        "1e5",
        "nan",
        "inf",
        "0x10",
    ):
        some.append(f'::1 - - [{TIMES[0]}] "GET /vesk-b?p=/a&t={seconds} HTTP/1.1" 200 5')
    for status, duration in [
        (32767, 2147483646),
        (32768, 2147483647),
        (-32768, -1),
        (-32769, 9223372036854775807),
        (2147483648, 9223372036854775808),
    ]:
        some.append(
            f'::1 - - [{TIMES[0]}] "GET / HTTP/1.1" {status} 5 "-" "Mozilla/5.0" {duration}'
        )
    # Visitors that differ only in where the address ends and the user agent begins.
    for ip, agent in [("1.2.3.4", "5 curl/8"), ("1.2.3.45", " curl/8")]:
        some.append(f'{ip} - - [{TIMES[0]}] "GET / HTTP/1.1" 200 5 "-" "{agent}"')
    seed("rowbuilder", "\n".join(some[-2:]))
    for line in some:
        seed("logparser", line)
    for i in range(0, len(some), 3):
        seed("rowbuilder", "\n".join(some[i : i + 3]))
    for target in TARGETS + ['/" 200 1 "evil', "/a\tb\n", "/\x7f%\n41"]:
        for referrer in REFERRERS + ["\ufeff\u2028", "a\nb", "5ms"]:
            fields = [
                "GET",
                target,
                referrer,
                'UA " 500 9 "x\\',
                "example.org",
                "404",
                "1772533230",
            ]
            seed("translate", "\x1e".join(fields))
    for line in OTHER_FORMATS:
        seed("translate", line)
        seed("translate", line + "\n" + some[0] + "\n\n{}\n" + line)
    for line in log:
        match = LINE.match(line)
        if match:
            target, referrer, agent = match.groups()
            if len(agent) < 300:
                seed("client", agent)
            if "utm_" in target or referrer != "-":
                seed(
                    "source",
                    re.sub(r"[0-9]+", "1", referrer)
                    + "\n"
                    + ("/" if "utm_" not in target else target),
                )
    for agent in test_data("crawlers.txt"):
        seed("client", agent)
    for referrer in test_data("referrers.txt"):
        seed("source", referrer + "\n/")
    for referrer in REFERRERS:
        for target in TARGETS:
            seed("source", f"{referrer}\n{target}\nwww.example.org")

    seed(
        "geoip",
        "1.0.0.0,1.0.0.255,AU\n1.0.1.0,1.0.3.255,CN,x,y\n2001:db8::,2001:db8:ffff::,US\r\n,,ZZ\n a,b\n",
    )
    for line in ("1.0.0.0,1.0.0.255,AU", " a,b,ZZ", ",,\xe9\xe9", "\t1.0.0.0,1.0.0.255,USA\r", ""):
        seed("geoip", line)
    export = json.loads((ROOT / "share/sample-gsc.json").read_text())
    seed("search", json.dumps({"totals": export["totals"][:2], "rows": export["rows"][:2]}))
    for row in export["rows"][2:20]:
        seed("search", json.dumps({"rows": [row]}))
    for page in (
        "https://example.org/a%20b?c#d",
        "/%00\\ud800%ed%a0%80",
        "mailto:x",
        "http://[::1/",
    ):
        seed(
            "search",
            '{"rows":[{"keys":["2026-02-04","q","'
            + page
            + '","USA","MOBILE"],"clicks":1e2,"impressions":2147483648,"position":0.5}]}',
        )
    for text in PASSWORDS:
        seed("password", text)

    words = texts_of(
        "analytics/Classifier.cpp",
        "analytics/RowBuilder.cpp",
        "analytics/SearchImport.cpp",
        "common/Password.cpp",
        "translate/JsonEntry.cpp",
    )
    words += [
        "%00",
        "%2F",
        "%E9",
        "%ED%A0%80",
        "%",
        "&",
        "=",
        "?",
        "/vesk-b?p=/a&t=1",
        "&t=",
        "utm_source=",
        "://",
        "google.",
        "yandex.",
        "1e-50",
        "nan",
        "::",
        "::ffff:",
        "255",
        "\u00e9",
    ]
    words = [
        re.sub(r"[^ !#-\[\]-~]", lambda m: "".join(f"\\x{b:02x}" for b in m[0].encode()), word)
        for word in words
    ]
    (folder / "words").write_text("".join(f'"{word}"\n' for word in dict.fromkeys(words)))


main()
