"""Block models: what Model and Result take, say and refuse; simulations against closed forms, SciPy and plain
Python; generated code against simulations, bit for bit."""

import json
import math
import os
import signal
import subprocess
import sys
import threading
import time
from pathlib import Path

import kvalo
import numpy as np
import pytest
from common import cases, in_threads, series, xs, ys
from conftest import ROOT

import __main__

EXAMPLES = {path.stem: str(path) for path in sorted((ROOT / "examples" / "models").glob("*.json"))}


def diagram(blocks, links="", **times):
    """A model of blocks {name: (kind, properties)} and links "a>b a.2>b.3"; and the ids by name."""
    model = kvalo.Model()
    model.set(**times)
    ids = {}
    for name, (kind, properties) in blocks.items():
        ids[name] = model.create(kind, name=name, **properties)
    for link in links.split():
        ends = [end.partition(".") for end in link.split(">")]
        (a, _, port_a), (b, _, port_b) = ends
        model.link(ids[a], ids[b], int(port_a or 1), int(port_b or 1))
    return model, ids


def response(kind, u, ts, **properties):
    """What a block of one input makes of samples at the times 0, ts, 2 ts, ..."""
    t = ts * np.arange(len(u))
    blocks = {
        "u": ("series", {"obj": series(u, t)}),
        "block": (kind, properties),
        "y": ("outport", {}),
    }
    model, _ = diagram(blocks, "u>block block>y", tf=ts * (len(u) - 1), ts=ts)
    return np.array(model.run().y.ydata)


# ---- the types ----


def test_a_new_model_holds_its_top_block():
    model = kvalo.Model()
    assert (repr(model), model.flags, model.get("blocks"), model.get("links")) == ("1 blocks", 9, 1, 0)
    assert (model.get("id", 1), model.get("parent", 1)) == (1, 0)
    model.flags, model.note = 3, "mine"
    assert (model.flags, model.__dict__) == (3, {"note": "mine"})
    assert repr(kvalo.Model.__new__(kvalo.Model)) == "0 blocks"


def test_a_result_is_an_empty_holder():
    result = kvalo.Result(anything=1)
    assert (repr(result), result.flags, result.__dict__) == ("", 9, {})
    result.x = 5
    assert (result.x, vars(result)) == (5, {"x": 5})
    with pytest.raises(Exception, match=r"^Constructor accepts no argument$"):
        kvalo.Result(1)


def test_repr_counts_and_names_the_file():
    model = kvalo.Model(EXAMPLES["cascade"])
    assert repr(model) == f"18 blocks, {EXAMPLES['cascade']}"
    model.validate()
    assert repr(model) == f"18 blocks, 6 tiers, {EXAMPLES['cascade']}"
    model.create("clock")
    model.create("clock")
    assert (model.get("tiers"), model.get("zones")) == (0, 0)
    model.validate()
    assert repr(model) == f"20 blocks, 6 tiers, 3 zones, {EXAMPLES['cascade']}"


@cases("arguments, keywords", (("a", "b"), {}), ((), {"path": "a"}))
def test_a_model_takes_one_path(arguments, keywords):
    with pytest.raises(Exception, match=r"^Invalid arguments for kvalo\.Model$"):
        kvalo.Model(*arguments, **keywords)


def test_a_second_init_starts_over():
    model = kvalo.Model(EXAMPLES["cascade"])
    with pytest.raises(Exception, match=r"^Error loading file 'none\.json'$"):
        model.__init__("none.json")
    assert model.get("blocks") == 18
    model.__init__()
    assert repr(model) == "1 blocks"


# ---- get and set ----


def test_parameters_of_a_model():
    model, ids = diagram({"a": ("clock", {}), "b": ("gain", {})}, "a>b")
    assert {key: model.get(key) for key in ("ti", "tf", "ts")} == {"ti": 0.0, "tf": 10.0, "ts": 0.01}
    assert {key: model.get(key) for key in ("blocks", "links", "tiers", "zones", "failed")} == {
        "blocks": 3,
        "links": 1,
        "tiers": 0,
        "zones": 0,
        "failed": 0,
    }
    model.set(ti=-1, tf=2)
    model.set(id=ids["a"], ts=0.5)
    model.set(ts=sys.float_info.max)
    assert [model.get(key=key) for key in ("ti", "tf", "ts")] == [-1.0, 2.0, 0.5]


