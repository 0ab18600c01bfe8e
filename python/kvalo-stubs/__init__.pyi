"""Types of the kvalo module: 98 functions and six types.

docs/getting-started.md shows how they work together. Functions that are not available yet raise
NotImplementedError; the README lists them.
"""

import builtins
import math
from collections.abc import Iterator
from typing import Any, NoReturn, TypeVar, overload

_Values = TypeVar("_Values", Array, TimeSeries)

class Array:
    """A vector of doubles. Offers the buffer protocol: memoryview(a) and numpy.asarray(a) copy nothing."""

    def __init__(self, source: builtins.list[float] | int | Array = ..., unused: Any = ..., /) -> None: ...
    def __len__(self) -> int: ...
    def __getitem__(self, index: int, /) -> float: ...
    def __setitem__(self, index: int, value: float, /) -> None: ...
    def __iter__(self) -> Iterator[float]: ...
    def __buffer__(self, flags: int, /) -> memoryview: ...
    def clone(self) -> Array:
        """Clone kvalo.Array and its content."""
    def to_list(self) -> builtins.list[float]:
        """Convert kvalo.Array to standard Python list."""
    def avg(self) -> float:
        """Return kvalo.Array's average value."""
    def sum(self) -> float:
        """Return kvalo.Array's values sum."""
    def count_bt(self, lo: float, hi: float, /) -> int:
        """Return number of elements that are between the specified limits."""
    def count_eq(self, value: float, /) -> int:
        """Return number of elements that are equal to the argument."""
    def count_gt(self, value: float, /) -> int:
        """Return number of elements that are greater than the argument."""
    def count_lt(self, value: float, /) -> int:
        """Return number of elements that are less than the argument."""
    def count_ne(self, value: float, /) -> int:
        """Return number of elements that are not equal to the argument."""
    def logical_and(self, other: Array | float, /) -> Array:
        """Return new kvalo.Array with 0's and 1's, result from logical and operation."""
    def logical_or(self, other: Array | float, /) -> Array:
        """Return new kvalo.Array with 0's and 1's, result from logical or operation."""
    def logical_not(self) -> Array:
        """Return new kvalo.Array with 0's and 1's, result from logical not operation."""
    def logical_xor(self, other: Array | float, /) -> Array:
        """Return new kvalo.Array with 0's and 1's, result from logical xor operation."""
    def __round__(self, ndigits: int = 0, /) -> Array:
        """Return kvalo.Array rounded to ndigits precision after the decimal point."""
    # Comparisons and logical operators give signals of 0.0 and 1.0.
    def __add__(self, other: Array | float, /) -> Array: ...
    def __radd__(self, other: float, /) -> Array: ...
    def __iadd__(self, other: Array | float, /) -> Array: ...
    def __sub__(self, other: Array | float, /) -> Array: ...
    def __rsub__(self, other: float, /) -> Array: ...
    def __isub__(self, other: Array | float, /) -> Array: ...
    def __mul__(self, other: Array | float, /) -> Array: ...
    def __rmul__(self, other: float, /) -> Array: ...
    def __imul__(self, other: Array | float, /) -> Array: ...
    def __mod__(self, other: Array | float, /) -> Array: ...
    def __rmod__(self, other: float, /) -> Array: ...
    def __imod__(self, other: Array | float, /) -> Array: ...
    def __truediv__(self, other: Array | float, /) -> Array: ...
    def __rtruediv__(self, other: float, /) -> Array: ...
    def __itruediv__(self, other: Array | float, /) -> Array: ...
    def __and__(self, other: Array | float, /) -> Array: ...
    def __rand__(self, other: float, /) -> Array: ...
    def __iand__(self, other: Array | float, /) -> Array: ...
    def __or__(self, other: Array | float, /) -> Array: ...
    def __ror__(self, other: float, /) -> Array: ...
    def __ior__(self, other: Array | float, /) -> Array: ...
    def __xor__(self, other: Array | float, /) -> Array: ...
    def __rxor__(self, other: float, /) -> Array: ...
    def __ixor__(self, other: Array | float, /) -> Array: ...
    def __pow__(self, other: Array | float, /) -> Array: ...
    def __rpow__(self, other: float, /) -> Array: ...
    def __ipow__(self, other: Array | float, /) -> Array: ...
    def __neg__(self) -> Array: ...
    def __abs__(self) -> Array: ...
    def __invert__(self) -> Array: ...
    def __lt__(self, other: Array | float, /) -> Array: ...
    def __le__(self, other: Array | float, /) -> Array: ...
    def __gt__(self, other: Array | float, /) -> Array: ...
    def __ge__(self, other: Array | float, /) -> Array: ...
    def __eq__(self, other: Array | float, /) -> Array: ...  # type: ignore[override]
    def __ne__(self, other: Array | float, /) -> Array: ...  # type: ignore[override]

