"""kvalo.insight: what is printed, what is passed over, what is refused."""

import kvalo
import pytest
from common import cases, opened, series, xs, ys
from plugin_tools import log_text

EVENTS = (9, 29, 49)


@pytest.fixture
def pool(tmp_path):
    """`event` rises at EVENTS; the others step before it, or do not."""
    columns = {
        "rises": lambda i: 1.5 if i % 20 in (6, 7) else 0.25,  # five seconds before, and back after two more
        "event": lambda i: 1 if i in EVENTS else 0,
        "falls": lambda i: 5 if i % 20 < 8 else 3,
        "constant": lambda i: 7,
        "once": lambda i: 9 if i == 8 else 0,
    }
    lines = [",".join(["t", *columns])]
    lines += [",".join(str(v) for v in (i, *(signal(i) for signal in columns.values()))) for i in range(60)]
    return opened(tmp_path / "flight.csv", "\n".join([*lines, ""]))


FINDINGS = [
    "rises, 2 seconds before every occurrence, decreased to below 1.5.",
    "rises, 4 seconds before every occurrence, increased to above 0.25.",
    "falls, 2 seconds before every occurrence, decreased to below 5.",
]


def test_findings_in_order(pool, capfd):
    assert kvalo.insight(pool.event, pool) is None
    assert capfd.readouterr().out.splitlines() == FINDINGS
    kvalo.insight(event=pool.event, pool=pool, window=3)
    assert capfd.readouterr().out.splitlines() == [FINDINGS[0], FINDINGS[2]]
    kvalo.insight(pool.event, pool, 1)
    assert capfd.readouterr().out == ""
    assert f" 2 {FINDINGS[2]}\n" in log_text()


def test_the_event_is_known_by_its_record(pool, capfd):
    """Copies and by-id objects of the event are the event; a series with equal samples is not."""
    pool.event.load()
    equal = series(ys(pool.event), xs(pool.event))
    for same in (kvalo.TimeSeries(pool.event), kvalo.TimeSeries(pool.event.id64, 0.0, 99.0)):
        kvalo.insight(same, pool)
        assert capfd.readouterr().out.splitlines() == FINDINGS
    kvalo.insight(equal, pool)
    told = capfd.readouterr().out.splitlines()
    assert "event, 1 seconds before every occurrence, increased to above 0." in told
    assert [line for line in told if not line.startswith("event")] == FINDINGS


def test_what_cannot_be_loaded_is_passed_over_in_silence(pool, capfd):
    pool.rises.flags = 0
    pool.falls.xdata = [1, 2, 3]
    pool.falls.ydata = kvalo.Array([1])
    del pool.once
    kvalo.insight(pool.event, pool)
    assert capfd.readouterr().out == ""


@cases(
    "arguments, error, text",
    (lambda pool: (1, 2), TypeError, "^'Event' must be a kvalo.TimeSeries object$"),
    (lambda pool: (pool, pool), TypeError, "^'Event' must be a kvalo.TimeSeries object$"),
    (lambda pool: (pool.event, pool.event), TypeError, "^'Pool' must be a kvalo.Container object$"),
    (lambda pool: (pool.once, pool), Exception, "^There must be at least two rising edge moments in the"),
    (lambda pool: (pool.constant, pool), Exception, "two rising edge moments"),
    (lambda pool: (kvalo.TimeSeries(), pool), Exception, "is empty"),
    (lambda pool: (pool.event,), TypeError, None),
)
def test_refusals(pool, arguments, error, text):
    with pytest.raises(error, match=text) as raised:
        kvalo.insight(*arguments(pool))
    assert raised.type is error
