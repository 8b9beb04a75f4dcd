"""Recordings whose process was killed."""

import signal
import time
import unittest

from movie import Movie, boxes
from stage import Stage, interrupt, wait_until, wait_until_recorded


class Repair(unittest.TestCase):
    def killed_recording(self, stage):
        """The file of a recording that was killed, and how long it had run."""
        file = stage.file("out.mp4")
        process = stage.start_quillbeam("record", "--output", file)
        wait_until(file.exists, "the recording starts")
        started = time.monotonic()
        time.sleep(6)
        process.kill()
        process.wait()
        return file, time.monotonic() - started

    def assert_plays_almost_to_its_end(self, file, recorded):
        movie = Movie(file)
        self.assertEqual("", movie.decodes_cleanly())
        self.assertEqual(3, len(movie.summary()))
        self.assertGreater(movie.duration, recorded - 2)
        self.assertLessEqual(movie.duration, recorded + 0.5)

    def test_by_hand_gives_a_file_that_plays_up_to_the_kill(self):
        with Stage("clock", ("440",)) as stage:
            file, recorded = self.killed_recording(stage)
            run = stage.quillbeam("repair", file)
            self.assertEqual(0, run.code, run)
            self.assertIn("repaired", run.out)
            self.assert_plays_almost_to_its_end(file, recorded)
            before = file.read_bytes()
            again = stage.quillbeam("repair", file)
            self.assertEqual(0, again.code, again)
            self.assertIn("complete already", again.out)
            self.assertEqual(before, file.read_bytes())

    def test_happens_by_itself_at_the_next_start(self):
        with Stage("clock", ("440",)) as stage:
            file, recorded = self.killed_recording(stage)
            self.assertIn("moof", boxes(file))
            server = stage.serve()
            wait_until(lambda: "moof" not in boxes(file), "the file is repaired")
            self.assertEqual(0, interrupt(server, signal.SIGTERM).code)
            self.assert_plays_almost_to_its_end(file, recorded)

    def test_finishes_what_was_given_up_with_a_second_interrupt(self):
        with Stage("clock") as stage:
            file = stage.file("out.mp4")
            process = stage.start_quillbeam("record", "--output", file)
            wait_until_recorded(file)
            process.send_signal(signal.SIGINT)
            process.send_signal(signal.SIGTERM)  # what a session's end adds is no insisting
            time.sleep(0.1)  # two interrupts at once would be one
            run = interrupt(process)
            self.assertEqual(130, run.code, run)
            self.assertIn(f"quillbeam repair '{file}'", run.err)
            self.assertEqual(0, stage.quillbeam("repair", file).code)
            self.assertEqual("", Movie(file).decodes_cleanly())

    def test_refuses_what_is_being_recorded_and_what_is_no_recording(self):
        with Stage("clock") as stage:
            process = stage.start_quillbeam("record", "--output", "live.mp4")
            wait_until_recorded(stage.file("live.mp4"))
            refused = stage.quillbeam("repair", "live.mp4")
            self.assertEqual(1, refused.code, refused)
            self.assertIn("being recorded", refused.err)
            self.assertEqual(0, interrupt(process).code)
            self.assertEqual("", Movie(stage.file("live.mp4")).decodes_cleanly())

            stage.file("noise.mp4").write_bytes(bytes(range(256)) * 64)
            self.assertEqual(1, stage.quillbeam("repair", "noise.mp4").code)
            self.assertEqual(bytes(range(256)) * 64, stage.file("noise.mp4").read_bytes())
            self.assertEqual(1, stage.quillbeam("repair", "missing.mp4").code)


if __name__ == "__main__":
    unittest.main()
