#!/usr/bin/env python3
"""The checks themselves: each must find every fault of a tree made to have it, and nothing in its clean counterpart."""

import pathlib
import tempfile
import unittest

import includes
import quiet_rooms

LAYERS = """
set(LAYER_base)
set(LAYER_platform base)
set(LAYER_recording base
    platform)
set(LAYER_platform_linux_x11 base platform)
"""


class Tree:
    """A source tree of given files, gone after use."""

    def __init__(self, files):
        self.files = {"cmake/Layers.cmake": LAYERS, "src/base/Error.h": "", "src/platform/Files.h": "", **files}

    def __enter__(self):
        self.directory = tempfile.TemporaryDirectory()
        root = pathlib.Path(self.directory.name)
        for name, text in self.files.items():
            (root / name).parent.mkdir(parents=True, exist_ok=True)
            (root / name).write_text(text)
        return root

    def __exit__(self, *_):
        self.directory.cleanup()


def texts(check, files):
    with Tree(files) as root:
        return [finding.text for finding in check.findings_in(root)]


class Includes(unittest.TestCase):
    def test_accepts_the_table_the_standard_library_and_wrapped_libraries(self):
        self.assertEqual([], texts(includes, {
            "src/recording/A.h": '#include <vector>\n#include "base/Error.h"\n#include "platform/Files.h"\n',
            "src/platform/linux/x11/B.cpp": '#include <xcb/shm.h>\n#include <unistd.h>\n#include "base/Error.h"\n'}))

    def test_finds_each_forbidden_edge(self):
        for sample, expected in [
                ('src/base/A.h|#include "platform/Files.h"', "base may not include platform"),
                ('src/recording/A.h|  #  include "platform/linux/x11/B.h"', "may not include platform_linux_x11"),
                ('src/recording/A.h|#include "../base/Error.h"', "climbs out"),
                ('src/recording/A.h|#include "A.h"', "not the path of a header"),
                ('src/recording/A.h|#include <xcb/xcb.h>', "only for platform/linux/x11"),
                ('src/platform/linux/x11/A.h|#include <libavutil/frame.h>', "only for platform/linux/ffmpeg"),
                ('src/recording/A.h|#include <sys/stat.h>', "only for platform/linux"),
                ('src/unknown/A.h|', "lies in no room")]:
            name, text = sample.split("|")
            with self.subTest(sample):
                found = texts(includes, {"src/platform/linux/x11/B.h": "", name: text})
                self.assertEqual(1, len(found))
                self.assertIn(expected, found[0])


class QuietRooms(unittest.TestCase):
    def test_finds_each_way_around_a_port(self):
        for code in ["std::thread t(run);", "std::this_thread::sleep_for(1s);", "auto t = std::chrono::steady_clock::now();",
                     "std::random_device d;", "getenv(name)", "std::unordered_map<int, int> m;", "usleep (5);",
                     "std::ofstream f(path);", "localtime_r(&t, &out);", "return time(nullptr);"]:
            with self.subTest(code):
                self.assertEqual(1, len(texts(quiet_rooms, {"src/recording/A.cpp": code})))

    def test_leaves_comments_literals_and_the_platform_alone(self):
        self.assertEqual([], texts(quiet_rooms, {
            "src/recording/A.cpp": '// std::thread\n/* getenv( */ auto a = "std::random_device \\" rand()";\nhostTime();',
            "src/platform/linux/x11/B.cpp": "std::thread t(run);"}))


if __name__ == "__main__":
    unittest.main()
