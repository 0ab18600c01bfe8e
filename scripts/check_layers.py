"""Checks that dependencies point one way and that every source file says why it exists.

Which folder's sources may include which other folder's headers; that no header includes itself through
others; that every file opens with a comment. Prints what breaks these rules and ends with status 1, or prints
how many files it looked at.
"""

import re
import sys
from pathlib import Path

ROOT = Path(__file__).resolve().parent.parent
# What stands below what, the lowest first: a folder may include headers of its own and of every folder before it.
STACK = ["kvalo", "runtime", "kernels", "readers", "objects", "hostlink", "containers"]
CONTAINERS = set(STACK)


def below(folder: str) -> set[str]:
    return set(STACK[: STACK.index(folder)])


# Folder below src (or include) -> the folders whose headers it may include, besides its own.
ALLOWED = {folder: below(folder) for folder in STACK} | {
    "startup": {"kvalo", "runtime"},
    "backends": {"kvalo", "runtime", "kernels", "readers"},
    "blocks": {"kvalo", "runtime"},
    "functions": CONTAINERS,
    "charts": CONTAINERS,
    "export": CONTAINERS,
    "models": CONTAINERS | {"blocks"},
    "module": CONTAINERS | {"startup", "functions", "charts", "export", "models"},
    "view": {"kvalo", "runtime"},
    "view/bridge": {"kvalo", "runtime", "view"},
    "host": {"kvalo", "runtime", "startup", "view"},
}
# An object holds readers through their interface and knows no format.
ALLOWED["objects"] = below("objects") - {"readers"} | {"readers/reader.h"}
# The interpreter is out of reach here, so that these can be tested and fuzzed alone.
WITHOUT_PYTHON = {"kvalo", "runtime", "kernels", "readers", "startup", "backends", "blocks", "view"}

INCLUDE = re.compile(r'^\s*#\s*include\s*([<"])([^>"]+)[>"]', re.MULTILINE)


def layer(folder: Path) -> str:
    """The rule that a folder falls under: one for all backends."""
    return "backends" if folder.parts[:1] == ("backends",) else str(folder)


def included(text: str) -> list[tuple[str, str]]:
    """The bracket and the name of every include in a source."""
    return INCLUDE.findall(text)


def misplaced(path: Path, folder: str, text: str) -> list[str]:
    """Includes that the file's folder may not have."""
    found = []
    for bracket, name in included(text):
        if name == "Python.h" or name.startswith("python3"):
            if folder in WITHOUT_PYTHON:
                found.append(f"{path.relative_to(ROOT)}: {name} has no place in {folder}")
            continue
        if bracket == "<":
            continue
        target = layer(Path(name).parent) if "/" in name else folder
        if target != folder and not {target, name} & ALLOWED[folder]:
            found.append(f"{path.relative_to(ROOT)}: {folder} must not include {name}")
    return found


def circles(texts: dict[str, str]) -> list[str]:
    """Every circle of includes, once, as the chain of files that closes it; a.h and a-inl.h are one."""
    uses = {}
    for name, text in texts.items():
        nearby = [str(Path(name).parent / target) for _, target in included(text)]
        targets = [
            target for target in [*nearby, *(target for _, target in included(text))] if target in texts
        ]
        whole = {target.replace("-inl.", ".") for target in targets} - {name.replace("-inl.", ".")}
        uses.setdefault(name.replace("-inl.", "."), set()).update(whole)
    found, chain, done = [], [], set()

    def visit(name: str) -> None:
        if name in chain:
            found.append("a circle of includes: " + " -> ".join([*chain[chain.index(name) :], name]))
        elif name not in done:
            chain.append(name)
            for target in sorted(uses[name]):
                visit(target)
            done.add(chain.pop())

    for name in sorted(uses):
        visit(name)
    return found


def main() -> int:
    found, texts = [], {}
    for base in (ROOT / "src", ROOT / "include"):
        for path in sorted(base.rglob("*")):
            if path.suffix not in (".h", ".cpp"):
                continue
            folder = layer(path.parent.relative_to(base))
            text = texts[str(path.relative_to(base))] = path.read_text(encoding="utf-8")
            if not text.startswith(("//", "/*")):
                found.append(f"{path.relative_to(ROOT)}: the first line does not say why the file exists")
            if folder in ALLOWED:
                found += misplaced(path, folder, text)
            else:
                found.append(f"{path.relative_to(ROOT)}: check_layers.py has no rule for {folder}")
    found += circles(texts)
    summary = f"{len(texts)} files say why they exist and include only what their folder may, in no circle"
    print("\n".join(found) if found else summary)
    return int(bool(found))


if __name__ == "__main__":
    sys.exit(main())
