"""Memory and dropped pictures of a recording that is uploaded while it runs, over minutes of a meeting-like screen.

usage: endurance.py PROGRAMS MINUTES      (on a private desktop; QUILLBEAM_BIN names PROGRAMS too)
"""

import json
import pathlib
import signal
import statistics
import subprocess
import sys
import tempfile
import time

from machine import Steal, memory_mib
from recorders import Scene

from upload_service import TOKEN, UploadService  # noqa: E402

GROWTH_AIM = 8  # MiB from the second minute to the last: the index that is kept grows
MEMORY_AIM = 300


def resident_by_minute(process, minutes):
    """The median of each minute's resident memory, in MiB."""
    medians = []
    for _ in range(minutes):
        looks = []
        for _ in range(12):
            time.sleep(5)
            looks.append(memory_mib(process.pid, "VmRSS"))
        medians.append(statistics.median(looks))
        print(f"endurance minute {len(medians):2}: {medians[-1]:.0f} MiB", flush=True)
    return medians


def main():
    programs, minutes = pathlib.Path(sys.argv[1]).resolve(), int(sys.argv[2])
    with tempfile.TemporaryDirectory(prefix="quillbeam-bench-") as directory, UploadService() as service:
        with Scene(programs, "meeting"), Steal() as steal:
            process = subprocess.Popen([programs / "quillbeam", "record", "--json", "--output", directory + "/out.mp4",
                                        "--upload-url", service.url, "--token", TOKEN, "--team", "t", "--folder", "f"],
                                       stdout=subprocess.PIPE, stderr=subprocess.DEVNULL, text=True)
            resident = resident_by_minute(process, minutes)
            peak = memory_mib(process.pid, "VmHWM")
            process.send_signal(signal.SIGINT)
            outcome = json.loads(process.communicate()[0])
    growth = resident[-1] - resident[min(1, len(resident) - 1)]
    good = growth <= GROWTH_AIM and peak <= MEMORY_AIM and outcome["droppedFrames"] == 0
    print(f"endurance {minutes} minutes: {growth:+.1f} MiB since the second (aim: at most {GROWTH_AIM}), peak {peak:.0f} MiB (aim: "
          f"at most {MEMORY_AIM}), {outcome['droppedFrames']} of {outcome['videoFrames']} pictures dropped (aim: none; steal "
          f"{steal.percent:.1f} %){'' if good else '   <-- missed'}")


if __name__ == "__main__":
    main()
