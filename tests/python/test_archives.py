"""Archives: which of their files is opened, under which name, and what is refused."""

import io
import operator
import os
import tarfile
import wave
import zipfile
from pathlib import Path

import kvalo
import pytest
from common import cases, in_threads, refused, samples, table_file, write

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


def values(path: Path) -> list[float]:
    return samples(kvalo.Container(path=str(path)).a)[1]


@cases("pack, name", (zipped, "log.ZIP"), (tarred, "log.tar.gz"))
def test_is_read_and_reported_by_its_own_path(tmp_path, cache, pack, name):
    path = pack(tmp_path / name, {"sub/log.csv": TABLE})
    container = kvalo.Container(path=str(path))
    assert container.get_path() == [str(path)]
    assert samples(container.a)[1] == [1, 3, 5]

    copy = tmp_path / f"copy.{name}"
    copy.write_bytes(path.read_bytes())
    os.utime(copy, ns=(0, path.stat().st_mtime_ns))
    other = kvalo.Container(path=str(copy))
    assert other.get_path() == [str(copy)]
    assert container.get_path() == [str(path)]
    assert len(list(cache.iterdir())) == 1, "the same content is unpacked once"


@cases("kind", "csv", "parquet", "h5", "mat", "xlsx")
def test_tables_of_every_format(tmp_path, kind):
    table = Path(table_file(tmp_path, kind, rows=300))
    archive = zipped(tmp_path / "table.zip", {table.name: table.read_bytes()})
    assert values(archive) == values(table) == [i % 100 for i in range(300)]


@cases("kind, name", ("bin", "ATT.Roll"), ("log", "ATT.Roll"), ("wav", "channel1"))
def test_logs_of_every_format(tmp_path, flight, kind, name):
    if kind == "wav":
        flight = {"wav": tmp_path / "sound.wav"}
        with wave.open(str(flight["wav"]), "wb") as file:
            file.setparams((2, 2, 8000, 0, "NONE", ""))
            file.writeframes(bytes(range(200)) * 4)
    file = flight[kind]
    archive = tarred(tmp_path / "log.tar.gz", {file.name: file.read_bytes()})
    packed, plain = (operator.attrgetter(name)(kvalo.Container(path=str(path))) for path in (archive, file))
    assert samples(packed) == samples(plain)
    assert len(packed) >= 200


OTHER = "time,other\n0,0\n1,0\n"


@cases(
    "files",
    {"b.csv": TABLE, "c.csv": OTHER},
    {"a.txt": "nothing to read here", "b.csv": TABLE, "c.csv": "x"},
    {".hidden.csv": OTHER, "__MACOSX/._b.csv": OTHER, "b.csv": TABLE},
    {"a.mat": "no MAT file", "a.xlsx": "no workbook", "a.zip": "no archive", "b.csv": TABLE},
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
    refused("too many archives", path=str(path))

    bad = zipped(tmp_path / "bad.zip", {"x": "no data"}).read_bytes()
    many = zipped(tmp_path / "many.zip", {f"{i}.zip": bad + bytes([i]) for i in range(100)})
    refused("No file in the archive|too many archives", path=str(many))


def protected_zip(path: Path) -> Path:
    content = bytearray(zipped(path, {"a.csv": TABLE}).read_bytes())
    for header, flags in ((b"PK\3\4", 6), (b"PK\1\2", 8)):
        content[content.index(header) + flags] |= 1
    path.write_bytes(content)
    return path


def test_refused_archives_say_why(tmp_path, cache):
    whole = tarred(tmp_path / "whole.tar.gz", {"a.csv": TABLE * 1000}).read_bytes()
    wrong = whole[:-6] + bytes([whole[-6] ^ 1]) + whole[-5:]
    reasons = {
        write(tmp_path / "cut.tar.gz", whole[: len(whole) // 2]): "damaged",
        write(tmp_path / "wrong.tar.gz", wrong): "damaged",
        write(tmp_path / "empty.7z", b""): "damaged",
        zipped(tmp_path / "nothing.zip", {"folder/": ""}): "it is empty",
        zipped(tmp_path / "text.zip", {"a.txt": "words"}): "No file in the archive .*not compatible",
        zipped(tmp_path / "leaves.zip", {"a.csv": TABLE, "../../evil.csv": TABLE}): "leaves the folder",
        zipped(tmp_path / "root.zip", {"/evil.csv": TABLE}): "absolute path",
        zipped(tmp_path / "drive.zip", {"C:\\evil.csv": TABLE}): "drive letter",
        protected_zip(tmp_path / "locked.zip"): "protected by a password",
    }
    for path, message in reasons.items():
        refused(message, path=str(path))
    assert not list(tmp_path.rglob("evil.csv"))
    assert not list(cache.glob(".tmp*")), "leftovers of failures"


def test_a_changed_archive_is_unpacked_anew(tmp_path):
    path = zipped(tmp_path / "a.zip", {"a.csv": TABLE})
    before = kvalo.Container(path=str(path))
    zipped(path, {"a.csv": TABLE.replace("5,6", "9,6")})
    assert values(path) == [1, 3, 9]
    assert samples(before.a)[1] == [1, 3, 5], "what is open stays as it was opened"


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
    assert in_threads(lambda path: values(path)[-1], big, big, big, big) == [199_999] * 4
