"""Plug-ins that read files, native and in Python: their contract, and when they are chosen."""

import gc
import json
import shutil
import struct
import sys

import kvalo
import numpy as np
import pytest
from common import cases, in_threads, refused, samples, write
from conftest import ROOT, run_script
from plugin_tools import EXAMPLES, NASTY, TEST_PLUGINS, calls, log_text, plugin_folder  # noqa: F401


def opened(tmp_path, name="f.x", plugin=NASTY, **settings):
    for key, value in settings.items():
        kvalo.set_config(value, key)
    return kvalo.Container(path=write(tmp_path / name), plugin=str(plugin))


# ---- native plug-ins ----


def test_variables_and_samples(tmp_path):
    c = opened(tmp_path)
    assert (len(c), list(c.__dict__)) == (5, ["a", "d", "fails"])
    assert c.a.b.get_full_name() == "a.b"
    for series, first in ((c.a.b, 50), (c["c"], 20), (c.d, 30)):
        assert samples(series) == ([0, 1, 2, 3], [first, first + 1, first + 2, first + 3])
    with pytest.raises(Exception, match="^'a' is not a valid parameter name for this file$"):
        c.a.load()
    with pytest.raises(Exception, match="^the long reason$"):
        c.fails.load()
    assert (c.d + 1).ydata[0] == 31


def test_begin_and_end_once_for_all_readers_of_a_path(tmp_path):
    calls()
    first, second = opened(tmp_path), opened(tmp_path)
    other = opened(tmp_path, "g.x")
    for container in (first, second, other):
        container.d.load()
    assert calls() == ["Initialize f.x", "Initialize g.x", "Load f.x", "Load f.x", "Load g.x"]
    held = {"first": first, "other": other, "second": second}
    del first, other, second, container
    for name, ended in (("first", [""]), ("other", ["Terminate g.x"]), ("second", ["Terminate f.x"])):
        del held[name]
        gc.collect()
        assert calls() == ended


@cases(
    "word, text",
    ("refuse", "^Error while loading file '.*' with plugin '.*': the long reason$"),
    ("refuse_short_error", ": Error 7 during Initialize plugin call$"),
    ("refuse_null_error", ": Error 7 during Initialize plugin call$"),
    ("flood", "reports 4000000000 parameters; 1000000 are possible"),
    ("null_name", "gives no name for parameter 2"),
    ("empty_name", "a variable without a name"),
    ("endless_name", "a variable name of more than 4096 bytes: 'xxx"),
    ("deep_name", "more than 64 levels"),
)
def test_refused_while_scanning(tmp_path, word, text):
    calls()
    with pytest.raises(Exception, match=text):
        opened(tmp_path, word)
    gc.collect()
    assert calls() == [f"Initialize {word}", f"Terminate {word}"]


@cases(
    "word, text",
    ("null_x", "reports 4 samples of 'd' but gives none"),
    ("null_y", "reports 4 samples of 'd' but gives none"),
    ("many", "reports 134217728 samples of 'd', which are not in memory"),
    ("tera", "reports 1099511627776 samples of 'd', which are not in memory"),
    ("countless", "reports 18446744073709551615 samples of 'd', which are not in memory"),
    ("no_samples", "^X-Axis data is empty$"),
    ("short_error", "^Error 7 during Load plugin call$"),
)
def test_refused_while_loading(tmp_path, word, text):
    c = opened(tmp_path, word)
    with pytest.raises(Exception, match=text):
        c["fails" if word == "short_error" else "d"].load()


@cases("word, name", ("odd_name", "café"), ("line_name", "line"))
def test_odd_names_can_be_loaded(tmp_path, word, name):
    assert samples(opened(tmp_path, word)[name])[1][0] == 30


def test_messages_of_three_characters_are_shown(tmp_path, capfd):
    for word, shown in (("long_info", "abc\n"), ("short_info", ""), ("latin_info", "café\n")):
        opened(tmp_path, word)
        assert capfd.readouterr().out == shown


def test_settings_are_texts(tmp_path, capfd):
    opened(tmp_path, "show_settings", nasty_text="hello", nasty_number=5)
    assert capfd.readouterr().out == "settings:hello::\n"
    assert "The setting 'nasty_number' is not a text" in log_text()
    opened(tmp_path, "show_settings_2", nasty_number="5")
    assert capfd.readouterr().out == "settings:hello:5:\n"


@cases("count, text", ("4000000000", "asks for 4000000000 settings"), ("3", "no key for"))
def test_impossible_settings(tmp_path, monkeypatch, count, text):
    monkeypatch.setenv("NASTY_SETTINGS", count)
    with pytest.raises(Exception, match=text):
        opened(tmp_path)