class Container:
    """Kvalo Container object: one loaded source, a mapping of main names to series.

    Every variable is also an attribute, under its main name with every character that cannot stand in an
    identifier replaced by "_".
    """

    flags: int
    @property
    def id64(self) -> int: ...
    def __init__(
        self,
        path: str = ...,
        plugin: str = ...,
        tini: float = ...,
        tend: float = ...,
        realtime: int = 0,
        samples: int = 300,
    ) -> None: ...
    def __len__(self) -> int: ...
    def __getitem__(self, main_name: str, /) -> TimeSeries: ...
    def __getattr__(self, name: str, /) -> TimeSeries: ...
    def get_path(self) -> builtins.list[str]:
        """Return container's list of paths."""
    def get_size(self) -> int:
        """Return container's children count."""
    def axpb(self, a: float, b: float, /) -> None:
        """Apply gain and offset to x-axis values, as in A*X + B."""
    def aypb(self, a: float, b: float, /) -> None:
        """Apply gain and offset to y-axis values, as in A*Y + B."""
    def merge(self, path: str) -> None:
        """Merge another file into this Container."""
    def split(
        self, event: TimeSeries, prefix: str = ..., as_tuple: int = 0, limit: int = 1000
    ) -> builtins.list[Container] | tuple[Container, ...]:
        """Split into other Containers."""
    def replace_xdata(self, series: TimeSeries, /) -> None:
        """Replace current time values by a TimeSeries y-axis values."""
    def rt_read(self) -> None:
        """Refresh data received from connection (real-time only)."""
    def rt_start(self) -> None:
        """Start data acquisition (real-time only)."""
    def rt_stop(self) -> None:
        """Stop data acquisition (real-time only)."""

class Mesh:
    """Kvalo mesh object: the three axes of a surface."""

    flags: int
    xdata: Array | None
    ydata: Array | None
    zdata: Array | None
    @property
    def id64(self) -> int: ...
    def __init__(self) -> None: ...

class Model:
    """Kvalo model object: a block diagram."""

    flags: int
    def __init__(self, path: str = ..., /) -> None: ...
    def get(self, key: str, id: int = ...) -> float | int:
        """Get model or block parameters."""
    def set(
        self,
        id: int = ...,
        x: float = ...,
        y: float = ...,
        width: float = ...,
        height: float = ...,
        red: float = ...,
        green: float = ...,
        blue: float = ...,
        ti: float = ...,
        tf: float = ...,
        ts: float = ...,
    ) -> None:
        """Set model or block parameters."""
    def create(
        self,
        kind: str,
        /,
        obj: Any = ...,
        name: str = ...,
        parent: int = ...,
        inportCount: int = ...,
        outportCount: int = ...,
        bp1: Any = ...,
        bp2: Any = ...,
        coeffA: float = ...,
        coeffB: float = ...,
        expression: float = ...,
        fall: float = ...,
        finalValue: float = ...,
        frequency: float = ...,
        initialValue: float = ...,
        lsb: int = ...,
        max: float = ...,
        msb: int = ...,
        min: float = ...,
        operator: str = ...,
        out: Any = ...,
        phase: float = ...,
        portNumber: int = ...,
        rise: float = ...,
        seed: int = ...,
        stepTime: float = ...,
        target: str = ...,
        type: str = ...,
        timeOff: float = ...,
        timeOn: float = ...,
        valueOff: float = ...,
        valueOn: float = ...,
        path: str = ...,
    ) -> int:
        """Create blocks."""
    def link(self, blockFrom: int, blockTo: int, portFrom: int, portTo: int, name: str = "") -> None:
        """Link blocks."""
    def load(self, path: str, /) -> int:
        """Load model from file."""
    def codegen(self, lang: str, path: str) -> None:
        """Generate code from model."""
    def run(self) -> Result:
        """Run simulation."""
    def validate(self) -> None:
        """Validate model."""

