"""XLSX workbooks: written here with openpyxl or by hand, and recorded ones with the values openpyxl reads."""

import datetime
import math
import zipfile
from pathlib import Path

import kvalo
import numpy as np
import openpyxl
import pytest
from common import cases, refused, samples
from conftest import run_script

UTC = datetime.UTC
SHEET = '<worksheet xmlns="http://schemas.openxmlformats.org/spreadsheetml/2006/main"><sheetData>{}</sheetData></worksheet>'
PARTS = {
    "_rels/.rels": '<Relationships><Relationship Id="r" Type="x/officeDocument" Target="xl/workbook.xml"/></Relationships>',
    "xl/workbook.xml": '<workbook xmlns:r="r"><sheets><sheet name="S" sheetId="1" r:id="r1"/></sheets></workbook>',
    "xl/_rels/workbook.xml.rels": '<Relationships><Relationship Id="r1" Type="x/worksheet" Target="worksheets/sheet1.xml"/></Relationships>',
}


def by_hand(path: Path, rows: str, **more: str) -> Path:
    """A workbook of one sheet with the XML of its rows; `more` are further or other parts, "/" as "__"."""
    parts = PARTS | {"xl/worksheets/sheet1.xml": SHEET.format(rows)}
    parts |= {name.replace("__", "/") + ".xml": content for name, content in more.items()}
    with zipfile.ZipFile(path, "w", zipfile.ZIP_DEFLATED) as archive:
        for name, content in parts.items():
            archive.writestr(name, content)
    return path


def saved(path: Path, *sheets: list[list], **settings) -> Path:
    book = openpyxl.Workbook()
    book.remove(book.active)
    if "epoch" in settings:
        book.epoch = settings["epoch"]
    for number, rows in enumerate(sheets):
        sheet = book.create_sheet(f"Sheet {number}")
        for row in rows:
            sheet.append(row)
        for cell, number_format in settings.get("formats", {}).items():
            sheet[cell].number_format = number_format
    book.save(path)
    return path


def series(container, name: str) -> tuple[list[float], list[float]]:
    return samples(container[name])


def table(path: Path) -> dict[str, tuple[list[float], list[float]]]:
    container = kvalo.Container(path=str(path))
    return {name: series(container, name) for name in container.__dict__}


def approx(values):
    return pytest.approx(values, nan_ok=True)


def stamp(*fields: int) -> float:
    return datetime.datetime(*fields, tzinfo=UTC).timestamp()


def test_numbers_booleans_and_empty_cells(tmp_path):
    rows = [["Time", "a", "b", "c"], [0, 1.5, True, None], [0.5, None, False, 1e-300], [None, 3, True, -7]]
    rows += [[2, "4.25", None, 1.5e19], [3, "words", "#N/A", 0.1]]
    found = table(saved(tmp_path / "a.xlsx", rows))
    assert found["a"][0] == [0, 2, 3]
    assert found["a"][1] == approx([1.5, 4.25, math.nan])
    assert found["b"][0] == [0, 0.5, 3]
    assert found["b"][1] == approx([1, 0, math.nan])
    assert found["c"] == ([0.5, 2, 3], [1e-300, 1.5e19, 0.1])


@cases("epoch", openpyxl.utils.datetime.WINDOWS_EPOCH, openpyxl.utils.datetime.MAC_EPOCH)
def test_dates_are_seconds_since_1970(tmp_path, epoch):
    leap_day = datetime.datetime(2024, 2, 29, 23, 59, 59, 250_000)
    moments = [leap_day, datetime.datetime(2024, 3, 1, 12, 0, 0, 1000)]
    rows = [["when", "value", "day", "span"]]
    for i, moment in enumerate(moments):
        rows.append([moment, i, moment.date(), datetime.timedelta(hours=30, seconds=i)])
    formats = {"A2": "dd/mm/yyyy hh:mm:ss", "A3": '[$-409]d\\-mmm\\-yy" at "h:mm AM/PM;@', "C2": "yyyy-mm-dd"}
    formats |= {"C3": "mmm", "D2": "[h]:mm:ss", "D3": "[mm]"}
    found = table(saved(tmp_path / "a.xlsx", rows, epoch=epoch, formats=formats))
    times = [moment.replace(tzinfo=UTC).timestamp() for moment in moments]
    assert found["value"][0] == approx(times)
    assert found["day"][1] == [stamp(2024, 2, 29), stamp(2024, 3, 1)]
    assert found["span"][1] == [30 * 3600, 30 * 3600 + 1]


@cases(
    "code, value",
    ('0.00" days"', 43831.5), ("0.0E+00", 43831.5), ("General", 43831.5), ("[Red]0;[Blue]-0", 43831.5),
    ("#,##0_);\\(#,##0\\)", 43831.5), ("yyyy", 1577880000), ("[Red]d", 1577880000), ("h:mm", 1577880000),
    ("[ss]", 43831.5 * 86400), ("\\d0", 43831.5), ("*y0", 43831.5),
)  # fmt: skip
def test_number_formats(tmp_path, code, value):
    rows = [["a", "b"], [43831.5, "x"], [43831.5, "y"]]
    found = table(saved(tmp_path / "a.xlsx", rows, formats={"A2": code, "A3": code}))
    assert found["a"][1] == [value, value]