@cases(
    "kind, properties, key, expected",
    ("gain", {"expression": 2}, "expression", 2.0),
    ("gain", {}, "expression", 1.0),
    ("gain", {"expression": sys.float_info.max}, "expression", 1.0),
    ("saturation", {}, "max", math.inf),
    ("sum", {"inportCount": 3}, "inportCount", 3),
    ("sum", {"operator": "+-+-"}, "inportCount", 4),
    ("sum", {"inportCount": 4294967295}, "inportCount", 2),
    ("bits", {}, "outportCount", 8),
    ("unpack", {"msb": 7}, "msb", 7),
    ("random", {"seed": 5}, "seed", 5),
    ("inport", {}, "portNumber", 1),
    ("clock", {}, "parent", 1),
    ("clock", {}, "id", 2),
    ("clock", {}, "x", 0.0),
    ("clock", {}, "red", -1.0),
)
def test_numbers_of_a_block(kind, properties, key, expected):
    model = kvalo.Model()
    value = model.get(key, model.create(kind, **properties))
    assert (value, type(value)) == (expected, type(expected))


def test_place_and_colour():
    model = kvalo.Model()
    id = model.create("clock")
    place = {"x": 1.5, "y": -2, "width": 30, "height": 20, "red": 0.25, "green": 0.5, "blue": 1}
    model.set(id, **place)
    model.set(id, x=3, y=3.4028234663852886e38)
    assert {key: model.get(key, id=id) for key in place} == {**place, "x": 3}


@cases(
    "call, error, text",
    (lambda m: m.get("ti", 9), ValueError, "There's no block with id '9'"),
    (lambda m: m.get("x", 0), ValueError, "There's no block with id '0'"),
    (lambda m: m.get("x"), ValueError, "Unknown key 'x'"),
    (lambda m: m.get("ti", 1), ValueError, "Unknown key 'ti'"),
    (lambda m: m.get("{0}", 1), ValueError, "Unknown key '{0}'"),
    (lambda m: m.set(id=9, x=1, ti=5), ValueError, "There's no block with id '9'"),
    (lambda m: m.set(id=9), ValueError, "There's no block with id '9'"),
    (lambda m: m.set(width=1, ti=5), ValueError, "There's no block with id '0'"),
    (lambda m: m.create("nonsense"), ValueError, "Unknown type 'nonsense'"),
    (lambda m: m.create("Gain"), ValueError, "Unknown type 'Gain'"),
    (lambda m: m.create("sum", inportCount=9), ValueError, "Block cannot have more than 8 inports"),
    (lambda m: m.create("math"), ValueError, "Argument 'operator' cannot be empty"),
    (lambda m: m.create("math", operator=""), ValueError, "Argument 'operator' cannot be empty"),
    (lambda m: m.create("goto"), ValueError, "Argument 'target' cannot be empty"),
    (lambda m: m.create("cast", type=""), ValueError, "Argument 'type' cannot be empty"),
    (lambda m: m.create("subsys", path=""), ValueError, "Argument 'path' cannot be empty"),
    (lambda m: m.create("subsys", path="none"), Exception, "Error loading file 'none'"),
    (lambda m: m.create("lut1d", bp1=[], out=[1]), ValueError, "Argument 'bp1' cannot be empty"),
    (lambda m: m.create("lut1d", bp1=[1]), ValueError, "Argument 'out' cannot be empty"),
    (lambda m: m.create("series"), ValueError, "Argument 'obj' cannot be empty"),
    (lambda m: m.create("clock", parent=9), ValueError, "There's no block with id '9'"),
    (
        lambda m: m.create("clock", parent=m.create("clock")),
        ValueError,
        "Invalid properties value",
    ),
    (lambda m: m.link(0, 5, 1, 1), ValueError, "Cannot link from block id 0"),
    (lambda m: m.link(0, 0, 1, 1), ValueError, "Cannot link from block id 0"),
    (lambda m: m.link(5, 0, 1, 1), ValueError, "Cannot link to block id 0"),
    (lambda m: m.codegen("java", "x"), ValueError, "Language not supported"),
    (lambda m: m.codegen(lang="", path="x"), ValueError, "Language not supported"),
    (
        lambda m: m.create("series", obj=kvalo.TimeSeries("void")),
        Exception,
        "kvalo.TimeSeries object is empty",
    ),
)
def test_refusals(call, error, text):
    model = kvalo.Model()
    with pytest.raises(Exception) as caught:
        call(model)
    assert (type(caught.value), str(caught.value)) == (error, text)
    assert model.get("ti") == 0.0
    assert model.get("links") == 0


