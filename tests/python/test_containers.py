"""kvalo.Container, reader choice, the registry's functions, merging."""

import contextlib
import gc
import os
import re

import kvalo
import numpy as np
import pytest
from common import TABLE, cases, opened, refused, samples, table_file, write


@pytest.fixture
def small(tmp_path):
    return write(tmp_path / "small.csv", "time,a,b\n0,1,4\n1,2,5\n2,3,6\n")


def values(series):
    return samples(series)[1]


def test_a_container_maps_names_to_series(small):
    c = kvalo.Container(path=small)
    assert (repr(c), len(c), c.get_size(), c.flags, c.get_path()) == ("2 variables", 2, 2, 9, [small])
    assert c["a"] is c.a
    assert values(c.b) == [4.0, 5.0, 6.0]
    with pytest.raises(KeyError, match="'z' is not a valid key for this Container"):
        c["z"]
    with pytest.raises(TypeError, match="Key must be a string"):
        c[0]
    for change in (lambda: c.__setitem__("a", 1), lambda: c.__delitem__("a")):
        with pytest.raises(NotImplementedError, match="This operation is not allowed"):
            change()
    with pytest.raises(AttributeError):
        c.id64 = 1


@cases(
    "title, attribute",
    ("1st speed/avg", "_1st_speed_avg"),
    ("2x", "_2x"),
    ("a-b", "a_b"),
    ("", "_"),
    ('"q"', "q"),
    ("%", "_"),
    ("µ", "__"),
    ("flags", "flags"),
    ("xdata", "xdata"),
)
def test_attribute_names(tmp_path, title, attribute):
    c = opened(tmp_path / "f.csv", f"time,{title}\n0,1\n1,2\n2,3\n")
    assert list(c.__dict__) == [attribute]
    assert c[title].get_main_name() == title
    assert c.flags == 9


def test_names_with_one_attribute_both_stay_reachable(tmp_path):
    c = opened(tmp_path / "f.csv", "time,a-b,a_b,a+b\n0,1,4,7\n1,2,5,8\n2,3,6,9\n")
    gc.collect()
    assert [values(c[name])[0] for name in ("a-b", "a_b", "a+b")] == [1.0, 4.0, 7.0]
    assert c.a_b is c["a+b"]


LOADING, MISSING = "^Error while loading file 'no.csv'", "File no.csv not found$"


@cases(
    "arguments, error, text",
    ({}, Exception, "^Must provide path!$"),
    ({"path": "no.csv"}, Exception, f"{LOADING}: {MISSING}"),
    ({"path": "no.csv", "plugin": "p"}, Exception, MISSING),
    ({"path": "no.csv", "plugin": "p.so"}, Exception, f"{LOADING} with plugin 'p.so': {MISSING}"),
    ({"path": "no.csv", "tini": 5, "tend": 5}, ValueError, "^Final time must be greater than initial time$"),
    ({"path": "no.csv", "tini": float("nan")}, Exception, MISSING),
    ({"realtime": True}, Exception, "^Must provide path!$"),
    ({"path": None}, TypeError, None),
    ({"file": "x"}, TypeError, None),
)
def test_refused_construction(arguments, error, text):
    with pytest.raises(error, match=text):
        kvalo.Container(**arguments)


HDF5_SIGNATURE = b"\x89HDF\r\n\x1a\n"
NONE = "File is not compatible with any built-in loaders or plugins"
# Each file would also satisfy a later rule; the error, or the reader, tells which rule came first.
ORDER = [
    ("archive before delimited", "x.zip", TABLE, "not a zip archive"),
    ("HDF5 before its extension", "x.mat", HDF5_SIGNATURE, "an HDF5 file"),
    ("HDF5 behind a user block", "x.dat", b"\0" * 512 + HDF5_SIGNATURE, "an HDF5 file"),
    ("MAT before delimited", "x.mat", TABLE, "a MAT file"),
    ("XLSX before delimited", "x.xlsx", TABLE, "not an XLSX workbook"),
    ("delimited before Parquet", "x.parquet", TABLE, None),
    ("delimited before WAV", "x.wav", TABLE, None),
    ("delimited before text logs", "x.log", "FMT, a\n0, 1\n1, 2\n", None),
    ("Parquet by its first bytes", "noextension", b"PAR1\0\0\0\0", "Parquet file"),
    ("Parquet by its extension", "x.parquet", b"\xa3\x95\x80", "Parquet file"),
    ("binary log before WAV", "x.wav", b"\xa3\x95\x80", None),
    ("text log before WAV", "x.wav", "FMT, 128, 89, FMT\nx\n", None),
    ("WAV by extension and layout", "x.wav", b"RIFF\0\0\0\0WAVEfmt " + b"\1" * 20, None),
    ("WAV that is none", "x.wav", b"RIFF", NONE),
    ("nothing fits", "x.bin", b"\0\1\2", NONE),
    ("empty file", "x.csv", b"", NONE),
]


