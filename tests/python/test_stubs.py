"""The type stubs and the module name the same things."""

import ast

import kvalo
import pytest
from common import cases
from conftest import ROOT

STUB = ROOT / "python" / "kvalo-stubs" / "__init__.pyi"
TYPES = ("Array", "Container", "Mesh", "Model", "Result", "TimeSeries")


def public(names):
    return {name for name in names if not name.startswith("_")}


def declared(body):
    """Names that a stub's module or class body declares: functions, classes and annotated members."""
    names = {node.name for node in body if isinstance(node, ast.FunctionDef | ast.ClassDef)}
    return names | {node.target.id for node in body if isinstance(node, ast.AnnAssign)}


def available(name):
    try:
        getattr(kvalo, name)()
    except NotImplementedError:
        return False
    except Exception:
        return True  # it wants arguments
    return True


@pytest.fixture(scope="module")
def tree():
    return ast.parse(STUB.read_text())


def test_module_names(tree):
    stub = public(declared(tree.body))
    assert stub == public(dir(kvalo))
    assert len(stub) == 98 + len(TYPES)


def test_function_docstrings(tree):
    for node in tree.body:
        if isinstance(node, ast.FunctionDef):
            stub, module = ast.get_docstring(node), getattr(kvalo, node.name).__doc__
            assert " ".join(stub.split()).removesuffix(".") == " ".join(module.split()).removesuffix(".")


@cases("name", *TYPES)
def test_type_members(tree, name):
    body = next(node.body for node in tree.body if isinstance(node, ast.ClassDef) and node.name == name)
    stub, module = public(declared(body)), public(dir(getattr(kvalo, name)))
    assert stub == module or (module < stub and not available(name))