class Result:
    """Kvalo simulation result object: its attributes are what a run left."""

    flags: int
    def __init__(self) -> None: ...
    def __getattr__(self, name: str, /) -> Any: ...

class TimeSeries:
    """Kvalo TimeSeries object: samples of x (time in seconds) and y, loaded from their source on first use.

    Members of a structured signal are series too: attributes, and items by main name.
    """

    flags: int
    xdata: Array | None
    ydata: Array | None
    @property
    def id64(self) -> int: ...
    @overload
    def __init__(self) -> None: ...
    @overload
    def __init__(self, source: str | TimeSeries, /) -> None: ...
    @overload
    def __init__(self, x: builtins.list[float], y: builtins.list[float], /) -> None: ...
    @overload
    def __init__(self, x: tuple[float, ...], y: tuple[float, ...], /) -> None: ...
    @overload
    def __init__(self, id: int, tini: float, tend: float, /) -> None: ...
    def __len__(self) -> int: ...
    @overload
    def __getitem__(self, index: int, /) -> tuple[float, float]: ...
    @overload
    def __getitem__(self, main_name: str, /) -> TimeSeries: ...
    def __setitem__(self, index: int, value: float | tuple[float, float], /) -> None: ...
    def __getattr__(self, name: str, /) -> TimeSeries: ...
    def get_full_name(self) -> str:
        """Return variable's unformatted name."""
    def get_main_name(self) -> str:
        """Return variable's unformatted name."""
    def get_fs(self) -> float:
        """Return estimated sampling frequency in hertz."""
    def get_ts(self) -> float:
        """Return estimated sampling period in seconds."""
    def get_script(self) -> str:
        """Return re-built creation script [beta]."""
    def axpb(self, a: float, b: float, /) -> None:
        """Apply gain and offset to x-axis values, as in A*X + B."""
    def aypb(self, a: float, b: float, /) -> None:
        """Apply gain and offset to y-axis values, as in A*Y + B."""
    def avg(self) -> float:
        """Return kvalo.TimeSeries' average value. The logic uses ZOH to interpolate between samples."""
    def max(self) -> float:
        """Return kvalo.TimeSeries' maximum y-value."""
    def min(self) -> float:
        """Return kvalo.TimeSeries' minimum y-value."""
    def sum(self) -> float:
        """Return kvalo.TimeSeries' values sum."""
    def tag(self, value: float, /) -> str:
        """Return tag associated with kvalo.TimeSeries."""
    def time_bt(self, lo: float, hi: float, /) -> float | None:
        """Return total time in which y-axis values are between the specified limits."""
    def time_eq(self, value: float, /) -> float | None:
        """Return total time in which y-axis values are equal to the argument."""
    def time_gt(self, value: float, /) -> float | None:
        """Return total time in which y-axis values are greater than the argument."""
    def time_lt(self, value: float, /) -> float | None:
        """Return total time in which y-axis values are less than the argument."""
    def time_ne(self, value: float, /) -> float | None:
        """Return total time in which y-axis values are not equal to the argument."""
    def index(self, value: float, /, op: str = "eq") -> int:
        """Return sample index that match the search criteria."""
    def inspect(self) -> None:
        """Print internal information for debugging."""
    def load(self) -> None:
        """Load data from source."""
    def pattern(self, t0: float, t1: float, /) -> int:
        """Detect pattern and return flags."""
    def slice(self, tini: float, tend: float) -> TimeSeries:
        """Extract subsequence delimited by time arguments."""
    def sort(self) -> None:
        """Sort samples chronologically (i.e. by x-axis values)."""
    # Comparisons and logical operators give signals of 0.0 and 1.0.
    def __add__(self, other: TimeSeries | float, /) -> TimeSeries: ...
    def __radd__(self, other: float, /) -> TimeSeries: ...
    def __iadd__(self, other: TimeSeries | float, /) -> TimeSeries: ...
    def __sub__(self, other: TimeSeries | float, /) -> TimeSeries: ...
    def __rsub__(self, other: float, /) -> TimeSeries: ...
    def __isub__(self, other: TimeSeries | float, /) -> TimeSeries: ...
    def __mul__(self, other: TimeSeries | float, /) -> TimeSeries: ...
    def __rmul__(self, other: float, /) -> TimeSeries: ...
    def __imul__(self, other: TimeSeries | float, /) -> TimeSeries: ...
    def __mod__(self, other: TimeSeries | float, /) -> TimeSeries: ...
    def __rmod__(self, other: float, /) -> TimeSeries: ...
    def __imod__(self, other: TimeSeries | float, /) -> TimeSeries: ...
    def __truediv__(self, other: TimeSeries | float, /) -> TimeSeries: ...
    def __rtruediv__(self, other: float, /) -> TimeSeries: ...
    def __itruediv__(self, other: TimeSeries | float, /) -> TimeSeries: ...
    def __and__(self, other: TimeSeries | float, /) -> TimeSeries: ...
    def __rand__(self, other: float, /) -> TimeSeries: ...
    def __iand__(self, other: TimeSeries | float, /) -> TimeSeries: ...
    def __or__(self, other: TimeSeries | float, /) -> TimeSeries: ...
    def __ror__(self, other: float, /) -> TimeSeries: ...
    def __ior__(self, other: TimeSeries | float, /) -> TimeSeries: ...
    def __xor__(self, other: TimeSeries | float, /) -> TimeSeries: ...
    def __rxor__(self, other: float, /) -> TimeSeries: ...
    def __ixor__(self, other: TimeSeries | float, /) -> TimeSeries: ...
    def __pow__(self, other: TimeSeries | float, /) -> TimeSeries: ...
    def __rpow__(self, other: float, /) -> TimeSeries: ...
    def __ipow__(self, other: TimeSeries | float, /) -> TimeSeries: ...
    def __neg__(self) -> TimeSeries: ...
    def __abs__(self) -> TimeSeries: ...
    def __invert__(self) -> TimeSeries: ...
    def __lt__(self, other: TimeSeries | float, /) -> TimeSeries: ...
    def __le__(self, other: TimeSeries | float, /) -> TimeSeries: ...
    def __gt__(self, other: TimeSeries | float, /) -> TimeSeries: ...
    def __ge__(self, other: TimeSeries | float, /) -> TimeSeries: ...
    def __eq__(self, other: TimeSeries | float, /) -> TimeSeries: ...  # type: ignore[override]
    def __ne__(self, other: TimeSeries | float, /) -> TimeSeries: ...  # type: ignore[override]