@cases("rule, name, content, error", *ORDER)
def test_reader_choice(tmp_path, rule, name, content, error):
    path = write(tmp_path / name, content)
    if error is None:
        kvalo.Container(path=path)
    else:
        refused(error, path=path)


def test_only_regular_files_are_read(tmp_path, small):
    (tmp_path / "link").symlink_to(small)
    os.mkfifo(tmp_path / "pipe")
    for path in (tmp_path, tmp_path / "link", tmp_path / "pipe"):
        refused("File is not compatible", path=str(path))


@cases("content", "t\ta,b\n0\t1,2\n1\t2,3\n", "t,a;b\n0,1\n1,2\n", "t;a|b\n0;1\n1;2\n", "t|a\n0|1\n1|2\n")
def test_delimiters_are_tried_in_order(tmp_path, content):
    assert len(opened(tmp_path / "data.csv", content)) == 1


def test_a_failed_load_leaves_nothing(tmp_path, small):
    keep = kvalo.Container(path=small)
    before = len(kvalo.list(".*"))
    for content in (b"\xa3\x95", b"\0", "t,a\n"):
        with contextlib.suppress(Exception):
            opened(tmp_path / "bad.csv", content)
        gc.collect()
    assert len(kvalo.list(".*")) == before
    del keep


def test_gain_and_offset_hold_for_now_and_for_later_loads(small):
    c = kvalo.Container(path=small)
    c.a.load()
    c.aypb(2, 1)
    c.axpb(10, 0)
    assert values(c.a) == [3.0, 5.0, 7.0]
    assert values(c.b) == [9.0, 11.0, 13.0]
    assert c.b[1] == (10.0, 11.0)
    c.aypb(1, 1)  # current values are transformed again
    assert values(c.a) == [4.0, 6.0, 8.0]
    with pytest.raises(ValueError, match=r"Function 'aypb' takes 2 arguments \(1 given\)"):
        c.aypb(1)


def test_find_and_list(small):
    c = kvalo.Container(path=small)
    # Series of other tests have random names, in which a short expression would be found.
    assert kvalo.find("^a$") is c.a
    assert [s.get_main_name() for s in kvalo.list("a|b")] == ["a", "b"]
    for call in (kvalo.find, kvalo.list):
        for expression, text in (
            (3, "No regular expression provided"),
            (type("text", (str,), {})("a"), "No regular expression provided"),
            ("(", "Invalid regular expression: "),
            ("(" * 5000, "Invalid regular expression: "),
            ("x+y!", re.escape("No variable matched the regular expression x+y!")),
        ):
            with pytest.raises(Exception, match=text):
                call(expression)


def test_hostile_expressions_and_long_names_end(tmp_path):
    long_name = "a" * 90_000
    c = opened(tmp_path / "f.csv", f"t,{long_name}\n0,1\n1,2\n")
    assert kvalo.find("a{10}a+") is c[long_name]
    for expression in ("(a+)+!", "(a|aa)*!", r"(a)\1!"):
        with pytest.raises(Exception, match="No variable matched"):
            kvalo.find(expression)


def test_nested_variables(data_folder):
    c = kvalo.Container(path=str(data_folder / "flight" / "copter.bin"))
    assert c.ATT.get_main_name() == "ATT"
    assert c.ATT.flags & 0x8
    assert c.ATT.Roll is c.ATT["Roll"] is c["ATT.Roll"]
    assert c.ATT.Roll.get_full_name() == "ATT.Roll"
    assert kvalo.find("ATT.Roll") is c.ATT.Roll
    assert len(kvalo.list("Roll")) > 1
    with pytest.raises(Exception, match="No variable matched"):
        kvalo.list("ATT.Rol")
    # Fields called alike in different messages are different series.
    assert [s for s in kvalo.list("Roll") if s.get_full_name() == "ATT.Roll"] == [c.ATT.Roll]