OBJECT = "Argument '{}' must be a number, a text, a list of these, a list of such lists, or a kvalo.TimeSeries object"


@cases("value", None, {}, b"1", object(), [None], [1, [2]], [[1], 2], [[[1]]], 1j, [b"1"])
@cases("name", "obj", "bp1", "bp2", "out")
def test_objects_that_stand_for_no_number(name, value):
    model = kvalo.Model()
    with pytest.raises(TypeError) as caught:
        model.create("const", **{name: value})
    assert str(caught.value) == OBJECT.format(name)
    assert model.get("blocks") == 1


@cases(
    "call, text",
    (lambda m: m.get(), r"get\(\) missing required argument 'key' \(pos 1\)"),
    (lambda m: m.get(1), r"get\(\) argument 1 must be str, not int"),
    (lambda m: m.set(1, colour=2), r"'colour' is an invalid keyword argument for set\(\)"),
    (lambda m: m.set(x="1"), "must be real number, not str"),
    (lambda m: m.create(), r"create\(\) takes at least 1 positional argument \(0 given\)"),
    (lambda m: m.create(kind="gain"), r"create\(\) takes at least 1 positional argument \(0 given\)"),
    (lambda m: m.create("const", expression="1"), "must be real number, not str"),
    (lambda m: m.link(1, 2, 1), r"link\(\) missing required argument 'portTo' \(pos 4\)"),
    (lambda m: m.link(1.0, 2, 1, 1), "must be int, not float|integer"),
    (lambda m: m.load(), r"load\(\) takes exactly 1 argument \(0 given\)"),
    (lambda m: m.load(path="x"), "takes no keyword arguments"),
    (lambda m: m.codegen("c"), r"codegen\(\) missing required argument 'path' \(pos 2\)"),
    (lambda m: m.run(1), r"run\(\) takes no arguments \(1 given\)"),
    (lambda m: m.validate(1), r"validate\(\) takes no arguments \(1 given\)"),
)
def test_arguments_that_no_call_takes(call, text):
    with pytest.raises(TypeError, match=text):
        call(kvalo.Model())


def test_properties_come_in_many_types():
    class Late:
        def __float__(self):
            return 2.5

    def value(obj):
        model, _ = diagram({"c": ("const", {"obj": obj}), "y": ("outport", {})}, "c>y", tf=0.01)
        return model.run().y.ydata[1]

    __main__.two = 2
    try:
        assert [value(obj) for obj in (3, True, np.float32(0.5), np.int64(7), Late(), "two ** 10")] == [
            3.0,
            1.0,
            0.5,
            7.0,
            2.5,
            1024.0,
        ]
    finally:
        del __main__.two
    for points in (
        [0, 1, 2],
        (0, 1, 2),
        np.array([0.0, 1, 2]),
        kvalo.Array([0, 1, 2]),
        range(3),
        ["0", 1, "1+1"],
    ):
        assert response("lut1d", [0.5, 1.5], 1, bp1=points, out=[0, 10, 30]).tolist() == [5, 20]


# ---- what validation finds ----

ONE = {"a": ("clock", {})}
LOOP = {"a": ("gain", {}), "b": ("gain", {})}
TARGET = {"target": "t"}
CODES = [
    (1, LOOP, "a>b b>a", Exception, "Algebraic loop detected"),
    (2, {"a": ("cast", {})}, "", Exception, "Disconnected 'cast' block"),
    (3, {"a": ("from", TARGET)}, "", Exception, "Disconnected 'from' block"),
    (4, {"a": ("goto", TARGET)}, "", Exception, "Disconnected 'goto' block"),
    (6, {"a": ("gain", {})}, "", Exception, "Disconnected port"),
    (6, {"b": ("clock", {}), "a": ("gain", {})}, "b.0>a", Exception, "Disconnected port"),
    (6, {"b": ("clock", {}), "a": ("gain", {})}, "b.65537>a", Exception, "Disconnected port"),
    (
        7,
        {"b": ("goto", TARGET), "a": ("goto", TARGET)},
        "",
        ValueError,
        "Invalid 'target' value: it's used by another block",
    ),
    (9, {"a": ("lut1d", {"bp1": [0, 1], "out": [1]})}, "", ValueError, "Dimensions mismatch"),
    (9, {"a": ("sum", {"operator": "+-", "inportCount": 3})}, "", ValueError, "Dimensions mismatch"),
    (11, {"a": ("saturation", {"min": 1, "max": 0})}, "", ValueError, "Invalid properties value"),
    (11, {"a": ("math", {"operator": "sine"})}, "", ValueError, "Invalid properties value"),
    (11, {"a": ("gain", {"expression": math.nan})}, "", ValueError, "Invalid properties value"),
    (
        12,
        {"a": ("const", {"obj": "[1, 2]"})},
        "",
        ValueError,
        "Invalid Python expression (type-cast error)",
    ),
    (12, {"a": ("const", {"obj": [1]})}, "", ValueError, "Invalid Python expression (type-cast error)"),
    (
        13,
        {"a": ("const", {"obj": "1 / 0"})},
        "",
        RuntimeError,
        "Invalid Python expression (evaluation error)",
    ),
    (
        13,
        {"a": ("lut1d", {"bp1": [0, "no such name"], "out": [0, 1]})},
        "",
        RuntimeError,
        "Invalid Python expression (evaluation error)",
    ),
]


