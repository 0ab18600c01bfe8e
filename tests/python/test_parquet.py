"""Parquet files: what becomes of types, nulls, times and groups; damage; living beside pyarrow itself."""

import datetime as dt
import os
import shutil
import struct
from decimal import Decimal
from pathlib import Path

import kvalo
import numpy as np
import pytest
from common import cases, refused, samples
from common import write as write_text
from conftest import run_script

pa = pytest.importorskip("pyarrow")
pq = pytest.importorskip("pyarrow.parquet")
BUILD = Path(kvalo.__file__).parent
if not (BUILD / "libkvalo_parquet.so").exists():
    pytest.skip("this build has no Parquet backend", allow_module_level=True)


def write(path: Path, table, **options) -> str:
    pq.write_table(table if isinstance(table, pa.Table) else pa.table(table), path, **options)
    return str(path)


def names(node) -> dict:
    """The tree of a Container's or a series' members."""
    return {k: names(v) for k, v in vars(node).items() if isinstance(v, kvalo.TimeSeries)}


def utc(*arguments) -> dt.datetime:
    return dt.datetime(*arguments, tzinfo=dt.UTC)


STAMP = 1_700_000_000_123_456_789  # nanoseconds
WIDE = Decimal("-12345678901234567890123.4567890")
TYPES = [
    ("int8", pa.int8(), [-128, 127], None),
    ("uint8", pa.uint8(), [0, 255], None),
    ("uint16", pa.uint16(), [0, 65535], None),
    ("uint32", pa.uint32(), [0, 2**32 - 1], None),
    ("int64", pa.int64(), [-(2**63), 2**63 - 1], None),
    ("uint64", pa.uint64(), [1, 2**64 - 1], None),
    ("half", pa.float16(), np.array([-0.5, 65504.0], np.float16), [-0.5, 65504.0]),
    ("float", pa.float32(), np.array([0.1, -3e38], np.float32), np.array([0.1, -3e38], np.float32)),
    ("bool", pa.bool_(), [False, True], [0, 1]),
    ("decimal32", pa.decimal128(7, 2), [Decimal("-0.01"), Decimal("12345.67")], None),
    ("decimal64", pa.decimal128(18, 7), [Decimal("-12345678901.2345678"), Decimal("0.1")], None),
    ("decimal128", pa.decimal128(38, 7), [WIDE, Decimal("0.3")], None),
    ("decimal256", pa.decimal256(60, 9), [Decimal(10) ** 40 + Decimal("0.5"), Decimal("0.7")], None),
    ("stamp_s", pa.timestamp("s"), [-1, 1_700_000_000], None),
    ("stamp_ms", pa.timestamp("ms", "Asia/Tokyo"), [-1, 1_700_000_000_123], [-0.001, 1700000000.123]),
    ("stamp_us", pa.timestamp("us"), [-1, 1_700_000_000_123_456], [-1e-6, 1700000000.123456]),
    ("stamp_ns", pa.timestamp("ns"), [-1, STAMP], [-1e-9, 1700000000.123456789]),
    ("date", pa.date32(), [-1, 19000], [-86400, 19000 * 86400]),
    ("time_of_day", pa.time64("us"), [0, 86_399_999_999], [0, 86399.999999]),
    ("duration", pa.duration("ms"), [-1, 90_500], [-0.001, 90.5]),
    ("text", pa.string(), ["höher", "b"], [0, 1]),
    ("dictionary", pa.dictionary(pa.int8(), pa.string()), ["x", "y"], [0, 1]),
]


@cases(
    "options",
    {},
    {"use_dictionary": False, "compression": "zstd", "data_page_version": "2.0"},
    {"compression": "gzip", "row_group_size": 3, "use_deprecated_int96_timestamps": True},
    {"compression": "lz4", "store_decimal_as_integer": True, "row_group_size": 4},
)
def test_every_type_with_and_without_nulls(tmp_path, options):
    # Two values repeated, with nulls here and there, in one column each; the time has nulls of its own.
    rows = 11
    table, expected = {"time": pa.array([None if i == 7 else i * 0.5 for i in range(rows)])}, {}
    for k, (name, kind, (low, high), result) in enumerate(TYPES):
        present = [i for i in range(rows) if (i + k) % 4 or not k % 5]
        numbers = [float(v) for v in (result if result is not None else (low, high))]
        table[name] = pa.array([(low, high)[i % 2] if i in present else None for i in range(rows)], kind)
        kept = [i for i in present if i != 7]
        expected[name] = ([i * 0.5 for i in kept], [numbers[i % 2] for i in kept])
        if kind in (pa.string(), pa.dictionary(pa.int8(), pa.string())) and present[0] % 2:
            expected[name] = (expected[name][0], [1 - v for v in expected[name][1]])
    c = kvalo.Container(path=write(tmp_path / "types.parquet", table, **options))
    assert list(names(c)) == [row[0] for row in TYPES]
    for _ in range(2):  # again with what the first round taught
        for name, wanted in expected.items():
            assert samples(c[name]) == wanted, name
    assert {c.text.tag(0.0), c.text.tag(1.0)} == {"höher", "b"}


