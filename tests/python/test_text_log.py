"""Text flight logs: against a plain reader written here, and against the binary log of the same flight."""

import re

import kvalo
import numpy as np
import pytest
from common import opened, write
from common import samples as loaded
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


def fields(container):
    """Full name -> series of every field."""
    return {
        f"{message}.{name}": field
        for message, series in vars(container).items()
        for name, field in vars(series).items()
        if isinstance(field, kvalo.TimeSeries)
    }


def samples(series):
    try:
        return loaded(series)
    except Exception as error:
        if "empty" not in str(error):
            raise
        return [], []


def test_a_flight_reads_as_its_words_say(flight):
    expected = read_plainly(flight["log"])
    found = fields(kvalo.Container(path=str(flight["log"])))
    assert set(found) == set(expected)
    for name, series in found.items():
        x, y = samples(series)
        assert np.array_equal(x, expected[name][0]), name
        assert np.array_equal(y, expected[name][1], equal_nan=True), name


def test_text_and_binary_log_of_one_flight_agree(flight):
    text, binary = (fields(kvalo.Container(path=str(flight[form]))) for form in ("log", "bin"))
    assert set(text) == set(binary)
    compared = 0
    for name in text:
        if name.split(".")[0] in ("ATT", "RATE", "CTUN", "BARO", "BAT", "GPS"):
            (tx, ty), (bx, by) = samples(text[name]), samples(binary[name])
            assert tx == bx, name
            assert np.allclose(ty, by, rtol=1e-6, atol=0), name
            compared += len(tx)
    assert compared > 100_000


WORDS = st.sampled_from(["1", "-2.5", "3e-7", "nan", "-inf", "", "abc", "0x1F", "12345678901234567890", "+5"])
ROWS = st.lists(
    st.tuples(st.sampled_from(["A", "AB", "B", "FMT", "a"]), st.lists(WORDS, max_size=4)), max_size=30
)


@settings(max_examples=60, suppress_health_check=[HealthCheck.function_scoped_fixture])
@given(rows=ROWS, end=st.sampled_from(["\n", "\r\n"]))
def test_any_lines_read_as_their_words_say(tmp_path, rows, end):
    head = ["FMT, 1, 9, A, QBd, TimeUS,b,d", "FMT, 2, 9, AB, BQ, v,Time", "FMT, 3, 9, B, BIB, v,TimeMS,w"]
    lines = [*head, *(", ".join([message, *words]) for message, words in rows)]
    found = fields(opened(tmp_path / "any.log", end.join([*lines, ""])))
    plain = tmp_path / "plain.log"
    write(plain, "\n".join([*lines, ""]))
    for name, (x, y) in read_plainly(plain).items():
        got = samples(found[name])
        assert np.array_equal(got[0], x, equal_nan=True), name
        assert np.array_equal(got[1], y, equal_nan=True), name


def test_a_log_being_recorded_grows_between_loads(tmp_path):
    path = tmp_path / "growing.log"
    series = opened(path, "FMT, 1, 9, ATT, QB, TimeUS,Roll\nATT, 0, 1\nATT, 1000000, 2\nATT, 20").ATT.Roll
    assert samples(series) == ([0, 1], [1, 2])
    with path.open("a") as file:
        file.write("00000, 3\n")
    assert samples(kvalo.Container(path=str(path)).ATT.Roll) == ([0, 1, 2], [1, 2, 3])


def test_the_head_decides_and_the_group_itself_holds_nothing(tmp_path):
    text = "FMT, 1, 9, ATT, QB, TimeUS,Roll\nATT, 0, 1\nFMT, 2, 9, NEW, QB, TimeUS,a\nNEW, 1, 2\n"
    container = opened(tmp_path / "head.log", text)
    assert set(fields(container)) == {"ATT.Roll"}
    with pytest.raises(Exception, match="'ATT' has no samples of its own"):
        container.ATT.load()