def callback(capsule: Any, /) -> None:
    """Internal use only."""

def exit() -> None:
    """Exit application."""

def selfie(path: str) -> None:
    """Take screenshot of application window."""

def export_to_file(
    path: str,
    delimiter: str,
    step: float,
    tini: float,
    tend: float,
    src: Container | builtins.list[tuple[TimeSeries, str]],
) -> None:
    """Export a kvalo.Container or a list of kvalo.TimeSeries objects to a delimiter-separated values file."""

def create_array(capsule: Any, count: int, /) -> Array:
    """Create new kvalo.Array from a capsule (containing a pointer to the data) and its number of elements.
    The new instance will retain the ownership of the pointer.
    """

def create_array_random(count: int, /) -> Array:
    """Create new kvalo.Array object with random values between -1.0 and 1.0."""

def create_array_ones(count: int, /) -> Array:
    """Create new kvalo.Array object with all values set to 1.0."""

def create_array_zeros(count: int, /) -> Array:
    """Create new kvalo.Array object with all values set to 0.0."""

def create_from_clipboard() -> Container:
    """Create new kvalo.Container object from clipboard content."""

def create_chirp(
    xmin: float = 0.0,
    xmax: float = 100.0,
    xdiff: float = 0.01,
    freq_start: float = 0.0,
    freq_end: float = 10.0,
) -> TimeSeries:
    """Create new kvalo.TimeSeries object with a chirp signal in the y-axis."""

def create_const(
    value: float = 1.0, xmin: float = 0.0, xmax: float = 100.0, xdiff: float = 0.01
) -> TimeSeries:
    """Create new kvalo.TimeSeries object with a constant value in the y-axis."""

def create_ramp(
    rxmin: float, rxmax: float, ymin: float, ymax: float, xmin: float, xmax: float, xdiff: float
) -> TimeSeries:
    """Create new kvalo.TimeSeries object with a ramp signal in the y-axis."""

def create_random(
    dist: str = "uniform",
    type: str = "real",
    seed: int = ...,
    ymin: float = 0.0,
    ymax: float = 1.0,
    xmin: float = 0.0,
    xmax: float = 100.0,
    xdiff: float = 0.01,
) -> TimeSeries:
    """Create new kvalo.TimeSeries object with a random values in the y-axis."""

