"""kvalo.export_to_file: the grid, the columns, refusals, and what happens to files."""

import math
import os
import re
import shutil
import stat
import subprocess

import kvalo
import pytest
from common import cases, opened, series
from conftest import run_script

RAMP = series([10, 20, 30])


def export(path, step, tini, tend, source, delimiter=","):
    assert kvalo.export_to_file(str(path), delimiter, step, tini, tend, source) is None
    return path.read_text()


def reference(columns, delimiter, step, tini, tend, decimals):
    """The rows as a plain loop writes them: the next sample at or after the time, or the last one."""
    lines = ["Time" + "".join(delimiter + name for _, _, name in columns)]
    t = tini
    while t <= tend:
        row = f"{t:.{decimals}f}"
        for x, y, _ in columns:
            row += f"{delimiter}{next((v for u, v in zip(x, y, strict=True) if u >= t), y[-1]):f}"
        lines.append(row)
        t += step
    return "\n".join(lines) + "\n"


@cases("step, decimals", (0.25, 2), (0.1, 2), (0.01, 3), (0.5, 2), (2.5, 0), (1, 0), (0.001, 4))
def test_rows_and_decimals(tmp_path, step, decimals):
    columns = [([0, 1, 2], [10, 20, 30], "ramp"), ([0.5, 0.75], [-1 / 3, 2e-7], "short")]
    source = [(kvalo.TimeSeries(x, y), name) for x, y, name in columns]
    text = export(tmp_path / "out.csv", step, -0.5, 3, source, ";")
    assert text == reference(columns, ";", step, -0.5, 3, decimals)


def test_values_that_are_no_numbers(tmp_path):
    source = [(series([math.nan, math.inf, -math.inf]), "v")]
    assert export(tmp_path / "o", 1, 0, 2, source) == "Time,v\n0,nan\n1,inf\n2,-inf\n"


def test_variables_come_in_the_order_of_the_file(tmp_path):
    c = opened(tmp_path / "in.csv", "t,zeta,b2,alpha,B1,m\n0,1,2,3,4,5\n1,6,7,8,9,10\n2,0,0,0,0,0\n")
    assert export(tmp_path / "out.csv", 1, 0, 1, c).splitlines()[0] == "Time,zeta,b2,alpha,B1,m"


def test_a_program_that_runs_is_not_replaced(tmp_path):
    program = tmp_path / "program.csv"
    shutil.copy(shutil.which("sleep"), program)
    content = program.read_bytes()
    running = subprocess.Popen([program, "60"])
    try:
        with pytest.raises(OSError, match="program.csv"):
            export(program, 1, 0, 1, [(RAMP, "ramp")])
    finally:
        running.kill()
        running.wait()
    assert program.read_bytes() == content
    assert os.listdir(tmp_path) == ["program.csv"]


def test_a_container_exports_all_its_variables(tmp_path):
    c = opened(tmp_path / "in.csv", "t,a,é\n0,1,4\n1,2,5\n2,3,6\n")
    text = export(tmp_path / "out.csv", 1, 0, 2, c, "→")
    assert text == "Time→a→é\n0→1.000000→4.000000\n1→2.000000→5.000000\n2→3.000000→6.000000\n"


def test_children_follow_their_series_under_their_full_names(tmp_path, data_folder):
    c = kvalo.Container(path=str(data_folder / "flight" / "copter.bin"))
    text = export(tmp_path / "out.csv", 1, 300, 302, [(c.ATT, "attitude"), (RAMP, "ramp")])
    assert re.match("Time,attitude,ATT.DesRoll,.*,ramp\n", text)


def test_series_without_samples_are_left_out(tmp_path):
    source = [(kvalo.TimeSeries(), "none"), (RAMP, "ramp"), (kvalo.TimeSeries([], []), "empty")]
    assert export(tmp_path / "o", 1, 0, 1, source).startswith("Time,ramp\n")


@cases(
    "step, tini, tend, source, error, text",
    (0, 0, 1, [(RAMP, "r")], ValueError, r"^Step \(0\) must be greater than zero$"),
    (-0.5, 0, 1, [(RAMP, "r")], ValueError, r"^Step \(-0.5\) must be greater than zero$"),
    (1, 5, 5, [(RAMP, "r")], ValueError, r"^Start time \(5\) must be less than end time \(5\)$"),
    (math.nan, 0, 1, [(RAMP, "r")], ValueError, "finite"),
    (1, 0, math.inf, [(RAMP, "r")], ValueError, "finite"),
    (1e-9, 1e15, 2e15, [(RAMP, "r")], ValueError, "large enough"),
    (1, 0, 1, [], ValueError, "^No kvalo.TimeSeries was selected$"),
    (1, 0, 1, [(kvalo.TimeSeries(), "n")], ValueError, "^No kvalo.TimeSeries has valid values$"),
    (1, 0, 1, "text", ValueError, "^Invalid source object$"),
    (1, 0, 1, [(RAMP, 3)], TypeError, "^Object is not unicode$"),
    (1, 0, 1, [(3, "r")], TypeError, "^Argument must be a kvalo.TimeSeries object$"),
    (1, 0, 1, [RAMP], TypeError, "tuples"),
)
def test_refusals_leave_the_file_alone(tmp_path, step, tini, tend, source, error, text):
    path = tmp_path / "kept.csv"
    path.write_text("precious")
    with pytest.raises(error, match=text):
        kvalo.export_to_file(str(path), ",", step, tini, tend, source)
    assert path.read_text() == "precious"


def test_unwritable_places_are_named(tmp_path):
    for path in (tmp_path / "missing" / "o.csv", tmp_path):
        with pytest.raises(OSError, match=f"^Error at '{path}': "):
            kvalo.export_to_file(str(path), ",", 1, 0, 1, [(RAMP, "r")])
    assert list(tmp_path.iterdir()) == []


def test_a_full_disk_leaves_the_old_file_and_nothing_else(tmp_path):
    path = tmp_path / "o.csv"
    path.write_text("old")
    code = f"""
import resource, signal, kvalo
signal.signal(signal.SIGXFSZ, signal.SIG_IGN)
resource.setrlimit(resource.RLIMIT_FSIZE, (1 << 20, 1 << 20))
s = kvalo.TimeSeries([0, 1], [0, 1])
try:
    kvalo.export_to_file({str(path)!r}, ',', 1, 0, 1e6, [(s, 's')] * 10)
except OSError as error:
    print(error)
"""
    done = run_script(code)
    assert done.stdout.startswith(f"Error at '{path}': ")
    assert path.read_text() == "old"
    assert [p.name for p in tmp_path.iterdir()] == ["o.csv"]


def test_a_finished_file_has_the_usual_permissions(tmp_path):
    export(tmp_path / "o.csv", 1, 0, 1, [(RAMP, "r")])
    mask = os.umask(0)
    os.umask(mask)
    assert stat.S_IMODE((tmp_path / "o.csv").stat().st_mode) == 0o666 & ~mask


def test_an_export_can_be_interrupted(tmp_path):
    code = f"""
import kvalo, signal, sys
signal.setitimer(signal.ITIMER_REAL, 0.3)
signal.signal(signal.SIGALRM, lambda *_: (_ for _ in ()).throw(KeyboardInterrupt))
try:
    kvalo.export_to_file({str(tmp_path / "o.csv")!r}, ',', 1, 0, 1e12, [(kvalo.TimeSeries([0], [1]), 's')])
except KeyboardInterrupt:
    print('stopped')
"""
    done = run_script(code)
    assert done.stdout == "stopped\n"
    assert list(tmp_path.iterdir()) == []
