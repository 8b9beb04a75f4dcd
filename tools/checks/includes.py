#!/usr/bin/env python3
"""Holds every #include below src/ to the table of rooms in cmake/Layers.cmake, forbids "../" and paths that are not
rooted at src/, and keeps each library's and the system's headers in the folders that wrap them.

usage: includes.py [ROOT]
"""

import pathlib
import re
import sys

from source_tree import ROOT, Finding, report, room_of, room_table, source_files

INCLUDE = re.compile(r'^\s*#\s*include\s*([<"])([^>"]+)[>"]')

# Which folders may see whose headers. A header that matches no line is the standard library's.
LIBRARY_HEADERS = [
    (r"(xcb|X11)/", ["platform/linux/x11", "platform/linux/qt"]),
    (r"libyuv", ["platform/linux/x11"]),
    (r"pulse/", ["platform/linux/pulse"]),
    (r"libsw(resample|scale)/", ["platform/linux/ffmpeg", "platform/linux/pulse"]),
    (r"libav\w+/", ["platform/linux/ffmpeg"]),
    (r"libavutil/", ["platform/linux/ffmpeg", "platform/linux/pulse"]),
    (r"x264", ["platform/linux/ffmpeg"]),
    (r"nlohmann/", ["base"]),
    (r"systemd/", ["platform/linux/journald"]),
    (r"curl/", ["platform/linux/curl"]),
    (r"dbus/|Q[A-Z]\w+|Qt\w*/", ["platform/linux/qt"]),
    (r"(sys|linux|arpa|netinet|net)/|(unistd|fcntl|poll|pthread|signal|pwd|dlfcn|sched|netdb)\.h", ["platform/linux"]),
    (r"CLI/|gtest/|gmock/|benchmark/", []),
]


def allowed_folders(header):
    """The folders that may include <header>; None when everybody may."""
    folders = [f for pattern, allowed in LIBRARY_HEADERS if re.match(pattern, header) for f in allowed]
    matched = any(re.match(pattern, header) for pattern, _ in LIBRARY_HEADERS)
    return folders if matched else None


def check_own(own, room, header, root, table):
    if ".." in header.split("/"):
        return f'"{header}" climbs out of its folder; include from src/ down'
    if not (root / "src" / header).is_file():
        return f'"{header}" is not the path of a header below src/'
    other = room_of(header, table)
    if other is None:
        return f'"{header}" belongs to no room of cmake/Layers.cmake'
    if other != room and other not in table[room]:
        return f'{room} may not include {other} ("{header}")'
    return None


def check_library(own, header):
    folders = allowed_folders(header)
    if folders is None or any(own.startswith(folder + "/") for folder in folders):
        return None
    where = ", ".join(folders) or "no folder below src"
    return f"<{header}> is only for {where}"


def findings_in(root):
    table = room_table(root)
    findings = []
    for path in source_files(root):
        own = path.relative_to(root / "src").as_posix()
        room = room_of(own, table)
        if room is None:
            findings.append(Finding(path, 1, "lies in no room of cmake/Layers.cmake"))
            continue
        for number, line in enumerate(path.read_text().splitlines(), 1):
            match = INCLUDE.match(line)
            if not match:
                continue
            quote, header = match.groups()
            fault = check_own(own, room, header, root, table) if quote == '"' else check_library(own, header)
            if fault:
                findings.append(Finding(path, number, fault))
    return findings


if __name__ == "__main__":
    sys.exit(report("includes", findings_in(pathlib.Path(sys.argv[1]).resolve() if len(sys.argv) > 1 else ROOT)))