def create_sine(
    freq: float = 1.0,
    phase: float = 0.0,
    amplitude: float = 1.0,
    xmin: float = 0.0,
    xmax: float = 100.0,
    xdiff: float = 0.01,
) -> TimeSeries:
    """Create new kvalo.TimeSeries object with a sine wave in the y-axis."""

def create_step(
    step: float = 50.0,
    ymin: float = 0.0,
    ymax: float = 1.0,
    xmin: float = 0.0,
    xmax: float = 100.0,
    xdiff: float = 0.01,
) -> TimeSeries:
    """Create new kvalo.TimeSeries object with a step signal in the y-axis."""

def create_mesh_sinc(
    xmin: float = -10.0,
    xmax: float = 10.0,
    xdiff: float = 0.5,
    zmin: float = -10.0,
    zmax: float = 10.0,
    zdiff: float = 0.5,
) -> Mesh:
    """Create new kvalo.Mesh object with the sinc function values in the y-axis."""

def find_by_ratio(path: str, ratio: float = 0.5) -> Container | None:
    """Find compatible kvalo.Container for merging."""

def find(expression: str, /) -> TimeSeries:
    """Find first kvalo.TimeSeries using regular expression."""

def list(expression: str, /) -> builtins.list[TimeSeries]:
    """List all kvalo.TimeSeries using regular expression."""

def get_config(key: str, group: str = "general") -> bool | int | float | str | None:
    """Get configuration parameter."""

def set_config(value: bool | int | float | str, key: str, group: str = "general") -> None:
    """Set configuration parameter."""

def bookmark(tini: float, tend: float) -> None:
    """Insert bookmark in the horizontal scrollbar."""

def close(*args: Any, **kwargs: Any) -> None:
    """Close pages or charts."""

def reset(*args: Any, **kwargs: Any) -> None:
    """Reset global parameters."""

def set(attribute: str, value: Any, value2: float = ..., /) -> None:
    """Set global parameters."""

def save(path: str, id: int = 0, size: str = "") -> None:
    """Save chart to file."""

def set_chart(
    id: int,
    lmax: float = ...,
    lmin: float = ...,
    rmax: float = ...,
    rmin: float = ...,
    ltick: float = ...,
    rtick: float = ...,
    fit: str = "0",
    xlabel: str = "",
) -> None:
    """Set chart parameters."""

def synoptic(
    id: int = 0,
    obj: TimeSeries = ...,
    name: str = ...,
    x: int = -1,
    y: int = -1,
    width: int = -1,
    min: float = ...,
    max: float = ...,
    red: int = -1,
    green: int = -1,
    blue: int = -1,
) -> int:
    """Create an empty chart for displaying synoptic objects."""

def bode(id: int = 0, obj: TimeSeries = ..., name: str = ...) -> int:
    """Plot the Bode Diagram from input and output kvalo.TimeSeries objects."""

def boolplot(id: int = 0, obj: TimeSeries = ..., name: str = ...) -> int:
    """Plot a kvalo.TimeSeries object interpreting its data as boolean."""

def crossplot(id: int = 0, obj: TimeSeries = ..., name: str = ..., side: str = "left") -> int:
    """Plot a kvalo.TimeSeries object against another one."""

def scatterplot(*args: Any, **kwargs: Any) -> NoReturn:
    """Plot each sample of a kvalo.TimeSeries object as a disconnected dot."""

def fft(id: int = 0, obj: TimeSeries = ..., name: str = ..., side: str = "left") -> int:
    """Plot the Fast Fourier Transform of a kvalo.TimeSeries object."""

def heatmap(id: int = 0, obj: TimeSeries = ..., name: str = ...) -> int:
    """Plot heatmap between two kvalo.TimeSeries objects."""

def hist(id: int = 0, obj: TimeSeries = ..., name: str = ..., type: str = "bar", nbins: int = 8) -> int:
    """Plot the histogram of a kvalo.TimeSeries object."""

def plot(id: int = 0, obj: TimeSeries = ..., name: str = ..., side: str = "left", style: str = "line") -> int:
    """Plot kvalo.TimeSeries against time."""

def spectrogram(
    id: int = 0, obj: TimeSeries = ..., name: str = ..., nfft: int = 256, overlap: float = 0.1
) -> int:
    """Plot the spectrogram of a kvalo.TimeSeries."""

