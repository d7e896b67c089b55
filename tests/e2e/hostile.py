#!/usr/bin/env python3
"""Imports what strangers can write into an access log, each line between two ordinary ones that have to survive.

usage: hostile.py VESK-ADMIN, under scripts/with-postgres.
"""

import ipaddress
import json
import math
import os
import pathlib
import random
import re
import subprocess
import sys
import tempfile
import urllib.parse

TIME = b"10/Mar/2026:12:00:00 +0000"
MAX_LINE = 1024 * 1024
DROPPED, REFUSED = "dropped", "refused"
RANDOM = random.Random(1)
os.environ["TZ"] = "UTC"

PAYLOADS = ["'", '"', "\\", "\\'", "\\\\", "''", "$$", "$a$", "$1", "?", "{", "}", "{,}", "\\N", "NULL", "null", "%s%n%99999d", "%%", "\t", "\r",
            "\v\f\b", "\x7f", "\x1b[31m\x1b]0;x\x07", "\u202e\u2066cba", "\u200b\u200d\ufeff", "\U0001f600", "\u0085\u2028",
            "e\u0301" * 30, "';DROP/**/TABLE/**/vesk.hits;--", "\\';DELETE/**/FROM/**/vesk.sites;--", "');COMMIT;DROP/**/SCHEMA/**/vesk/**/CASCADE;--",
            "$$;SET/**/TimeZone='Asia/Tokyo';$$", "1);SELECT/**/pg_terminate_backend(pg_backend_pid());--", "<script>alert(1)</script>", "${jndi:x}"]


def encoded(text):
    return urllib.parse.quote(text, safe="").encode()


def escaped(text):
    """As web servers write a quoted field."""
    return text.encode().replace(b"\\", b"\\\\").replace(b'"', b'\\"')


def line(request=b"GET / HTTP/1.1", status=b"200", size=b"5", referrer=b"-", agent=b"UA", ip=b"192.0.2.1", time=TIME, rest=b"", user=b"-"):
    return b'%b - %b [%b] "%b" %b %b "%b" "%b"%b' % (ip, user, time, request, status, size, referrer, agent, rest)


def get(target, **fields):
    return line(b"GET " + target + b" HTTP/1.1", **fields)


def noise(length, alphabet=tuple(map(chr, range(0x100, 0x24f)))):
    """Text that no index can compress."""
    return "".join(RANDOM.choices(alphabet, k=length))


def addresses():
    texts = ["-", "0", "1", "127.1", "1.2.3", "0x7f.0.0.1", "0x7f000001", "2130706433", "0177.0.0.1", "001.002.003.004", "1.2.3.08", "1.2.3.0008",
             "1.2.3.256", "1.2.3.4.", ".1.2.3.4", "1.2.3.4.5", "1..2.3", "1.2.3.4/32", "1.2.3.4/33", "1.2.3.4:80", "[::1]", "[::1]:80", "::1/128",
             "::1/129", "fe80::1%eth0", "fe80::1%1", "%", "::1%", ":", ":::", "::1::", "::ffff:1.2.3.4", "::ffff:01.2.3.4", "::ffff:1.2.3", "::1.2.3.4.",
             "::ffff:0x7f.1", "::00001", "::g", "2001:db8::\uff11", "1.2.3.\u0664", "host.example", "1" * 400, "1." * 200, "1:" * 200, "::" + "0" * 400,
             "0" * 400 + ".0.0.0", "a" * 400, "-1.2.3.4", "+1.2.3.4", "1.2.3.4,5.6.7.8", "unknown", "localhost"]
    for groups in range(1, 10):
        for tail in ("", "1.2.3.4"):
            parts = ["1f"] * groups + [tail] * bool(tail)
            texts += [":".join(parts)] + [":".join(parts[:i]) + "::" + ":".join(parts[i:]) for i in range(len(parts) + 1)]
    return texts


def address_of(text):
    """The address that is stored, by Python's stricter reading; inet also takes decimal numbers with leading zeros."""
    text = {"001.002.003.004": "1.2.3.4"}.get(text, text)
    try:
        return None if "%" in text else ipaddress.ip_address(text)
    except ValueError:
        return None


