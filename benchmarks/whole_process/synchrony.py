"""How far apart a flash and its beep are in a recording; positive: the sound comes late.

A picture shows a flash up to one picture late, half of one on average: that half is added to what is read.

usage: synchrony.py PROGRAMS SECONDS      (on a private desktop)
"""

import array
import pathlib
import statistics
import subprocess
import sys
import tempfile
import time

from machine import Steal
from recorders import Scene, available

RATE = 48000
HALF_PICTURE = 0.5 / 24
QUIET = int(0.3 * RATE)  # this long without sound before a beep


def flashes(movie):
    """Times of the pictures that turned white."""
    raw = subprocess.run(["ffmpeg", "-v", "error", "-i", movie.path, "-fps_mode", "passthrough", "-vf",
                          "scale=1:1:flags=area,format=gray", "-f", "rawvideo", "-"], capture_output=True, check=True).stdout
    times = movie.picture_times()
    return [times[i] for i in range(1, min(len(raw), len(times))) if raw[i] > 128 >= raw[i - 1]]


def beeps(movie, track=0):
    """Times at which sound begins, to the sample."""
    raw = subprocess.run(["ffmpeg", "-v", "error", "-copyts", "-i", movie.path, "-map", f"0:a:{track}", "-af",
                          "aresample=async=1:first_pts=0", "-ac", "1", "-ar", str(RATE), "-f", "f32le", "-"],
                         capture_output=True, check=True).stdout
    samples = array.array("f", raw)
    threshold = 0.5 * max(map(abs, samples), default=0)
    found, last_loud = [], -QUIET
    for position, sample in enumerate(samples):
        if abs(sample) > threshold > 0.01:
            if position - last_loud > QUIET:
                found.append(position / RATE)
            last_loud = position
    return found


def offsets(movie):
    """(time of the flash, beep minus flash) of each pair, in seconds."""
    heard = beeps(movie)
    pairs = []
    for flash in flashes(movie):
        nearest = min(heard, key=lambda beep: abs(beep - flash), default=None)
        if nearest is not None and abs(nearest - flash) < 0.4:
            pairs.append((flash, nearest - flash + HALF_PICTURE))
    return pairs


def drift_per_minute(pairs):
    """Slope of a straight line through the offsets, in seconds a minute."""
    if len(pairs) < 4:
        return float("nan")
    mean_time = statistics.fmean(t for t, _ in pairs)
    mean_offset = statistics.fmean(o for _, o in pairs)
    spread = sum((t - mean_time) ** 2 for t, _ in pairs)
    return 60 * sum((t - mean_time) * (o - mean_offset) for t, o in pairs) / spread


def main():
    programs, seconds = pathlib.Path(sys.argv[1]).resolve(), float(sys.argv[2])
    with tempfile.TemporaryDirectory(prefix="quillbeam-bench-") as directory:
        for name, start in available():
            with Steal() as steal:
                recording = start(programs, pathlib.Path(directory))
                time.sleep(2)
                with Scene(programs, "flash", tones=()):
                    time.sleep(seconds)
                recording.stop()
            pairs = offsets(recording.movie())
            if not pairs:
                print(f"synchrony {name:10} no flash with a beep found")
                continue
            values = sorted(offset * 1000 for _, offset in pairs)
            low, high = values[int(0.025 * len(values))], values[int(0.975 * (len(values) - 1))]
            print(f"synchrony {name:10} beep minus flash: median {statistics.median(values):6.1f} ms, 95 % in "
                  f"{low:.1f} … {high:.1f} ms, drift {drift_per_minute(pairs) * 1000:5.1f} ms a minute, "
                  f"{len(values)} pairs  (steal {steal.percent:.1f} %)", flush=True)


if __name__ == "__main__":
    main()