def raised(work):
    try:
        work()
    except Exception as error:
        return type(error), str(error)
    return None


@cases("code, blocks, links, error, text", *CODES)
def test_codes(code, blocks, links, error, text, tmp_path):
    model, ids = diagram(blocks, links)
    for work in (model.validate, model.run):
        assert raised(work) == (error, text), code
        assert model.get("failed") == ids["a"]
    assert raised(lambda: model.codegen("c", str(tmp_path / "code"))) == (
        Exception,
        "Code generation has failed.",
    )
    assert model.get("tiers") == 0


@cases(
    "times, text",
    ({"ts": 0}, "Sampling period must be greater than zero"),
    ({"ts": -1, "tf": -1}, "Sampling period must be greater than zero"),
    ({"ts": math.nan}, "Sampling period must be greater than zero"),
    ({"ts": math.inf}, "Sampling period must be greater than zero"),
    ({"tf": 0}, "Initial time must be less than final time"),
    ({"ti": math.nan}, "Initial time must be less than final time"),
    ({"tf": math.inf}, "Initial time must be less than final time"),
)
def test_times(times, text):
    model, _ = diagram(ONE, **times)
    assert raised(model.validate) == (ValueError, text)


def test_too_many_inports_of_a_system():
    model, ids = diagram({"s": ("subsys", {})})
    for _ in range(9):
        model.create("inport", parent=ids["s"])
    assert raised(model.validate) == (ValueError, "Inports count must be equal to or less than 8")


def test_what_is_wrong_can_be_put_right():
    model, ids = diagram({"a": ("clock", {}), "b": ("gain", {}), "y": ("outport", {})}, "b>y", tf=1, ts=0.5)
    assert raised(model.run) == (Exception, "Disconnected port")
    model.link(ids["a"], ids["b"], 1, 1)
    assert model.validate() is None
    assert model.get("failed") == 0
    assert ys(model.run().y) == [0, 0.5, 1]


# ---- files ----

FILE = {"format": "kvalo-model", "version": 1, "tf": 1, "blocks": [], "links": []}


@cases(
    "code, content",
    (0, FILE),
    (1, None),
    (2, "{"),
    (2, b"\xff"),
    (3, {}),
    (3, {**FILE, "version": 2}),
    (4, {**FILE, "blocks": [{"id": 2, "kind": "x"}]}),
    (5, {**FILE, "blocks": [{"id": 2, "kind": "gain", "colour": 1}]}),
    (6, {**FILE, "blocks": [{"kind": "gain"}]}),
    (6, {**FILE, "links": [{"from": 2, "to": 3}]}),
)
def test_load_answers_a_code(tmp_path, code, content):
    path = tmp_path / "m ü.json"
    if isinstance(content, bytes):
        path.write_bytes(content)
    elif content is not None:
        path.write_text(content if isinstance(content, str) else json.dumps(content))
    model, _ = diagram(ONE)
    assert model.load(str(path)) == code
    assert (model.get("blocks"), model.get("tf")) == (2, 10.0 if code else 1.0)
    error = raised(lambda: kvalo.Model(str(path)))
    assert error == ((Exception, f"Error loading file '{path}'") if code else None)


