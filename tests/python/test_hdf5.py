"""HDF5 files: what is offered, what the numbers are, and that damage costs an exception at most."""

import zlib

import kvalo
import pytest
from common import SANITIZED, cases
from conftest import run_script

np = pytest.importorskip("numpy")
h5py = pytest.importorskip("h5py")

RNG = np.random.default_rng(20)


def leaves(holder, prefix: str = "") -> dict:
    """Full attribute path -> series without members."""
    found = {}
    for name, series in vars(holder).items():
        if isinstance(series, kvalo.TimeSeries):
            inside = leaves(series, f"{prefix}{name}.")
            found.update(inside or {prefix + name: series})
    return found


def loaded(series) -> tuple:
    series.load()
    return np.asarray(series.xdata).copy(), np.asarray(series.ydata).copy()


@pytest.fixture
def made(tmp_path):
    """Writes a file with h5py's help and gives its leaves."""

    def make(write, **options):
        path = tmp_path / "made.h5"
        with h5py.File(path, "w", **options) as file:
            write(file)
        make.container = kvalo.Container(path=str(path))
        return leaves(make.container)

    make.path = tmp_path / "made.h5"
    return make


NUMBERS = [f"{order}{kind}" for order in "<>" for kind in ("i1", "u1", "i2", "u2", "i4", "u4", "i8", "u8")]
NUMBERS += [f"{order}f{width}" for order in "<>" for width in (2, 4, 8)] + ["longdouble", "?"]
STORED = [
    {},
    {"chunks": (100,)},
    {"chunks": (7,), "compression": "gzip", "shuffle": True},
    {"chunks": (1000,), "compression": "gzip"},
    {"chunks": (128,), "compression": "gzip", "fletcher32": True},
]


@cases("dtype", *NUMBERS)
def test_every_number_in_every_storage(made, dtype):
    values = RNG.integers(0, 120, 1000).astype(dtype)
    if np.dtype(dtype).kind == "f":
        values[:6] = [np.nan, np.inf, -np.inf, -0.0, 6e-8, 0.333]
    elif np.dtype(dtype).kind in "iu":
        values[:2] = [np.iinfo(dtype).min, np.iinfo(dtype).max]

    def write(file):
        for i, options in enumerate(STORED):
            file.create_dataset(f"g{i}/v", data=values, **options)

    found = made(write)
    assert len(found) == len(STORED)
    for series in found.values():
        x, y = loaded(series)
        np.testing.assert_array_equal(x, np.arange(1000))
        np.testing.assert_array_equal(y, values.astype(float))


@cases("options", {}, *({**o, "chunks": (13, 2)} for o in STORED[1:]))
def test_columns_of_matrices(made, options):
    matrix = RNG.normal(size=(50, 5)).astype(">f4")
    found = made(lambda file: file.create_dataset("m", data=matrix, **options))
    assert list(found) == [f"m.c{i}" for i in range(5)]
    for _ in range(2):  # the second round is served from what was read along
        for i, series in enumerate(found.values()):
            np.testing.assert_array_equal(loaded(series)[1], matrix[:, i])


def test_compound_members_nest_and_hold_their_own_time(made):
    inner = [("t", ">f8"), ("w", "<f2", (3,))]
    kind = np.dtype([("v", "<i2"), ("in", inner), ("Time", "<u4"), ("s", "S5"), ("z", "<c8")])
    rows = np.zeros(300, kind)
    rows["Time"] = np.arange(300) * 2
    rows["v"], rows["in"]["w"], rows["z"] = -3, RNG.normal(size=(300, 3)), np.arange(300) - 2j
    rows["s"] = RNG.choice([b"idle", b"climb", b"cruis"], 300)
    for options in STORED[:3]:
        found = made(lambda file, o=options: file.create_dataset("log", data=rows, **o))
        names = ["v", "in.t", "in.w.c0", "in.w.c1", "in.w.c2", "Time", "s", "z.re", "z.im"]
        assert list(found) == [f"log.{name}" for name in names]
        by_name = {name: loaded(found[f"log.{name}"]) for name in reversed(names)}
        held = {
            "v": rows["v"],
            "Time": rows["Time"],
            "z.im": rows["z"].imag,
            "in.w.c1": rows["in"]["w"][:, 1],
        }
        for name, y in held.items():
            np.testing.assert_array_equal(by_name[name][1], y)
        assert len(set(zip(by_name["s"][1], rows["s"], strict=True))) == 3


