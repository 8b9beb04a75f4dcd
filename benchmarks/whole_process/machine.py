"""Watching a process and the machine under it."""

import os
import time

TICKS = os.sysconf("SC_CLK_TCK")


def processor_seconds(pid):
    """User and system time of all the process's threads."""
    with open(f"/proc/{pid}/stat", encoding="utf-8") as file:
        fields = file.read().rsplit(")", 1)[1].split()
    return (int(fields[11]) + int(fields[12])) / TICKS


def peak_memory_mib(pid):
    return memory_mib(pid, "VmHWM")


def memory_mib(pid, kind):
    """VmRSS: what is resident now; VmHWM: the most that ever was."""
    with open(f"/proc/{pid}/status", encoding="utf-8") as file:
        for line in file:
            if line.startswith(kind):
                return int(line.split()[1]) / 1024
    return 0.0


def _machine_ticks():
    with open("/proc/stat", encoding="utf-8") as file:
        ticks = [int(field) for field in file.readline().split()[1:9]]
    return ticks[7], ticks[3] + ticks[4], sum(ticks)


class Steal:
    """with Steal() as steal: …; then steal.percent, and idle_percent of what others left."""

    def __enter__(self):
        self.before = _machine_ticks()
        return self

    def __exit__(self, *_):
        after = _machine_ticks()
        total = max(1, after[2] - self.before[2])
        self.percent = 100 * (after[0] - self.before[0]) / total
        self.idle_percent = 100 * (after[1] - self.before[1]) / total


def usage_over(process, seconds):
    """Processor seconds per second of a running process over the next `seconds`, and its peak memory in MiB."""
    start, before = time.monotonic(), processor_seconds(process.pid)
    time.sleep(seconds)
    used = processor_seconds(process.pid) - before
    return used / (time.monotonic() - start), peak_memory_mib(process.pid)