def test_a_file_becomes_a_system_of_another_model(tmp_path):
    inner = {
        **FILE,
        "blocks": [
            {"id": 2, "kind": "inport", "name": "u"},
            {"id": 3, "kind": "gain", "expression": "3 * 2"},
            {"id": 4, "kind": "outport", "name": "y"},
        ],
        "links": [{"from": 2, "to": 3, "name": "inner"}, {"from": 3, "to": 4}],
    }
    path = tmp_path / "six.json"
    path.write_text(json.dumps(inner))
    blocks = {"t": ("clock", {}), "six": ("subsys", {"path": str(path)}), "y": ("outport", {})}
    model, _ = diagram(blocks, "t>six six>y", tf=2, ts=1)
    result = model.run()
    assert (ys(result.y), ys(result.six.inner)) == ([0, 6, 12], [0, 1, 2])
    assert isinstance(result.six, kvalo.Result)
    before = model.get("blocks")
    path.write_text("{")
    assert raised(lambda: model.create("subsys", path=str(path))) == (
        Exception,
        f"Error loading file '{path}'",
    )
    assert model.get("blocks") == before


def test_a_file_runs_no_code_of_its_own(tmp_path):
    mark = tmp_path / "mark"
    content = {**FILE, "blocks": [{"id": 2, "kind": "gain", "expression": f"open({str(mark)!r}, 'w')"}]}
    path = tmp_path / "m.json"
    path.write_text(json.dumps(content))
    model = kvalo.Model(str(path))
    assert raised(model.run) == (RuntimeError, "Invalid Python expression (evaluation error)")
    assert not mark.exists()


# ---- runs ----


def test_results_are_series():
    model, _ = diagram({"t": ("clock", {}), "time of day": ("outport", {})}, ti=1, tf=2, ts=0.25)
    model.link(2, 3, 1, 1, "clock signal")
    __main__.mainsys = "from earlier"
    result = model.run()
    assert not hasattr(__main__, "mainsys")
    assert set(vars(result)) == {"time_of_day", "clock_signal"}
    assert all(type(s) is kvalo.TimeSeries for s in vars(result).values())
    assert xs(result.time_of_day) == ys(result.time_of_day) == [1, 1.25, 1.5, 1.75, 2]
    assert kvalo.find("mainsys.clock_signal") is result.clock_signal
    result.time_of_day.axpb(1, 100)
    result.time_of_day += 1
    assert xs(result.clock_signal) == ys(result.clock_signal) == [1, 1.25, 1.5, 1.75, 2]
    assert ys(kvalo.derivative(result.clock_signal)) == [0, 1, 1, 1, 1]
    again = model.run()
    assert (ys(again.time_of_day), ys(result.time_of_day)[0]) == ([1, 1.25, 1.5, 1.75, 2], 2)


def test_a_series_feeds_a_model_and_stays_as_it_is():
    recorded = series([1, 5, 2], [0, 1, 2])
    blocks = {"in": ("series", {"obj": recorded}), "y": ("outport", {})}
    model, _ = diagram(blocks, "in>y", tf=2, ts=0.5)
    recorded += 1
    assert ys(model.run().y) == [1, 1, 5, 5, 2]
    assert ys(recorded) == [2, 6, 3]


def test_runs_in_several_threads_keep_their_results_apart():
    def run_often(value):
        model, _ = diagram({"c": ("const", {"expression": value}), "y": ("outport", {})}, "c>y", tf=1)
        return {model.run().y.ydata[0] for _ in range(100)}

    interval = sys.getswitchinterval()
    sys.setswitchinterval(1e-6)
    try:
        assert in_threads(run_often, *range(8)) == [{float(value)} for value in range(8)]
    finally:
        sys.setswitchinterval(interval)


@cases(
    "blocks, links, times",
    ({"c": ("const", {}), "a": ("assert", {})}, "c>a", {}),
    ({"c": ("clock", {})}, "", {"ts": 1e-9, "tf": 10}),
)
def test_runs_that_fail(blocks, links, times):
    model, _ = diagram(blocks, links, **times)
    assert raised(model.run) == (Exception, "Unknown error during execution")
    assert not hasattr(__main__, "mainsys")
    model.set(tf=1)
    assert model.validate() is None


def test_a_stop_ends_a_run_well():
    blocks = {
        "t": ("clock", {}),
        "late": ("compare", {"operator": ">=", "expression": 3}),
        "end": ("stop", {}),
    }
    model, _ = diagram({**blocks, "y": ("outport", {})}, "t>late late>end t>y", tf=100, ts=1)
    assert ys(model.run().y) == [0, 1, 2, 3]


@pytest.fixture
def endless():
    """A model whose run nobody waits for: 2 000 000 000 samples."""
    return diagram(ONE, tf=2e9, ts=1)[0]


