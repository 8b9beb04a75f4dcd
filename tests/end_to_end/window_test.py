"""quillbeam serve on a desktop: its window, a second start, the end of its display."""

import json
import os
import signal
import subprocess
import unittest

from movie import Movie, boxes
from stage import Stage, finish, interrupt, wait_until, wait_until_recorded

BACKGROUND = b"\x30\x50\x70"


def windows(stage):
    """The titles of the windows that the user sees, the frontmost one last."""
    listed = subprocess.run(["wmctrl", "-l"], env=stage.environment, text=True, capture_output=True)
    return [line.split(None, 3)[3] for line in listed.stdout.splitlines()]


def pixels_of_the_middle(stage):
    grabbed = subprocess.run(["ffmpeg", "-v", "error", "-f", "x11grab", "-video_size", "400x200", "-i",
                              stage.environment["DISPLAY"] + "+760,440", "-frames:v", "1", "-f", "rawvideo",
                              "-pix_fmt", "rgb24", "-"], env=stage.environment, capture_output=True, check=True)
    return grabbed.stdout


class Window(unittest.TestCase):
    def test_a_close_hides_and_a_second_start_brings_it_back(self):
        with Stage() as stage:
            server = stage.serve()
            wait_until(lambda: windows(stage) == ["Quillbeam"], "the window is there")
            wait_until(lambda: pixels_of_the_middle(stage).count(BACKGROUND) == 0, "the window is drawn")
            waiting = pixels_of_the_middle(stage)
            listener = stage.start_quillbeam("listen", "io.quillbeam.app/window_control")
            wait_until(lambda: pixels_of_the_middle(stage) != waiting, "it says that somebody is connected")

            subprocess.run(["wmctrl", "-c", "Quillbeam"], env=stage.environment, check=True)
            wait_until(lambda: windows(stage) == [], "the window is gone")
            self.assertIsNone(server.poll(), "the process lives on")

            second = stage.quillbeam("serve")
            self.assertEqual(0, second.code, second)
            self.assertIn(f"process {server.pid}", second.err)
            wait_until(lambda: windows(stage) == ["Quillbeam"], "the window is back")
            heard = [json.loads(line) for line in interrupt(listener).out.splitlines()]
            self.assertEqual([("updateWindowVisibility", False), ("updateWindowVisibility", False),
                              ("onDockIconClicked", None), ("updateWindowVisibility", True)],
                             [(line["method"], line["arguments"]) for line in heard])
            self.assertEqual(0, interrupt(server, signal.SIGTERM).code)

    def test_the_end_of_its_display_ends_it_in_an_orderly_way(self):
        with Stage("clock", ("440",)) as stage:
            server = stage.serve()
            stage.call("screen_capture", "selectScreenCaptureContent")
            stage.call("mac_recorder", "startMacRecording",
                       {"filePath": str(stage.file("out.mp4")), "config": {"recordingMode": "screen_with_audio"}})
            wait_until_recorded(stage.file("out.mp4"))
            stage.start_quillbeam("listen")  # a client whose end the window would show
            os.kill(int(stage.environment["PRIVATE_DESKTOP_DISPLAY_PID"]), signal.SIGKILL)
            self.assertEqual(1, finish(server).code)
            self.assertNotIn("moof", boxes(stage.file("out.mp4")), "finished, not left to a repair")
            self.assertEqual("", Movie(stage.file("out.mp4")).decodes_cleanly())


if __name__ == "__main__":
    unittest.main()
