"""Synthetic signals and arrays."""

import ctypes
import math

import kvalo
import numpy as np
import pytest
from common import cases, xs
from common import ys as values
from conftest import run_script
from hypothesis import given
from hypothesis import strategies as st

TWO_PI = 6.283185307179586
BASE = {"xmin": 2.0, "xmax": 12.0, "xdiff": 0.1}


def stamps(xmin=0.0, xmax=100.0, xdiff=0.01):
    return [i * xdiff + xmin for i in range(int((xmax - xmin) / xdiff) + 1)]


@given(st.floats(-1e6, 1e6), st.floats(1e-3, 1e3), st.floats(1e-3, 1e3))
def test_time_base(xmin, length, steps):
    xmax, xdiff = xmin + length, length / steps
    ts = kvalo.create_const(3, xmin, xmax, xdiff)
    assert xs(ts) == stamps(xmin, xmax, xdiff)
    assert values(ts) == [3.0] * len(ts)


def test_defaults():
    for name in ("const", "step", "sine", "chirp", "random"):
        ts = getattr(kvalo, f"create_{name}")()
        assert xs(ts) == stamps()
        assert ts.get_script().startswith("ts")
    assert values(kvalo.create_const()) == [1.0] * 10001


# ---- signals, to the bit ----


def test_ramp():
    ramp = {"rxmin": 3.05, "rxmax": 7.0, "ymin": -1.0, "ymax": 0.3}
    ts = kvalo.create_ramp(**ramp, **BASE)
    slope = (0.3 - -1.0) / (7.0 - 3.05)
    expected = [-1.0 if t < 3.05 else 0.3 if t > 7.0 else (t - 3.05) * slope + -1.0 for t in stamps(**BASE)]
    assert values(ts) == expected
    text = "rxmin=3.05, rxmax=7, ymin=-1, ymax=0.3, xmin=2, xmax=12, xdiff=0.1"
    assert ts.get_script() == f"kvalo.create_ramp({text})"


def test_step_counts_from_the_first_sample():
    ts = kvalo.create_step(xmin=10.0)
    assert ts[ts.index(1.0)] == (60.0, 1.0)
    assert values(kvalo.create_step(0.5, 5, 3, 0, 1, 0.25)) == [5, 5, 3, 3, 3]


def test_sine():
    ts = kvalo.create_sine(freq=0.7, phase=30.0, amplitude=2.5, **BASE)
    phase = 30.0 * 3.141592653589793 / 180.0
    n = len(stamps(**BASE))
    assert values(ts) == [2.5 * math.sin(0.7 * TWO_PI * i * 0.1 + phase) for i in range(n)]


def test_chirp_adds_up_its_phase():
    t = stamps(**BASE)
    k = (3.0 - 0.5) / len(t)
    phase, expected = 0.0, []
    for x in t:
        phase += k * x + 0.5
        expected.append(math.sin(TWO_PI * phase))
    assert values(kvalo.create_chirp(freq_start=0.5, freq_end=3.0, **BASE)) == expected
    assert set(values(kvalo.create_chirp(freq_start=0, freq_end=0))) == {0.0}


def test_the_number_of_cores_changes_nothing():
    code = """if True:
        import hashlib, kvalo
        base = {"xmin": -3.0, "xmax": 3000.0}
        signals = [kvalo.create_sine(0.3, 10, 2, **base), kvalo.create_chirp(**base), kvalo.create_step(**base),
                   kvalo.create_ramp(0, 2000, 0, 1, xdiff=0.01, **base)]
        print(hashlib.sha256(b"".join(bytes(a) for s in signals for a in (s.xdata, s.ydata))).hexdigest())
    """
    assert run_script(code, KVALO_THREADS="1").stdout == run_script(code, KVALO_THREADS="3").stdout != ""


GOOD_RAMP = {"rxmin": 0, "rxmax": 1, "ymin": 0, "ymax": 1, **BASE}
STEP = "^Time step .xdiff. value must be positive$"
FINAL = "^Final time value must be greater than the initial"
FREQUENCY = "^Frequency value must be positive$"
RAMP = "^Final ramp time value must be greater than the initial time value$"