def during_a_run(model, handler, error):
    """Runs until a signal comes from another thread; what its handler raises ends the run."""
    before = signal.signal(signal.SIGINT, handler)
    sender = threading.Thread(target=lambda: (time.sleep(0.2), os.kill(os.getpid(), signal.SIGINT)))
    try:
        sender.start()
        with pytest.raises(error) as caught:
            model.run()
    finally:
        sender.join()
        signal.signal(signal.SIGINT, before)
    return caught.value


def test_an_interrupt_ends_a_run(endless):
    during_a_run(endless, signal.default_int_handler, KeyboardInterrupt)
    assert not hasattr(__main__, "mainsys")
    endless.set(tf=1)
    assert isinstance(endless.run(), kvalo.Result)


BUSY = "This kvalo.Model is busy: wait until the call that uses it has ended"


@cases(
    "call",
    lambda m: m.get("ti"),
    lambda m: m.set(ti=1),
    lambda m: m.create("clock"),
    lambda m: m.link(1, 1, 1, 1),
    lambda m: m.load("x"),
    lambda m: m.codegen("c", "x"),
    lambda m: m.validate(),
    lambda m: m.run(),
    lambda m: m.__init__(),
    repr,
)
def test_a_model_is_used_by_one_call_at_a_time(call, monkeypatch):
    model = kvalo.Model()
    seen = []
    monkeypatch.setattr(
        __main__, "intrude", lambda: seen.append(raised(lambda: call(model))) or 1, raising=False
    )
    model.create("const", obj="intrude()")
    model.validate()
    assert seen == [(RuntimeError, BUSY)]
    assert model.get("blocks") == 2


def test_what_a_signal_handler_raises_ends_a_run(endless):
    error = during_a_run(endless, lambda *_: endless.get("ti"), RuntimeError)
    assert str(error) == BUSY


# ---- names ----

NAMES = [
    "a b", "class", "flags", "__dict__", "__class__", "ünïcode", "7up", "%s{}", "\"'); import os #", "*/ #include",
    "\\", "double", "x" * 2000, "line\nbreak", "main", "mainsys_step", "M_PI", "printf", "self", "init", "τ",
]  # fmt: skip


@cases("name", *NAMES)
def test_names_of_all_kinds(name, tmp_path):
    blocks = {name: ("outport", {}), "c": ("const", {"expression": 2})}
    model, ids = diagram(blocks, "", tf=1, ts=0.5)
    inner = model.create("subsys", name=name)
    model.link(ids["c"], ids[name], 1, 1)
    result = vars(model.run())
    assert [ys(value) for value in result.values()] == [[2, 2, 2]]
    assert next(iter(result)).isidentifier() or next(iter(result)) == "_"
    assert model.get("parent", inner) == 1
    assert c_run(model, tmp_path)[1].tolist() == python_run(model, tmp_path)[1].tolist() == [2, 2, 2]


def test_two_names_that_become_one():
    model, ids = diagram({"t": ("clock", {}), "a b": ("outport", {}), "a_b": ("outport", {})})
    for name in ("a b", "a_b"):
        model.link(ids["t"], ids[name], 1, 1)
    assert raised(model.validate) == (ValueError, "Invalid properties value")


# ---- generated code ----


def table(text):
    """The columns that a generated program prints, time first."""
    _, *rows = text.splitlines()
    return np.array([[float(cell) for cell in row.split(",")] for row in rows]).T


def c_run(model, folder):
    model.codegen(lang="C", path=str(folder / "c code"))
    command = ["gcc", "-O2", "-std=c11", "-Wall", "-Wextra", "-pedantic", "-Werror", "mainsys.c", "main.c"]
    subprocess.run([*command, "-lm", "-o", "run"], cwd=folder / "c code", check=True)
    return table(
        subprocess.run([folder / "c code" / "run"], capture_output=True, text=True, check=True).stdout
    )


def python_run(model, folder):
    model.codegen("pYTHON", str(folder / "py"))
    program = [sys.executable, folder / "py" / "mainsys.py"]
    return table(subprocess.run(program, capture_output=True, text=True, check=True).stdout)


def bits(values):
    return np.asarray(values, float).tobytes()


@cases("name", *EXAMPLES)
def test_generated_code_computes_the_same_bits(name, tmp_path):
    model = kvalo.Model(EXAMPLES[name])
    blocks = json.loads(Path(EXAMPLES[name]).read_text())["blocks"]
    ports = [b["name"] for b in blocks if b["kind"] == "outport" and "parent" not in b]
    result = model.run()
    expected = [bits(getattr(result, ports[0]).xdata), *(bits(getattr(result, p).ydata) for p in ports)]
    for run in (c_run, python_run):
        assert [bits(column) for column in run(model, tmp_path)] == expected


