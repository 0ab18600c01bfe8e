"""What must hold whatever happens: the memory budget, no leaks, hostile files, several threads."""

import os
import random

import kvalo
import numpy as np
import pytest
from common import SANITIZED, cases, in_threads, opened, samples, write
from conftest import run_script
from hypothesis import HealthCheck, given, settings
from hypothesis import strategies as st

BUDGET = """
import random, sys, gc, kvalo
import numpy as np
rows, columns = 20_000, 30
c = kvalo.Container(path=sys.argv[1])
expected = lambda k: np.arange(rows) * (k + 1.0)
names = [f"v{k}" for k in range(columns)]
rng = random.Random(7)
held = {}
for _ in range(6):
    rng.shuffle(names)
    for name in names:
        s = c[name]
        s.load()
        assert np.array_equal(np.asarray(s.ydata), expected(int(name[1:]))), name
        assert np.array_equal(np.asarray(s.xdata), np.arange(rows)), name
# What a script holds or has changed is never taken away.
array = c.v0.ydata if c.v0.ydata is not None else (c.v0.load(), c.v0.ydata)[1]
c.v1.load(); c.v1[5] = -1.0
c.v2.load(); view = np.asarray(c.v2.ydata); view[7] = -2.0; del view
c.v3.load(); c.v3.ydata[3] = -3.0
for _ in range(2):
    for name in names: c[name].load()
assert array[10] == 10.0
assert c.v1[5][1] == -1.0 and c.v2[7][1] == -2.0 and c.v3[3][1] == -3.0
unloaded = sum(repr(c[name]) == "kvalo.TimeSeries hasn't been loaded yet" for name in names)
print(unloaded)
"""


def test_more_than_the_budget_loads_in_any_order(tmp_path):
    rows, columns = 20_000, 30
    table = np.outer(np.arange(rows), np.arange(1, columns + 1))
    lines = [",".join(["t", *(f"v{k}" for k in range(columns))])]
    lines += [",".join(map(str, [i, *row])) for i, row in enumerate(table.tolist())]
    path = write(tmp_path / "big.csv", "\n".join(lines) + "\n")
    # Room for about six of the thirty series.
    done = run_script(BUDGET, path, KVALO_MEMORY_BANK="2000000")
    assert done.returncode == 0, done.stderr
    assert int(done.stdout) > columns // 2


OLDEST_FIRST = """
import sys, kvalo
c = kvalo.Container(path=sys.argv[1])
order = ("v2", "v0", "v3", "v1", "v4")
for name in order:
    c[name].load()
print(*(name for name in order if "elements" in repr(c[name])))
"""


def test_room_is_made_by_what_was_loaded_longest_ago(tmp_path):
    rows, columns = 20_000, 5
    lines = [",".join(["t", *(f"v{k}" for k in range(columns))])]
    lines += [",".join(map(str, [i, *range(i, i + columns)])) for i in range(rows)]
    path = write(tmp_path / "big.csv", "\n".join(lines) + "\n")
    done = run_script(OLDEST_FIRST, path, KVALO_MEMORY_BANK=str(rows * 8 * 5 + rows * 4), KVALO_THREADS="1")
    assert done.returncode == 0, done.stderr
    held = done.stdout.split()
    assert 2 <= len(held) < columns
    assert held == ["v2", "v0", "v3", "v1", "v4"][-len(held) :]


def test_exporting_more_than_the_budget_is_right(tmp_path, flight):
    code = "import sys, kvalo; c = kvalo.Container(path=sys.argv[1])\n"
    code += 'kvalo.export_to_file(sys.argv[2], ",", 1.0, 0.0, 200.0, c)'
    texts = set()
    for environment in ({"KVALO_MEMORY_BANK": "1000"}, {}):
        out = tmp_path / f"{len(texts)}.csv"
        done = run_script(code, str(flight["csv"]), str(out), **environment)
        assert done.returncode == 0, done.stderr
        texts.add(out.read_text())
    assert len(texts) == 1


