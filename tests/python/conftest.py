"""What every Python test shares: a home of its own for the module, and the folder of recorded data."""

import contextlib
import gc
import os
import subprocess
import sys
import tempfile
from pathlib import Path

import hypothesis
import pytest

# How long an example takes says something of the machine, not of the product.
hypothesis.settings.register_profile("patient", deadline=None)
hypothesis.settings.load_profile("patient")

ROOT = Path(__file__).resolve().parent.parent.parent

# Before anything imports kvalo: its settings, log and cache must not touch those of the person testing.
_home = tempfile.TemporaryDirectory(prefix="kvalo-home-")
os.environ["KVALO_HOME"] = _home.name
sys.path.insert(0, str(ROOT / "examples"))

import kvalo  # noqa: E402

# The log is opened with its first line and stays where it is: a test that moves KVALO_HOME must not be first.
with contextlib.suppress(Exception):
    kvalo.Container()


def run_script(code: str, *arguments: str, **environment: str) -> subprocess.CompletedProcess:
    """Runs a script in an interpreter of its own."""
    return subprocess.run(
        [sys.executable, "-c", code, *arguments],
        capture_output=True,
        text=True,
        timeout=600,
        env={**os.environ, **environment},
    )


@pytest.fixture(autouse=True)
def _nothing_left_of_earlier_tests():
    """Series are found by name among all that live: those in a failed call's cycle must be gone."""
    gc.collect()


@pytest.fixture(scope="session")
def data_folder() -> Path:
    """Files recorded elsewhere; they are not part of the tree, so tests that need them may be skipped."""
    folder = ROOT.parent / "shared" / "data"
    if not folder.is_dir():
        pytest.skip(f"recorded data is missing: {folder}")
    return folder


@pytest.fixture(scope="session")
def flight(tmp_path_factory) -> dict[str, Path]:
    """The files of a synthetic flight."""
    from sample_flight import write_flight

    return write_flight(tmp_path_factory.mktemp("flight"), minutes=5, forms=("bin", "log", "csv"))


@pytest.fixture(scope="session")
def _installed_host():
    from host import Host

    installed = Host()
    assert kvalo.callback(installed.capsule()) is None
    gc.collect()  # the module has a copy of the handler
    assert kvalo.callback(42) is None  # not a capsule: the handler stays
    return installed


@pytest.fixture
def host(_installed_host):
    """The recording host, installed as this process's handler, without messages."""
    _installed_host.library.recorder_clear()
    yield _installed_host
    _installed_host.library.recorder_clear()


@pytest.fixture
def live():
    """Makes live containers; afterwards the process is off line again."""
    from plugin_tools import NASTY

    made = []

    def make(plugin=NASTY, **arguments):
        made.append(kvalo.Container(plugin=str(plugin), realtime=True, **arguments))
        return made[-1]

    yield make
    made.clear()
    gc.collect()