@cases("language", "c", "python")
def test_folders_that_take_no_files(tmp_path, language):
    model, _ = diagram(ONE)
    (tmp_path / "file").write_text("")
    for path in ("file", "file/below", "none/below", "", "/proc/none", "x" * 300):
        error = raised(lambda path=path: model.codegen(language, str(tmp_path / path) if path else ""))
        assert error == (Exception, "Code generation has failed."), path
    assert os.listdir(tmp_path) == ["file"]


# ---- examples, against closed forms and plain Python ----


def outputs(name):
    result = kvalo.Model(EXAMPLES[name]).run()
    return {
        key: np.array(value.ydata) for key, value in vars(result).items() if type(value) is kvalo.TimeSeries
    }


def test_first_order_lag():
    t = 0.01 * np.arange(1001)
    expected = np.where(t >= 1, 80 * (1 - np.exp(-(t - 1) / 2)), 0)
    np.testing.assert_allclose(outputs("first_order_lag")["temperature"], expected, rtol=1e-11, atol=1e-10)


def test_cascade():
    speed = position = 0.0
    expected = []
    for k in range(1001):
        expected.append((position, speed))
        error = (2.0 if k >= 50 else 0.0) - position
        current = min(max(6 * (1.2 * error - speed), -3), 3)
        position, speed = position + 0.02 * speed, speed + 0.8 * 0.02 * current
    positions, speeds = zip(*expected, strict=True)
    result = kvalo.Model(EXAMPLES["cascade"]).run()
    np.testing.assert_allclose(result.position.ydata, positions, rtol=1e-12, atol=1e-12)
    np.testing.assert_allclose(result.drive.speed.ydata, speeds, rtol=1e-12, atol=1e-12)
    assert abs(positions[-1] - 2) < 0.01


def noise(seed, low, high):
    while True:
        seed ^= seed << 13 & 0xFFFFFFFF
        seed ^= seed >> 17
        seed ^= seed << 5 & 0xFFFFFFFF
        yield low + (high - low) * (seed * 2.0**-32)


def test_debounced_alarm():
    hot = alarm = False
    count = since = 0
    expected, temperatures = [], []
    for k, extra in zip(range(601), noise(7, -4, 4), strict=False):
        temperature = 15 * math.sin(2 * math.pi * 0.03 * k * 0.1) + 80 + extra
        was_hot, was_alarm = hot, alarm
        hot = temperature > 90 or (hot and not temperature < 85)
        if k == 0 or hot != was_hot:
            since = k
        # At first as if an alarm had just ended.
        alarm = k > 0 and (k - since >= 15 if hot else k - since < 30)
        count += alarm and not was_alarm
        temperatures.append(temperature)
        expected.append((alarm, count))
    alarms, counts = zip(*expected, strict=True)
    assert counts[-1] >= 1
    got = outputs("debounced_alarm")
    np.testing.assert_allclose(got["temperature"], temperatures, rtol=1e-13)
    assert got["alarm"].tolist() == list(alarms)
    assert got["count"].tolist() == list(counts)


