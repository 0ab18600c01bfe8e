"""The example that scripts/demo shows, on a short flight: what it prints and the table it leaves."""

import csv
import subprocess
import sys

from conftest import ROOT

EXAMPLE = ROOT / "examples" / "first_flight.py"


def test_first_flight(tmp_path):
    done = subprocess.run(
        [sys.executable, str(EXAMPLE), str(tmp_path), "--minutes", "8"], capture_output=True, text=True
    )
    assert done.returncode == 0, done.stdout + done.stderr
    assert "ATT.Roll" in done.stdout
    # The sag of the rail that overloads it is found, and nothing that came before by chance.
    findings = [line for line in done.stdout.splitlines() if "before every occurrence" in line]
    assert findings == ["rail_voltage, 2.5625 seconds before every occurrence, decreased to below 5.3."]

    table = tmp_path / "flight.csv"
    assert str(table) in done.stdout
    picture, page = tmp_path / "flight.png", tmp_path / "flight.html"
    assert done.stdout.splitlines()[-2:] == [f"The charts are in {file}" for file in (picture, page)]
    assert picture.read_bytes().startswith(b"\x89PNG")
    assert "charge [mAh]" in page.read_text("utf-8")
    header, *rows = csv.reader(table.open())
    assert header == ["Time", "roll [deg]", "altitude [m]", "current [A]", "charge [mAh]"]
    columns = [[float(value) for value in column] for column in zip(*rows, strict=True)]
    times, roll, altitude, _, charge = columns
    assert 4700 < len(times) <= 4801
    # It takes off, stays within what the controller allows, and the charge only ever grows.
    assert 30 < max(altitude) - altitude[0] < 100
    assert 3 < max(map(abs, roll)) < 60
    assert charge == sorted(charge)
    assert charge[-1] > 100
