"""kvalo.Mesh: members, text, and the sinc surface."""

import gc
import math
import weakref

import kvalo
import pytest
from common import cases


def mesh(x=3, z=4, y=12):
    m = kvalo.Mesh()
    m.xdata, m.zdata, m.ydata = kvalo.Array(x), kvalo.Array(z), kvalo.Array(y)
    return m


def test_members():
    m, other = kvalo.Mesh(), kvalo.Mesh()
    assert m.id64 != other.id64
    assert (m.flags, m.xdata, m.ydata, m.zdata) == (1, None, None, None)
    m.flags = 2**64 - 1
    assert m.flags == 2**64 - 1
    with pytest.raises(AttributeError):
        m.id64 = 5
    with pytest.raises(Exception, match="^Constructor does not accept arguments$") as raised:
        kvalo.Mesh(1)
    assert raised.type is Exception


def test_text():
    m = mesh()
    m.ydata = None
    assert repr(m) == "Empty mesh"
    del m.ydata
    assert repr(m) == "Empty mesh"


@cases("name, spoil", ("xdata", delattr), ("zdata", delattr), *((f"{k}data", setattr) for k in "xyz"))
def test_text_needs_arrays(name, spoil):
    m = mesh()
    spoil(m, name, *([[1]] if spoil is setattr else []))
    with pytest.raises(TypeError, match=f"'{name}' of the kvalo.Mesh object must be a kvalo.Array"):
        repr(m)


def test_a_mesh_that_holds_itself_is_collected():
    class Marked(kvalo.Mesh):
        __slots__ = ("__weakref__",)

    m = Marked()
    m.xdata = m
    gone = weakref.ref(m)
    del m
    gc.collect()
    assert gone() is None


def test_sinc_surface():
    m = kvalo.create_mesh_sinc(xmin=-1, xmax=1, xdiff=0.5, zmin=0, zmax=1, zdiff=1)
    x, z = m.xdata.to_list(), m.zdata.to_list()
    assert (x, z) == ([-1, -0.5, 0, 0.5, 1], [0, 1])
    expected = [math.sqrt(a * a + b * b) for b in z for a in x]
    assert m.ydata.to_list() == [math.sin(r) / r if r else 1.0 for r in expected]


@cases(
    "arguments, error, text",
    ({"xdiff": 0}, ValueError, r"\(xdiff\).*positive"),
    ({"zdiff": math.nan}, ValueError, r"\(zdiff\).*positive"),
    ({"zmin": 10}, ValueError, r"\(zmax\).*greater"),
    ({"xmax": math.inf}, ValueError, "finite"),
    ({"xdiff": 1e-300}, MemoryError, "would take"),
    ({"xdiff": 1e-6, "zdiff": 1e-6}, MemoryError, "would take"),
)
def test_refused_surfaces(arguments, error, text):
    with pytest.raises(error, match=text):
        kvalo.create_mesh_sinc(**arguments)
