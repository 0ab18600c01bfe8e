"""Block models: a simulation of a thousand blocks against the compiled C that is generated from them.

Runs `models_run.cpp`, which needs no interpreter; the generated program prints one number, so that printing does not
count.
"""

import json
import subprocess
import sys
from pathlib import Path

from harness import DATA, ROOT, Row, check, main

SAMPLES = 1_000_000
BLOCKS = 1000
ROUNDS = 3
BUILD = ROOT / "build" / "release" / "src"
PROGRAM = DATA / "models_run"
FOLDER = DATA / "models"

DRIVER = """
#include <stdio.h>
#include <time.h>
#include "mainsys.h"
int main(void) {
  static mainsys_t m;
  mainsys_in_t in = {0};
  mainsys_out_t out;
  mainsys_init(&m);
  const clock_t start = clock();
  for (long k = 0; k < MAINSYS_SAMPLES; ++k) mainsys_step(&m, &in, &out);
  const double seconds = (double)(clock() - start) / CLOCKS_PER_SEC;
  printf("{\\"seconds\\": %.17g, \\"last\\": %.17g}\\n", seconds, *(double *)&out);
  return 0;
}
"""


def answer(*command: object) -> dict[str, float]:
    return json.loads(subprocess.run([*map(str, command)], check=True, capture_output=True).stdout)


def compile_program(compiler: str, target: Path, sources: list[Path], *options: str) -> None:
    subprocess.run([compiler, "-O2", "-o", target, *sources, *options], check=True)


def benchmark() -> list[Row]:
    if not (BUILD / "libplexo.so").exists():
        sys.exit("libplexo.so is missing: build the release preset first")
    libraries = [
        f"-I{ROOT}/src",
        f"-I{ROOT}/include",
        f"-L{BUILD}",
        "-lplexo",
        "-lmirn3",
        f"-Wl,-rpath,{BUILD}",
    ]
    compile_program("g++", PROGRAM, [ROOT / "bench" / "models_run.cpp"], "-std=c++20", *libraries)
    answer(PROGRAM, "mix", SAMPLES, FOLDER)
    (FOLDER / "driver.c").write_text(DRIVER)
    compile_program("gcc", FOLDER / "run", [FOLDER / "mainsys.c", FOLDER / "driver.c"], "-lm")

    ours, theirs, logs, builds = [], [], [], []
    for _ in range(ROUNDS):
        simulated, compiled = answer(PROGRAM, "mix", SAMPLES, FOLDER), answer(FOLDER / "run")
        check("the last value", simulated["last"] == compiled["last"])
        ours.append(simulated["seconds"])
        theirs.append(compiled["seconds"])
        logs.append(answer(PROGRAM, "log", SAMPLES)["seconds"])
        builds.append(answer(PROGRAM, "build", 100_000))
    step, steps = (
        min(ours) / SAMPLES / BLOCKS * 1e9,
        f"{min(ours):.2f} s against {min(theirs):.2f} s (generated C)",
    )
    return [
        Row("simulation / compiled C", min(ours) / min(theirs), 3.0, detail=steps),
        Row("a block and step", step, 4.0, "ns"),
        Row("a logged value", min(logs) / SAMPLES / 100 * 1e9, 2.0, "ns"),
        Row("building 100 000 blocks", min(one["build"] for one in builds), 0.5, "s"),
        Row("validating them", min(one["validate"] for one in builds), 1.0, "s"),
    ]


if __name__ == "__main__":
    main(benchmark)
