"""Whether page and text of a report show every figure that its JSON has."""

import itertools
import math
import re
import xml.etree.ElementTree

LENGTHS = "0:00|to 0:10|to 0:30|to 1:00|to 3:00|to 10:00|to 30:00|over 30:00".split("|")
DEPTHS = "1 page|2 pages|3 pages|4 pages|5 pages|6 to 10 pages|11 to 20 pages|over 20 pages"
BUCKETS = {"visit_lengths": LENGTHS, "visit_pages": DEPTHS.split("|")}
NAMED = {"country", "kind", "device", "client", "bucket"}  # rows have another name than in JSON
ENGINE = ("clicks", "impressions", "click_rate", "position")
RATES = ("share", "bot_share", "bounce_rate", "click_rate")


def decimal(value, digits=0):
    return f"{math.floor(value * 10**digits + 0.5) / 10**digits:,.{int(digits)}f}"


def shown(name, value, mean=False):
    """A figure as people read it."""
    if value is None:
        return "-"
    if name in RATES:
        return decimal(100 * value, 1) + " %"
    if "seconds" in name:
        return "{}:{:02}".format(*divmod(math.floor(value + 0.5), 60))
    if name == "bytes":
        power = int(math.log10(max(value, 1))) // 3
        return f"{decimal(value / 1000**power, power > 0)} {['', 'k', 'M', 'G'][power]}B"
    if name.endswith("_us"):
        return decimal(value / 1000, 2 if value < 95 else value < 9950) + " ms"
    return decimal(value, mean or name == "position")


def change(name, now, before):
    """How a figure changed; nothing when that is not known."""
    if now is None or before is None:
        return []
    if name in (*RATES, "position"):
        difference, unit = (
            (now - before, "") if name == "position" else (100 * (now - before), " pt")
        )
    elif before == 0 or now >= 10 * before:
        return ["×" + decimal(now / before) if before else "new" if now else "0 %"]
    else:
        difference, unit = 100 * (now - before) / before, " %"
    text = decimal(abs(difference), unit != " %") + unit
    return [("+" if difference > 0 else "−") * bool(re.search("[1-9]", text)) + text]


def words(element):
    return " ".join(" ".join(element.itertext()).split())


def check_totals(report, root, lines):
    """The large figures of the page, and the lines of the text."""
    tiles = [list(tile.itertext())[1:] for tile in root.findall(".//ul[@class='tiles']/li")]
    parts = [report["totals"], report["requests"], report["server"].get("totals", {})]
    for part in parts + [engine["totals"] for engine in report["search"]["engines"]]:
        for name, figure in part.items():
            which = "people" if "all" in figure else "value"
            before = figure["people_before" if "all" in figure else "before"]
            changed = change(name, figure[which], before)
            tile = [shown(name, figure[which])]
            line = [*tile, shown(name, before), *(changed or ["-"])]
            tile += [f"{text} from {shown(name, before)}" for text in changed]
            if "all" in figure:
                line += [shown(name, figure["all"])]
                line += change(name, figure["all"], figure["all_before"]) or ["-"]
                tile += [shown(name, figure["all"]) + " with unverified"]
            if name == "bot_requests":
                share = figure["value"] / max(report["requests"]["requests"]["value"], 1)
                line.append(shown("share", share) + " of all")
            if name != "bounces":
                tiles.remove(next(each for each in tiles if each[: len(tile)] == tile))
            if part in parts:
                line = line if part != parts[2] else line[:1]
                assert any(f" {' '.join(line)} " in f"{each} " for each in lines), (line, lines)
    assert not tiles, tiles
    for figures in (engine["totals"] for engine in report["search"]["engines"]):
        line = [shown(name, figures[name]["value"]) for name in ENGINE]
        line[1:1] = change("", figures["clicks"]["value"], figures["clicks"]["before"]) or ["-"]
        assert any(each.startswith(" ".join(line) + " ") for each in lines), (line, lines)


def check_lists(report, root, sections):
    parts = (report["lists"], report["server"].get("lists", {}), report["search"]["lists"])
    tables = {table.get("aria-labelledby"): table for table in root.iter("table")}
    beside = []
    for name, each in ((name, part[name]) for part in parts for name in part):
        rows, hidden = each["rows"], each["total"] - len(each["rows"])
        assert rows or name not in tables, name
        more = "".join(root.itertext()).count(f"and {hidden:,} more")
        assert more >= (hidden > 0), (name, hidden)
        found = tables[name].findall("tbody/tr") if rows else []
        for row, tr in zip(rows, found, strict=True):
            texts = {key for key, value in row.items() if isinstance(value, str)} | {"referrer"}
            figures = {key: shown(key, row[key]) for key in row if key not in texts}
            for before in (key for key in row if key.endswith("_before")):
                figures[before[:-7]] += "".join(change("", row[before[:-7]], row[before]))
                del figures[before]
            label, *cells = ("".join(cell.itertext()) for cell in tr)
            assert sorted(cells) == sorted(figures.values()), (name, cells, figures)
            wanted = [row[key] for key in texts - NAMED if row.get(key)]
            wanted = [BUCKETS[name][int(row["bucket"])]] if name in BUCKETS else wanted
            assert all(text.removeprefix(f"http://{report['site']}") in label for text in wanted), (
                label,
                row,
            )
        if found and (visits := [row.get("visits", row.get("views")) for row in rows])[0]:
            bars = [float(tr.find(".//rect").get("width")[:-1]) for tr in found]
            wanted = [100 * number / max(visits) for number in visits]
            assert all(map(lambda *two: math.isclose(*two, abs_tol=0.01), bars, wanted)), name
        title = root.findtext(f".//h3[@id='{name}']")
        if name in ("countries", "browsers", "systems", "devices"):
            beside += [f"{words(tr[1]).split(' ')[0]} {words(tr[0])}" for tr in found[:10]]
        elif found and name != "source_kinds":
            lines = re.sub(r"\n +from ", " from ", sections[title]).split("\n")[1:]
            lines = [set(line.split()) for line in lines if f"+{hidden:,}  more" not in line]
            for line, row in zip(lines, map(set, map(str.split, map(words, found))), strict=True):
                assert line - {"direct"} <= row <= line, (title, line, row)
    visitors = sections["Visitors"].split("\n")[1:]
    assert sorted(" ".join(visitors).split()) == sorted(" ".join(beside).split()), (
        visitors,
        beside,
    )