def test_time_axes(made, capsys):
    n = 40
    time = np.arange(n) * 0.5 + 7

    def write(file):
        for name in ("Timestamp", "a", "zz"):
            file[f"named/{name}"] = time if name == "Timestamp" else RNG.normal(size=n)
        file["named/other_length"] = np.arange(n + 1)
        file["named/state"] = [b"x", b"yy"] * (n // 2)
        file["first/a"], file["first/b"] = time * 3, time
        file["wrong/time"], file["wrong/a"] = time[::-1], time
        file["alone/a"] = time

    found = made(write, track_order=True)
    expected = {"named.a": time, "named.zz": time, "named.Timestamp": time, "named.state": time}
    expected |= {"named.other_length": np.arange(n + 1), "first.b": time * 3, "first.a": time * 3}
    expected |= {"wrong.a": np.arange(n), "alone.a": np.arange(n)}
    for name, x in expected.items():
        np.testing.assert_array_equal(loaded(found[name])[0], x, err_msg=name)
    assert "invalid time vector" in capsys.readouterr().out


def test_texts_become_tags(made):
    texts = ["grün", "rot", "", "rot", "grün"] * 200

    def write(file):
        file.create_dataset("free", data=texts, dtype=h5py.string_dtype(), chunks=(64,), compression="gzip")
        file["fixed"] = np.array([t.encode() for t in texts])
        kind = np.dtype([("n", "<i4"), ("s", h5py.string_dtype())])
        file["pairs"] = np.array([(i, t) for i, t in enumerate(texts)], kind)

    found = made(write)
    for name in ("free", "fixed", "pairs.s"):
        numbers = loaded(found[name])[1]
        assert len(set(zip(numbers, texts, strict=True))) == len(set(texts)) == len(set(numbers)), name
    np.testing.assert_array_equal(loaded(found["pairs.n"])[1], np.arange(1000))


def test_what_is_not_offered(made, tmp_path):
    with h5py.File(tmp_path / "other.h5", "w") as other:
        other["secret"] = np.arange(9.0)
    (tmp_path / "raw.bin").write_bytes(bytes(80))

    def write(file):
        group = file.create_group("deep")
        group["v"] = np.arange(10.0)
        group["circle"] = file["/"]
        file["again"] = h5py.SoftLink("/deep/v")
        file["lost"] = h5py.SoftLink("/nowhere")
        file["out"] = h5py.ExternalLink("other.h5", "/secret")
        file["through"] = h5py.SoftLink("/out")
        file["scalar"], file["cube"], file["one"] = 3.0, np.zeros((2, 2, 2)), np.zeros((1, 1))
        file["wide"], file["empty"] = np.zeros((2, 5000)), h5py.Empty("f8")
        file["bytes"] = np.zeros(4, "V7")
        file.create_dataset("reference", data=[group.ref] * 3, dtype=h5py.ref_dtype)
        file.create_dataset("external", (10,), "f8", external=[(str(tmp_path / "raw.bin"), 0, 80)])
        layout = h5py.VirtualLayout((9,), "f8")
        layout[:] = h5py.VirtualSource(str(tmp_path / "other.h5"), "secret", (9,))
        file.create_virtual_dataset("virtual", layout)

    found = made(write)
    assert list(found) == ["again", "deep.v"]
    np.testing.assert_array_equal(loaded(found["again"])[1], np.arange(10.0))
    with pytest.raises(Exception, match="no samples of its own"):
        made.container.deep.load()


def test_unwritten_pieces_hold_the_fill_value(made):
    def write(file):
        data = file.create_dataset("v", (1000,), "<i4", chunks=(100,), compression="gzip", fillvalue=-7)
        data[150:160] = 5

    y = loaded(made(write)["v"])[1]
    assert y[155] == 5
    assert set(y[160:]) == {-7.0} == set(y[:150])


@cases("options", {"shape": (10**13,)}, {"shape": (10**9, 4000)})
def test_claims_beyond_memory_are_refused(made, options):
    found = made(lambda file: file.create_dataset("v", dtype="f8", chunks=True, **options))
    with pytest.raises(Exception, match="claims .* samples"):
        next(iter(found.values())).load()


def test_a_chunk_that_inflates_beyond_its_size_is_refused(made):
    def write(file):
        data = file.create_dataset("v", (100,), "f8", chunks=(100,), compression="gzip")
        data.id.write_direct_chunk((0,), zlib.compress(bytes(10**8)), 0)

    with pytest.raises(Exception, match="damaged"):
        made(write)["v"].load()


def packed_zeros(count: int, block: int = 1 << 24) -> bytes:
    """zlib's form of count blocks of zeros, without packing them all."""
    packer = zlib.compressobj(9)
    parts = [packer.compress(bytes(block)) + packer.flush(zlib.Z_FULL_FLUSH) for _ in range(2)]
    checksum = (count * block % 65521 << 16 | 1).to_bytes(4, "big")
    return parts[0] + parts[1] * (count - 1) + packer.flush()[:-4] + checksum


@pytest.mark.skipif(SANITIZED, reason="sanitizers take memory as they like")
def test_a_chunk_that_takes_more_memory_than_there_is(made):
    # Through a filter that only the library knows, so that the library unpacks the other as well.
    def write(file):
        data = file.create_dataset("v", (100,), "i4", chunks=(100,), scaleoffset=0, compression="gzip")
        data.id.write_direct_chunk((0,), packed_zeros(200), 0)

    made(write)
    code = """
import resource, sys, kvalo
try:
    kvalo.Container(path=sys.argv[1]).v.load()
except Exception as error:
    print(error)
    print(resource.getrusage(resource.RUSAGE_CHILDREN).ru_maxrss)
    print(next(line.split()[1] for line in open("/proc/self/status") if line.startswith("VmHWM")))
"""
    run = run_script(code, str(made.path), KVALO_MEMORY_BANK="100000000")
    reason, tried, own = run.stdout.splitlines()
    assert "memory allocation failed" in reason
    assert int(tried) < 700_000
    assert int(own) < 500_000


def test_a_file_that_changes_is_noticed(made):
    found = made(lambda file: file.create_dataset("v", data=np.arange(5.0)))
    with h5py.File(made.path, "w") as file:
        file["v"] = np.arange(8)
    with pytest.raises(Exception, match="has changed"):
        found["v"].load()
    with h5py.File(made.path, "w") as file:
        file["v"] = np.arange(8.0)
    assert len(loaded(found["v"])[1]) == 8


@cases("first", "kvalo", "h5py")
def test_beside_another_copy_of_the_library(made, first):
    made(lambda file: file.create_dataset("v", data=np.arange(5.0), compression="gzip"))
    ours = "c = kvalo.Container(path=p); c.v.load(); assert sum(c.v.ydata) == 10"
    theirs = "import h5py; assert h5py.File(p)['v'][()].sum() == 10"
    steps = [ours, theirs, ours, theirs][(first == "h5py") :]
    run = run_script("import sys, kvalo; p = sys.argv[1]\n" + "\n".join(steps), str(made.path))
    assert (run.returncode, run.stderr) == (0, "")


def test_importing_opens_no_library():
    opened = run_script("import kvalo; print(open('/proc/self/maps').read())").stdout
    assert "libmirn3" in opened
    assert "libhdf5" not in opened
    assert "libkvalo_" not in opened


RECORDED = {
    "hdf5/compound-dtype-complex.h5": (12, {"c16.re": (100, 48.155945619), "_c8.im": (100, 47.019902508)}),
    "hdf5/vlen_string_dset.h5": (1, {"DS1": (4, None)}),
    "mat/testhdf5_7.4_GLNX86.mat": (1, {"testdouble": (9, 28.274334)}),
    "mat/test_le_hdf5.mat": (None, {"d.c9": (5, 240), "d_in_tag": (4, 10), "easy.s.c1": (5, 40)}),
}


@cases("name", *RECORDED)
def test_recorded_files(data_folder, name):
    count, expected = RECORDED[name]
    found = leaves(kvalo.Container(path=str(data_folder / name)))
    assert count is None or len(found) == count
    for variable, (length, total) in expected.items():
        y = loaded(found[variable])[1]
        assert len(y) == length
        assert total is None or y.sum() == pytest.approx(total)
