"""Throughput, processor time and memory of an upload, beside a script that splits the file into parts, syncs them and
sends them with curl, as many at a time.

usage: upload.py PROGRAMS MEBIBYTES
"""

import concurrent.futures
import json
import os
import pathlib
import resource
import signal
import statistics
import subprocess
import sys
import tempfile
import time
import urllib.request

from machine import Steal

PART = 5 * 1024 * 1024
PARALLEL = 4
TOKEN = "a-token-for-benchmarks"
ROUNDS = 5
THROUGHPUT_AIM, PROCESSOR_AIM, MEMORY_AIM = 0.9, 1.3, 64


class Service:
    def __init__(self, programs, directory):
        self.process = subprocess.Popen([programs / "quillbeam-upload-service", "--port", "0", "--dir", directory,
                                         "--token", TOKEN], stdout=subprocess.PIPE, text=True)
        self.url = self.process.stdout.readline().split()[-1]

    def ask(self, method, path, body):
        request = urllib.request.Request(self.url + "/files/upload/multipart/" + path, json.dumps(body).encode(),
                                         {"Authorization": "Bearer " + TOKEN, "Content-Type": "application/json"},
                                         method=method)
        with urllib.request.urlopen(request) as response:
            return json.load(response)["data"]

    def stop(self):
        self.process.send_signal(signal.SIGTERM)
        self.process.wait()
        self.process.stdout.close()


def used(action):
    """What `action` takes: wall seconds, and the processor seconds of the processes that it starts."""
    before, start = resource.getrusage(resource.RUSAGE_CHILDREN), time.monotonic()
    action()
    after = resource.getrusage(resource.RUSAGE_CHILDREN)
    return time.monotonic() - start, (after.ru_utime + after.ru_stime) - (before.ru_utime + before.ru_stime)


def quillbeam(programs, service, source, environment):
    peak = {}

    def upload():
        process = subprocess.Popen([programs / "quillbeam", "upload", source, "--team", "t", "--folder", "f", "--json",
                                    "--url", service.url], env=environment, stdout=subprocess.PIPE, text=True)
        while process.poll() is None:
            try:
                lines = pathlib.Path(f"/proc/{process.pid}/status").read_text().splitlines()
                peak["kib"] = max([int(line.split()[1]) for line in lines if line.startswith("VmHWM")] + [peak.get("kib", 0)])
            except OSError:
                pass
            time.sleep(0.02)
        if process.returncode != 0:
            raise RuntimeError("the upload failed")
        process.stdout.close()

    seconds, processor = used(upload)
    return seconds, processor, peak["kib"] / 1024


def idle_memory(programs, environment):
    """Of a native half that does nothing."""
    process = subprocess.Popen([programs / "quillbeam", "serve"], env=environment, stdout=subprocess.DEVNULL)
    time.sleep(1)
    lines = pathlib.Path(f"/proc/{process.pid}/status").read_text().splitlines()
    process.send_signal(signal.SIGTERM)
    process.wait()
    return next(int(line.split()[1]) for line in lines if line.startswith("VmHWM")) / 1024


def curl(service, source, directory):
    """The part files are made one after the other, each is sent as soon as it is on disk: no step waits for the whole."""
    ids = service.ask("PUT", "init/t/f", {"contentType": "video/mp4"})
    count = -(-source.stat().st_size // PART)

    def url(part):
        return service.ask("PUT", f"url/t/f/{ids['fileId']}/{ids['uploadId']}/{part}", {"contentType": "video/mp4"})["uploadUrl"]

    def send():
        parts = directory / "parts"
        parts.mkdir()
        script = f'set -e; cd {parts}; split -b {PART} -d -a 5 {source} part; for f in part*; do sync "$f"; done'
        subprocess.run(["bash", "-c", script], check=True)
        lines = []
        with concurrent.futures.ThreadPoolExecutor(PARALLEL) as pool:
            for index, address in enumerate(pool.map(url, range(1, count + 1))):
                lines.append(f'upload-file = "{parts}/part{index:05}"\nurl = "{address}"\noutput = "/dev/null"\n')
        config = directory / "curl.config"
        config.write_text("\n".join(lines))
        subprocess.run(["curl", "--silent", "--no-progress-meter", "--fail", "--parallel", "--parallel-max", str(PARALLEL), "--config", config],
                       check=True)
        service.ask("PUT", f"finalize/t/f/{ids['fileId']}/{ids['uploadId']}",
                    {"file": {"contentType": "video/mp4", "name": "n", "description": "", "notes": []}})
        for file in parts.iterdir():
            file.unlink()
        parts.rmdir()

    return used(send)


def main():
    programs, mebibytes = pathlib.Path(sys.argv[1]).resolve(), int(sys.argv[2])
    with tempfile.TemporaryDirectory(prefix="quillbeam-bench-") as name:
        directory = pathlib.Path(name)
        environment = {**os.environ, "XDG_DATA_HOME": str(directory / "data"), "XDG_RUNTIME_DIR": str(directory / "run"),
                       "QUILLBEAM_UPLOAD_TOKEN": TOKEN}
        (directory / "run").mkdir(mode=0o700)
        source = directory / "source.bin"
        with open(source, "wb") as file:
            for _ in range(mebibytes):
                file.write(os.urandom(1 << 20))
        os.sync()
        idle = idle_memory(programs, environment)
        ours, theirs, peaks = [], [], []
        for round_ in range(ROUNDS):
            service = Service(programs, directory / f"service-{round_}")
            with Steal() as steal:
                theirs.append(curl(service, source, directory))
                seconds, processor, peak = quillbeam(programs, service, source, environment)
            service.stop()
            subprocess.run(["rm", "-rf", directory / f"service-{round_}"], check=True)
            ours.append((seconds, processor))
            peaks.append(peak)
            print(f"upload   quillbeam {mebibytes / seconds:6.0f} MiB/s {processor:5.2f} CPU s {peak:5.0f} MiB   "
                  f"split + sync + curl {mebibytes / theirs[-1][0]:6.0f} MiB/s {theirs[-1][1]:5.2f} CPU s   "
                  f"(steal {steal.percent:.1f} %)", flush=True)
        throughput = statistics.median(their[0] for their in theirs) / statistics.median(our[0] for our in ours)
        processor = statistics.median(our[1] for our in ours) / statistics.median(their[1] for their in theirs)
        memory = max(peaks) - idle
        for text, value, good in (("throughput against curl: {:.2f} x (aim: at least {} x)", (throughput, THROUGHPUT_AIM),
                                   throughput >= THROUGHPUT_AIM),
                                  ("processor time against curl: {:.2f} x (aim: at most {} x)", (processor, PROCESSOR_AIM),
                                   processor <= PROCESSOR_AIM),
                                  ("peak memory above idle: {:.0f} MiB (aim: at most {} MiB)", (memory, MEMORY_AIM),
                                   memory <= MEMORY_AIM)):
            print("upload   " + text.format(*value) + ("" if good else "   <-- missed"), flush=True)


if __name__ == "__main__":
    main()