def hostile_lines():
    """Pairs of a line and what becomes of it: dropped, refused, or values of columns."""
    yield b"\xef\xbb\xbf" + get(b"/mark"), {"path": "/mark", "ip": None}  # of the byte order: the first line of the file
    yield b"\xff\xfe", REFUSED
    yield b"\0" * 100, REFUSED
    yield get(b"/a\0b%00c", agent=b"\0", referrer=b"http://a.example/\0", user=b"\0"), {
        "path": "/a\ufffdb\ufffdc", "referrer": "http://a.example/\ufffd", "source": "a.example"}
    yield get(b"/?utm_source=%00&utm_campaign=a%00", ip=b"\0"), {"source": "\ufffd", "search_terms": "a\ufffd", "ip": None}
    yield line(b"G\0T /"), {"method": "G\ufffdT"}
    for sent, characters in (("C0 AF", 2), ("ED A0 80", 3), ("ED B0 80", 3), ("F4 90 80 80", 4), ("FF FE", 2), ("80", 1), ("F8 88 80 80 80", 5)):
        data, path = bytes.fromhex(sent), "/x" + "\ufffd" * characters + "y"
        for target in (b"/x" + data + b"y", b"/x%" + sent.replace(" ", "%").encode() + b"y"):
            yield get(target, agent=data, referrer=b"http://a.example/" + data, ip=data), {"path": path, "ip": None}
        yield line(data + b" /"), {"method": data.decode("latin-1")}
    yield get(b"/\xef\xbb\xbf%EF%BB%BF"), {"path": "/\ufeff\ufeff"}
    yield get(b"/%EF%BF%BE%EF%BF%BF"), {"path": "/\ufffe\uffff"}
    yield get(b"/%E2%82"), {"status": 200}  # cut short
    yield get(b"/%", agent=b"%"), {"path": "/%"}
    yield get(b"/%zz%1"), {"status": 200}

    for name, limit in (("at the limit", 0), ("beyond", 1)):
        for field in ("target", "referrer", "agent", "rest", "ip"):
            filler = lambda n: get(b"/" + (b"a" * n if field == "target" else b""), **({} if field == "target" else {field: b" " * (field == "rest") + b"a" * n}))
            text = filler(MAX_LINE + limit - len(filler(0)))
            assert len(text) == MAX_LINE + limit, name
            yield text, REFUSED if limit else {"status": 200}
    yield b" " * (MAX_LINE + 1), REFUSED

    ascii_noise = noise(10000, "abcdefghijklmnopqrstuvwxyz0123456789-_~")
    for text in (ascii_noise, noise(10000)):
        yield get(b"/" + encoded(text)), {"path": ("/" + text)[:2000]}
        yield get(b"/.git/" + encoded(text), agent=b"scanner's", status=b"404"), {"path": ("/.git/" + text)[:2000]}
        yield get(b"/" + encoded(text), agent=b"lost", status=b"404"), {"status": 404}
        yield get(b"/t", referrer=b"https://www.google.com/?q=" + encoded(text), agent=b"t" + text[:9].encode()), {"source": "Google", "search_terms": text}
        yield get(b"/t", referrer=b"https://bing.com/?q=" + encoded(text), agent=b"b" + text[:9].encode()), {"search_terms": text[:200]}
        yield get(b"/?utm_source=" + encoded(text)), {"source_kind": "campaign", "source": text[:100]}
        yield get(b"/vesk-b?t=2&p=/" + encoded(text)), {"method": "BEACON", "path": ("/" + text)[:2000], "engaged_secs": 2}
    labels = ".".join(ascii_noise[i:i + 9].replace("-", "a").replace("_", "b").replace("~", "c") for i in range(0, 9000, 9)) + ".example"
    yield get(b"/host", referrer=b"http://" + labels.encode() + b"/", agent=b"host"), {"source_kind": "referral", "source": labels}

    for text in addresses():
        yield get(b"/", ip=text.encode()), {"ip": address_of(text)}

    for status in (b"-32769", b"32768", b"2147483648", b"99999999999999999999", b"1e2", b"0x10", b"nan", b"-", b"2OO"):
        yield get(b"/", status=status), REFUSED
    for status in (b"-32768", b"32767", b"0", b"007"):
        yield get(b"/", status=status), {"status": int(status)}
    for size, stored in ((b"9223372036854775807", 2**63 - 1), (b"9223372036854775808", 0), (b"-9223372036854775808", -2**63), (b"1e3", 0), (b"nan", 0)):
        yield get(b"/", size=size), {"bytes": stored}
    for duration, stored in ((b"2147483646", 2147483646), (b"2147483647", None), (b"9" * 18, None), (b"9" * 19, 0), (b"9" * 400, 0), (b"-1", None), (b"1.5", None)):
        yield get(b"/", rest=b" " + duration), {"response_us": stored}

    for time, stored in (("01/Jan/0001:00:00:00 +0000", "0001-01-01T00:00:00+00:00"), ("31/Dec/9999:23:59:59 +0000", "9999-12-31T23:59:59+00:00"),
                         ("01/Jan/1970:00:00:00 +1559", "1969-12-31T08:01:00+00:00"), ("01/Jan/1970:00:00:00 -1559", "1970-01-01T15:59:00+00:00"),
                         ("01/Jan/1970:00:00:00 +1600", "1969-12-31T08:00:00+00:00"), ("29/Feb/2000:99:99:99 +0000", "2000-02-29T00:00:00+00:00"),
                         ("31/Dec/2016:23:59:60 +0000", "2016-12-31T00:00:00+00:00")):
        yield get(b"/when", time=time.encode()), {"at": stored}
    for time in ("01/Jan/0001:00:00:00 +0001", "31/Dec/9999:23:59:59 -0001", "01/Jan/0000:00:00:00 +0000", "01/Jan/-001:00:00:00 +0000",
                 "01/Jan/1970:00:00:00 +1601", "01/Jan/1970:00:00:00 -9999", "29/Feb/1900:00:00:00 +0000", "now", "infinity", "-infinity" * 4):
        yield get(b"/", time=time.encode()), REFUSED

    for seconds in ("nan", "-nan", "inf", "-inf", "infinity", "1e-50", "1e308", "1e400", "-1", "0", "21600.1", "0x10", "1" * 400, "", "%00", "1%00"):
        yield get(b"/vesk-b?p=/b&t=" + seconds.encode()), DROPPED
    for seconds, stored in (("1e-40", 1e-40), ("21600", 21600), ("0." + "0" * 400 + "1e401", 0.1 * 10)):
        yield get(b"/vesk-b?p=/b&t=" + seconds.encode()), {"engaged_secs": stored, "status": 204, "path": "/b"}
    yield line(b"BEACON /page HTTP/1.1"), {"method": "BEACON", "status": 200, "engaged_secs": None, "is_page": False}
    yield line(b"BEACON /vesk-b?p=/b&t=nan"), DROPPED

    for payload in PAYLOADS:
        word = payload.split(" ")[0]
        page = {} if "%" in word else {"path": "/" + word.partition("?")[0]}  # malformed escapes mean nothing in particular
        yield get(b"/" + encoded(payload)), {"path": "/" + payload}
        yield get(b"/" + escaped(word)), page
        yield line(escaped(word) + b" /m"), {"method": word.encode()[:16].decode("latin-1"), "path": "/m"}
        yield get(b"/?utm_source=" + encoded(payload) + b"&utm_campaign=" + encoded(payload)), {"source": payload, "search_terms": payload}
        yield get(b"/vesk-b?t=1&p=" + encoded(payload)), {"method": "BEACON", "path": payload}
        yield get(b"/r", referrer=b"http://a.example/" + escaped(payload)), {"referrer": "http://a.example/" + payload, "source": "a.example"}
        yield get(b"/q", referrer=b"http://google.com/?q=" + encoded(payload)), {"search_terms": payload}
        yield get(b"/h", referrer=b"http://" + escaped(payload) + b"/"), {"path": "/h"}
        yield get(b"/a", agent=escaped(payload), ip=word.encode(), user=word.encode()), {"ip": None, "browser": "Other"}