@cases(
    "columns, offered, x",
    ({"a": [9, 8], "Timestamp": [1, 3], "TIME": [5, 6]}, ["a", "Timestamp"], [5, 6]),
    ({"a": [9, 8], "T": [utc(1970, 1, 1), utc(1970, 1, 2)]}, ["a"], [0, 86400]),
    ({"s": ["u", "v"], "first": [2.5, 3.5], "b": [0, 0]}, ["s", "b"], [2.5, 3.5]),
    ({"time": ["u", "v"], "TIME_S": [2, 4], "b": [0, 0]}, ["time", "b"], [2, 4]),
    ({"only": [7.0, 6.0]}, ["only"], [0, 1]),
    ({"flag": [True, False], "text": ["u", "v"]}, ["flag", "text"], [0, 1]),
    ({"time": [5, 4], "b": [0, 0]}, ["b"], [0, 1]),  # not increasing: indexes instead
)
def test_the_time_axis(tmp_path, capfd, columns, offered, x):
    c = kvalo.Container(path=write(tmp_path / "axis.parquet", columns))
    assert list(names(c)) == offered
    assert samples(c[offered[-1]])[0] == x
    assert ("invalid time vector" in capfd.readouterr().out) == (columns.get("time") == [5, 4])


def test_groups_lists_and_odd_names(tmp_path):
    log = Path(os.environ["KVALO_HOME"]) / "kvalo.log"
    pose = [{"x": 1.0, "own": {"t": 10, "z": 5}}, None, {"x": 2.0, "own": {"t": 30, "z": 7}}]
    table = pa.Table.from_arrays(
        [pa.array(v) for v in ([1, 2, 3], pose, [[1], [], None], [4, 5, 6], [7, 8, 9], [1.5, 2.5, 3.5])],
        names=["time", "pose", "list", "twice", "twice", "dotted.name"],
    )
    c = kvalo.Container(path=write(tmp_path / "nested.parquet", table))
    assert names(c)["pose"] == {"x": {}, "own": {"z": {}}}
    assert samples(c["pose.x"]) == ([1, 3], [1, 2])  # by the time of the enclosing table
    assert samples(c["pose.own.z"]) == ([10, 30], [5, 7])
    assert samples(c["dotted.name"]) == ([1, 2, 3], [1.5, 2.5, 3.5])
    assert samples(c["twice"])[1] == [7, 8, 9]  # of equal names the last column
    assert "list" not in names(c)
    with pytest.raises(Exception, match="'pose' has no samples of its own"):
        c.pose.load()
    assert "nested.parquet', being lists, maps or data without a value in each row: list" in log.read_text()


def test_a_file_written_anew_is_read_anew(tmp_path):
    path = tmp_path / "live.parquet"
    c = kvalo.Container(path=write(path, {"time": [0, 1], "a": [1, 2], "b": [3, 4], "d": [5, 6]}))
    assert samples(c.a) == ([0, 1], [1, 2])
    assert samples(c.b)[0] == [0, 1]  # from here on the times are kept
    np.asarray(c.b.xdata)[:] = 99
    assert samples(c.d)[0] == [0, 1]
    write(path, {"time": [5, 6, 7], "a": [1, 2, 3], "b": [3, 4, 5], "d": [7, 8, 9]})
    d = kvalo.Container(path=str(path)).d
    assert samples(d) == ([5, 6, 7], [7, 8, 9])
    c = kvalo.Container(path=str(path))
    write(path, {"time": [5, 6, 7], "b": [1, 2, 3]})
    with pytest.raises(Exception, match="have changed since it was opened"):
        c.a.load()