LEAK = """
import gc, kvalo, sys
def resident():
    gc.collect()
    return int(open("/proc/self/statm").read().split()[1]) * 4096
def round():
    c = kvalo.Container(path=sys.argv[1])
    s = c.a
    s.load()
    kvalo.integral(s)
    kvalo.TimeSeries([1, 2], [3, 4]).get_ts()
    try: kvalo.Container(path=sys.argv[1] + "x")
    except Exception: pass
    try: s[10**6]
    except IndexError: pass
    memoryview(s.ydata)
for _ in range(500): round()
before = resident()
for _ in range(10_000): round()
print((resident() - before) / 1e6)
"""


@pytest.mark.skipif(SANITIZED, reason="sanitizers keep freed memory in quarantine")
def test_ten_thousand_rounds_do_not_grow(tmp_path):
    path = write(tmp_path / "f.csv", "t,a,b\n" + "".join(f"{i},{i},{i}\n" for i in range(200)))
    done = run_script(LEAK, path)
    assert done.returncode == 0, done.stderr
    assert float(done.stdout) < 8


def try_to_load(path):
    """Opens a file and loads what it offers, as a script would; any Exception is fine, and answered."""
    try:
        c = kvalo.Container(path=path)
        series = [s for s in vars(c).values() if isinstance(s, kvalo.TimeSeries)]
        for s in series[:20]:
            for one in [s, *(child for child in vars(s).values() if isinstance(child, kvalo.TimeSeries))]:
                try:
                    one.load()
                except Exception:
                    continue
                assert len(one.xdata) == len(one.ydata)
        return c
    except Exception as error:
        return error


@settings(max_examples=60, suppress_health_check=[HealthCheck.function_scoped_fixture])
@given(
    content=st.binary(max_size=3000), extension=st.sampled_from([".csv", ".bin", ".wav", ".zip", ".mat", ""])
)
def test_binary_rubbish(tmp_path, content, extension):
    try_to_load(write(tmp_path / ("rubbish" + extension), content))


MANY = b"".join(b",c%d" % i for i in range(10**6)), b",1" * 10**6
ODD = {
    "empty": b"",
    "blank": b"\n\n\n\n",
    "header": b"t,a\n",
    "titles": b"t,a\nt,a\nt,a\n",
    "nul": b"t,a\0,b\n0,1\0,2\n1,2,3\n2,3,4\n",
    "nul line": b"t,a\n0,1\n\0\n1,2\n2,3\n",
    "10 MB rows": b"t," + b"x" * 10_000_000 + b"\n0,1\n1,2\n2," + b"9" * 10_000_000 + b"\n",
    "1e6 columns": b"t" + MANY[0] + b"\n" + (b"0" + MANY[1] + b"\n") * 3,
    "latin": "t,Größe\n0,1\n1,2\n2,3\n".encode("latin-1"),
    "utf16": "t,a\n0,1\n1,2\n2,3\n".encode("utf-16"),
    "bom": b"\xef\xbb\xbft,a\r\n0,1\r\n1,2\r\n2,3\r\n",
}


@cases("name", *ODD)
def test_odd_text_files(tmp_path, name):
    result = try_to_load(write(tmp_path / "odd.csv", ODD[name]))
    if isinstance(result, kvalo.Container):
        for name, s in list(vars(result).items())[:5]:
            assert name.isidentifier()
            assert result[s.get_main_name()] is not None


