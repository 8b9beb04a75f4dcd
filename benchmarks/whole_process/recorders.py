"""The recorders under comparison: each starts recording into a file and ends well on SIGINT."""

import os
import pathlib
import shutil
import signal
import subprocess
import sys
import time

ROOT = pathlib.Path(__file__).resolve().parents[2]
sys.path.insert(0, str(ROOT / "tests" / "end_to_end"))

from movie import Movie  # noqa: E402  (after the path to it is known)

PRESET = "superfast"


class Recording:
    """A recorder at work."""

    def __init__(self, command, file):
        self.file = file
        file.unlink(missing_ok=True)
        self.started = time.monotonic()
        self.process = subprocess.Popen([str(part) for part in command], stdin=subprocess.DEVNULL,
                                        stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)

    def stop(self):
        """Seconds until the file was finished."""
        before = time.monotonic()
        self.process.send_signal(signal.SIGINT)
        self.process.wait(60)
        return time.monotonic() - before

    def movie(self):
        return Movie(self.file)


def quillbeam(programs, directory):
    file = directory / "quillbeam.mp4"
    return Recording([programs / "quillbeam", "record", "--output", file], file)


def ffmpeg(_, directory):
    file = directory / "ffmpeg.mp4"
    sound = ["-f", "pulse", "-sample_rate", "48000", "-channels", "2", "-fragment_size", "3840", "-thread_queue_size", "512"]
    command = ["ffmpeg", "-v", "error", "-nostdin", "-y",
               "-thread_queue_size", "64", "-f", "x11grab", "-framerate", "24", "-draw_mouse", "0",
               "-video_size", "1920x1080", "-i", os.environ["DISPLAY"], *sound, "-i", "speakers.monitor",
               *sound, "-i", "microphone", "-map", "0:v", "-map", "1:a", "-map", "2:a",
               "-c:v", "libx264", "-preset", PRESET, "-profile:v", "high", "-pix_fmt", "yuv420p", "-b:v", "1800k",
               "-g", "36", "-c:a", "aac", "-b:a", "96k", "-r", "24", "-movflags", "+faststart", file]
    return Recording(command, file)


def available():
    """(name, function that starts it), this project's first."""
    recorders = [("quillbeam", quillbeam)]
    if shutil.which("ffmpeg"):
        recorders.append(("ffmpeg", ffmpeg))
    return recorders


class Scene:
    """with Scene(programs, "meeting"): … shows a scene with a tone on both sound sources."""

    def __init__(self, programs, name, tones=("330", "550@mouth")):
        self.command = [str(programs / "demo-scene"), name]
        for tone in tones:
            self.command += ["--tone", tone]

    def __enter__(self):
        self.process = subprocess.Popen(self.command, stdout=subprocess.PIPE, text=True)
        if self.process.stdout.readline().strip() != "ready":
            raise RuntimeError("the scene did not come up")
        self.started = time.monotonic()
        return self

    def __exit__(self, *_):
        self.process.terminate()
        self.process.wait()
        self.process.stdout.close()
