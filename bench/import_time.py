"""How long the import takes, beyond the start of the interpreter."""

import subprocess
import sys

from harness import Row, main, measure


def start(code: str) -> None:
    subprocess.run([sys.executable, "-c", code], check=True)


def benchmark() -> list[Row]:
    timings = measure(
        {
            "bare": lambda: start("pass"),
            "kvalo": lambda: start("import kvalo"),
            "numpy": lambda: start("import numpy"),
        },
        rounds=25,
    )
    bare, kvalo, numpy = (timings[name].best for name in ("bare", "kvalo", "numpy"))
    detail = f"{(kvalo - bare) * 1e3:.1f} ms against {(numpy - bare) * 1e3:.1f} ms (numpy)"
    return [Row("import kvalo / import numpy", (kvalo - bare) / (numpy - bare), 0.4, detail=detail)]


if __name__ == "__main__":
    main(benchmark)