def heights(cells, stacked):
    """What a bar is made of: the first figure, and the second on top of it."""
    return [float(cell.replace(",", "").replace("-", "0")) for cell in cells[: 1 + stacked]]


def check_bars(name, section, lines, rows):
    """Bars of a page are as high as the figures below them say, those of a text as long."""
    table = [[words(cell) for cell in row] for row in section.findall("details/table/tbody/tr")]
    values = [heights(cells, name != "days") for _, *cells in table]
    most = max(map(sum, values))
    steps = (digit * 10**zeros for zeros in range(9) for digit in (1, 2, 5))
    step = next(step for step in steps if 5 * step >= most)
    unit = 180 / (step * math.ceil(most / step))
    for label in section.findall("svg/text[@class='y']"):
        height = unit * float(label.text.replace(",", ""))
        assert abs(190 - float(label.get("y")) - height) < 0.1, (name, label.text, unit)
    for group, value in zip(section.findall("svg/g"), values, strict=True):
        found = {bar.get("class"): bar for bar in group.findall("rect")}
        foot = 190
        for kind, height in zip(("people", "unverified"), value):
            foot -= unit * height
            bar = found.get(kind, {"y": foot, "height": 0})
            error = abs(float(bar.get("height")) - unit * height) + abs(float(bar.get("y")) - foot)
            assert error < 0.2 + 0.2 * unit, (name, kind, value, bar.attrib)
    assert len(lines) == rows or rows > 31, (name, lines)
    assert len(table) == rows or rows > 92, (name, table)
    bars = [re.search("(█*)(░*)$", line).groups() for line in lines]
    room = max(map(len, map("".join, bars)))
    for line, (dark, light), (label, *cells), value in zip(lines, bars, table, values):
        if len(lines) == len(table):  # or weeks of the text are days of the page
            assert line.rstrip(" █░").split() == " ".join((label, *cells)).split(), (name, line)
            lengths = (len(dark), len(dark + light))
            for blocks, figure in zip(lengths, itertools.accumulate(value)):
                assert abs(blocks - room * figure / most) < 0.6, (line, cells)
    return [cells for _, *cells in table]


def check(report, page, text):
    body = re.search("<body>.*</body>", page, re.S)[0].replace("<details open>", "<details>")
    root = xml.etree.ElementTree.fromstring(body)
    linked = [link.get("href").strip("#") for link in root.findall("nav//a")]
    assert linked == [section.get("id") for section in root.iter("section")], linked
    assert ("The lists show both" in page) == (report["scope"] == "all")
    days, known = report["period"]["days"], report["days_with_report"]
    own = {"part-search-console"} | ({"part-server"} if not report["server"]["known"] else set())
    for section in root.iter("section"):
        of_days = section.findtext("p") == f"Of {known} of the {days} days."
        assert of_days == (known < days and section.get("id") not in own), section.get("id")
    parts = re.split("^── (.*?) ─+$", text, flags=re.M)
    sections = {title: part.strip("\n") for title, part in zip(parts[1::2], parts[2::2])}
    check_totals(report, root, [" ".join(line.split()) for line in text.split("\n")])
    check_lists(report, root, sections)
    charts = report["charts"] | {"days": report["server"].get("days", [])}
    charts = [(name, charts.get(name, [])) for name in ("course", "weekdays", "hours", "days")]
    charts = [(name, rows) for name, rows in charts if len(rows) > 1]
    found = [section for section in root.iter("section") if section.find("svg") is not None]
    for (name, rows), section in zip(charts, found, strict=True):
        title = re.sub(" by (day|week|month)$", "", section.findtext("h2"))
        title = next(each for each in sections if each.startswith(title) and each != "Visitors")
        table = check_bars(name, section, sections[title].split("\n")[1:], len(rows))
        if len(table) == len(rows):
            for cells, row in zip(table, rows):
                figures = [
                    shown(key, row[key], name == "weekdays")
                    for key in row
                    if not isinstance(row[key], str)
                ]
                assert sorted(cells) == sorted(figures), (name, cells, row)
