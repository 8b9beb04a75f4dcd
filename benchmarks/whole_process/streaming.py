"""A recording that is uploaded while it runs: processor time and memory beside the ffmpeg command line writing the same
three outputs, and how far apart a flash and its beep are in each of them.

usage: streaming.py PROGRAMS SECONDS AVSYNC_SECONDS      (on a private desktop; QUILLBEAM_BIN names PROGRAMS too)
"""

import os
import pathlib
import statistics
import sys
import tempfile
import time

from machine import Steal, usage_over
from recorders import PRESET, Recording, Scene
from synchrony import drift_per_minute, offsets

from movie import Movie
from upload_service import TOKEN, UploadService  # noqa: E402

WARM_UP = 3
AIMS = {"meeting": 0.85, "page": 0.2}
MEMORY_AIM = 300
SYNCHRONY_AIM = (15, 40)  # milliseconds: the median's and 95 %'s


def quillbeam(programs, directory, service):
    file = directory / "quillbeam.mp4"
    return Recording([programs / "quillbeam", "record", "--output", file, "--upload-url", service.url, "--token", TOKEN,
                      "--team", "t", "--folder", "f"], file)


def ffmpeg(directory):
    """Two encodings, as ours: the file with both sounds, and one with their mix that goes into fragments and a file."""
    file = directory / "ffmpeg.mp4"
    sound = ["-f", "pulse", "-sample_rate", "48000", "-channels", "2", "-fragment_size", "3840", "-thread_queue_size", "512"]
    coded = ["-c:v", "libx264", "-preset", PRESET, "-profile:v", "high", "-pix_fmt", "yuv420p", "-r", "24", "-c:a", "aac",
             "-b:a", "96k"]
    both = (f"[f=mp4:movflags=frag_keyframe+empty_moov+default_base_moof:frag_duration=10000000]{directory}/segments.mp4|"
            f"[f=mp4:movflags=+faststart]{directory}/backup.mp4")
    return Recording(["ffmpeg", "-v", "error", "-nostdin", "-y", "-thread_queue_size", "64", "-f", "x11grab", "-framerate",
                      "24", "-draw_mouse", "0", "-video_size", "1920x1080", "-i", os.environ["DISPLAY"], *sound, "-i",
                      "speakers.monitor", *sound, "-i", "microphone", "-filter_complex",
                      "[1:a]pan=mono|c0=.2*c0+.2*c1[s];[2:a]pan=mono|c0=.5*c0+.5*c1[m];[s][m]amix=normalize=0[mix]",
                      "-map", "0:v", "-map", "1:a", "-map", "2:a", *coded, "-b:v", "1800k", "-g", "36", "-movflags",
                      "+faststart", file, "-map", "0:v", "-map", "[mix]", *coded, "-b:v", "2000k", "-g", "48", "-bf", "0",
                      "-flags", "+global_header", "-f", "tee", both], file)


def measure(programs, scene, start, seconds):
    with Scene(programs, scene), Steal() as steal:
        recording = start()
        time.sleep(WARM_UP)
        processor, memory = usage_over(recording.process, seconds)
        recording.stop()
    return processor, memory, steal.percent


def compare_cost(programs, seconds, directory):
    for scene, aim in AIMS.items():
        with UploadService() as service:
            ours = measure(programs, scene, lambda: quillbeam(programs, directory, service), seconds)
        theirs = measure(programs, scene, lambda: ffmpeg(directory), seconds)
        for name, (processor, memory, steal) in (("quillbeam", ours), ("ffmpeg", theirs)):
            print(f"streaming {scene:8} {name:10} {processor:6.3f} CPU s/s {memory:6.0f} MiB  (steal {steal:.1f} %)", flush=True)
        ratio = ours[0] / max(theirs[0], 1e-3)
        print(f"streaming {scene:8} cost against ffmpeg: {ratio:.2f} x (aim: at most {aim} x)"
              f"{'' if ratio <= aim else '   <-- missed'}")
        print(f"streaming {scene:8} peak memory: {ours[1]:.0f} MiB (aim: at most {MEMORY_AIM} MiB)"
              f"{'' if ours[1] <= MEMORY_AIM else '   <-- missed'}", flush=True)


def judge_synchrony(programs, seconds, directory):
    with UploadService() as service:
        recording = quillbeam(programs, directory, service)
        time.sleep(2)
        with Scene(programs, "flash", tones=()):
            time.sleep(seconds)
        recording.stop()
        (uploaded,) = service.assembled_files().values()
        movies = {"file": recording.movie(), "uploaded": Movie(uploaded),
                  "backup": Movie(directory / "quillbeam_chunk_backup.mp4")}
        for name, movie in movies.items():
            pairs = offsets(movie)
            values = sorted(offset * 1000 for _, offset in pairs)
            low, high = values[int(0.025 * len(values))], values[int(0.975 * (len(values) - 1))]
            median = statistics.median(values)
            good = abs(median) <= SYNCHRONY_AIM[0] and -SYNCHRONY_AIM[1] <= low and high <= SYNCHRONY_AIM[1]
            print(f"streaming {name:8} beep minus flash: median {median:6.1f} ms, 95 % in {low:.1f} … {high:.1f} ms, drift "
                  f"{drift_per_minute(pairs) * 1000:5.1f} ms a minute, {len(values)} pairs (aim: ±{SYNCHRONY_AIM[0]} ms, "
                  f"±{SYNCHRONY_AIM[1]} ms){'' if good else '   <-- missed'}", flush=True)


def main():
    programs, seconds, avsync = pathlib.Path(sys.argv[1]).resolve(), float(sys.argv[2]), float(sys.argv[3])
    with tempfile.TemporaryDirectory(prefix="quillbeam-bench-") as directory:
        compare_cost(programs, seconds, pathlib.Path(directory))
        judge_synchrony(programs, avsync, pathlib.Path(directory))


if __name__ == "__main__":
    main()