def test_texts_become_tags(tmp_path):
    rows = [["t", "mode"], [0, "AUTO"], [1, "LOITER & <wait>"], [2, "AUTO"], [3, 5]]
    x, y = table(saved(tmp_path / "a.xlsx", rows))["mode"]
    assert x == [0, 1, 2, 3]
    assert y[0] == y[2]
    assert len(set(y)) == 3
    cells = (
        ("inlineStr", "<is><t>mode</t></is>"),
        ("inlineStr", "<is><r><t>AU</t></r><r><t>TO</t></r><rPh><t>x</t></rPh></is>"),
        ("str", "<f>A1</f><v>LOITER &amp; &#60;wait&#x3E;</v>"),
        ("inlineStr", "<is><t><![CDATA[LOITER & <wait>]]></t></is>"),
    )
    inline = "".join(f'<row><c t="{kind}">{text}</c></row>' for kind, text in cells)
    assert table(by_hand(tmp_path / "b.xlsx", inline))["mode"][1] == [y[0], y[1], y[1]]


def test_the_time_column(tmp_path):
    day = "2024-01-01T00:00:0{}Z"
    cases = {
        "by name, any case, anywhere": ([["a", "TIME_S", "b"], [5, 10, 1], [6, 11, 2]], {"a": [10, 11], "b": [10, 11]}),
        "stamps as text": ([["Timestamp", "b"], [day.format(1), 1], [day.format(2), 2]],
                           {"b": [stamp(2024, 1, 1, 0, 0, 1), stamp(2024, 1, 1, 0, 0, 2)]}),
        "first numeric column": ([["s", "a", "b"], ["x", 5, 1], ["y", 6, 2]], {"s": [5, 6], "b": [5, 6]}),
        "first numeric column is not a time": ([["a", "b"], [6, 1], [5, 2]], {"a": [0, 1], "b": [0, 1]}),
        "only one numeric column": ([["s", "a"], ["x", 5], ["y", 6]], {"s": [0, 1], "a": [0, 1]}),
        "named but falling": ([["t", "b"], [6, 1], [5, 2]], {"b": [0, 1]}),
        "named but words": ([["time", "b"], ["early", 1], ["late", 2]], {"b": [0, 1]}),
    }  # fmt: skip
    for name, (rows, times) in cases.items():
        found = table(saved(tmp_path / "a.xlsx", rows))
        assert {key: x for key, (x, _) in found.items()} == times, name


def test_titles(tmp_path):
    data = [[0, 1, 2], [1, 3, 4]]
    titles = ["time", "a", "b"]
    for above in ([titles], [["A heading"], [], titles], [titles, ["s", "m/s", "V"]], [[], [], titles]):
        found = table(saved(tmp_path / "a.xlsx", [*above, *data]))
        assert found == {"a": ([0, 1], [1, 3]), "b": ([0, 1], [2, 4])}, above
    assert table(saved(tmp_path / "a.xlsx", data)) == {"B": ([0, 1], [1, 3]), "C": ([0, 1], [2, 4])}
    twice = kvalo.Container(path=str(saved(tmp_path / "a.xlsx", [["t", "a", "a"], *data])))
    assert series(twice, "a") == ([0, 1], [2, 4]), "of equal titles the last"


def test_sheets_are_groups_when_there_are_several(tmp_path):
    path = saved(tmp_path / "a.xlsx", [["t", "a"], [0, 1], [1, 2]], [], [["t", "a"], [5, 3], [6, 4]])
    container = kvalo.Container(path=str(path))
    assert series(container, "Sheet 0.a") == ([0, 1], [1, 2])
    assert series(container, "Sheet 2.a") == ([5, 6], [3, 4])
    assert container.Sheet_2.a is container["Sheet 2.a"]


def test_a_changed_workbook_is_read_anew(tmp_path):
    path = saved(tmp_path / "a.xlsx", [["t", "a", "b"], [0, 1, 2], [1, 3, 4]])
    container = kvalo.Container(path=str(path))
    assert series(container, "a") == ([0, 1], [1, 3])
    saved(path, [["t", "b", "c"], [0, 7, 2], [1, 8, 4], [2, 9, 9]])
    assert series(container, "b") == ([0, 1, 2], [7, 8, 9])


def test_values_agree_with_openpyxl_on_many_cells(tmp_path):
    random = np.random.default_rng(3)
    data = np.round(random.normal(size=(5000, 6)) * 10.0 ** random.integers(-12, 12, (5000, 6)), 9)
    rows = [["t", *"abcdef"], *([i, *map(float, row)] for i, row in enumerate(data))]
    path = saved(tmp_path / "a.xlsx", rows)
    peer = list(openpyxl.load_workbook(path, read_only=True).active.values)[1:]
    found = table(path)
    for name, column in zip("abcdef", list(zip(*peer, strict=True))[1:], strict=True):
        assert found[name][1] == list(column)


