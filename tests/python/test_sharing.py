"""Who sees a write: everything that shows the same axis, every view of it, and nothing else."""

import gc

import kvalo
import numpy as np
from hypothesis import settings
from hypothesis import strategies as st
from hypothesis.stateful import Bundle, RuleBasedStateMachine, consumes, invariant, rule

SIZE = 5
index = st.integers(0, SIZE - 1)
number = st.integers(-9, 9).map(float)


class Sharing(RuleBasedStateMachine):
    """Arrays and views beside plain lists: Arrays that show one axis have one list."""

    arrays = Bundle("arrays")
    views = Bundle("views")

    def __init__(self):
        super().__init__()
        self.all = []

    def note(self, shown, values):
        self.all.append((shown, values))
        return shown, values

    @rule(target=arrays, values=st.lists(number, min_size=SIZE, max_size=SIZE))
    def create(self, values):
        return self.note(kvalo.Array(values), list(values))

    @rule(target=arrays, array=arrays)
    def copy(self, array):
        return self.note(kvalo.Array(array[0]), array[1])

    @rule(target=arrays, array=arrays, axis=st.sampled_from(["xdata", "ydata"]))
    def take_the_axis_of_a_result(self, array, axis):
        operand = kvalo.TimeSeries("operand")
        operand.xdata = operand.ydata = array[0]
        result = kvalo.derivative(operand) if axis == "xdata" else kvalo.clamp(operand, -1e300, 1e300)
        return self.note(getattr(result, axis), list(array[1]))

    @rule(target=arrays, array=arrays, addend=number)
    def add_in_place(self, array, addend):
        result = array[0].__iadd__(addend)
        array[1][:] = [value + addend for value in array[1]]
        return self.note(result, list(array[1]))

    @rule(array=arrays, other=arrays)
    def add_series_in_place(self, array, other):
        series, addend = kvalo.TimeSeries("a"), kvalo.TimeSeries("b")
        series.xdata, series.ydata = kvalo.Array(SIZE), array[0]
        addend.xdata, addend.ydata = kvalo.Array(SIZE), other[0]
        series += addend
        array[1][:] = [a + b for a, b in zip(array[1], list(other[1]), strict=True)]

    @rule(array=arrays, gain=number)
    def scale(self, array, gain):
        series = kvalo.TimeSeries("a")
        series.xdata = series.ydata = array[0]
        series.aypb(gain, 1.0)
        array[1][:] = [gain * value + 1.0 for value in array[1]]

    @rule(shown=arrays | views, at=index, value=number)
    def write(self, shown, at, value):
        shown[0][at] = value
        shown[1][at] = value

    @rule(target=views, array=arrays)
    def view(self, array):
        return self.note(np.asarray(array[0]), array[1])

    @rule(shown=consumes(arrays) | consumes(views))
    def drop(self, shown):
        self.all = [one for one in self.all if one[0] is not shown[0]]
        gc.collect(0)

    @invariant()
    def everything_shows_what_it_should(self):
        for shown, values in self.all:
            assert [float(value) for value in (shown[i] for i in range(SIZE))] == values


Sharing.TestCase.settings = settings(max_examples=60, stateful_step_count=25)
TestSharing = Sharing.TestCase


def test_a_view_that_was_there_first_does_not_reach_results():
    a = kvalo.TimeSeries([0, 1, 2], [5, 6, 7])
    x, y = np.asarray(a.xdata), np.asarray(a.ydata)
    b = a + 1
    x[0], y[0] = -1.0, -5.0
    assert (a[0], b[0]) == ((-1.0, -5.0), (0.0, 6.0))
