"""Checks that a wheel carries the licence notice of everything that was compiled into it or lies inside it.

What was compiled in is told by the headers that the compiler opened. Prints what lacks its notice and ends
with status 1, or prints the notices.
"""

import re
import subprocess
import sys
import zipfile
from pathlib import Path

ROOT = Path(__file__).resolve().parent.parent
# Below /usr/include: the compiler's, the system's and the interpreter's headers, and those of C libraries that
# are called where they are installed, so that nothing of them but declarations gets in.
CALLED = {"c++", "linux", "asm-generic", "arpa", "net", "netinet", "rpc", "python3.11", "hdf5", "minizip"}
# Where headers that come with Python packages lie, and the notice they need.
PACKAGES = {"/pyarrow/include/": "arrow", "/ducc0/": "ducc0"}
# Of this project.
OWN = re.compile(r"(kvalo|_view)\.cpython-311-.*\.so|lib(mirn\d|plexo|kvalo_\w+)\.so")


def compiled_in(build: Path) -> dict[str, str]:
    """Notice that is needed -> a header that needs it."""
    listing = subprocess.run(
        ["ninja", "-C", build, "-t", "deps"], check=True, capture_output=True, text=True
    ).stdout
    needed = {}
    for line in set(re.findall(r"^    (.+)$", listing, re.MULTILINE)):
        header = Path(build, line).resolve()
        package = next((notice for part, notice in PACKAGES.items() if part in str(header)), None)
        if package is None:
            if header.is_relative_to("/usr/lib/gcc") or header.is_relative_to(ROOT):
                continue
            folder = (
                header.relative_to("/usr/include").parts[0] if header.is_relative_to("/usr/include") else ""
            )
            if folder in CALLED or folder.endswith("-linux-gnu") or folder == header.name:
                continue
            package = folder or str(header.parent)
        needed[package] = str(header)
    return needed


def main() -> int:
    wheel, build = (Path(argument).resolve() for argument in sys.argv[1:])
    needed = compiled_in(build)
    if not needed:
        print(f"{build} does not say which headers it was compiled with")
        return 1
    notices = {}
    with zipfile.ZipFile(wheel) as archive:
        for name in archive.namelist():
            path = Path(name)
            library = re.fullmatch(r"(?:lib)?(.+?)(?:\.cpython.*)?\.so(?:\.\d+)*", path.name)
            if library and not OWN.fullmatch(path.name):
                needed[library[1]] = name
            if path.parent.name == "kvalo.licenses":
                notices[path.stem] = archive.read(name).decode("utf-8")
    found = [
        f"{what} ({why}) has no notice in the wheel" for what, why in needed.items() if what not in notices
    ]
    for name, text in notices.items():
        if "copyright" not in text.lower():
            found.append(f"the notice {name} names no holder of rights")
    print("\n".join(found) if found else f"notices: {', '.join(sorted(notices))}")
    return 1 if found else 0


if __name__ == "__main__":
    sys.exit(main())
