"""Checks that dependencies point one way: which folder's sources may include which other folder's headers.

Prints every include that breaks the rule and ends with status 1, or prints how many files it looked at.
"""

import re
import sys
from pathlib import Path

ROOT = Path(__file__).resolve().parent.parent
BASE = {"runtime", "kvalo"}
KERNELS = {"functions/kernels", "charts/kernels"}
CONTAINERS = BASE | KERNELS | {"readers", "objects", "containers"}

# Folder below src (or include) -> the folders whose headers it may include, besides its own.
ALLOWED = {
    "kvalo": set(),
    "runtime": BASE,
    "startup": BASE,
    "readers": BASE,
    "backends": BASE | {"readers"},
    "functions/kernels": BASE,
    "charts/kernels": BASE,
    "objects": BASE | KERNELS | {"readers/reader.h"},
    "containers": CONTAINERS,
    "functions": CONTAINERS,
    "charts": CONTAINERS,
    "blocks": BASE,
    "models": CONTAINERS | {"blocks"},
    "module": CONTAINERS | {"startup", "functions", "charts", "models"},
}
# The interpreter is out of reach here, so that these can be tested and fuzzed alone.
WITHOUT_PYTHON = {
    *("kvalo", "runtime", "startup", "readers", "backends", "functions/kernels", "charts/kernels", "blocks"),
}

INCLUDE = re.compile(r'^\s*#\s*include\s*([<"])([^>"]+)[>"]', re.MULTILINE)


def layer(folder: Path) -> str:
    """The rule that a folder falls under: one for all backends."""
    return "backends" if folder.parts[:1] == ("backends",) else str(folder)


def problems(path: Path, folder: str) -> list[str]:
    found = []
    for bracket, name in INCLUDE.findall(path.read_text(encoding="utf-8")):
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


def main() -> int:
    found, count = [], 0
    for base in (ROOT / "src", ROOT / "include"):
        for path in sorted(base.rglob("*")):
            if path.suffix not in (".h", ".cpp"):
                continue
            folder = layer(path.parent.relative_to(base))
            count += 1
            if folder in ALLOWED:
                found += problems(path, folder)
            else:
                found.append(f"{path.relative_to(ROOT)}: check_layers.py has no rule for {folder}")
    print("\n".join(found) if found else f"{count} files include only what their folder may")
    return int(bool(found))


if __name__ == "__main__":
    sys.exit(main())
