"""WAV files: a hundred megabytes of 16-bit stereo.

Files of one sampling rate show one vector of times, which is kept when the last of them goes. What a load costs
that has to make it is measured by loading a short file of another rate in between.
"""

import wave

from harness import DATA, Row, check, main, measure, ratio

import kvalo  # isort: skip
import numpy as np
from scipy.io import wavfile

PATH = DATA / "stereo.wav"
OTHER_RATE = DATA / "short_44100.wav"
FRAMES = 25_000_000
RATE = 48_000


def one_channel(k: int = 1) -> kvalo.TimeSeries:
    series = kvalo.Container(path=str(PATH))[f"channel{k + 1}"]
    series.load()
    return series


def one_channel_anew() -> kvalo.TimeSeries:
    kvalo.Container(path=str(OTHER_RATE))["channel1"].load()
    return one_channel()


def both_channels() -> list[kvalo.TimeSeries]:
    container = kvalo.Container(path=str(PATH))
    for k in range(2):
        container[f"channel{k + 1}"].load()
    return container


def benchmark() -> list[Row]:
    if not PATH.exists():
        print(f"writing {PATH}")
        phase = np.arange(FRAMES) * (2 * np.pi * 440 / RATE)
        frames = np.stack([np.sin(phase), np.cos(phase * 1.5)], axis=1) * 30_000
        with wave.open(str(PATH), "wb") as file:
            file.setparams((2, 2, RATE, 0, "NONE", ""))
            file.writeframes(frames.astype(np.int16).tobytes())
        del phase, frames
    with wave.open(str(OTHER_RATE), "wb") as file:
        file.setparams((1, 2, 44_100, 0, "NONE", ""))
        file.writeframes(bytes(200))
    print(f"{PATH.stat().st_size / 1e6:.0f} MB")

    rate, frames = wavfile.read(PATH)
    series = one_channel()
    check("times", np.array_equal(np.asarray(series.xdata), np.arange(FRAMES) * (1 / rate)))
    check("values", np.array_equal(np.asarray(series.ydata), frames[:, 1]))
    del series, frames

    print("one channel, with its times")
    one = measure(
        {
            "kvalo": one_channel,
            "kvalo, times made again": one_channel_anew,
            "scipy": lambda: wavfile.read(PATH),
        },
        rounds=9,
    )
    print("both channels")
    both = measure({"kvalo": both_channels, "scipy": lambda: wavfile.read(PATH)}, rounds=5)
    return [
        ratio("WAV: one of two channels / scipy.io.wavfile.read", one, "kvalo", "scipy", 0.5),
        ratio("WAV: the same, its times made again / scipy", one, "kvalo, times made again", "scipy", 0.5),
        ratio("WAV: both channels / scipy.io.wavfile.read", both, "kvalo", "scipy", 1.0),
    ]


if __name__ == "__main__":
    main(benchmark)
