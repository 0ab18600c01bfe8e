"""Archives of 200 MB: unpacking against bsdtar, and opening one that was unpacked before."""

import os
import shutil
import subprocess
import sys
from pathlib import Path

import kvalo
import numpy as np
from harness import DATA, Row, check, main, measure, ratio

CONTENT = DATA / "archive" / "log.csv"
ARCHIVES = {
    "tar.gz": ["bsdtar", "-c", "--options", "gzip:compression-level=1", "-zf"],
    "zip": ["bsdtar", "-c", "--options", "zip:compression-level=1", "--format", "zip", "-f"],
}
SIZE = 200_000_000
CACHE = Path(os.environ["KVALO_HOME"]) / "cache"


def write_content() -> None:
    """Random numbers of seven digits in a text, which shrinks to about half."""
    CONTENT.parent.mkdir(parents=True, exist_ok=True)
    random, rows, columns = np.random.default_rng(1), 100_000, 10
    with CONTENT.open("wb") as file:
        file.write(b"time," + b",".join(b"c%d" % i for i in range(columns)) + b"\n")
        for block in range(45):
            table = random.integers(48, 58, (rows, columns + 1, 8), dtype=np.uint8)
            times = np.char.zfill(np.arange(block * rows, (block + 1) * rows).astype("S7"), 7)
            table[:, 0, :7] = np.frombuffer(times.tobytes(), np.uint8).reshape(rows, 7)
            table[:, :, 7] = ord(",")
            table[:, -1, 7] = ord("\n")
            file.write(table.tobytes())


def archive(extension: str) -> Path:
    path = CONTENT.with_name(f"log.{extension}")
    if not path.exists() or path.stat().st_size < SIZE * 0.85:
        if not CONTENT.exists():
            write_content()
        subprocess.run([*ARCHIVES[extension], path, "-C", CONTENT.parent, CONTENT.name], check=True)
    return path


def unpack_and_open(path: Path) -> kvalo.Container:
    shutil.rmtree(CACHE, ignore_errors=True)
    return kvalo.Container(path=str(path))


def bsdtar(path: Path) -> None:
    target = CACHE.with_name("bsdtar")
    shutil.rmtree(target, ignore_errors=True)
    target.mkdir(parents=True)
    subprocess.run(["bsdtar", "-x", "-f", path, "-C", target], check=True)


def benchmark() -> list[Row]:
    if shutil.which("bsdtar") is None:
        sys.exit("bsdtar is missing: install the package libarchive-tools")
    rows = []
    for extension in ARCHIVES:
        path = archive(extension)
        size = path.stat().st_size / 1e6
        print(f"{path.name}, {size:.0f} MB")
        bsdtar(path)
        unpack_and_open(path)
        ours, theirs = (next(folder.rglob("log.csv")) for folder in (CACHE, CACHE.with_name("bsdtar")))
        check("the unpacked files differ", subprocess.run(["cmp", ours, theirs]).returncode == 0)
        timings = measure({"kvalo": lambda p=path: unpack_and_open(p), "bsdtar": lambda p=path: bsdtar(p)}, 3)
        rows.append(
            ratio(f"unpack a {size:.0f} MB {extension} against bsdtar", timings, "kvalo", "bsdtar", 1.2)
        )
        again = measure({"second open": lambda p=path: kvalo.Container(path=str(p))})["second open"]
        rows.append(Row(f"open it again ({extension})", again.median * 1e3, 20, "ms", str(again)))
    return rows


if __name__ == "__main__":
    main(benchmark)
