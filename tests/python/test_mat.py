"""MAT files of versions 4 to 7: what is offered, what the numbers are, and that damage costs an exception at most."""

import struct
import zlib

import kvalo
import pytest
from common import cases, opened, refused, write
from test_hdf5 import leaves, loaded

np = pytest.importorskip("numpy")
scipy_io = pytest.importorskip("scipy.io")

RNG = np.random.default_rng(21)
FORMS = {"v4": {"format": "4"}, "v6": {}, "v7": {"do_compression": True}}


@pytest.fixture
def made(tmp_path):
    def make(variables, form="v6"):
        path = tmp_path / "made.mat"
        scipy_io.savemat(path, variables, **FORMS[form])
        make.container = kvalo.Container(path=str(path))
        return leaves(make.container)

    make.path = tmp_path / "made.mat"
    return make


def as_columns(name: str, value) -> dict:
    """What a matrix should become."""
    value = np.atleast_2d(value)
    vectors = {name: value.ravel()}
    if 1 not in value.shape:
        vectors = {f"{name}.c{i}": value[:, i] for i in range(value.shape[1])}
    if not np.iscomplexobj(value):
        return vectors
    parts = (("re", "real"), ("im", "imag"))
    return {f"{n}.{part}": getattr(v, of_numpy) for n, v in vectors.items() for part, of_numpy in parts}


def check(found: dict, variables: dict) -> None:
    expected = {}
    for name, value in variables.items():
        expected |= as_columns(name, value)
    assert set(found) == set(expected)
    for _ in range(2):
        for name, y in expected.items():
            np.testing.assert_array_equal(loaded(found[name])[1], np.asarray(y, float), err_msg=name)


@cases("form", *FORMS)
def test_numbers_of_every_type(made, form):
    types = ["i2", "u2", "u1", "i4", "f4", "f8"] + ["i1", "u4", "i8", "u8", "?"] * (form != "v4")
    variables = {f"v_{t.replace('?', 'b')}": RNG.integers(0, 100, 20_000).astype(t) for t in types}
    variables |= {"small": np.array([1, 2], "u1"), "n": [np.nan, np.inf, -0.0]}
    for name, shape, offset in (("column", (30, 1), 0), ("m", (40, 6), 0), ("z", 7, 1j), ("zm", (9, 2), 2j)):
        variables[name] = RNG.normal(size=shape) + offset
    check(made(variables, form), variables)


@cases("form", "v6", "v7")
def test_structures_nest(made, form):
    inner = {"a": RNG.normal(size=5000), "m": RNG.integers(0, 9, (3, 2), "i2"), "deep": {"b": np.arange(4.0)}}
    found = made({"s": inner, "text": "abc", "cells": np.array([1, "a"], object), "one": 5.0}, form)
    check(found, {"s.a": inner["a"], "s.m": inner["m"], "s.deep.b": inner["deep"]["b"]})
    with pytest.raises(Exception, match="no samples of its own"):
        made.container.s.load()


@cases("form", *FORMS)
def test_time_axes(made, form, capsys):
    n, time = 1000, np.arange(1000) * 0.25 + 3
    group = {"a": RNG.normal(size=n), "TIME_S": time, "other": np.arange(n + 1), "m": RNG.normal(size=(n, 2))}
    found = made(group, form)
    for name in ("a", "m.c1", "TIME_S"):
        np.testing.assert_array_equal(loaded(found[name])[0], time)
    np.testing.assert_array_equal(loaded(found["other"])[0], np.arange(n + 1))
    found = made({"first": time * 2, "second": time[::-1]}, form)
    np.testing.assert_array_equal(loaded(found["second"])[0], time * 2)
    assert "invalid" not in capsys.readouterr().out
    np.testing.assert_array_equal(loaded(made({"time": time[::-1], "v": time}, form)["v"])[0], np.arange(n))
    assert "invalid time vector" in capsys.readouterr().out


def element(kind: int, data: bytes, order: str = "<") -> bytes:
    return struct.pack(order + "II", kind, len(data)) + data + bytes(-len(data) % 8)


def matrix(name: str, dimensions: tuple, data: bytes, order: str = "<", mx_class: int = 6) -> bytes:
    head = element(6, struct.pack(order + "II", mx_class, 0), order)
    head += element(5, struct.pack(f"{order}{len(dimensions)}i", *dimensions), order)
    return element(14, head + element(1, name.encode(), order) + data, order)


def file_of(*elements: bytes, order: str = "<") -> bytes:
    return b"MATLAB 5.0".ljust(124) + struct.pack(order + "HH", 0x0100, 0x4D49) + b"".join(elements)


def doubles(*values, order: str = "<", kind: int = 9) -> bytes:
    return element(kind, struct.pack(f"{order}{len(values)}d", *values), order)


