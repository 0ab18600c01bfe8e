"""Text flight logs: against a plain reader written here, and against the binary log of the same flight."""

import re

import kvalo
import numpy as np
import pytest
import sample_flight
from hypothesis import HealthCheck, given, settings
from hypothesis import strategies as st

OFFERED = set("bBhHiIfdnNZcCeEMqQ")
SCALES = {"TimeMS": 0.001, "TimeUS": 0.000001}


NUMBER = re.compile(r"-?(?:(?:\d+\.?\d*|\.\d+)(?:e[-+]?\d+)?|inf|nan)", re.IGNORECASE)


def number(word):
    """The number at the start of the word; what follows it does not matter."""
    found = NUMBER.match(word)
    return float(found[0]) if found else float("nan")


def read_plainly(path):
    """Full name -> (x, y) of everything that a well-formed log offers."""
    lines = path.read_text(encoding="utf-8").split("\n")
    messages, variables = {}, {}
    for line in lines:
        if "FMT, " not in line:
            break
        words = line.split(" ")
        if len(words) >= 6:
            messages[words[3][:-1]] = words[4], words[5].split(",")
    for name, (letters, labels) in messages.items():
        times = [k for k, label in enumerate(labels) if "Time" in label]
        if not times:
            continue
        rows = [line.split(" ") for line in lines if line.startswith(name) and not line.startswith("FMT, ")]
        scale = SCALES.get(labels[times[0]], 1.0)
        for k, label in enumerate(labels):
            if k == times[0] or letters[k] not in OFFERED:
                continue
            kept = [row for row in rows if len(row) > max(k, times[0]) + 1]
            x = [number(row[times[0] + 1]) * scale for row in kept]
            variables[f"{name}.{label}"] = x, [number(row[k + 1]) for row in kept]
    return variables


def groups(container):
    """Message name -> field name -> series."""
    found = {}
    for name, series in vars(container).items():
        members = {k: v for k, v in vars(series).items() if isinstance(v, kvalo.TimeSeries)}
        if members:
            found[name] = members
    return found


def samples(series):
    try:
        series.load()
    except Exception as error:
        if "empty" not in str(error):
            raise
        return [], []
    return np.asarray(series.xdata), np.asarray(series.ydata)


@pytest.fixture(scope="module")
def flight(tmp_path_factory):
    return sample_flight.write_flight(tmp_path_factory.mktemp("flight"), minutes=5, forms=("bin", "log"))


def test_a_flight_reads_as_its_words_say(flight):
    expected = read_plainly(flight["log"])
    found = {
        f"{group}.{field}": series
        for group, members in groups(kvalo.Container(path=str(flight["log"]))).items()
        for field, series in members.items()
    }
    assert set(found) == set(expected)
    for name, series in found.items():
        x, y = samples(series)
        assert np.array_equal(x, expected[name][0]), name
        assert np.array_equal(y, expected[name][1], equal_nan=True), name


def test_text_and_binary_log_of_one_flight_agree(flight):
    text, binary = (groups(kvalo.Container(path=str(flight[form]))) for form in ("log", "bin"))
    assert {k: set(v) for k, v in text.items()} == {k: set(v) for k, v in binary.items()}
    compared = 0
    for name in ("ATT", "RATE", "CTUN", "BARO", "BAT", "GPS"):
        for field in text[name]:
            (tx, ty), (bx, by) = samples(text[name][field]), samples(binary[name][field])
            assert np.array_equal(tx, bx), (name, field)
            assert np.allclose(ty, by, rtol=1e-6, atol=0), (name, field)
            compared += len(tx)
    assert compared > 100_000


WORDS = st.sampled_from(["1", "-2.5", "3e-7", "nan", "-inf", "", "abc", "0x1F", "12345678901234567890", "+5"])
ROWS = st.lists(
    st.tuples(st.sampled_from(["A", "AB", "B", "FMT", "a"]), st.lists(WORDS, max_size=4)), max_size=30
)


@settings(max_examples=60, deadline=None, suppress_health_check=[HealthCheck.function_scoped_fixture])
@given(rows=ROWS, end=st.sampled_from(["\n", "\r\n"]))
def test_any_lines_read_as_their_words_say(tmp_path, rows, end):
    path = tmp_path / "any.log"
    head = ["FMT, 1, 9, A, QBd, TimeUS,b,d", "FMT, 2, 9, AB, BQ, v,Time", "FMT, 3, 9, B, BIB, v,TimeMS,w"]
    path.write_bytes("".join(line + end for line in [*head, *(", ".join([m, *w]) for m, w in rows)]).encode())
    plain = tmp_path / "plain.log"
    plain.write_bytes(path.read_bytes().replace(b"\r", b""))
    container = groups(kvalo.Container(path=str(path)))
    for name, (x, y) in read_plainly(plain).items():
        got = samples(container[name.split(".")[0]][name.split(".")[1]])
        assert np.array_equal(got[0], x, equal_nan=True), name
        assert np.array_equal(got[1], y, equal_nan=True), name


def test_a_log_being_recorded_grows_between_loads(tmp_path):
    path = tmp_path / "growing.log"
    path.write_text("FMT, 1, 9, ATT, QB, TimeUS,Roll\nATT, 0, 1\nATT, 1000000, 2\nATT, 20")
    series = kvalo.Container(path=str(path)).ATT.Roll
    assert samples(series)[1].tolist() == [1, 2]
    with path.open("a") as file:
        file.write("00000, 3\n")
    series = kvalo.Container(path=str(path)).ATT.Roll
    assert samples(series)[0].tolist() == [0, 1, 2]
    assert samples(series)[1].tolist() == [1, 2, 3]


def test_the_head_decides_and_the_group_itself_holds_nothing(tmp_path):
    path = tmp_path / "head.log"
    path.write_text("FMT, 1, 9, ATT, QB, TimeUS,Roll\nATT, 0, 1\nFMT, 2, 9, NEW, QB, TimeUS,a\nNEW, 1, 2\n")
    container = kvalo.Container(path=str(path))
    assert set(groups(container)) == {"ATT"}
    with pytest.raises(Exception, match="'ATT' has no samples of its own"):
        container.ATT.load()