def test_status_word():
    words = [4660, 33025, 43690, 65535, 2748]
    faults = [bool(word >> 12 & 0b1011) for word in words]
    levels = np.interp([word >> 4 & 255 for word in words], [0, 64, 128, 192, 255], [0, 8.5, 30, 61.5, 100])
    held = np.minimum(np.arange(19) // 4, 4)
    got = outputs("status_word")
    assert got["fault"].tolist() == np.array(faults, float)[held].tolist()
    np.testing.assert_allclose(got["level"], np.where(faults, -1, levels)[held], rtol=1e-14)


def test_signal_conditioning():
    scipy_signal = pytest.importorskip("scipy.signal")
    t = 0.01 * np.arange(2001)
    random = noise(3, -0.2, 0.2)
    raw = 2.5 + 0.8 * np.sin(2 * np.pi * (0.1 + 0.5 * 4.9 / 20 * t) * t) + [next(random) for _ in t]
    got = outputs("signal_conditioning")
    np.testing.assert_allclose(got["raw"], raw, rtol=1e-12)
    value = np.clip(40 * (0.0048828125 * np.round(got["raw"] / 0.0048828125)) - 50, -40, 125)
    a = 0.01 / 0.26
    smooth, _ = scipy_signal.lfilter([a], [1, a - 1], value, zi=[(1 - a) * value[0]])
    b = 0.25 / 0.26
    ripple, _ = scipy_signal.lfilter([b, -b], [1, -b], value, zi=[(1 - b) * value[0]])
    slope = np.diff(smooth, prepend=smooth[0]) / 0.01
    quiet = slope - np.clip(slope, -5, 5)
    for name, expected in (("value", smooth[np.arange(2001) // 50 * 50]), ("slope", quiet)):
        np.testing.assert_allclose(got[name], expected, rtol=1e-9, atol=1e-9)
    np.testing.assert_allclose(got["ripple"][1:], ripple[1:] + (value[0] - ripple[0]) * b ** np.arange(1, 2001), rtol=1e-9, atol=1e-9)  # fmt: skip


def test_speed_control():
    a = math.exp(-0.01 / 1.5)
    target = speed = integral = 0.0
    waiting = [0.0] * 5
    expected = []
    for k in range(3001):
        wanted = 60.0 if k % 2000 < 1200 else 20.0
        target += min(max(wanted - target, -0.25), 0.25)
        error = target - speed
        free = 0.4 * error + integral
        voltage = min(max(free, 0.0), 10.0)
        expected.append((speed, voltage))
        step = 0.25 * 0.01 * error
        if not (free > 10 and step > 0 or free < 0 and step < 0):
            integral += step
        waiting.append(voltage)
        speed = a * speed + 8 * (1 - a) * waiting.pop(0)
    speeds, voltages = zip(*expected, strict=True)
    got = outputs("speed_control")
    np.testing.assert_allclose(got["speed"], speeds, rtol=1e-9, atol=1e-9)
    np.testing.assert_allclose(got["voltage"], voltages, rtol=1e-9, atol=1e-9)


# ---- against SciPy ----

TS = 0.05
INPUT = np.random.default_rng(4).normal(size=400).round(6)


def lagged(signal, tau, gain):
    (numerator,), denominator, _ = signal.cont2discrete(([gain], [tau, 1]), TS, "zoh")
    return signal.lfilter(numerator, denominator, INPUT)


@cases(
    "kind, properties, reference",
    ("discrete", {"coeffA": 0.9, "coeffB": 0.3}, lambda s: s.lfilter([0.3], [1, -0.9], INPUT)),
    ("integrator", {"coeffA": 2}, lambda s: s.lfilter([0, 2 * TS], [1, -1], INPUT)),
    ("integrator", {"type": "backward"}, lambda s: s.lfilter([TS], [1, -1], INPUT)),
    (
        "integrator",
        {"type": "trapezoidal"},
        lambda s: s.lfilter([TS / 2, TS / 2], [1, -1], INPUT, zi=[-TS / 2 * INPUT[0]])[0],
    ),
    ("lag", {"coeffA": 0.4, "coeffB": 3}, lambda s: lagged(s, 0.4, 3)),
    ("delay", {"timeOn": 0.2}, lambda s: s.lfilter([0, 0, 0, 0, 1], [1], INPUT)),
    ("derivative", {"coeffA": 2}, lambda s: np.diff(INPUT, prepend=INPUT[0]) * (2 / TS)),
)
def test_linear_blocks_are_filters(kind, properties, reference):
    expected = reference(pytest.importorskip("scipy.signal"))
    np.testing.assert_allclose(response(kind, INPUT, TS, **properties), expected, rtol=1e-10, atol=1e-11)


def test_a_transfer_function_of_two_integrators():
    # x'' = u - 0.6 x' - 4 x, each integrator stepped forward.
    scipy_signal = pytest.importorskip("scipy.signal")
    blocks = {
        "u": ("series", {"obj": series(INPUT, TS * np.arange(400))}),
        "sum": ("sum", {"operator": "+--"}),
        "v": ("integrator", {}),
        "x": ("integrator", {}),
        "damping": ("gain", {"expression": 0.6}),
        "spring": ("gain", {"expression": 4}),
        "y": ("outport", {}),
    }
    links = "u>sum sum>v v>x v>damping x>spring damping>sum.2 spring>sum.3 x>y"
    model, _ = diagram(blocks, links, tf=TS * 399, ts=TS)
    system = np.eye(2) + TS * np.array([[0, 1], [-4, -0.6]])
    discrete = (system, [[0], [TS]], [[1, 0]], [[0]], TS)
    expected = scipy_signal.dlsim(discrete, INPUT)[1][:, 0]
    np.testing.assert_allclose(model.run().y.ydata, expected, rtol=1e-9, atol=1e-11)
