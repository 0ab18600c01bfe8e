"""How long a page waits for a view while the script computes: idle, in Python, in C with the interpreter lock.

The page is a process of its own that asks for a view twenty times a second and waits for its 1600 columns.
"""

import base64
import ctypes
import json
import os
import socket
import statistics
import struct
import subprocess
import sys
import time
import urllib.parse

ROUNDS = 100
WIDTH = 1600


def page(address: str) -> list[float]:
    """Asks for views and returns how many milliseconds each took."""
    url = urllib.parse.urlsplit(address)
    stream = socket.create_connection((url.hostname, url.port))
    stream.setsockopt(socket.IPPROTO_TCP, socket.TCP_NODELAY, 1)
    key = base64.b64encode(os.urandom(16)).decode()
    stream.sendall(
        f"GET {url.path}s HTTP/1.1\r\nHost: {url.netloc}\r\nOrigin: http://{url.netloc}\r\nUpgrade: websocket\r\n"
        f"Connection: Upgrade\r\nSec-WebSocket-Key: {key}\r\nSec-WebSocket-Version: 13\r\n\r\n".encode()
    )
    incoming = stream.makefile("rb")
    while incoming.readline() != b"\r\n":
        pass

    def frame() -> bytes:
        length = incoming.read(2)[1] & 127
        if length == 126:
            (length,) = struct.unpack(">H", incoming.read(2))
        elif length == 127:
            (length,) = struct.unpack(">Q", incoming.read(8))
        return incoming.read(length)

    def ask(kind: int, seq: int, chart: int = 0, a: float = 0, b: float = 0) -> None:
        request = struct.pack("<BBHIIHHdddd", kind, 0, 0, seq, chart, WIDTH, 900, a, b, 0, 0)
        stream.sendall(bytes([0x82, 0x80 | len(request), 0, 0, 0, 0]) + request)

    def batch() -> list[bytes]:
        frames = [frame()]
        while not frames[-1].startswith(b'{"type":"end"'):
            frames.append(frame())
        ask(4, json.loads(frames[-1])["batch"])
        return frames

    chart = json.loads(batch()[0])["charts"][0]["key"]
    taken = []
    for seq in range(1, ROUNDS + 5):
        time.sleep(0.05)
        start = time.perf_counter()
        ask(1, seq, chart, seq, 900_000 + seq)
        while not any(part[4:8] == struct.pack("<I", seq) for part in batch() if part[:1] != b"{"):
            pass
        taken.append((time.perf_counter() - start) * 1e3)
    return taken[4:]  # the first ones build the pyramid


def busy_in_python() -> None:
    end = time.perf_counter() + 0.2
    while time.perf_counter() < end:
        sum(range(1000))


def busy_in_c() -> None:
    ctypes.PyDLL(None).usleep(300_000)  # keeps the lock all the time


def benchmark() -> list:
    from harness import ROOT, Row

    built = ROOT / "build" / "release"
    subprocess.run(
        ["cmake", "--build", built, "--target", "kvalo_view_bridge", "view_sender"],
        check=True,
        stdout=subprocess.DEVNULL,
    )
    sys.path.insert(0, str(built / "src"))
    import _view

    sender = ctypes.PyDLL(str(built / "tests" / "libview_sender.so"))
    pointer_of = ctypes.pythonapi.PyCapsule_GetPointer
    pointer_of.restype, pointer_of.argtypes = ctypes.c_void_p, [ctypes.py_object, ctypes.c_char_p]
    samples = (ctypes.c_double * 1_000_000)(*range(1_000_000))
    sender.send_chart(
        ctypes.c_void_p(pointer_of(_view.handler(), None)),
        b"chart2d_line",
        ctypes.c_uint64(1),
        ctypes.c_uint64(1),
        b"s",
        samples,
        samples,
        ctypes.c_size_t(len(samples)),
    )
    address = _view.serve(str(ROOT / "bench"))
    rows = []
    for name, work in {
        "idle": lambda: time.sleep(0.1),
        "busy in Python": busy_in_python,
        "in a C call that keeps the lock": busy_in_c,
    }.items():
        client = subprocess.Popen([sys.executable, __file__, "--page", address], stdout=subprocess.PIPE)
        while client.poll() is None:
            work()
        taken = sorted(json.loads(client.stdout.read()))
        p95 = taken[int(0.95 * len(taken))]
        print(f"  {name:<32} median {statistics.median(taken):.1f}, p95 {p95:.1f}, worst {taken[-1]:.1f} ms")
        rows.append(Row(f"round trip, script {name}: p95", p95, 5, "ms", f"worst {taken[-1]:.1f} ms"))
        rows.append(Row(f"round trip, script {name}: worst", taken[-1], 50, "ms"))
    _view.stop()
    return rows


if __name__ == "__main__":
    if sys.argv[1:2] == ["--page"]:
        print(json.dumps(page(sys.argv[2])))
    else:
        from harness import main

        main(benchmark)
