"""Speed of `quillbeam recover`, beside `cat` joining the same segments into a file and syncing it.

usage: recover.py PROGRAMS MEBIBYTES
"""

import json
import os
import pathlib
import statistics
import subprocess
import sys
import tempfile
import time

from machine import Steal

SEGMENT = 3 * 1024 * 1024  # about ten seconds of a meeting
ROUNDS = 5
AIM = 0.8
ID = "5A0E6C5E-7D0F-4B0A-9D50-3B6E5B1F0C11"
DATE = "2026-11-20T09:30:00Z"


def store(directory, mebibytes):
    """A backed-up recording of so many bytes, as a process that died left it."""
    directory.mkdir(parents=True)
    segments = [{"index": -1, "type": "init", "size": 1200}]
    (directory / "init.mp4").write_bytes(os.urandom(1200))
    for index in range(1, mebibytes * 1024 * 1024 // SEGMENT + 1):
        (directory / f"segment_{index:04}.mp4").write_bytes(os.urandom(SEGMENT))
        segments.append({"index": index, "type": "media", "size": SEGMENT})
    (directory / "metadata.json").write_text(json.dumps({
        "id": ID, "teamId": "t", "folderId": "f", "fileName": "Weekly", "recordingType": "video",
        "contentType": "video/mp4", "segments": segments, "createdAt": DATE, "lastModified": DATE}))
    return [directory / "init.mp4", *sorted(directory.glob("segment_*.mp4"))]


def seconds_of(action):
    start = time.monotonic()
    action()
    return time.monotonic() - start


def main():
    programs, mebibytes = pathlib.Path(sys.argv[1]).resolve(), int(sys.argv[2])
    with tempfile.TemporaryDirectory(prefix="quillbeam-bench-") as home, Steal() as steal:
        home = pathlib.Path(home)
        files = store(home / ".local/share/io.quillbeam.app/segment_recordings" / ID, mebibytes)
        ours, theirs = home / "ours.mp4", home / "theirs.mp4"
        environment = {"HOME": str(home), "XDG_RUNTIME_DIR": str(home), "PATH": os.environ["PATH"]}

        def recover():
            subprocess.run([programs / "quillbeam", "recover", ID, "--output", ours], env=environment, check=True,
                           stdout=subprocess.DEVNULL)

        def cat():
            with theirs.open("wb") as output:
                subprocess.run(["cat", *files], stdout=output, check=True)
                os.fsync(output.fileno())

        times = {recover: [], cat: []}
        for _ in range(ROUNDS):
            for action, file in ((recover, ours), (cat, theirs)):
                file.unlink(missing_ok=True)
                times[action].append(seconds_of(action))
        if ours.read_bytes() != theirs.read_bytes():
            raise RuntimeError("the recovered file is not its segments")
        speed = {action: mebibytes / statistics.median(taken) for action, taken in times.items()}
    ratio = speed[recover] / speed[cat]
    print(f"recover {mebibytes} MiB: {speed[recover]:.0f} MiB/s, cat and sync {speed[cat]:.0f} MiB/s, {ratio:.2f} x (aim: at "
          f"least {AIM} x; steal {steal.percent:.1f} %){'' if ratio >= AIM else '   <-- missed'}")


if __name__ == "__main__":
    main()
