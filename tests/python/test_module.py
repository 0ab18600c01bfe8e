"""The module itself: its table, its types, its life in a process, and the channel to a host."""

import ctypes
import functools
from pathlib import Path

import kvalo
import pytest
from common import cases, opened, series, write
from conftest import run_script
from host import name_hash


def test_types_are_published_in_order():
    types = [name for name, value in vars(kvalo).items() if isinstance(value, type)]
    assert types == ["Array", "Container", "Mesh", "Model", "Result", "TimeSeries"]
    assert kvalo.TimeSeries.__basicsize__ == 9 * 8


def test_all_functions_are_there_and_work(host):
    functions = {name: f for name, f in vars(kvalo).items() if callable(f) and not isinstance(f, type)}
    assert len(functions) == 98
    assert list(functions)[:4] == ["callback", "exit", "selfie", "export_to_file"]
    assert list(functions)[-1] == "del_page"
    unavailable = []
    for name, function in functions.items():
        try:
            function()
        except NotImplementedError:
            unavailable.append(name)
        except Exception:
            pass  # it wants arguments
    assert unavailable == ["scatterplot"]


def test_a_second_import_sees_the_same_registry():
    code = """
import sys, kvalo
s = kvalo.TimeSeries("kept")
first = sys.modules.pop("kvalo")
import kvalo
assert kvalo is not first
assert kvalo.find("kept") is s
"""
    done = run_script(code)
    assert done.returncode == 0, done.stderr


TEXTS = "t,a\n0,x\n1,y\n2,x\n"
LOAD = "import kvalo, sys, gc, os\nc = kvalo.Container(path=sys.argv[1])\nc.a.load()\n"


def test_errors_are_logged_as_they_are_raised(tmp_path):
    code = "import kvalo\ntry: kvalo.Array(0)\nexcept ValueError: pass"
    assert run_script(code, KVALO_HOME=str(tmp_path), KVALO_LOG_LEVEL="0").returncode == 0
    lines = (tmp_path / "kvalo.log").read_text().splitlines()
    assert [line.split(" ", 1)[1] for line in lines] == ["3 Argument must be a positive integer"]


def test_loading_is_traced(tmp_path):
    done = run_script(LOAD, write(tmp_path / "f.csv", TEXTS), KVALO_HOME=str(tmp_path), KVALO_LOG_LEVEL="0")
    assert done.returncode == 0
    entries = [line.split(" ", 1)[1] for line in (tmp_path / "kvalo.log").read_text().splitlines()]
    traces = [entry for entry in entries if entry.endswith("[enter]")]
    functions = "create_container_from_file create_reader_from_file insert_reader build_family tp_init_post"
    assert traces[:5] == [f"0 {name} [enter]" for name in functions.split()]
    assert "0 load [enter]" in entries
    assert any(entry.startswith("0 load 'a' took ") for entry in entries)


def test_a_process_ends_quietly_with_everything_loaded(tmp_path):
    path = write(tmp_path / "f.csv", TEXTS)
    for ending in ("", "os.fork() and os.wait()", "del sys.modules['kvalo'], kvalo, c; gc.collect()"):
        done = run_script(LOAD + ending, path)
        assert (done.returncode, done.stdout, done.stderr) == (0, "", "")


def test_unwritable_homes_do_not_stop_the_work(tmp_path):
    code = LOAD + "print(c.a[1][1], c.a.tag(1))"
    done = run_script(code, write(tmp_path / "f.csv", TEXTS), KVALO_HOME="/dev/null/home")
    assert done.stdout == "1.0 y\n", done.stderr


# ---- an active real-time connection ----


@pytest.fixture
def online(tmp_path):
    """The process as if a real-time connection were active; a Container of a file that is loaded already."""
    c = opened(tmp_path / "f.csv")
    c.a.load()
    mapped = Path("/proc/self/maps").read_text().split()
    runtime = ctypes.CDLL(next(name for name in mapped if name.endswith("/libmirn3.so")))
    runtime._ZN5mirn33rtd10set_onlineEv()
    yield c
    runtime._ZN5mirn33rtd11set_offlineEv()


def test_what_computes_refuses_while_a_connection_is_active(online):
    ts = series([1])
    calls = [(name, getattr(ts, name)) for name in ("avg", "max", "min", "sum", "sort", "inspect", "get_fs")]
    for name in ("time_bt", "index", "pattern", "slice", "axpb", "aypb"):
        calls.append((name, functools.partial(getattr(ts, name), 1, 2)))
    for name in ("time_eq", "time_gt", "time_lt", "time_ne"):
        calls.append(("time_impl", functools.partial(getattr(ts, name), 1)))
    calls += [
        ("tag", lambda: online.a.tag(1)),
        ("axpb", lambda: online.axpb(1, 0)),
        ("aypb", lambda: online.aypb(1, 0)),
        ("merge", lambda: kvalo.merge("x.csv")),
        ("merge", lambda: online.merge("x.csv")),
        ("export_to_file", lambda: kvalo.export_to_file("x.csv", ",", 1, 0, 1, online)),
        ("builtin_generic", lambda: kvalo.derivative(online.a)),
        ("convert", lambda: kvalo.convert(ts, "?", "?")),
        ("insight", lambda: kvalo.insight(1, 2)),
    ]
    for name, call in calls:
        text = f"^Function '{name}' cannot be used while there's an active real-time data connection$"
        with pytest.raises(RuntimeError, match=text):
            call()
    assert kvalo.find("^a$") is online.a
    assert online.a.get_ts() == 1.0


