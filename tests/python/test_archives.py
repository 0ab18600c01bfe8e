"""Archives: which of their files is opened, under which name, and what is refused."""

import io
import os
import tarfile
import threading
import zipfile
from pathlib import Path

import kvalo
import pytest

TABLE = "time,a,b\n0,1,2\n1,3,4\n2,5,6\n"


@pytest.fixture(autouse=True)
def cache(tmp_path, monkeypatch) -> Path:
    monkeypatch.setenv("KVALO_HOME", str(tmp_path / "home"))
    return tmp_path / "home" / "cache"


def zipped(path: Path, files: dict[str, str | bytes]) -> Path:
    with zipfile.ZipFile(path, "w", zipfile.ZIP_DEFLATED) as archive:
        for name, content in files.items():
            archive.writestr(name, content)
    return path


def tarred(path: Path, files: dict[str, str | bytes]) -> Path:
    with tarfile.open(path, "w:gz") as archive:
        for name, content in files.items():
            entry = tarfile.TarInfo(name)
            content = content.encode() if isinstance(content, str) else content
            entry.size = len(content)
            archive.addfile(entry, io.BytesIO(content))
    return path


def values(path: Path, name: str = "a") -> list[float]:
    container = kvalo.Container(path=str(path))
    container[name].load()
    return list(container[name].ydata)


@pytest.mark.parametrize(("pack", "name"), [(zipped, "log.ZIP"), (tarred, "log.tar.gz")])
def test_is_read_and_reported_by_its_own_path(tmp_path, cache, pack, name):
    path = pack(tmp_path / name, {"sub/log.csv": TABLE})
    container = kvalo.Container(path=str(path))
    assert container.get_path() == [str(path)]
    container.a.load()
    assert list(container.a.ydata) == [1, 3, 5]

    copy = tmp_path / f"copy.{name}"
    copy.write_bytes(path.read_bytes())
    os.utime(copy, ns=(0, path.stat().st_mtime_ns))
    other = kvalo.Container(path=str(copy))
    assert other.get_path() == [str(copy)]
    assert container.get_path() == [str(path)]
    assert len(list(cache.iterdir())) == 1, "the same content is unpacked once"


@pytest.mark.parametrize(
    "files",
    [
        {"b.csv": TABLE, "c.csv": "time,other\n0,0\n1,0\n"},
        {"a.txt": "nothing to read here", "b.csv": TABLE, "c.csv": "x"},
        {".hidden.csv": "time,other\n0,0\n1,0\n", "__MACOSX/._b.csv": "t,o\n0,0\n1,0\n", "b.csv": TABLE},
        {"a.mat": b"no MAT file", "a.xlsx": b"no workbook", "a.zip": b"no archive", "b.csv": TABLE},
    ],
    ids=["name order", "unreadable first", "hidden first", "damaged first"],
)
def test_the_first_readable_file_in_name_order(tmp_path, files):
    assert values(zipped(tmp_path / "a.zip", dict(reversed(files.items())))) == [1, 3, 5]


def test_archives_within_archives_are_bounded(tmp_path):
    path = zipped(tmp_path / "0.zip", {"log.csv": TABLE})
    for level in range(1, 4):
        pack, extension = (tarred, "tar.gz") if level % 2 else (zipped, "zip")
        path = pack(tmp_path / f"{level}.{extension}", {path.name: path.read_bytes()})
    container = kvalo.Container(path=str(path))
    assert container.get_path() == [str(path)]
    assert container.get_size() == 2
    path = zipped(tmp_path / "4.zip", {path.name: path.read_bytes()})
    with pytest.raises(Exception, match="too many archives"):
        kvalo.Container(path=str(path))

    bad = zipped(tmp_path / "bad.zip", {"x": "no data"}).read_bytes()
    many = zipped(tmp_path / "many.zip", {f"{i}.zip": bad + bytes([i]) for i in range(100)})
    with pytest.raises(Exception, match="No file in the archive|too many archives"):
        kvalo.Container(path=str(many))


def protected_zip(path: Path) -> Path:
    content = bytearray(zipped(path, {"a.csv": TABLE}).read_bytes())
    for header, flags in ((b"PK\3\4", 6), (b"PK\1\2", 8)):
        content[content.index(header) + flags] |= 1
    path.write_bytes(content)
    return path


def test_refused_archives_say_why(tmp_path, cache):
    whole = tarred(tmp_path / "whole.tar.gz", {"a.csv": TABLE * 1000}).read_bytes()
    cut = tmp_path / "cut.tar.gz"
    cut.write_bytes(whole[: len(whole) // 2])
    wrong = tmp_path / "wrong.tar.gz"
    wrong.write_bytes(whole[:-6] + bytes([whole[-6] ^ 1]) + whole[-5:])
    empty = tmp_path / "empty.7z"
    empty.write_bytes(b"")
    cases = {
        cut: "damaged",
        wrong: "damaged",
        empty: "damaged",
        zipped(tmp_path / "nothing.zip", {"folder/": ""}): "it is empty",
        zipped(tmp_path / "text.zip", {"a.txt": "words"}): "No file in the archive .*not compatible",
        zipped(tmp_path / "leaves.zip", {"a.csv": TABLE, "../../evil.csv": TABLE}): "leaves the folder",
        zipped(tmp_path / "root.zip", {"/evil.csv": TABLE}): "absolute path",
        zipped(tmp_path / "drive.zip", {"C:\\evil.csv": TABLE}): "drive letter",
        protected_zip(tmp_path / "locked.zip"): "protected by a password",
    }
    for path, message in cases.items():
        with pytest.raises(Exception, match=message):
            kvalo.Container(path=str(path))
    assert not list(tmp_path.rglob("evil.csv"))
    assert not list(cache.glob(".tmp*")), "leftovers of failures"


def test_a_changed_archive_is_unpacked_anew(tmp_path):
    path = zipped(tmp_path / "a.zip", {"a.csv": TABLE})
    before = kvalo.Container(path=str(path))
    zipped(path, {"a.csv": TABLE.replace("5,6", "9,6")})
    assert values(path) == [1, 3, 9]
    before.a.load()
    assert list(before.a.ydata) == [1, 3, 5], "what is open stays as it was opened"


def test_a_name_with_foreign_bytes(tmp_path):
    path = zipped(tmp_path / "a.zip", {"daten_x.csv": TABLE})
    path.write_bytes(path.read_bytes().replace(b"daten_x", b"daten\xf6x"[:5] + b"\xf6x"))
    assert values(path) == [1, 3, 5]


def test_merge_and_threads(tmp_path):
    path = zipped(tmp_path / "a.zip", {"a.csv": TABLE})
    second = tarred(tmp_path / "b.tar.gz", {"b.csv": TABLE.replace("a,b", "a,c")})
    container = kvalo.Container(path=str(path))
    container.merge(str(second))
    assert container.get_path() == [str(path), str(second)]

    big = zipped(tmp_path / "big.zip", {"a.csv": "time,a\n" + "".join(f"{i},{i}\n" for i in range(200_000))})
    results = []
    threads = [threading.Thread(target=lambda: results.append(values(big)[-1])) for _ in range(4)]
    for thread in threads:
        thread.start()
    for thread in threads:
        thread.join()
    assert results == [199_999] * 4