def test_many_rows_in_many_groups(tmp_path):
    rows = 300_000
    t = np.arange(rows) * 0.01
    rng = np.random.default_rng(5)
    v, gaps = rng.normal(size=rows), rng.random(rows) < 0.3
    text = np.array(["idle", "climb", "cruise"])[rng.integers(0, 3, rows)]
    table = {"t": t, "v": v, "g": pa.array(v, mask=gaps), "s": text, "i": np.arange(rows)}
    c = kvalo.Container(path=write(tmp_path / "many.parquet", table, row_group_size=70_001))
    for _ in range(2):
        for name, x, y in (("v", t, v), ("g", t[~gaps], v[~gaps]), ("i", t, np.arange(rows))):
            assert samples(c[name]) == (x.tolist(), y.tolist()), name
    assert [c.s.tag(n) for n in samples(c.s)[1][:100]] == text[:100].tolist()


@cases("version", "1.0", "2.0")
@cases("compression", "snappy", "none", "zstd")
def test_columns_without_gaps(tmp_path, version, compression):
    # Small pages, with and without a dictionary before them; a gap on the last page only.
    rows = 5000
    rng = np.random.default_rng(6)
    ramp = np.arange(rows) * 0.01
    table = {
        "time": ramp + rng.uniform(0, 0.005, rows),
        "ramp": ramp,
        "constant": np.full(rows, 3.25),
        "few": rng.integers(0, 5, rows) * 0.5,
        "noise": rng.normal(size=rows),
        "single": rng.normal(size=rows).astype("f4"),
        "short": rng.integers(-9, 9, rows).astype("i4"),
        "long": np.arange(rows) * 1000 + 1_700_000_000_000,
        "late_gap": pa.array(rng.normal(size=rows), mask=np.arange(rows) == rows - 3),
    }
    for k, required in enumerate((False, True)):
        schema = pa.schema(
            [
                pa.field(name, pa.array(v).type, nullable=not required or name == "late_gap")
                for name, v in table.items()
            ]
        )
        path = tmp_path / f"{k}.parquet"
        pq.write_table(
            pa.table(table, schema=schema),
            path,
            compression=compression,
            data_page_version=version,
            data_page_size=700,
            dictionary_pagesize_limit=900,
            use_dictionary=["few", "noise", "long", "short"],
            row_group_size=2100,
            write_page_checksum=True,
        )
        c = kvalo.Container(path=str(path))
        for name, values in table.items():
            if name == "time":
                continue
            c[name].load()
            x, y = np.asarray(c[name].xdata), np.asarray(c[name].ydata)
            wanted = np.asarray(values, "f8") if name != "late_gap" else values.to_numpy(False)
            kept = ~np.isnan(wanted)
            assert np.array_equal(x, table["time"][kept]), name
            assert np.array_equal(y, wanted[kept]), name


# What comes out, as pyarrow gives it: names, rows, the first values of some columns.
TYPED = "bool tinyint smallint int bigint float double date_string string timestamp"
ALL_TYPES = [f"{name}_col" for name in TYPED.split()]
WIDTHS = [*(f"bitwidth{k}" for k in range(1, 65)), "int_value"]
REAL = {
    "alltypes_plain": (ALL_TYPES, 8, {"double_col": [0.0, 10.1, 0.0], "bigint_col": [0.0, 10.0, 0.0]}),
    "alltypes_plain.snappy": (ALL_TYPES, 2, {"timestamp_col": [1238544000.0, 1238544060.0]}),
    "datapage_v2.snappy": (["a", "c", "d"], 5, {"c": [2, 3, 4, 5, 2], "d": [1, 1, 1, 0, 1]}),
    "delta_binary_packed": (WIDTHS, 200, {"bitwidth5": [0.0, -16.0, -15.0, -14.0, -23.0]}),
    "int64_decimal": (["value"], 24, {"value": [1.0, 2.0, 3.0, 4.0, 5.0]}),
    "int96_from_spark": (["a"], 5, {"a": [1704141296.123456, 1704070800.0, 253402225200.0]}),
}


@cases("name", *REAL)
def test_recorded_files(data_folder, name):
    offered, rows, expected = REAL[name]
    c = kvalo.Container(path=str(data_folder / "parquet" / f"{name}.parquet"))
    assert list(names(c)) == offered
    for column, first in expected.items():
        y = samples(c[column])[1]
        assert (len(y), y[: len(first)]) == (rows, first)


