"""The clipboard of a desktop of our own (Xvfb), which another program (xclip) owns."""

import os
import shutil
import subprocess
import time

import pytest
from common import cases
from conftest import run_script

SCRIPT = """
import sys, kvalo
try:
    c = kvalo.create_from_clipboard()
except Exception as error:
    print(type(error).__name__, error)
else:
    for series in c.__dict__.values(): series.load()
    print(c, c.get_path(), {n: (list(s.xdata), list(s.ydata)) for n, s in c.__dict__.items()})
"""
XCLIP = ["xclip", "-selection", "clipboard"]
INCOMPATIBLE = "Exception Clipboard data is not compatible with any built-in loaders"


@pytest.fixture(scope="module")
def display():
    missing = [program for program in ("Xvfb", "xclip") if shutil.which(program) is None]
    if missing and os.geteuid() == 0:
        subprocess.run(["apt-get", "-qq", "-y", "install", "xvfb", "xclip"], capture_output=True, check=False)
        missing = [program for program in missing if shutil.which(program) is None]
    if missing:
        pytest.skip(f"no clipboard to test with: {', '.join(missing)} missing (packages xvfb, xclip)")
    read, write = os.pipe()
    server = subprocess.Popen(
        # Without a reset when the last program goes, which would turn away one that comes just then.
        ["Xvfb", "-displayfd", str(write), "-noreset", "-screen", "0", "64x64x24"],
        pass_fds=[write],
        stdout=subprocess.DEVNULL,
        stderr=subprocess.DEVNULL,
    )
    os.close(write)
    with os.fdopen(read) as number:
        name = f":{number.readline().strip()}"
    yield name
    server.terminate()
    server.wait()


@pytest.fixture
def clipboard(display, monkeypatch):
    """Gives a text to the clipboard and returns what a script makes of it."""
    monkeypatch.setenv("DISPLAY", display)
    monkeypatch.delenv("WAYLAND_DISPLAY", raising=False)
    owners = []

    def run(text: bytes | None, **more: str) -> str:
        if text is not None:
            command = [*XCLIP, "-quiet"]
            owner = subprocess.Popen(command, stdin=subprocess.PIPE, stderr=subprocess.DEVNULL)
            owners.append(owner)
            owner.stdin.write(text)
            owner.stdin.close()
            wait_for_owner(text)
        done = run_script(SCRIPT, **more)
        assert done.returncode == 0, done.stderr
        return done.stdout

    run.owners = owners
    yield run
    for owner in owners:
        owner.kill()
        owner.wait()


def wait_for_owner(text: bytes) -> None:
    for _ in range(200):
        if subprocess.run([*XCLIP, "-o"], capture_output=True).stdout == text:
            return
        time.sleep(0.05)
    pytest.fail("xclip did not take the clipboard over")


def test_tab_comes_first(clipboard):
    out = clipboard(b"time\ta,b\tc\n0\t1,5\t2\n1\t3,5\t4\n")
    assert out.startswith("2 variables [''] {'a_b': ([0.0, 1.0], [1.0, 3.0]), 'c': ")


@cases("delimiter", ",", ";", "|")
def test_other_delimiters_and_line_ends(clipboard, delimiter):
    text = "time,a\r\n0,1\r\n1,2\r\n".replace(",", delimiter)
    assert "{'a': ([0.0, 1.0], [1.0, 2.0])}" in clipboard(text.encode())


def test_a_long_text(clipboard):
    """Longer than what one answer of the owner holds."""
    rows = 300_000
    text = "time,a\n" + "".join(f"{i},{i}\n" for i in range(rows))
    assert f"{rows - 1}.0])}}" in clipboard(text.encode())


@cases("text", b"just words", b"a,b\n1\n2\n", b"\n")
def test_other_text_is_rejected(clipboard, text):
    assert clipboard(text).strip() == INCOMPATIBLE


def test_no_text_and_no_desktop(clipboard, display):
    assert clipboard(None).strip() == "Exception Could not open read clipboard"
    assert clipboard(None, DISPLAY=":12345").strip() == "Exception Could not open clipboard"
    assert clipboard(None, DISPLAY="").strip() == "Exception Could not open clipboard"


def test_an_owner_that_hangs(clipboard):
    clipboard(b"time,a\n0,1\n1,2\n")
    owner = clipboard.owners[-1]
    owner.send_signal(subprocess.signal.SIGSTOP)
    os.waitid(os.P_PID, owner.pid, os.WSTOPPED | os.WNOWAIT)  # on a busy machine it runs on for a while
    assert clipboard(None).strip() == "Exception Error while reading data from clipboard"


def test_libclipboard_is_preferred(clipboard, tmp_path):
    """Where it is installed; a library of its interface stands for it here."""
    source = tmp_path / "clipboard.c"
    source.write_text(
        "#include <string.h>\n"
        "void *clipboard_new(void *options) { static int it; return options ? 0 : &it; }\n"
        'char *clipboard_text(void *it) { return strdup("t;a\\n0;7\\n1;8\\n"); }\n'
        "void clipboard_free(void *it) {}\n"
    )
    subprocess.run(["cc", "-shared", "-fPIC", "-o", tmp_path / "libclipboard.so", source], check=True)
    assert "[7.0, 8.0]" in clipboard(None, LD_LIBRARY_PATH=str(tmp_path))
