"""What the tests of plug-ins share: the compiled ones, the calls they got, the plug-in folder."""

import ctypes
import os
import shutil
from pathlib import Path

import pytest
from conftest import ROOT

BUILD = Path(os.environ.get("KVALO_BUILD", ROOT / "build" / "release"))
TEST_PLUGINS = BUILD / "tests" / "plugins"
EXAMPLES = BUILD / "examples" / "plugins"
NASTY = TEST_PLUGINS / "nasty.so"


def calls(library=NASTY):
    """The calls that the plug-in got since this was asked last, one text each."""
    get_calls = ctypes.CDLL(str(library)).get_calls
    get_calls.restype = ctypes.c_char_p
    return get_calls().decode().rstrip(";").split(";")


@pytest.fixture
def plugin_folder():
    """The folder of installed plug-ins, empty before and after."""
    folder = Path(os.environ["KVALO_HOME"]) / "plugins"
    shutil.rmtree(folder, ignore_errors=True)
    folder.mkdir()
    yield folder
    shutil.rmtree(folder)


def log_text():
    log = Path(os.environ["KVALO_HOME"]) / "kvalo.log"
    return log.read_text() if log.exists() else ""