def neighbour(number):
    """An ordinary line; all that is stored of it, but for the visitor and the visit."""
    return (get(b"/neighbour/%d" % number, ip=b"198.51.100.7", agent=b"Firefox/1 Linux", referrer=b"https://bing.com/?q=a", rest=b" 77"), {
        "at": "2026-03-10T12:00:00+00:00", "method": "GET", "path": f"/neighbour/{number}", "status": 200, "bytes": 5, "is_page": True,
        "ip": "198.51.100.7", "country": "DE", "source_kind": "search", "source": "Bing", "referrer": "https://bing.com/?q=a", "search_terms": "a",
        "device": "desktop", "browser": "Firefox", "os": "Linux", "bot": None, "engaged_secs": None, "response_us": 77})


def check_row(sent, row, expected):
    for column, value in expected.items():
        got = row[column]
        if column == "ip" and got:
            got, value = ipaddress.ip_address(got), value and ipaddress.ip_address(value)
        same = math.isclose(got, value, rel_tol=1e-5) if column == "engaged_secs" and value else got == value
        assert same, f"{sent[:200]}: {column} is {str(got)[:200]!r}, not {str(value)[:200]!r}"


class Database:
    def __init__(self, program, folder, name):
        self.name = name
        self.config = folder / f"{name}.ini"
        self.config.write_text(f"[database]\nhost={os.environ['PGHOST']}\nname={name}\nuser={os.environ['PGUSER']}\ntimezone=UTC\n")
        self.command = [program, "-c", self.config]
        subprocess.run(["psql", "-XAqtc", f"CREATE DATABASE {name}"], check=True)
        self.admin("migrate")
        self.admin("add-site", "example.org", "Example")
        self.sql("INSERT INTO vesk.geo_country VALUES ('198.51.100.0', '198.51.100.255', 'DE')")

    def admin(self, *arguments):
        run = subprocess.run([*self.command, *arguments], capture_output=True, text=True)
        assert run.returncode == 0 and run.stderr == "", run.stderr
        return run.stdout

    def sql(self, statement):
        return subprocess.run(["psql", "-XAt", self.name, "-c", statement], check=True, capture_output=True, text=True).stdout

    def rest(self):
        """All but the tables that an import writes."""
        dump = subprocess.run(["pg_dump", self.name, "--exclude-table-data=vesk.hits", "--exclude-table-data=vesk.rollup",
                               "--exclude-table-data=vesk.session_seq"], check=True, capture_output=True, text=True).stdout
        roles = subprocess.run(["pg_dumpall", "--globals-only"], check=True, capture_output=True, text=True).stdout
        return re.sub(r"(?m)^\\(un)?restrict.*|.*setval.*", "", dump + roles)