def test_dropping_any_container_ends_the_connection(online, tmp_path):
    other = kvalo.Container(path=online.get_path()[0])
    del other
    assert len(kvalo.diff(online.a)) == 3


# ---- the host ----


def test_exit_is_a_message(host):
    assert kvalo.exit() is None
    (message,) = host
    assert (message.message_id, message.text) == (name_hash("app_exit"), bytes(512))
    assert host.library.recorder_holders(0) == 1


def test_selfie_carries_a_path(host):
    assert kvalo.selfie(path="é.png") is None
    assert (host[0].message_id, host[0].key) == (name_hash("app_selfie"), name_hash("path"))
    assert host[0].text == "é.png".encode().ljust(1024, b"\0")
    kvalo.selfie("a" * 1023)
    with pytest.raises(ValueError, match="shorter than 1024 bytes"):
        kvalo.selfie("a" * 1024)
    assert len(host) == 2
    with pytest.raises(TypeError):
        kvalo.selfie(3)


def test_a_failed_load_is_reported_to_the_host(host):
    with pytest.raises(Exception, match="not found"):
        kvalo.Container(path="nowhere.csv")
    assert host[0].message_id == name_hash("app_error")
    assert host[0].text.rstrip(b"\0") == b"File is not compatible!"


@cases("call", "exit()", "selfie('x')")
def test_requests_without_a_host_end_the_process(call):
    done = run_script(f"import kvalo\nprint('before')\nkvalo.{call}\nprint('after')", KVALO_HOST="none")
    assert done.returncode != 0
    assert done.stdout == "before\n"
    assert "kvalo_view" in done.stderr
    assert f"app_{call.split('(')[0]}" in done.stderr
    assert len(done.stderr.splitlines()) == 1


SHELL = """
import sys, types
ipython = sys.modules["IPython"] = types.ModuleType("IPython")
ipython.get_ipython = lambda: object()
import kvalo
try:
    kvalo.selfie("x.png")
except RuntimeError as error:
    print(error)
"""


def test_in_a_notebook_a_missing_host_is_an_exception():
    done = run_script(SHELL, KVALO_HOST="none")
    assert (done.returncode, done.stderr) == (0, "")
    assert done.stdout == (
        "there is no host to handle 'app_selfie'. Import kvalo_view first, or run the script under kvalo-host.\n"
    )


@cases(
    "package, ends",
    ("raise ImportError('the charts are broken')", "the charts are broken"),
    ("import not_there_either", "not_there_either"),
    ("", "there is no host to handle 'app_exit'"),
)
def test_a_host_that_cannot_be_imported_says_so(tmp_path, package, ends):
    (tmp_path / "kvalo_view.py").write_text(package)
    done = run_script(
        "import sys\nsys.path.insert(0, sys.argv[1])\nimport kvalo\nkvalo.exit()", str(tmp_path)
    )
    assert done.returncode != 0
    assert ends in done.stderr.splitlines()[-1]


def test_a_report_does_not_look_for_a_host():
    code = """
import sys, kvalo
try: kvalo.Container(path="nowhere.csv")
except Exception: print("kvalo_view" in sys.modules)
kvalo.plot(obj=kvalo.TimeSeries([0.0], [1.0]))
print("kvalo_view" in sys.modules)
"""
    done = run_script(code)
    assert (done.returncode, done.stdout) == (0, "False\nTrue\n"), done.stderr


def test_settings_of_the_host_s_window_are_messages(host):
    sent = [
        ("Window", "X", 12, "win.x", 12.0),
        ("window", "height", 7.5, "win.height", 7.5),
        ("theme", "file", "DARK", "theme.file", 0),
        ("THEME", "live", 3, "theme.live", 1),
    ]
    for group, key, value, *_ in sent:
        assert kvalo.set_config(value, key, group=group) is None
        assert kvalo.get_config(key, group) is None
    for message, (*_, parameter, value) in zip(host, sent, strict=True):
        assert (message.message_id, message.key) == (name_hash("app_info"), name_hash(parameter))
        assert message.values == (value, None)
        assert type(message.values[0]) is type(value)
    with pytest.raises(TypeError):
        kvalo.set_config("wide", "width", "window")
    assert len(host) == len(sent)


@cases("value", "", "naïve", True, False, 0, -(2**31), 2**31, -(2**63), 1.5, float("inf"))
def test_settings_come_back_as_they_were_stored(value):
    kvalo.set_config(value, "Some Key", "Tests")
    stored = kvalo.get_config(key="some key", group="TESTS")
    assert stored == value
    assert type(stored) is type(value)
    assert kvalo.get_config("some key") is None  # the group "general" has none
    for wrong, error in ((None, TypeError), ([1], TypeError), (2**63, OverflowError)):
        with pytest.raises(error):
            kvalo.set_config(wrong, "some key", "tests")
    assert kvalo.get_config("some key", "tests") == value


def test_settings_outlive_the_process(tmp_path):
    home = {"KVALO_HOME": str(tmp_path)}
    assert run_script("import kvalo; kvalo.set_config(42, 'answer')", **home).returncode == 0
    assert run_script("import kvalo; print(kvalo.get_config('Answer'))", **home).stdout == "42\n"
