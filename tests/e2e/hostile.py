#!/usr/bin/env python3
"""Imports what strangers can write into a log, each line between ordinary ones that must survive.

usage: hostile.py VESK-ADMIN, under scripts/with-postgres.
"""

import ipaddress
import json
import math
import os
import random
import urllib.parse

import vesk

MAX_LINE = 1024 * 1024
DROPPED, REFUSED = "dropped", "refused"
RANDOM = random.Random(1)

# In Python's notation, at blanks.
PAYLOADS = [
    text.encode().decode("unicode_escape")
    for text in r"""
    ' " \\ \\' \\\\ '' $$ $a$ $1 ? {,} \\N NULL %s%n%99999d %% \t \r \v\f\b \x7f \x1b[31m
    \x1b]0;x\x07 \u202e\u2066cba \u200b\u200d\ufeff \U0001f600 \u0085\u2028 e\u0301e\u0301
    <script>x</script> ';DROP/**/TABLE/**/vesk.hits;-- \\';DELETE/**/FROM/**/vesk.sites;--
    ${jndi:x} ');COMMIT;DROP/**/SCHEMA/**/vesk/**/CASCADE;-- $$;SET/**/TimeZone='Asia/Tokyo';$$
    1);SELECT/**/pg_terminate_backend(pg_backend_pid());--""".split()
]

ADDRESSES = """
    - 0 127.1 0x7f000001 0177.0.0.1 001.002.003.004 1.2.3.08 1.2.3.0008 1.2.3.256 1.2.3 1.2.3.4.
    1.2.3.4/33 1.2.3.4:80 [::1]:80 ::1/129 fe80::1%eth0 % ::1% ::: ::1:: ::ffff:01.2.3.4
    ::1.2.3.4. ::g 2001:db8::\uff11 1.2.3.\u0664 -1.2.3.4 localhost 255.255.255.255 256.2.3.4
    12345::""".split()
ADDRESSES += ["1" * 400, "1:" * 200, "::" + "0" * 400, "0" * 400 + ".0.0.0"]
for groups in range(1, 10):
    for parts in (["1f"] * groups, ["1f"] * groups + ["1.2.3.4"]):
        ADDRESSES.append(":".join(parts))
        for i in range(len(parts) + 1):
            ADDRESSES.append(":".join(parts[:i]) + "::" + ":".join(parts[i:]))


def encoded(text):
    return urllib.parse.quote(text, safe="").encode()


def escaped(text):
    """As web servers write a quoted field."""
    return text.encode().replace(b"\\", b"\\\\").replace(b'"', b'\\"')


FIELDS = {"ip": b"192.0.2.1", "user": b"-", "time": b"10/Mar/2026:12:00:00 +0000"}
FIELDS |= {"request": b"", "status": b"200", "size": b"5", "referrer": b"-", "agent": b"UA"}
FIELDS |= {"rest": b""}


def line(request, **fields):
    values = FIELDS | {"request": request} | fields
    return b'%b - %b [%b] "%b" %b %b "%b" "%b"%b' % tuple(values.values())


def get(target, **fields):
    return line(b"GET " + target + b" HTTP/1.1", **fields)


def stored(text, **columns):
    """A line that is stored, with what some of the columns hold."""
    return text, columns


def noise(length, alphabet=tuple(map(chr, range(0x100, 0x24F)))):
    """Text that no index can compress."""
    return "".join(RANDOM.choices(alphabet, k=length))


def address_of(text):
    """The address that is stored, by Python's stricter reading."""
    text = {"001.002.003.004": "1.2.3.4"}.get(text, text)  # inet takes leading zeros
    try:
        return None if "%" in text else ipaddress.ip_address(text)
    except ValueError:
        return None