@cases("name", "GetConfigCount", "Initialize", "GetParameterName", "GetErrorMessage", "GetInfoMessage")
def test_missing_exports(tmp_path, name):
    path = write(tmp_path / ("refuse" if name == "GetErrorMessage" else "f.x"))
    plugin = str(TEST_PLUGINS / f"without_{name}.so")
    refused(f": Could not load function '{name}'$", path=path, plugin=plugin)


def test_exports_that_are_missed_later(tmp_path):
    c = opened(tmp_path, plugin=TEST_PLUGINS / "without_Load.so")
    with pytest.raises(Exception, match="^Could not load function 'Load'$"):
        c.d.load()
    opened(tmp_path, plugin=TEST_PLUGINS / "without_Terminate.so").d.load()
    gc.collect()
    assert "Could not load function 'Terminate'" in log_text()


def test_exceptions_that_escape_are_errors(tmp_path):
    with pytest.raises(Exception, match="The plug-in failed in Initialize: out of here$"):
        opened(tmp_path, plugin=TEST_PLUGINS / "throwing.so")


def test_named_plug_ins(tmp_path, plugin_folder, capfd):  # noqa: F811
    for name in ("p.txt", "p.so", "q.py", "empty.py"):
        (tmp_path / name).write_text("" if name == "empty.py" else "this is nothing (")
    for name, text in (
        ("p.txt", "Extension not supported for plugin"),
        ("p.so", "Error while loading forced plugin"),
        ("q.py", "Error while loading compatible plugin"),
        ("empty.py", "Plugin does not implement 'init'"),
        ("none.so", f"Plugin {tmp_path}/none.so not found"),
    ):
        text = f"^Error while loading file '.*' with plugin '{tmp_path / name}': {text}$"
        refused(text, path=write(tmp_path / "f.x"), plugin=str(tmp_path / name))
    shown = capfd.readouterr().out
    assert f"Plug-in '{tmp_path}/p.so' cannot be loaded: " in shown
    assert "SyntaxError" in shown
    # A bare name is looked for in the plug-in folder; both names mean one library.
    (plugin_folder / "installed.so").symlink_to(NASTY)
    calls()
    pair = [opened(tmp_path, plugin=name) for name in ("installed.so", NASTY)]
    assert [len(c) for c in pair] == [5, 5]
    assert calls() == ["Initialize f.x"]
    with pytest.raises(Exception, match="not found$"):
        opened(tmp_path, plugin="../plugins/installed.so")


def test_loads_from_many_threads(tmp_path):
    def work(container):
        for _ in range(50):
            assert samples(kvalo.TimeSeries(container.d.id64, 0.0, 1.0))[1] == [30, 31, 32, 33]

    in_threads(work, *(opened(tmp_path, f"{i}.x") for i in range(8)))


# ---- plug-ins in Python ----

GOOD = """
import kvalo
log = []
def config_keys(): return ["python_set", "python_unset"]
def init(path, values): log.append(("init", path, values)); return 0
def list_names(path): return ["a.b", "a.c", "d"]
def load(path, name): log.append(("load", name)); return [0, 1, 2], [5, 6, len(name)]
def terminate(path): log.append(("terminate", path))
"""


def python_plugin(tmp_path, extra="", name="p.py"):
    return write(tmp_path / name, GOOD + extra)


def test_python_plug_in(tmp_path):
    kvalo.set_config("hello", "python_set")
    plugin = python_plugin(tmp_path)
    c, second = (opened(tmp_path, plugin=plugin) for _ in range(2))
    path = str(tmp_path / "f.x")
    log = next(m for m in sys.modules.values() if getattr(m, "__file__", None) == plugin).log
    assert list(c.__dict__) == ["a", "d"]
    assert log == [("init", path, ["hello", "empty"])]
    assert samples(c.a.c) == ([0, 1, 2], [5, 6, 3])
    del c
    gc.collect()
    second.d.load()
    del second
    gc.collect()
    assert log[1:] == [("load", "a.c"), ("load", "d"), ("terminate", path)]


BAD_SCANS = [
    ("del init", "Plugin does not implement 'init'"),
    ("del config_keys", "Plugin does not implement 'config_keys'"),
    ("del list_names", "Plugin does not implement 'list_names'"),
    ("def config_keys(): return ()", "API function 'config_keys' must return a list"),
    ("def config_keys(): 1 / 0", "API function 'config_keys' has returned null"),
    (
        "def config_keys(): return [1]",
        "API function 'config_keys' must return a list of str; item 0 is a 'int'",
    ),
    ("def init(path, values): return None", "API function 'init' must return an integer"),
    ("def init(path, values): return -3", "API function 'init' returned error code -3"),
    ("def init(path, values): return 10**30", f"API function 'init' returned error code {10**30}"),
    ("def init(path, values): raise ValueError('my own words')", "ValueError: my own words"),
    ("def list_names(path): return 'ab'", "API function 'list_names' must return a list"),
    ("def list_names(path): return ['']", "The source has a variable without a name"),
    (r"def list_names(path): return ['\udc80']", "UnicodeEncodeError: .*"),
]