GOOD = matrix("good", (1, 3), doubles(1, 2, 3))


def test_the_other_byte_order(tmp_path):
    v4 = struct.pack(">5I", 1000, 1, 2, 0, 2) + b"v\0" + struct.pack(">2d", 1, 2)
    v5 = file_of(matrix("v", (1, 2), doubles(1, 2, order=">"), ">"), order=">")
    for content in (v4, v5):
        assert list(loaded(opened(tmp_path / "big.mat", content).v)[1]) == [1, 2]


LONGER = element(5, struct.pack("<I", 8)) + element(1, b"a".ljust(8, b"\0")) + GOOD[:4] + b"\xff" * 4
LIES = {
    "product overflows": matrix("v", (1 << 30, 1 << 30), doubles(1, 2)),
    "negative size": matrix("v", (-1, 2), doubles(1, 2)),
    "more than it holds": matrix("v", (1, 3), doubles(1, 2)),
    "three dimensions": matrix("v", (1, 2, 1), doubles(1, 2)),
    "unknown number type": matrix("v", (1, 2), doubles(1, 2, kind=8)),
    "unknown class": matrix("v", (1, 2), doubles(1, 2), mx_class=99),
    "cell": matrix("v", (1, 1), GOOD, mx_class=1),
    "sparse": matrix("v", (1, 2), doubles(1, 2), mx_class=5),
    "structure without names": matrix("v", (1, 1), element(5, bytes(4)) + element(1, b""), mx_class=2),
    "member longer than its structure": matrix("v", (1, 1), LONGER, mx_class=2),
    "compressed rubbish": element(15, b"rubbish!"),
    "compressed end": element(15, zlib.compress(GOOD)[:20].ljust(24, b"\0")),
    "not an array": element(9, bytes(16)),
}


@cases("lie", *LIES)
def test_what_is_left_out_does_not_hide_the_rest(tmp_path, lie):
    path = tmp_path / "lie.mat"
    found = leaves(opened(path, file_of(LIES[lie], GOOD)))
    assert list(found) == ["good"]
    assert list(loaded(found["good"])[1]) == [1, 2, 3]
    refused("no numeric vector", path=write(path, file_of(LIES[lie])))


def bomb() -> bytes:
    """A kilobyte that claims four gigabytes of numbers."""
    n = (1 << 29) - 100
    head = element(6, struct.pack("<II", 6, 0)) + element(5, struct.pack("<ii", 1, n)) + element(1, b"v")
    claim = struct.pack("<II", 14, 8 * n + 64) + head + struct.pack("<II", 9, 8 * n)
    return element(15, zlib.compress(claim + bytes(1000)))


@cases("content", file_of(bomb()), file_of(matrix("v", (1, 9), doubles(*range(9))))[:-30])
def test_cut_variables_fail_at_load(tmp_path, content):
    with pytest.raises(Exception, match="claims more samples"):
        opened(tmp_path / "cut.mat", content).v.load()


@cases("content", b"x", b"MATLAB" * 50, b"\0" * 200, b"", struct.pack("<5I", 0, 9, 9, 0, 2) + b"v\0")
def test_no_mat_file_at_all(tmp_path, content):
    refused(r"MAT file|no numeric vector", path=write(tmp_path / "no.mat", content))


RECORDED = {
    "testdouble_7.4_GLNX86.mat": ["testdouble"],
    "testmatrix_7.4_GLNX86.mat": [f"testmatrix.c{i}" for i in range(5)],
    "teststruct_7.4_GLNX86.mat": [
        f"teststruct.{n}" for n in ["doublefield", "complexfield.re", "complexfield.im"]
    ],
    "testsparse_7.4_GLNX86.mat": [],
    "teststring_7.4_GLNX86.mat": [],
    "teststructnest_7.4_GLNX86.mat": [],
    "test_le.mat": None,
}


@cases("name", *RECORDED)
def test_recorded_files(data_folder, name):
    path = data_folder / "mat" / name
    if RECORDED[name] == []:
        refused("no numeric vector", path=str(path))
        return
    found = leaves(kvalo.Container(path=str(path)))
    assert RECORDED[name] is None or list(found) == RECORDED[name]

    def numeric(value, path) -> dict:
        if not isinstance(value, np.ndarray):
            return {}
        if value.dtype.names and value.size == 1:
            return {k: v for n in value.dtype.names for k, v in numeric(value[n][0, 0], [*path, n]).items()}
        offered = value.dtype.kind in "iufc" and value.size > 1 and value.ndim == 2
        return {".".join(path): value} if offered else {}

    variables = {}
    for key, value in scipy_io.loadmat(path).items():
        variables |= numeric(value, [key])
    check(found, variables)