def hostile_lines():
    """Pairs of a line and what becomes of it: dropped, refused, or values of columns."""
    # A byte order mark is in the first line of a file.
    yield stored(b"\xef\xbb\xbf" + get(b"/mark"), path="/mark", ip=None)
    for text in (b"\xff\xfe", b"\0" * 100, b" " * (MAX_LINE + 1)):
        yield text, REFUSED
    text = get(b"/a\0b%00c", agent=b"\0", referrer=b"http://a.example/\0", user=b"\0")
    yield stored(text, path="/a\ufffdb\ufffdc", referrer="http://a.example/\ufffd")
    text = get(b"/?utm_source=%00&utm_campaign=a%00", ip=b"\0")
    yield stored(text, source="\ufffd", search_terms="a\ufffd", ip=None)
    yield stored(line(b"G\0T /"), method="G\ufffdT")
    for sent in ("C0 AF", "ED A0 80", "ED B0 80", "F4 90 80 80", "FF FE", "80", "F8 88 80 80 80"):
        data, path = bytes.fromhex(sent), "/x" + "\ufffd" * len(sent.split()) + "y"
        for target in (b"/x" + data + b"y", b"/x%" + sent.replace(" ", "%").encode() + b"y"):
            text = get(target, agent=data, referrer=b"http://a.example/" + data, ip=data)
            yield stored(text, path=path, ip=None)
        yield stored(line(data + b" /"), method=data.decode("latin-1"))
    yield stored(get(b"/\xef\xbb\xbf%EF%BB%BF"), path="/\ufeff\ufeff")
    yield stored(get(b"/%EF%BF%BE%EF%BF%BF"), path="/\ufffe\uffff")
    yield stored(get(b"/%", agent=b"%"), path="/%")

    for field in ("referrer", "agent", "rest", "ip"):
        yield get(b"/", **{field: b" a" * (MAX_LINE // 2)})[: MAX_LINE + 1], REFUSED
        yield stored(get(b"/", **{field: b"a" * (MAX_LINE - 200)}), status=200)

    ascii_noise = noise(10000, "abcdefghijklmnopqrstuvwxyz0123456789")
    for text in (ascii_noise, noise(10000)):
        sent, path = encoded(text), ("/" + text)[:2000]
        yield stored(get(b"/" + sent), path=path)
        yield stored(get(b"/.git/" + sent, agent=b"scan", status=b"404"), status=404)
        yield stored(get(b"/" + sent, agent=b"lost", status=b"404"), path=path)
        yield stored(get(b"/t", referrer=b"https://google.com/?q=" + sent), search_terms=text)
        yield stored(get(b"/t", referrer=b"https://bing.com/?q=" + sent), search_terms=text[:200])
        yield stored(get(b"/?utm_source=" + sent), source_kind="campaign", source=text[:100])
        yield stored(get(b"/vesk-b?t=2&p=/" + sent), method="BEACON", path=path, engaged_secs=2)
    host = ".".join(ascii_noise[i : i + 9] for i in range(0, 9000, 9)) + ".example"
    yield stored(get(b"/", referrer=b"http://" + host.encode() + b"/", agent=b"h"), source=host)

    for text in ADDRESSES:
        yield stored(get(b"/", ip=text.encode()), ip=address_of(text))
    for day, time in (("0001-01-01", b"01/Jan/0001"), ("9999-12-31", b"31/Dec/9999")):
        yield stored(get(b"/when", time=time + b":00:00:00 +0000"), at=f"{day}T00:00:00+00:00")
    yield get(b"/", time=b"infinity"), REFUSED
    yield get(b"/vesk-b?p=/b&t=" + b"1" * 400), DROPPED
    for seconds, value in (("1e-40", 1e-40), ("0." + "0" * 400 + "1e401", 1)):
        yield stored(get(b"/vesk-b?p=/b&t=" + seconds.encode()), engaged_secs=value, path="/b")
    yield stored(line(b"BEACON /page HTTP/1.1"), status=200, engaged_secs=None, is_page=False)

    for payload in PAYLOADS:
        sent, written = encoded(payload), escaped(payload)
        yield stored(get(b"/" + sent), path="/" + payload)
        plain = not any(c in payload for c in "%?")  # they mean something in a target
        yield stored(get(b"/" + written), **({"path": "/" + payload} if plain else {}))
        yield stored(line(written + b" /m"), method=payload.encode()[:16].decode("latin-1"))
        text = get(b"/?utm_source=" + sent + b"&utm_campaign=" + sent)
        yield stored(text, source=payload, search_terms=payload)
        yield stored(get(b"/vesk-b?t=1&p=" + sent), method="BEACON", path=payload)
        yield stored(get(b"/r", referrer=b"http://a.example/" + written), source="a.example")
        yield stored(get(b"/q", referrer=b"http://google.com/?q=" + sent), search_terms=payload)
        yield stored(get(b"/h", referrer=b"http://" + written + b"/"), path="/h")
        yield stored(get(b"/a", agent=written, ip=b"x", user=payload.encode()), browser="Other")


NEIGHBOUR = json.loads(
    """{"at": "2026-03-10T12:00:00+00:00", "method": "GET", "status": 200, "bytes": 5, "is_page":
    true, "ip": "198.51.100.7", "country": "DE", "source_kind": "search", "source": "Bing",
    "device": "desktop", "referrer": "https://bing.com/?q=a", "search_terms": "a", "browser":
    "Firefox", "os": "Linux", "bot": null, "engaged_secs": null, "response_us": 77}"""
)


def neighbour(number):
    """An ordinary line; all that is stored of it, but for the visitor and the visit."""
    fields = {"agent": b"Firefox/1 Linux", "referrer": b"https://bing.com/?q=a", "rest": b" 77"}
    text = get(b"/neighbour/%d" % number, ip=b"198.51.100.7", **fields)
    return stored(text, path=f"/neighbour/{number}", **NEIGHBOUR)


def check_row(sent, row, expected):
    for column, value in expected.items():
        got = row[column]
        if column == "ip" and got:
            got, value = ipaddress.ip_address(got), value and ipaddress.ip_address(value)
        same = got == value
        if column == "engaged_secs" and value:
            same = math.isclose(got, value, rel_tol=1e-5)
        assert same, f"{sent[:200]}: {column} is {str(got)[:200]!r}, not {str(value)[:200]!r}"


def others(database):
    """What an import must leave alone: all other tables, the roles, and how much there is."""
    tables = "FROM pg_class WHERE relnamespace = 'vesk'::regnamespace AND relkind = 'r'"
    names = database.sql(f"SELECT relname {tables} AND relname NOT IN ('hits', 'rollup')").split()
    row = "SELECT string_agg(t::text, ';' ORDER BY t::text) FROM vesk.{} t"
    counts = ["SELECT r::text FROM pg_roles r ORDER BY 1", "SELECT count(*) FROM pg_class, pg_proc"]
    return [database.sql(statement) for statement in [*map(row.format, names), *counts]]


def admin(database, *arguments):
    run = database.admin(*arguments)
    assert run.returncode == 0 and run.stderr == "", run.stderr
    return run.stdout


def check(database, log, entries, agents=0):
    lines = [text for text, _ in entries]
    lines += [get(b"/agents", agent=b"agent %d" % i) for i in range(agents)]
    log.write_bytes(b"\n".join(lines) + b"\n")
    kept = [(text, expected) for text, expected in entries if isinstance(expected, dict)]
    refused = sum(expected is REFUSED for _, expected in entries)
    days = {expected.get("at", "2026-03-10")[:10] for _, expected in kept}
    database.sql("INSERT INTO vesk.geo_country VALUES ('198.51.100.0', '198.51.100.255', 'DE')")
    before = others(database)
    printed = admin(database, "import-log", "example.org", log)
    counts = f"{len(lines)} lines, {len(kept) + agents} stored, {refused} not log entries"
    assert printed == f"{log}: {counts}\nrolled up {len(days)} days\n", (printed, counts)
    hits = "SELECT to_jsonb(h) FROM vesk.hits h WHERE path <> '/agents' ORDER BY id"
    rows = [json.loads(row) for row in database.sql(hits).split("\n")]
    assert len(rows) == len(kept), len(rows)
    for (sent, expected), row in zip(kept, rows):
        check_row(sent, row, expected)
    requests = "count(*) FILTER (WHERE method <> 'BEACON')"
    figures = f"SELECT at::date, {requests} FROM vesk.hits GROUP BY 1 ORDER BY 1"
    totals = "SELECT day, n1 FROM vesk.rollup WHERE (scope, key) = ('{}', 'requests') ORDER BY 1"
    for scope in ("people", "all"):
        assert database.sql(totals.format(scope)) == database.sql(figures), scope
    views = "scope = 'people' AND dim = 'page' AND n1 = 1 AND key LIKE '/neighbour/%'"
    neighbours = str(sum("device" in expected for _, expected in kept))
    assert database.sql(f"SELECT count(*) FROM vesk.rollup WHERE {views}") == neighbours
    visitors = "SELECT count(DISTINCT visitor) FROM vesk.hits WHERE path = '/agents'"
    assert database.sql(visitors) == str(agents)
    assert admin(database, "rollup", "example.org") == f"example.org: rolled up {len(days)} days\n"
    assert others(database) == before


entries = []
for number, entry in enumerate(hostile_lines()):
    entries += [entry, neighbour(number)]
hostile, odd = vesk.Database("hostile"), vesk.Database("odd")
odd.sql("ALTER DATABASE odd SET standard_conforming_strings = off")
odd.sql(f"ALTER ROLE {os.environ['PGUSER']} IN DATABASE odd SET escape_string_warning = off")
check(hostile, vesk.FOLDER / "a.log", entries, agents=60_000)
check(odd, vesk.FOLDER / "b.log", [entry for entry in entries if len(entry[0]) < 100_000])
print(f"{len(entries) // 2} hostile lines")