@cases("extra, text", *BAD_SCANS)
def test_python_scans_that_fail(tmp_path, extra, text):
    text = f"^Error while loading file '.*' with plugin '.*': {text}$"
    refused(text, path=write(tmp_path / "f.x"), plugin=python_plugin(tmp_path, extra))


def test_null_results_report_the_plug_ins_own_error(tmp_path, capfd):
    with pytest.raises(Exception, match="has returned null"):
        opened(tmp_path, plugin=python_plugin(tmp_path, "def list_names(path): raise KeyError('x')"))
    assert "KeyError: 'x'" in capfd.readouterr().out
    assert "Traceback" in log_text()


EMPTY = r"Both lists must not be empty \(x-axis has {} elements, y-axis has {} elements\)"
UNLIKE = r"Lists sizes do not match \(x-axis has {} elements, y-axis has {} elements\)"


@cases(
    "result, text",
    ("([], [])", EMPTY.format(0, 0)),
    ("([1], [])", EMPTY.format(1, 0)),
    ("([0, 1, 2], [5, 6])", UNLIKE.format(3, 2)),
    ("([0, 1], [5, 'six'])", "The y-axis has an element that is not a number: TypeError: .*"),
    ("([0, 10**400], [5, 6])", "The x-axis has an element that is not a number: OverflowError: .*"),
    ("None", "API function 'load' must return a tuple of two lists"),
    ("([1], 5)", "API function 'load' must return two lists; the y-axis is a 'int'"),
    ("1 / 0", "ZeroDivisionError: division by zero"),
    ("kvalo.find('^d$').load() or ([], [])", "Exception: '.*' is being read already: .*"),
)
def test_python_loads_that_fail(tmp_path, result, text):
    c = opened(tmp_path, plugin=python_plugin(tmp_path, f"def load(path, name): return {result}"))
    with pytest.raises(Exception, match=f"^{text}$"):
        c.d.load()
    with pytest.raises(Exception, match="^Plugin does not implement 'load'$"):
        opened(tmp_path, "g.x", python_plugin(tmp_path, "del load", "q.py")).d.load()


ARANGES = ("numpy.arange(3.0)", "numpy.arange(3)", "numpy.arange(6.0)[::2] / 2")


@cases("kind", *ARANGES, "(0, 1, 2)", "range(3)", "kvalo.Array([0, 1, 2])")
def test_python_loads_from_other_sequences(tmp_path, kind):
    extra = f"import numpy\ndef load(path, name): return {kind}, [1, 2, 3]"
    assert samples(opened(tmp_path, plugin=python_plugin(tmp_path, extra)).d) == ([0, 1, 2], [1, 2, 3])


def test_python_plug_ins_get_their_own_names(tmp_path):
    c = opened(tmp_path, plugin=python_plugin(tmp_path, "def list_names(path): return ['end.', '.x', 'd']"))
    for name, length in (("end", 4), ("x", 2), ("d", 1)):
        assert samples(c[name])[1][2] == length


def test_ctrl_c_in_a_python_plug_in_ends_the_script(tmp_path):
    for place in ("init(path, values)", "list_names(path)", "load(path, name)"):
        plugin = python_plugin(tmp_path, f"def {place}: raise KeyboardInterrupt")
        with pytest.raises(KeyboardInterrupt):
            opened(tmp_path, plugin=plugin).d.load()


def test_missing_terminate_is_logged(tmp_path):
    plugin = python_plugin(tmp_path, "del terminate")
    opened(tmp_path, "without_end.x", plugin=plugin)
    gc.collect()
    assert f"3 Plugin '{tmp_path}/without_end.x' does not implement 'terminate'" in log_text()


def test_python_modules_stay_apart_and_follow_their_files(tmp_path):
    before = list(sys.path)
    (tmp_path / "helper_of_p.py").write_text("value = 7")
    plugin = python_plugin(tmp_path, "import helper_of_p, json\nassert json.dumps", "json.py")
    c = opened(tmp_path, plugin=plugin)
    assert sys.path == before
    assert json.dumps({}) == "{}"
    assert not (tmp_path / "__pycache__" / "json.cpython-311.pyc").exists()
    (tmp_path / "json.py").write_text(GOOD + "def list_names(path): return ['new']")
    changed = opened(tmp_path, plugin=plugin)
    assert (list(c.__dict__), list(changed.__dict__)) == (["a", "d"], ["new"])