def xcorrplot(id: int = 0, obj: TimeSeries = ..., name: str = ..., side: str = "left") -> int:
    """Plot the cross-correlation between two kvalo.TimeSeries objects."""

def plot3d(id: int = 0, obj: TimeSeries = ..., name: str = ...) -> int:
    """Plot kvalo.TimeSeries in 3d projection."""

def mesh(obj: Mesh) -> int:
    """Plot the surface of a kvalo.Mesh object."""

def circle(
    chart: int,
    xcenter: float,
    ycenter: float,
    diameter: float,
    red: int = -1,
    green: int = -1,
    blue: int = -1,
) -> None:
    """Create a circle in a chart."""

def datatip(chart: int, name: str, x: float, red: int = -1, green: int = -1, blue: int = -1) -> None:
    """Create a datatip in a chart."""

def flag(
    chart: int = 0,
    x: float = ...,
    y: float = ...,
    text: str = "label",
    red: int = -1,
    green: int = -1,
    blue: int = -1,
) -> None:
    """Create a flag in all charts."""

def mark(x: float, width: float, text: str, red: int = -1, green: int = -1, blue: int = -1) -> None:
    """Create a mark in all charts."""

def legend(chart: int, x: float = 0.0, y: float = 0.0, visible: int = 1, full: int = 0) -> None:
    """Setup the legend in a chart."""

def rectangle(
    chart: int,
    xcenter: float,
    ycenter: float,
    height: float,
    width: float,
    red: int = -1,
    green: int = -1,
    blue: int = -1,
) -> None:
    """Create a rectangle in a chart."""

def text(chart: int, x: float, y: float, text: str, red: int = -1, green: int = -1, blue: int = -1) -> None:
    """Create a text in a chart."""

def angular_distance(a: TimeSeries, b: TimeSeries, /, type: str = "deg") -> TimeSeries:
    """Minimum distance between two angles."""

def derivative(series: TimeSeries, /) -> TimeSeries:
    """Discrete derivative."""

def integral(series: TimeSeries, /) -> TimeSeries:
    """Discrete integration (numerical quadrature), calculated using the trapezoidal rule."""

def diff(series: TimeSeries, /) -> TimeSeries:
    """Differences between adjacent elements."""

def accumulate(series: TimeSeries, /) -> TimeSeries:
    """The nth element is the sum of the 1...n elements of the argument."""

def unpack(
    series: TimeSeries,
    /,
    msb: int = 0,
    lsb: int = 0,
    base: int = 0,
    resolution: float = 1.0,
    gain: float = 1.0,
    offset: float = 0.0,
    bias: float = 0.0,
    type: str = "USGN",
) -> TimeSeries:
    """Unpack values, selecting the desired bits and applying offset and resolution (bit extraction)."""

def debounce(series: TimeSeries, /, on: float = 0.0, off: float = 0.0) -> TimeSeries:
    """Debounce. Persistences should be provided in the same unit of the argument's time vector."""

def hysteresis(series: TimeSeries, /, lower: float = 0.0, upper: float = 0.0) -> TimeSeries:
    """Output 1 if the argument is bigger than the upper threshold and 0 if the argument is smaller than the
    lower threshold.
    """

def clamp(series: TimeSeries, /, lower: float = -math.inf, upper: float = math.inf) -> TimeSeries:
    """If argument is less than lower limit, returns lower limit; otherwise if argument is greater than upper
    limit, returns higher limit; otherwise returns argument.
    """

def drop(
    series: TimeSeries, /, lim1: float = -math.inf, lim2: float = math.inf, op1: str = "le", op2: str = "ge"
) -> TimeSeries:
    """Drop elements within either of the specified limits."""

def in_range(
    series: TimeSeries, /, lower: float = -math.inf, upper: float = math.inf, pers: float = 0.0
) -> TimeSeries:
    """Check whether argument is within boundaries."""

def stale(series: TimeSeries, /, pers: float) -> TimeSeries:
    """Check whether argument has been the same in the previous samples."""

def lowpass(series: TimeSeries, /, tau: float) -> TimeSeries:
    """Low-pass filter."""

def highpass(series: TimeSeries, /, tau: float) -> TimeSeries:
    """High-pass filter."""