@cases(
    "name, arguments, error, text",
    ("const", {"xdiff": 0, "xmin": 200}, ValueError, STEP),
    ("sine", {"xdiff": -math.inf}, ValueError, STEP),
    ("step", {"xmin": 100}, ValueError, FINAL),
    ("random", {"xmin": math.inf}, ValueError, FINAL),
    ("chirp", {"freq_start": -1, "xdiff": 0}, ValueError, FREQUENCY),
    ("chirp", {"freq_end": -1e-9}, ValueError, FREQUENCY),
    ("ramp", {**GOOD_RAMP, "rxmax": 0}, ValueError, RAMP),
    ("ramp", {**GOOD_RAMP, "rxmax": math.nan}, ValueError, RAMP),
    ("ramp", {**GOOD_RAMP, "rxmax": 0, "xdiff": 0}, ValueError, STEP),
    ("const", {"xmin": math.nan}, ValueError, "finite"),
    ("const", {"xmax": math.inf}, ValueError, "finite"),
    ("const", {"xdiff": math.nan}, ValueError, "finite"),
    ("const", {"xdiff": math.inf}, ValueError, "finite"),
    ("const", {"xdiff": 1e-300}, MemoryError, "more than this machine has"),
    ("const", {"xdiff": 1e-12}, MemoryError, "would take 1.6e.15 bytes"),
    ("sine", {"xmin": -1.7e308, "xmax": 1.7e308}, MemoryError, "would take"),
    ("random", {"ymax": math.inf}, ValueError, "ymin, ymax.*finite"),
    ("random", {"ymin": -1.7e308, "ymax": 1.7e308}, ValueError, "ymin, ymax.*finite"),
    ("random", {"type": "int", "ymin": 0.2, "ymax": 0.8}, ValueError, "no integer between"),
    ("random", {"type": "int", "ymax": 1e17}, ValueError, "within 2.53"),
    ("random", {"seed": "x"}, TypeError, None),
    ("ramp", {}, TypeError, None),
)
def test_refused_signals(name, arguments, error, text):
    with pytest.raises(error, match=text):
        getattr(kvalo, f"create_{name}")(**arguments)


# ---- random numbers ----


@cases("seed", 0, 1, 5489, 2**32 - 1)
def test_random_numbers_are_those_of_numpy(seed):
    def drawn(**arguments):
        return np.asarray(kvalo.create_random(seed=seed, xmax=20.0, ymin=-3.0, ymax=6.0, **arguments).ydata)

    def peer():
        return np.random.RandomState(seed)

    n = len(drawn())
    assert np.array_equal(drawn(), -3.0 + 9.0 * peer().random_sample(n))
    assert np.array_equal(drawn(dist="any", type="any"), drawn())
    normal = drawn(dist="NORMAL")
    assert np.allclose(normal, peer().normal(1.5, 1.5, n), rtol=1e-13, atol=1e-13)
    assert np.array_equal(drawn(type="Int"), peer().randint(-3, 7, n))
    rounded = np.copysign(np.floor(np.abs(normal) + 0.5), normal)
    assert np.array_equal(drawn(dist="normal", type="int"), rounded)


def test_bounds_of_random_numbers():
    def integers(ymin, ymax):
        return set(values(kvalo.create_random("uniform", "int", 7, ymin, ymax, xmax=10.0)))

    assert integers(-1, 1) == integers(1, -1) == integers(-1.5, 1.9) == {-1, 0, 1}
    assert integers(4, 4) == {4}
    wide = np.random.RandomState(7).randint(-(2**53), 2**53 + 1, 1001)
    assert integers(-(2.0**53), 2.0**53) == set(wide.astype(float))
    reversed_limits = values(kvalo.create_random(ymin=2, ymax=-2, xmax=10.0))
    assert -2 < min(reversed_limits) < -1.5
    assert 1.5 < max(reversed_limits) <= 2


def test_without_a_seed_every_series_differs():
    assert len({tuple(values(kvalo.create_random(xmax=1.0))) for _ in range(5)}) == 5
    assert len({tuple(kvalo.create_array_random(50).to_list()) for _ in range(5)}) == 5