BOMB = '<!DOCTYPE x [<!ENTITY a "aaaa"><!ENTITY b "&a;&a;&a;">]>' + SHEET.format(
    "<row><c><v>&b;</v></c></row>"
)
CELL = '<c r="{}"><v>1</v></c>'


@cases(
    "rows, more, message",
    (f"<row>{CELL.format('XFE1')}</row>", {}, "beyond the last column"),
    (f"<row>{CELL.format('AAAAAAAAAAAAAAAA1')}</row>", {}, "beyond the last column"),
    ('<row r="1048577"/>', {}, "beyond the last one"),
    ('<row r="-1"/>', {}, "no number"),
    ('<row r="2"/><row r="1"/>', {}, "not in order"),
    ("<row><c><v>1</v>", {"xl__worksheets__sheet1": "<worksheet><sheetData><row><c><v>1"}, "no end"),
    ("", {"xl__worksheets__sheet1": BOMB}, "document type"),
    ("", {"xl__worksheets__sheet1": '<worksheet a="' + "x" * (33 << 20)}, "no end"),
    ("", {"xl__workbook": "<workbook/>"}, "no sheet with data"),
    ("", {"xl__worksheets__sheet1": "\ufeff<worksheet>"}, "no sheet with data"),
    ("", {}, "no sheet with data"),
    ("<row><c t='s'><v>99999999999</v></c></row>", {}, "text that is not there"),
)  # fmt: skip
def test_damaged_workbooks_say_why(tmp_path, rows, more, message):
    refused(message, path=str(by_hand(tmp_path / "a.xlsx", rows, **more)))


def test_the_last_cell_of_all(tmp_path):
    rows = f'<row>{CELL.format("A1")}{CELL.format("XFD1")}</row><row r="1048576">{CELL.format("XFD1048576")}</row>'
    found = table(by_hand(tmp_path / "a.xlsx", rows))
    assert found == {"A": ([0], [1]), "XFD": ([0, 1048575], [1, 1])}


def test_damage_anywhere_is_an_error_or_harmless(tmp_path):
    whole = saved(tmp_path / "a.xlsx", [["t", "a"], *([i, i * i] for i in range(200))]).read_bytes()
    for at in range(0, len(whole), 17):
        path = tmp_path / "b.xlsx"
        path.write_bytes(whole[:at] + bytes([whole[at] ^ 0xFF]) + whole[at + 1 :])
        try:
            outcome = table(path)["a"][1]
        except Exception as error:
            outcome = str(error)
        assert outcome == [i * i for i in range(200)] or "b.xlsx" in outcome


NAN = math.nan
DATES = {"A": [stamp(2021, 1, 1), stamp(2021, 1, 2), 10 * 86400 + 54610], "B": [15, 16, 17]}
RECORDED = {
    "date.xlsx": DATES,
    "date_1904.xlsx": DATES,
    "date_iso.xlsx": {"A": [stamp(2021, 1, 1), stamp(2021, 1, 1, 10, 10, 10), 36610, NAN, NAN, NAN]},
    "empty_sheet.xlsx": "no sheet with data",
    "errors.xlsx": {"A": [NAN] * 7},
    "merge_cells.xlsx": {"Row_Merge": ["Column Merge"], "B": ["Chunk Merged"]},
    "no-header.xlsx": {"A": ["a", "b"], "B": [0, 1]},
    "pass_protected.xlsx": "protected by a password",
    "readings.xlsx": {
        "Station": ["London", "Paris", "Berlin"],
        "Celsius": [15, 18.5, 12],
        "Humidity": [72, 65, 80],
        "Pressure": [1013, 1009, 1017],
    },
    "temperature.xlsx": {"label": ["celsius", "fahrenheit"], "value": [22.2222, 72]},
}


@cases("name", *RECORDED)
def test_recorded_workbooks(data_folder, name):
    expected = RECORDED[name]
    path = str(data_folder / "xlsx" / name)
    if isinstance(expected, str):
        refused(expected, path=path)
        return
    container = kvalo.Container(path=path)
    assert list(container.__dict__) == list(expected)
    for variable, values in expected.items():
        item = container.__dict__[variable]
        x, y = samples(item)
        if isinstance(values[0], str):
            y = [item.tag(value) for value in y]
        assert y == approx(values)
        assert x == list(range(len(values)))


def test_a_sheet_that_is_too_large_to_keep(tmp_path):
    path = saved(tmp_path / "a.xlsx", [["t", "a", "mode"], *([i, i * 2, f"m{i % 3}"] for i in range(5000))])
    script = (
        "import sys, kvalo; c = kvalo.Container(path=sys.argv[1])\n"
        "for name in ('mode', 'a', 'mode'):\n"
        "    c[name].load(); print(c[name].xdata[4999], c[name].ydata[4998], c[name].ydata[4999])"
    )
    done = run_script(script, str(path), KVALO_MEMORY_BANK="100000", KVALO_HOME=str(tmp_path))
    printed = ["4999.0 0.0 1.0", "4999.0 9996.0 9998.0", "4999.0 0.0 1.0"]
    assert done.stdout.splitlines()[:3] == printed, done.stderr