def check(database, log, entries, agents=0):
    log.write_bytes(b"".join(text + b"\n" for text, _ in entries)
                    + b"".join(get(b"/agents", agent=b"agent %d" % i) + b"\n" for i in range(agents)))
    stored = [(text, expected) for text, expected in entries if isinstance(expected, dict)]
    refused = sum(expected is REFUSED for _, expected in entries)
    days = {expected.get("at", "2026-03-10")[:10] for _, expected in stored}
    before = database.rest()
    printed = database.admin("import-log", "example.org", log)
    expected = f"{log}: {len(entries) + agents} lines, {len(stored) + agents} stored, {refused} not log entries\nrolled up {len(days)} days\n"
    assert printed == expected, f"{printed}, not {expected}"
    rows = [json.loads(row) for row in database.sql("SELECT to_jsonb(h) FROM vesk.hits h WHERE path <> '/agents' ORDER BY id").split("\n")[:-1]]
    assert len(rows) == len(stored), len(rows)
    for (sent, expected), row in zip(stored, rows):
        check_row(sent, row, expected)
    figures = "SELECT at::date, count(*) FILTER (WHERE method <> 'BEACON') FROM vesk.hits GROUP BY 1 ORDER BY 1"
    lines = "SELECT day, n1 FROM vesk.rollup WHERE scope = '{}' AND dim = 'totals' AND key = 'requests' ORDER BY 1"
    for scope in ("people", "all"):
        assert database.sql(lines.format(scope)) == database.sql(figures), scope
    assert database.sql("SELECT count(*) FROM vesk.rollup WHERE dim = 'page' AND key LIKE '/neighbour/%' AND scope = 'people' AND n1 = 1"
                        ).strip() == str(sum("device" in expected for _, expected in stored))
    assert database.sql("SELECT count(DISTINCT visitor) FROM vesk.hits WHERE path = '/agents'").strip() == str(agents)
    assert database.admin("rollup", "example.org") == f"example.org: rolled up {len(days)} days\n"
    assert database.rest() == before


def main(folder):
    program = sys.argv[1]
    entries = []
    for number, entry in enumerate(hostile_lines()):
        entries += [entry, neighbour(number)]
    check(Database(program, folder, "hostile"), folder / "a.log", entries, agents=100_000)
    odd = Database(program, folder, "odd")
    odd.sql("ALTER DATABASE odd SET standard_conforming_strings = off")
    odd.sql(f"ALTER ROLE {os.environ['PGUSER']} IN DATABASE odd SET escape_string_warning = off")
    check(odd, folder / "b.log", [entry for entry in entries if len(entry[0]) < 100_000])
    print(f"{len(entries) // 2} hostile lines")


with tempfile.TemporaryDirectory() as name:
    main(pathlib.Path(name))
