"""Mixing ten minutes of two tracks into one file: processor time and peak memory, beside the ffmpeg command line doing the
same mix on one thread.

usage: mix.py PROGRAMS
"""

import os
import pathlib
import shutil
import statistics
import subprocess
import sys
import tempfile
import time

from machine import Steal

SECONDS = 600
ROUNDS = 3
COST_AIM = 1.1
SPEED_AIM = 60  # seconds of sound per second of processor time
GROWTH_AIM = 8  # MiB between one minute and ten: the indexes

# Syllables of band-limited noise, as loud as people talk; the second is turned up until the limiter has work.
VOICE = "anoisesrc=color=pink:r=48000:a=0.9:d={seconds}:seed={seed},bandpass=f={pitch}:width_type=h:w={width}," \
        "tremolo=f={syllables}:d=0.9,volume=4,aformat=channel_layouts=stereo"
VOICES = (VOICE.format(seconds=SECONDS, seed=1, pitch=700, width=900, syllables=3),
          VOICE.format(seconds=SECONDS, seed=2, pitch=900, width=1200, syllables=4))
GRAPH = "[0:a:0]volume=1.0[a];[0:a:1]volume=2.5[b];[a][b]amix=inputs=2:normalize=0,alimiter=level=0"
QUIET = ["ffmpeg", "-v", "quiet", "-nostdin", "-y"]


def record(source, minute):
    inputs = [part for voice in VOICES for part in ("-f", "lavfi", "-i", voice)]
    subprocess.run([*QUIET, *inputs, "-map", "0", "-map", "1", "-c:a", "aac", "-b:a", "96k", source], check=True)
    subprocess.run([*QUIET, "-i", source, "-map", "0", "-t", "60", "-c", "copy", minute], check=True)


def quillbeam(programs, source, output):
    return [programs / "mix-once", source, output]


def ffmpeg(source, output):
    return [*QUIET, "-threads", "1", "-filter_threads", "1", "-filter_complex_threads", "1", "-i", source,
            "-filter_complex", GRAPH, "-c:a", "aac", "-b:a", "128k", "-threads", "1", "-movflags", "+faststart", output]


def run(command):
    """Processor seconds, wall seconds, peak memory in MiB."""
    started = time.monotonic()
    process = subprocess.Popen(command)
    _, status, usage = os.wait4(process.pid, 0)
    process.returncode = os.waitstatus_to_exitcode(status)
    if process.returncode != 0:
        raise RuntimeError(f"{command[0]} failed")
    return usage.ru_utime + usage.ru_stime, time.monotonic() - started, usage.ru_maxrss / 1024


def aim(text, reached):
    return f"(aim: {text}){'' if reached else '   <-- missed'}"


def main():
    programs = pathlib.Path(sys.argv[1]).resolve()
    if shutil.which("ffmpeg") is None:
        print("mix: not measured, its sound is made by ffmpeg")
        return
    with tempfile.TemporaryDirectory(prefix="quillbeam-bench-") as name, Steal() as steal:
        directory = pathlib.Path(name)
        source, minute = directory / "tracks.m4a", directory / "minute.m4a"
        record(source, minute)
        commands = {"quillbeam": quillbeam(programs, source, directory / "quillbeam.m4a"),
                    "ffmpeg": ffmpeg(source, directory / "ffmpeg.m4a")}
        rounds = {name: [] for name in commands}
        for _ in range(ROUNDS):
            for name, command in commands.items():
                rounds[name].append(run(command))
        short = run(quillbeam(programs, minute, directory / "short.m4a"))[2]
    cost = {name: statistics.median(processor for processor, _, _ in results) for name, results in rounds.items()}
    memory = {name: max(peak for _, _, peak in results) for name, results in rounds.items()}
    for name, results in rounds.items():
        wall = statistics.median(wall for _, wall, _ in results)
        print(f"mix {name:10} {cost[name]:6.2f} CPU s, {wall:6.2f} s, {memory[name]:4.0f} MiB for {SECONDS} s of two tracks  "
              f"(steal {steal.percent:.1f} %)")
    ratio, speed = cost["quillbeam"] / cost["ffmpeg"], SECONDS / cost["quillbeam"]
    growth = memory["quillbeam"] - short
    print(f"mix cost against ffmpeg: {ratio:.2f} x {aim(f'at most {COST_AIM} x', ratio <= COST_AIM)}")
    print(f"mix speed: {speed:.0f} x real time on one core {aim(f'at least {SPEED_AIM} x', speed >= SPEED_AIM)}")
    print(f"mix memory: {growth:.1f} MiB more than for one minute {aim(f'at most {GROWTH_AIM} MiB', growth <= GROWTH_AIM)}")


if __name__ == "__main__":
    main()