def test_merge_joins_recordings_in_time(tmp_path):
    late = write(tmp_path / "late.csv", "t,a,c\n3,30,1\n4,40,2\n5,50,3\n")
    early = write(tmp_path / "early.csv", "t,a,b\n0,0,7\n1,10,8\n2,20,9\n")
    between = write(tmp_path / "between.csv", "t,a,d\n2.5,25,1\n3.5,35,1\n9,90,1\n")
    c = kvalo.Container(path=late)
    assert values(c.a) == [30.0, 40.0, 50.0]
    c.merge(path=early)
    assert (len(c), c.get_path()) == (3, [late, early])
    assert values(c.a) == [0.0, 10.0, 20.0, 30.0, 40.0, 50.0]
    assert values(c.b) == [7.0, 8.0, 9.0]
    kvalo.merge(between)
    assert values(c.a) == [0.0, 10.0, 20.0, 25.0, 30.0, 35.0, 40.0, 50.0, 90.0]
    with pytest.raises(Exception, match="not found"):
        c.merge("nowhere.csv")
    assert len(c) == 4


def test_merge_finds_a_container_by_few_names_and_find_by_ratio_by_half(tmp_path):
    c = opened(tmp_path / "one.csv", "time,v0,other\n0,1,1\n1,2,2\n")
    titles = "time,v0,v1,v2,v3,v4,v5,v6,v7,v8,v9"
    ten = write(tmp_path / "ten.csv", f"{titles}\n0{',1' * 10}\n1{',2' * 10}\n")
    assert kvalo.find_by_ratio(ten) is None
    assert kvalo.find_by_ratio(ten, 0.1) is c
    assert kvalo.find_by_ratio(path=ten, ratio=0) is c
    assert kvalo.find_by_ratio("nowhere.csv") is None
    alone = write(tmp_path / "alone.csv", "time,none_of_these\n0,1\n1,2\n")
    with pytest.raises(Exception, match="There's no container compatible with '.*alone.csv'"):
        kvalo.merge(alone)
    kvalo.merge(path=ten)
    assert len(c) == 11


def test_dropping_a_container_drops_its_variables(small):
    c = kvalo.Container(path=small)
    number = c.a.id64
    del c
    gc.collect()
    with pytest.raises(ValueError, match="Invalid id"):
        kvalo.TimeSeries(number, 0.0, 1.0)


def test_an_invalid_time_vector_becomes_indexes_with_two_warnings(tmp_path, capfd):
    c = opened(tmp_path / "f.csv", "t,a\n0,1\n2,2\n1,3\n3,4\n")
    assert samples(c.a)[0] == [0.0, 1.0, 2.0, 3.0]
    printed = capfd.readouterr().out
    assert "The source provided an invalid time vector\n" in printed
    told = "A strictly increasing vector of indexes will be used instead for file"
    assert f"{told} '{tmp_path / 'f.csv'}'\n" in printed


def take_out_and_write(series):
    taken = series.xdata
    series.xdata = kvalo.Array([1.0])
    taken[0] = -5.0


@cases("kind", "csv", "parquet", "h5", "mat")
def test_variables_of_a_table_have_time_stamps_of_their_own(tmp_path, kind):
    t = np.arange(5000) / 8
    ways = {
        "Array": lambda s: s.xdata.__setitem__(0, -5.0),
        "sample": lambda s: s.__setitem__(0, (-5.0, 0.0)),
        "view": lambda s: np.asarray(s.xdata).__setitem__(0, -5.0),
        "in place": lambda s: s.xdata.__isub__(5.0),
        "gain": lambda s: s.axpb(1, -5),
        "Array of an Array": lambda s: kvalo.Array(s.xdata).__setitem__(0, -5.0),
        "Array taken out": take_out_and_write,
    }
    for way, write_to in ways.items():
        c = kvalo.Container(path=table_file(tmp_path, kind))
        a, b = c.a, c.b
        copy = kvalo.TimeSeries(a)
        for series in (a, b, copy):
            series.load()
        by_id = kvalo.TimeSeries(a.id64, -1e9, 1e9)
        by_id.load()
        result = a + 1
        write_to(a)
        assert by_id.xdata[0] == copy.xdata[0] == -5.0, way  # one variable, shown by all of them
        for other in (b, result):
            assert np.array_equal(np.asarray(other.xdata), t), way
        again = kvalo.Container(path=c.get_path()[0])
        assert np.array_equal(np.asarray((again.b + 0).xdata), t), way
        b.xdata[1] = 77.0
        assert (by_id.xdata[1], result.xdata[1]) != (77.0, 77.0), way