def test_recorded_files_that_give_nothing(data_folder):
    reasons = {"bad_PARQUET-1481": r"\S+ \(of an unknown type\)", "list_columns": "int64_list, utf8_list"}
    for name, reason in reasons.items():
        path = str(data_folder / "parquet" / f"{name}.parquet")
        reason = f"one number or text in each row: {reason}"
        refused(f"Parquet file '{path}' cannot be read: .*{reason}", path=path)
    c = kvalo.Container(path=str(data_folder / "parquet" / "nulls.snappy.parquet"))
    assert names(c) == {"b_struct": {"b_c_int": {}}}
    with pytest.raises(Exception, match="empty"):  # its eight rows are null
        c["b_struct.b_c_int"].load()


def test_absurd_row_counts_are_refused(tmp_path):
    # 77 rows are written as the varint 0x9a 0x01 in the row group's metadata; made to claim 10^12 and more.
    path = tmp_path / "rows.parquet"
    write(path, {"t": range(77), "v": range(77)}, compression=None)
    content = path.read_bytes()
    size = struct.unpack("<I", content[-8:-4])[0]
    head, foot = content[: -8 - size], content[-8 - size : -8]
    huge = b"\xfe\xff\xff\xff\xff\xff\x0e"
    at = foot.rindex(b"\x16\x9a\x01")
    foot = foot[:at] + b"\x16" + huge + foot[at + 3 :]
    path.write_bytes(head + foot + struct.pack("<I", len(foot)) + b"PAR1")
    refused(r"it claims \d{12,} rows in row group 0, more than its size allows", path=str(path))


def test_encrypted_files_are_refused_by_name(tmp_path):
    path = tmp_path / "secret.parquet"
    path.write_bytes(b"PARE" + bytes(40) + struct.pack("<I", 40) + b"PARE")
    refused("it is encrypted; decrypt it first", path=str(path))


# Imports in the given order, reads the same file with both, writes with pyarrow, ends cleanly.
TOGETHER = """
import sys
for name in sys.argv[2].split():
    globals()[name] = __import__(name)
opened = lambda: [line for line in open("/proc/self/maps") if "arrow" in line or "libparquet" in line]
if sys.argv[2] == "kvalo":
    assert not opened()
for _ in range(3):
    c = kvalo.Container(path=sys.argv[1])
    c.v.load()
import pyarrow.parquet as pq
assert pq.read_table(sys.argv[1])["v"].to_pylist() == [c.v[i][1] for i in range(len(c.v))]
pq.write_table(pq.read_table(sys.argv[1]), sys.argv[1] + "2", compression="zstd")
c = kvalo.Container(path=sys.argv[1] + "2")
c.v.load()
print(len(c.v), len({line.split()[-1] for line in opened() if "libarrow.so" in line}))
"""


@cases("order", "kvalo", "kvalo pyarrow", "pyarrow kvalo")
def test_together_with_pyarrow(tmp_path, order):
    path = write(tmp_path / "both.parquet", {"t": [0, 1, 2], "v": [0.5, 1.5, 2.5]})
    done = run_script(TOGETHER, path, order, PYTHONPATH=str(BUILD))
    assert (done.returncode, done.stdout) == (0, "3 1\n"), done.stderr


def test_without_the_right_pyarrow_only_parquet_is_missing(tmp_path):
    for library in [*BUILD.glob("kvalo.cpython*"), *BUILD.glob("lib*.so*")]:
        shutil.copy(library, tmp_path)
    backend = tmp_path / "libkvalo_parquet.so"
    major = pa.__version__.split(".")[0]
    # As if it had been built with a major version that is nowhere to be found.
    backend.write_bytes(backend.read_bytes().replace(b".so.%s0" % major.encode(), b".so.990"))
    files = [write_text(tmp_path / "a.csv"), write(tmp_path / "a.parquet", {"t": [0, 1], "a": [1, 2]})]
    code = "import sys, kvalo\nfor path in sys.argv[1:]: print(len(kvalo.Container(path=path)))"
    environment = {"PYTHONPATH": str(tmp_path), "LD_LIBRARY_PATH": str(BUILD)}
    done = run_script(code, *files, **environment)
    assert done.stdout == "1\n", done.stderr
    assert f"the package pyarrow, version {major}." in done.stderr
    assert "pip install 'pyarrow==" in done.stderr
    backend.unlink()
    assert "libkvalo_parquet.so is missing" in run_script(code, *files, **environment).stderr
