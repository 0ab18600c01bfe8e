"""Evaluates the texts of model files, which come from strangers, and tells numbers from everything else.

`harmless` walks the parsed text by itself and computes in floats alone, so no text can run code, build a huge
number or fill the memory. libplexo runs this file inside the interpreter that it finds.
"""

import ast
import math
import operator

LONGEST = 1000
OPERATORS = {
    ast.Add: operator.add,
    ast.Sub: operator.sub,
    ast.Mult: operator.mul,
    ast.Div: operator.truediv,
    ast.FloorDiv: operator.floordiv,
    ast.Mod: operator.mod,
    ast.Pow: operator.pow,
    ast.UAdd: operator.pos,
    ast.USub: operator.neg,
}
# Functions of whole numbers may take forever.
WHOLE = {"comb", "factorial", "gcd", "isqrt", "lcm", "perm"}
FUNCTIONS = {name for name in dir(math) if callable(getattr(math, name)) and name[0] != "_"} - WHOLE
CONSTANTS = {"e", "inf", "nan", "pi", "tau"}


def refuse(node):
    raise ValueError(f"a model file must not hold {ast.unparse(node)!r} in an expression")


def called(node, names):
    function, arguments = node.func, node.args
    if node.keywords:
        refuse(node)
    if isinstance(function, ast.Name) and function.id == "float" and len(arguments) == 1:
        if isinstance(arguments[0], ast.Constant) and isinstance(arguments[0].value, str):
            return float(arguments[0].value)
        return float(value_of(arguments[0], names))
    is_math = isinstance(function, ast.Attribute) and isinstance(function.value, ast.Name)
    if is_math and function.value.id == "math" and function.attr in FUNCTIONS:
        return getattr(math, function.attr)(*(value_of(argument, names) for argument in arguments))
    return refuse(node)


def value_of(node, names):
    if isinstance(node, ast.Constant) and type(node.value) in (int, float, bool):
        return float(node.value)
    if isinstance(node, (ast.List, ast.Tuple)):
        return [value_of(element, names) for element in node.elts]
    if isinstance(node, (ast.BinOp, ast.UnaryOp)) and type(node.op) in OPERATORS:
        sides = [node.left, node.right] if isinstance(node, ast.BinOp) else [node.operand]
        values = [value_of(side, names) for side in sides]
        if any(isinstance(value, list) for value in values):
            refuse(node)
        return OPERATORS[type(node.op)](*values)
    if isinstance(node, ast.Call):
        return called(node, names)
    is_math = isinstance(node, ast.Attribute) and isinstance(node.value, ast.Name) and node.value.id == "math"
    if is_math and node.attr in CONSTANTS:
        return getattr(math, node.attr)
    if isinstance(node, ast.Name) and type(names.get(node.id)) in (int, float, bool):
        return float(names[node.id])
    return refuse(node)


def harmless(text, names):
    if len(text) > LONGEST:
        raise ValueError(f"an expression in a model file has at most {LONGEST} characters")
    return value_of(ast.parse(text.strip(), mode="eval").body, names)


def number(value):
    """A float, or None for what is no number. A bool is one, a text or an array is none."""
    if isinstance(value, (str, bytes, bytearray)) or hasattr(value, "__len__"):
        return None
    try:
        return float(value)
    except (TypeError, ValueError, OverflowError):
        return None


def plain(value):
    """(1, number), (2, list of numbers), (3, list of lists of numbers), or (0, None) for anything else."""
    if (single := number(value)) is not None:
        return 1, single
    if isinstance(value, (str, bytes, bytearray, dict, set)) or not hasattr(value, "__len__"):
        return 0, None
    numbers = [number(element) for element in value]
    if None not in numbers:
        return 2, numbers
    rows = [plain(element) for element in value]
    return (3, [row for _, row in rows]) if all(shape == 2 for shape, _ in rows) else (0, None)


def evaluate(text, names, is_from_file):
    return plain(harmless(text, names) if is_from_file else eval(text, names))