def lerp(series: TimeSeries, /, a: float, b: float) -> TimeSeries:
    """Linear interpolation."""

def lut1d(
    series: TimeSeries, /, bp: builtins.list[float], val: builtins.list[float], clip: bool = True
) -> TimeSeries:
    """Lookup table interpolation (1D)."""

def lut2d(
    in1: TimeSeries,
    in2: TimeSeries,
    bp1: builtins.list[float],
    bp2: builtins.list[float],
    val: builtins.list[builtins.list[float]],
    clip: bool = True,
) -> TimeSeries:
    """Lookup table interpolation (2D)."""

def insight(event: TimeSeries, pool: Container, window: float = 10.0) -> None:
    """List events that happened before rising edge of the input."""

def fftdata(
    series: TimeSeries, /, ini: float = ..., end: float = ...
) -> tuple[tuple[float, ...], tuple[float, ...]]:
    """Calculate FFT data."""

def heatmapdata(
    x: TimeSeries, y: TimeSeries, /, ini: float = ..., end: float = ..., cols: int = 30, rows: int = 30
) -> tuple[tuple[tuple[float, ...], ...], tuple[str, ...], tuple[str, ...]]:
    """Calculate heatmap data."""

def histdata(
    series: TimeSeries, /, ini: float = ..., end: float = ..., nbins: int = 8
) -> tuple[tuple[str, float], ...]:
    """Calculate histogram data."""

def estimate_sampling_frequency(series: TimeSeries, /) -> TimeSeries:
    """Estimate each sample frequency."""

def estimate_sampling_period(series: TimeSeries, /) -> TimeSeries:
    """Estimate each sample period."""

def fit_linear(series: TimeSeries, /) -> tuple[float, float, float]:
    """Linear curve fit: Y = A*X + B."""

def fit_exp(series: TimeSeries, /) -> tuple[float, float, float]:
    """Exponential curve fit: Y = A * exp(B*X)."""

def fit_polynomial(series: TimeSeries, order: int, /) -> tuple[float, ...]:
    """Polynomial curve fit: Y = B0 + B1*X + B2*X^2 + ... + Bn*X^n."""

def convert(series: TimeSeries, from_unit: str, to_unit: str, /) -> TimeSeries:
    """Convert between units."""

def cos(values: _Values, /) -> _Values:
    """Cosine (radians)."""

def sin(values: _Values, /) -> _Values:
    """Sine (radians)."""

def tan(values: _Values, /) -> _Values:
    """Tangent (radians)."""

def cosd(values: _Values, /) -> _Values:
    """Cosine (degrees)."""

def sind(values: _Values, /) -> _Values:
    """Sine (degrees)."""

def tand(values: _Values, /) -> _Values:
    """Tangent (degrees)."""

def acos(values: _Values, /) -> _Values:
    """Arc cosine (radians)."""

def asin(values: _Values, /) -> _Values:
    """Arc sine (radians)."""

def atan(values: _Values, /) -> _Values:
    """Arc tangent (radians)."""

def acosd(values: _Values, /) -> _Values:
    """Arc cosine (degrees)."""

def asind(values: _Values, /) -> _Values:
    """Arc sine (degrees)."""

def atand(values: _Values, /) -> _Values:
    """Arc tangent (degrees)."""

def ceil(values: _Values, /) -> _Values:
    """Computes the smallest integer value not less than argument."""

def floor(values: _Values, /) -> _Values:
    """Computes the largest integer value not greater than argument."""

def round(values: _Values, /) -> _Values:
    """Computes the nearest integer value to arg (in floating-point format), rounding halfway cases away from
    zero.
    """

def trunc(values: _Values, /) -> _Values:
    """Computes the nearest integer not greater in magnitude than the argument."""

def exp(values: _Values, /) -> _Values:
    """Power of base e."""

def sqrt(values: _Values, /) -> _Values:
    """Square root."""

def log(values: _Values, /) -> _Values:
    """Natural logarithm (base e)."""

def log10(values: _Values, /) -> _Values:
    """Logarithm of base 10."""

def merge(path: str) -> None:
    """Find compatible kvalo.Container and merge file into it."""

def set_page(id: int, cols: int = -1) -> None:
    """Set page parameters."""

def new_page(title: str = "", /, id: int = 0, name: str = "") -> int:
    """Create page."""

def del_page(id: int = 0, name: str = "") -> None:
    """Remove page."""