def test_a_python_plug_in_may_wrap_a_built_in_reader(tmp_path, plugin_folder):  # noqa: F811
    extra = """
def is_compatible(path): return path.endswith(".csv")
def list_names(path): return ["doubled"]
def load(path, name):
    series = kvalo.Container(path=path).a
    series.load()
    return series.xdata, [2 * v for v in series.ydata]
"""
    python_plugin(plugin_folder, extra, "wrap.py")
    assert samples(kvalo.Container(path=write(tmp_path / "f.csv")).doubled)[1] == [2, 4, 6]


# ---- which plug-in serves ----


def test_order_of_the_rules(tmp_path, plugin_folder):  # noqa: F811
    (plugin_folder / "broken.so").write_text("no library")
    (plugin_folder / "broken.py").write_text("1 / 0")
    python_plugin(plugin_folder, name="a_silent.py")
    python_plugin(plugin_folder, "def is_compatible(path): 1 / 0", "b_failing.py")
    shutil.copy(NASTY, plugin_folder / "z.so")
    shutil.copy(TEST_PLUGINS / "throwing.so", plugin_folder / "throwing.so")
    for name in ("d", "c"):
        extra = f"def list_names(path): return ['{name}']\ndef is_compatible(path): return '.mine' in path"
        python_plugin(plugin_folder, extra, f"{name}.py")

    def names(file):
        return list(kvalo.Container(path=write(tmp_path / file)).__dict__)

    assert names("f.csv") == ["a"]
    assert names("f.mine.zip") == ["c"]
    assert names("f.mine.nasty.zip") == ["a", "d", "fails"]
    assert names("f.nasty.csv") == ["a", "d", "fails"]
    log = log_text()
    for text in ("broken.so' cannot be loaded", "broken.py' cannot be loaded: ZeroDivisionError",
                 "b_failing.py' failed in is_compatible: ZeroDivisionError",
                 "throwing.so' failed in IsCompatible: compatible?"):  # fmt: skip
        assert text in log
    assert log.count("broken.so' cannot be loaded") == 1


# ---- the examples ----


def tracks(channels, rate=10.0):
    head = struct.pack("<4sIId", b"TRK1", len(channels), len(next(iter(channels.values()))), rate)
    names = b"".join(name.encode().ljust(32, b"\0") for name in channels)
    return head + names + b"".join(np.asarray(v, "<f4").tobytes() for v in channels.values())


def test_example_of_a_native_plug_in(tmp_path, plugin_folder):  # noqa: F811
    shutil.copy(EXAMPLES / "tracks.so", plugin_folder)
    whole = tracks({"motor.speed": [1, 2, 3], "motor.load": [4, 5, 6]})
    c = kvalo.Container(path=write(tmp_path / "f.trk", whole))
    assert samples(c.motor["load"]) == ([0, 0.1, 0.2], [4, 5, 6])
    for cut in (0, 3, 19, 50, len(whole) - 1):
        path = write(tmp_path / "cut.trk", whole[:cut])
        refused("not a track file|shorter than its header says", path=path)


def test_example_of_a_python_plug_in(tmp_path):
    lines = '{"t": 0, "engine": {"rpm": 900}, "speed": 0}\n{"t": 0.5, "engine": {"rpm": 950, "temp": 20.5}}\n'
    plugin = str(ROOT / "examples" / "plugins" / "jsonlines.py")
    c = kvalo.Container(path=write(tmp_path / "f.jsonl", lines), plugin=plugin)
    assert samples(c.engine.rpm) == ([0, 0.5], [900, 950])
    with pytest.raises(Exception, match="engine is a group"):
        c.engine.load()
    path = write(tmp_path / "g.jsonl", "{}")
    refused(": ValueError: line 1 of .* cannot be used", path=path, plugin=plugin)


# ---- the end of the process ----


@cases("end", "", "keep = [c]; keep.append(keep)", "sys.keep = c", "sys.exit(0)")
def test_plug_ins_end_with_the_process(tmp_path, end):
    code = f"import sys, kvalo\nc = kvalo.Container(path=sys.argv[1], plugin=sys.argv[2])\n{end}"
    python = python_plugin(tmp_path, "def terminate(path): print('Terminate')")
    for plugin in (str(NASTY), python):
        done = run_script(code, write(tmp_path / "f.x"), plugin, NASTY_PRINTS="1")
        assert (done.returncode, done.stdout.count("Terminate")) == (0, 1), done.stderr
