"""The type stubs and the module tell the same of every function, method and type: names, order, parameters, texts."""

import ast
import inspect
import math

import kvalo
from common import cases
from conftest import ROOT

STUB = ROOT / "python" / "kvalo-stubs" / "__init__.pyi"
TREE = ast.parse(STUB.read_text())
TYPES = {node.name: node.body for node in TREE.body if isinstance(node, ast.ClassDef)}


def public(names):
    return {name for name in names if not name.startswith("_")}


def functions(body):
    return [node for node in body if isinstance(node, ast.FunctionDef)]


def declared(body):
    """Names that a stub's module or class body declares: functions, classes and annotated members."""
    names = {node.name for node in body if isinstance(node, ast.FunctionDef | ast.ClassDef)}
    return names | {node.target.id for node in body if isinstance(node, ast.AnnAssign)}


def callables():
    """(name, stub, function or method) of all that the module has a row for."""
    for node in functions(TREE.body):
        yield node.name, node, getattr(kvalo, node.name)
    for name, body in TYPES.items():
        for node in functions(body):
            method = vars(getattr(kvalo, name)).get(node.name)
            if isinstance(method, type(kvalo.Array.clone)):
                yield f"{name}.{node.name}", node, method


def stub_signature(node):
    """What Python says of the stub, without its types."""
    plain = ast.parse(ast.unparse(node)).body[0]
    plain.decorator_list, plain.returns, plain.body = [], None, [ast.Pass()]
    for argument in ast.walk(plain.args):
        if isinstance(argument, ast.arg):
            argument.annotation = None
    names = {"math": math}
    exec(compile(ast.fix_missing_locations(ast.Module([plain], [])), str(STUB), "exec"), names)
    return inspect.signature(names[node.name])


def unwrapped(text):
    return " ".join(text.split()).removesuffix(".")


def without_self(signature):
    return signature.replace(parameters=list(signature.parameters.values())[1:])


def test_module_names():
    stub = public(declared(TREE.body))
    assert stub == public(dir(kvalo))
    assert len(stub) == 98 + len(TYPES)


def test_functions_stand_in_the_order_of_the_module():
    table = [name for name, value in vars(kvalo).items() if inspect.isbuiltin(value)]
    assert [node.name for node in functions(TREE.body)] == table


def test_every_method_has_a_stub():
    compared = {name for name, _, _ in callables()}
    for name in TYPES:
        methods = [n for n, v in vars(getattr(kvalo, name)).items() if isinstance(v, type(kvalo.Array.clone))]
        assert {f"{name}.{method}" for method in methods} <= compared


def test_parameters_and_docstrings():
    for name, node, function in callables():
        stub, module = stub_signature(node), inspect.signature(function)
        if inspect.ismethoddescriptor(function):
            stub, module = without_self(stub), without_self(module)
        assert (name, stub) == (name, module)
        assert unwrapped(ast.get_docstring(node)) == unwrapped(function.__doc__), name


@cases("name", "Array", "Container", "Mesh", "Model", "Result")
def test_constructors(name):
    node = next(node for node in functions(TYPES[name]) if node.name == "__init__")
    assert without_self(stub_signature(node)) == inspect.signature(getattr(kvalo, name))


@cases("name", *TYPES)
def test_type_members(name):
    stub, module = public(declared(TYPES[name])), public(dir(getattr(kvalo, name)))
    assert stub == module
