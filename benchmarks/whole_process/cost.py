"""Processor time, memory, likeness and latency of a recording, beside the ffmpeg command line's.

usage: cost.py PROGRAMS SECONDS      (on a private desktop)
"""

import pathlib
import re
import subprocess
import sys
import tempfile
import threading
import time

from machine import Steal, usage_over
from recorders import Scene, available

WARM_UP = 3
EVERY = 12  # pictures between two that are compared
SCENE_RATE = 30
AIMS = {"meeting": 0.85, "page": 0.2}
MEMORY_AIM = 200


def likeness(programs, scene, movie):
    """Mean SSIM of chosen pictures against what the scene showed then."""
    numbers = movie.frame_numbers(EVERY) if scene == "meeting" else [0] * len(movie.frame_numbers(EVERY))
    renderer = subprocess.Popen([programs / "demo-scene", scene, "--render"], stdin=subprocess.PIPE,
                                stdout=subprocess.PIPE)
    feeder = threading.Thread(target=lambda: (renderer.stdin.write("\n".join(map(str, numbers)).encode()),
                                              renderer.stdin.close()))
    feeder.start()
    graph = (f"[0:v]select=not(mod(n\\,{EVERY})),settb=1/24,setpts=N,format=gbrp[recorded];"
             "[1:v]settb=1/24,setpts=N,format=gbrp[shown];[recorded][shown]ssim")
    judged = subprocess.run(
        ["ffmpeg", "-hide_banner", "-i", movie.path, "-f", "rawvideo", "-pix_fmt", "bgr0", "-video_size", "1920x1080",
         "-framerate", "24", "-i", "pipe:0", "-filter_complex", graph, "-fps_mode", "passthrough", "-f", "null", "-"],
        stdin=renderer.stdout, capture_output=True, text=True, check=False)
    feeder.join()
    renderer.stdout.close()
    renderer.wait()
    found = re.search(r"SSIM.*All:([\d.]+)", judged.stderr)
    return float(found[1]) if found else float("nan")


def measure(programs, scene, start, seconds, directory):
    with Scene(programs, scene) as shown, Steal() as steal:
        recording = start(programs, directory)
        time.sleep(WARM_UP)
        if recording.process.poll() is not None:
            raise RuntimeError(f"{recording.process.args[0]} ended by itself")
        processor, memory = usage_over(recording.process, seconds)
        stopping = recording.stop()
        movie = recording.movie()
    result = {"cpu": processor, "memory": memory, "stop": stopping, "steal": steal.percent, "idle": steal.idle_percent,
              "rate": len(movie.picture_times()) / movie.duration, "size": recording.file.stat().st_size / movie.duration,
              "ssim": likeness(programs, scene, movie)}
    if scene == "meeting":
        first_shown = shown.started + movie.frame_numbers()[0] / SCENE_RATE
        result["start"] = first_shown - recording.started
    return result


def show(scene, name, r):
    start = f"{r['start'] * 1000:7.0f} ms" if "start" in r else "         -"
    print(f"{scene:8} {name:10} {r['cpu']:6.3f} CPU s/s {r['memory']:6.0f} MiB  SSIM {r['ssim']:.4f} "
          f"{r['rate']:5.1f} pictures/s {r['size'] / 1000:6.0f} kB/s  first picture{start}  finished in "
          f"{r['stop'] * 1000:5.0f} ms  (steal {r['steal']:.1f} %, idle {r['idle']:.0f} %)", flush=True)


def judge(scene, results):
    ours = results["quillbeam"]
    if "ffmpeg" in results:
        ratio = ours["cpu"] / max(results["ffmpeg"]["cpu"], 1e-3)
        print(f"{scene:8} cost against ffmpeg: {ratio:.2f} x (aim: at most {AIMS[scene]} x)"
              f"{'' if ratio <= AIMS[scene] else '   <-- missed'}")
    print(f"{scene:8} peak memory: {ours['memory']:.0f} MiB (aim: at most {MEMORY_AIM} MiB)"
          f"{'' if ours['memory'] <= MEMORY_AIM else '   <-- missed'}", flush=True)


def main():
    programs, seconds = pathlib.Path(sys.argv[1]).resolve(), float(sys.argv[2])
    with tempfile.TemporaryDirectory(prefix="quillbeam-bench-") as directory:
        for scene in AIMS:
            results = {}
            for name, start in available():
                results[name] = measure(programs, scene, start, seconds, pathlib.Path(directory))
                show(scene, name, results[name])
            judge(scene, results)


if __name__ == "__main__":
    main()
