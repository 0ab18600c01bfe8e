"""WAV files against the standard library's own reader, and what the script sees of bad ones."""

import os
import struct
import wave
from pathlib import Path

import kvalo
import numpy as np
import pytest
from common import opened, refused, samples, write
from hypothesis import HealthCheck, given, settings
from hypothesis import strategies as st

TYPES = {1: np.uint8, 2: np.int16, 4: np.int32}


def channel(container, k):
    return samples(container[f"channel{k + 1}"])


def agrees_with_wave(path):
    """Compares every channel with what the wave module reads; returns the frames."""
    with wave.open(str(path)) as file:
        rate, width, channels = file.getframerate(), file.getsampwidth(), file.getnchannels()
        frames = np.frombuffer(file.readframes(file.getnframes()), TYPES[width]).reshape(-1, channels)
    container = kvalo.Container(path=str(path))
    assert len(container) == channels
    for k in range(channels):
        x, y = channel(container, k)
        assert np.array_equal(y, frames[:, k].astype(float))
        assert np.array_equal(x, np.arange(len(frames)) * (1 / rate))
    return frames


def wav(width, channels, rate, data):
    block = channels * width
    form = struct.pack("<IHHIIHH", 16, 1, channels, rate, rate * block % 2**32, block, 8 * width)
    size, length = struct.pack("<I", 36 + len(data)), struct.pack("<I", len(data))
    return b"RIFF" + size + b"WAVEfmt " + form + b"data" + length + data


@settings(max_examples=40, suppress_health_check=[HealthCheck.function_scoped_fixture])
@given(
    width=st.sampled_from([1, 2, 4]),
    channels=st.integers(1, 5),
    rate=st.integers(1, 2**32 - 1),
    frames=st.integers(1, 300),
    seed=st.integers(0, 2**32 - 1),
)
def test_any_pcm_file_reads_as_the_standard_library_reads_it(tmp_path, width, channels, rate, frames, seed):
    data = np.random.default_rng(seed).bytes(frames * channels * width)
    agrees_with_wave(write(tmp_path / "any.wav", wav(width, channels, rate, data)))


def test_recorded_files(data_folder):
    folder = data_folder / "wav"
    frames = agrees_with_wave(folder / "stereo_8bit.wav")
    assert (frames.shape, frames.min(), frames.max()) == ((800, 2), 37, 218)
    for name, message in {
        "24bit_rejected.wav": r"Unsupported bits per sample value \(24\) for file .*24bit_rejected.wav\.",
        "float_rejected.wav": r"Unsupported audio format \(3\) for file .*float_rejected.wav\.",
        "mono_32bit.wav": r"Unsupported audio format \(65534\) for file .*mono_32bit.wav\.",
    }.items():
        container = kvalo.Container(path=str(folder / name))
        for k in range(len(container)):
            with pytest.raises(Exception, match=message):
                channel(container, k)


def test_files_in_another_layout_are_refused_with_the_reason_in_the_log(tmp_path, data_folder):
    log = Path(os.environ["KVALO_HOME"]) / "kvalo.log"
    whole = (data_folder / "wav" / "stereo_8bit.wav").read_bytes()
    path = tmp_path / "other.wav"
    for content in (b"RF64" + whole[4:], whole[:12] + b"JUNK\4\0\0\0abcd" + whole[12:], whole[:35], b""):
        logged = len(log.read_text()) if log.exists() else 0
        refused("File is not compatible with any built-in loaders or plugins", path=write(path, content))
        assert "other.wav' cannot be read as WAV: " in log.read_text()[logged:]
    text = "Error while loading file .*: Invalid 'bitsPerSample' value"
    refused(text, path=write(path, whole[:34] + b"\0\0" + whole[36:]))
    # The extension counts, in any case.
    assert len(kvalo.Container(path=write(tmp_path / "other.WAV", whole))) == 2
    refused("File is not compatible", path=write(tmp_path / "other.snd", whole))


def test_a_rate_of_zero_gives_indexes_and_says_so(tmp_path, capfd):
    c = opened(tmp_path / "zero.wav", wav(1, 1, 0, b"\1\2\3\4"))
    assert channel(c, 0) == ([0, 1, 2, 3], [1, 2, 3, 4])
    assert "The source provided an invalid time vector" in capfd.readouterr().out