# ---- arrays ----


def test_arrays():
    random = np.asarray(kvalo.create_array_random(20_000))
    assert -1 <= random.min() < -0.999 < 0.999 < random.max() < 1
    assert abs(random.mean()) < 0.03
    assert len(kvalo.create_array_ones(0)) == 0


@cases("name", "zeros", "ones", "random")
def test_refused_arrays(name):
    create = getattr(kvalo, f"create_array_{name}")
    for arguments, error, text in [
        ((3.5,), TypeError, "^Argument must be an integer$"),
        (("3",), TypeError, "^Argument must be an integer$"),
        ((), ValueError, rf"^Function 'create_array_{name}' takes 1 arguments \(0 given\)$"),
        ((1, 2), ValueError, rf"^Function 'create_array_{name}' takes 1 arguments \(2 given\)$"),
        ((-1,), ValueError, "negative"),
        ((-(10**30),), ValueError, "negative"),
        ((10**15,), MemoryError, "would take"),
        ((2**61,), MemoryError, None),
        ((10**30,), MemoryError, None),
    ]:
        with pytest.raises(error, match=text):
            create(*arguments)


# ---- an array around a capsule ----

api = ctypes.pythonapi
api.PyCapsule_New.restype = ctypes.py_object
api.PyCapsule_New.argtypes = [ctypes.c_void_p, ctypes.c_char_p, ctypes.c_void_p]
libc = ctypes.CDLL(None)
libc.malloc.restype = ctypes.c_void_p
libc.free.argtypes = [ctypes.c_void_p]
Destructor = ctypes.CFUNCTYPE(None, ctypes.c_void_p)


def block_of(*numbers):
    block = libc.malloc(8 * max(len(numbers), 1))
    ctypes.memmove(block, (ctypes.c_double * len(numbers))(*numbers), 8 * len(numbers))
    return block


@cases("name", None, b"block")
def test_a_capsule_is_handed_over_once(name):
    freed = []
    destructor = Destructor(freed.append)
    capsule = api.PyCapsule_New(block_of(1, 2, 3), name, ctypes.cast(destructor, ctypes.c_void_p))
    array = kvalo.create_array(capsule, 3)
    assert array.to_list() == [1, 2, 3]
    for _ in range(2):
        with pytest.raises(ValueError, match="belongs to a kvalo.Array already"):
            kvalo.create_array(capsule, 3)
    del capsule
    assert (array.to_list(), freed) == ([1, 2, 3], [])


def test_the_block_goes_with_the_last_array():
    code = """if True:
        import ctypes, kvalo
        from pathlib import Path
        api, libc = ctypes.pythonapi, ctypes.CDLL(None)
        api.PyCapsule_New.restype = ctypes.py_object
        libc.malloc.restype = ctypes.c_void_p
        for _ in range(2000):
            block = ctypes.c_void_p(libc.malloc(8 << 20))
            ctypes.memset(block, 0, 1 << 20)
            kvalo.create_array(api.PyCapsule_New(block, None, None), 1 << 20)
        print(int(Path("/proc/self/statm").read_text().split()[1]) * 4096 < 1 << 30)
    """
    done = run_script(code)
    assert (done.stdout, done.stderr) == ("True\n", "")


def test_refused_capsules():
    block = block_of(4)
    capsule = api.PyCapsule_New(block, None, None)
    for arguments, error, text in [
        ((capsule,), ValueError, r"^Function 'create_array' takes 2 arguments \(1 given\)$"),
        ((block, 1), TypeError, "capsule"),
        ((capsule, 1.0), TypeError, "integer"),
        ((capsule, -1), ValueError, "negative"),
        ((capsule, 2**61), MemoryError, None),
        ((api.PyCapsule_New(block + 1, None, None), 1), ValueError, "not aligned"),
    ]:
        with pytest.raises(error, match=text):
            kvalo.create_array(*arguments)
    assert kvalo.create_array(capsule, 1).to_list() == [4]  # a refusal leaves the capsule as it was