# Reads damaged copies of files: cut, or with some bytes changed, most of them where the rest is described.
DAMAGE = """
import random, sys, kvalo
rng, copy = random.Random(int(sys.argv[1])), sys.argv[2]
def read(holder):
    for series in [s for s in vars(holder).values() if isinstance(s, kvalo.TimeSeries)]:
        try:
            series.load()
            assert len(series.xdata) == len(series.ydata)
        except (SystemError, MemoryError, AssertionError):
            raise
        except Exception:
            pass
        read(series)
made = 0
for name in sys.argv[3:]:
    content = open(name, "rb").read()[:300_000]
    for i in range(40):
        damaged = bytearray(content[: rng.randrange(1, len(content))] if i % 4 == 0 else content)
        reach = rng.choice([200, 400, len(damaged)])
        for _ in range(rng.randrange(1, 6)):
            at = rng.randrange(min(reach, len(damaged)))
            damaged[-1 - at if reach == 400 else at] = rng.choice([0, 255, 127, rng.randrange(256)])
        with open(copy, "wb") as file:
            file.write(damaged)
        try:
            c = kvalo.Container(path=copy)
        except (SystemError, MemoryError):
            raise
        except Exception:
            continue
        made += 1
        read(c)
assert made > 10, made
"""


@cases("kind", ".bin", ".h5", ".mat", ".parquet", ".wav")
def test_damaged_copies_do_no_harm(tmp_path, data_folder, flight, kind):
    """In a process of its own: a crash there is a failure here."""
    files = [str(flight["bin"])] if kind == ".bin" else map(str, sorted(data_folder.rglob(f"*{kind}")))
    seed = str(random.randrange(1 << 30) if "KVALO_RANDOM" in os.environ else 5)
    done = run_script(DAMAGE, seed, str(tmp_path / f"copy{kind}"), *files, KVALO_HOME=str(tmp_path))
    assert done.returncode == 0, (seed, done.stderr[-2000:])


def test_a_file_that_vanishes_or_shrinks_after_opening(tmp_path):
    path = tmp_path / "f.csv"
    c = opened(path, "t,a,b\n" + "".join(f"{i},{i},{i}\n" for i in range(100_000)))
    c.a.load()
    write(path, "t,a,b\n0,1,2\n1,2,3\n2,3,4\n")
    assert samples(c.b)[1] == [2.0, 3.0, 4.0]
    again = kvalo.Container(path=str(path))
    path.unlink()
    with pytest.raises(Exception, match=str(path)):
        again.a.load()
    assert len(c.a) == 100_000


def test_threads_load_and_drop_at_once(flight):
    c = kvalo.Container(path=str(flight["csv"]))
    names = [s.get_main_name() for s in vars(c).values()]
    sums = {name: float(np.nansum(samples(c[name])[1])) for name in names}

    def work(seed):
        rng = random.Random(seed)
        for _ in range(15):
            mine = kvalo.Container(path=str(flight["csv"]))
            for name in rng.sample(names, 4):
                s = rng.choice([c, mine])[name]
                s.load()
                assert float(np.nansum(np.asarray(s.ydata))) == sums[name]
                kvalo.integral(s)

    in_threads(work, *range(4))


number = st.one_of(
    st.floats(allow_nan=False, allow_infinity=True),
    st.integers(-(10**18), 10**18).map(float),
    st.sampled_from([0.0, -0.0, 1e-320, 2.5, 1e22]),
)


@settings(max_examples=80, suppress_health_check=[HealthCheck.function_scoped_fixture])
@given(
    rows=st.lists(st.tuples(number, st.one_of(st.none(), number), number), min_size=4, max_size=60),
    delimiter=st.sampled_from("\t,;|"),
    ending=st.sampled_from(["\n", "\r\n"]),
)
def test_numbers_come_back_bit_for_bit(tmp_path, rows, delimiter, ending):
    lines = [delimiter.join(("t", "a", "b", "c"))]
    for i, row in enumerate(rows):
        lines.append(delimiter.join([str(i), *("" if v is None else repr(v) for v in row)]))
    c = opened(tmp_path / "numbers.csv", ending.join(lines) + ending)
    for k, name in enumerate("abc"):
        kept = [(float(i), row[k]) for i, row in enumerate(rows) if row[k] is not None]
        first = rows[0][k]
        if not kept or (first is not None and "inf" in repr(first)):
            continue  # nothing there, or a column of text by its first value
        x, y = samples(c[name])
        if len(kept) > 1:
            assert x == [t for t, _ in kept]
        assert np.array(y).tobytes() == np.array([v for _, v in kept]).tobytes()
