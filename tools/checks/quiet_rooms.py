#!/usr/bin/env python3
"""Rooms above src/platform/ get threads, time, chance and the environment through ports, so that a test can run them
in virtual time and repeat a run exactly. This finds the direct ways around the ports.

usage: quiet_rooms.py [ROOT]
"""

import pathlib
import re
import sys

from source_tree import ROOT, Finding, code_only, report, source_files

RULES = [
    (r"\bstd::(jthread|thread|async)\b|\bpthread_create\b", "starts a thread: use a queue of platform/Dispatch.h"),
    (r"\bsleep_(for|until)\b|\b(u|nano)?sleep\s*\(", "sleeps: await delay() or use DispatchQueue::after"),
    (r"\b(system|steady|high_resolution|file|utc)_clock\s*::\s*now\b|\b(clock_gettime|gettimeofday)\s*\(|\btime\s*\(\s*(nullptr|NULL|0|&\w+)\s*\)",
     "reads a clock: use Dispatch::hostTime or Dispatch::now"),
    (r"\b(local|gm)time(_r)?\s*\(|\bcurrent_zone\b", "depends on the machine's time zone: that is the platform's"),
    (r"\bstd::(random_device|mt19937(_64)?|default_random_engine)\b|\bs?rand(om)?\s*\(|\bgetrandom\s*\(",
     "makes its own chance: use platform/Random.h"),
    (r"\b(secure_)?getenv\s*\(|\bsetenv\s*\(|\benviron\b", "reads the environment: use platform/Places.h"),
    (r"\bstd::unordered_\w+", "its order differs from run to run and can show: use std::map or a sorted vector"),
    (r"\bstd::(ifstream|ofstream|fstream|filesystem)\b|\bf?open\s*\(\s*\"", "touches files: use platform/Files.h"),
]


def findings_in(root):
    findings = []
    for path in source_files(root):
        if path.relative_to(root / "src").parts[0] == "platform":
            continue
        for number, line in enumerate(code_only(path.read_text()).splitlines(), 1):
            findings += [Finding(path, number, reason) for pattern, reason in RULES if re.search(pattern, line)]
    return findings


if __name__ == "__main__":
    sys.exit(report("quiet rooms", findings_in(pathlib.Path(sys.argv[1]).resolve() if len(sys.argv) > 1 else ROOT)))
