"""quillbeam record, from the command line to the file."""

import os
import pathlib
import signal
import subprocess
import unittest

from movie import Movie, boxes
from stage import Stage, finish, has_recorded, interrupt, wait_until, wait_until_recorded

BOTH_TONES = ("440@speakers", "880@mouth")
WITH_SOUND_AND_MICROPHONE = [("h264", "High", None, None), ("aac", "LC", "48000", 2), ("aac", "LC", "48000", 2)]


class Record(unittest.TestCase):
    def assert_colour(self, expected, actual):
        self.assertTrue(all(abs(e - a) <= 12 for e, a in zip(expected, actual)), f"expected {expected}, got {actual}")

    def assert_rising(self, numbers):
        self.assertEqual(sorted(set(numbers)), numbers, "pictures out of order or shown twice")

    def test_records_screen_system_sound_and_microphone(self):
        with Stage("colours", BOTH_TONES) as stage:
            run = stage.quillbeam("record", "--seconds", 6, "--json", "--output", "out.mp4")
            self.assertEqual(0, run.code, run)
            movie = Movie(stage.file("out.mp4"))
            self.assertEqual(WITH_SOUND_AND_MICROPHONE, movie.summary())
            self.assertEqual("", movie.decodes_cleanly())

            self.assertEqual(str(stage.file("out.mp4")), run.json["filePath"])
            self.assertAlmostEqual(run.json["durationSeconds"], movie.duration, delta=0.1)
            self.assertAlmostEqual(6, movie.duration, delta=0.5)
            self.assertAlmostEqual(run.json["videoFrames"], len(movie.picture_times()), delta=1)
            self.assertIs(False, run.json["usedNativeUpload"])
            self.assertIsNone(run.json["nativeUploadFileId"])
            lengths = [float(track["duration"]) for track in movie.facts["streams"]]
            self.assertLess(max(lengths) - min(lengths), 0.1, "tracks end at different times")
            types = boxes(movie.path)
            self.assertLess(types.index("moov"), types.index("mdat"))
            self.assertNotIn("moof", types)

            colour = movie.picture(at=3)
            for place, expected in [((0.25, 0.25), (0xC0, 0x20, 0x20)), ((0.75, 0.25), (0x20, 0xA0, 0x40)),
                                    ((0.25, 0.75), (0x20, 0x40, 0xC0)), ((0.75, 0.75), (0x80, 0x80, 0x80))]:
                self.assert_colour(expected, colour(*place))
            self.assertAlmostEqual(0.4, movie.tone_level(0, 440), delta=0.05)
            self.assertLess(movie.tone_level(0, 880), 0.01)
            self.assertAlmostEqual(0.4, movie.tone_level(1, 880), delta=0.05)
            self.assertLess(movie.tone_level(1, 440), 0.01)

    def test_shows_a_moving_screen_in_order_and_time(self):
        with Stage("clock") as stage:
            run = stage.quillbeam("record", "--seconds", 6, "--json", "--output", "out.mp4")
            self.assertEqual(0, run.code, run)
            movie = Movie(stage.file("out.mp4"))
            times, frames = movie.picture_times(), movie.frame_numbers()
            self.assert_rising(times)
            self.assertEqual(sorted(frames), frames)
            self.assertEqual(0, times[0])
            # 30 frames a second were shown: the picture at t seconds must be the one shown t seconds after the first.
            late = [(t, number - frames[0] - 30 * t) for t, number in zip(times, frames) if t < movie.duration - 0.2]
            self.assertLess(max(abs(frames_off) for _, frames_off in late), 6, "shown at the wrong time")

    def test_leaves_sources_out(self):
        with Stage("clock", BOTH_TONES) as stage:
            for option, tone in [("--no-microphone", 440), ("--no-system-audio", 880)]:
                with self.subTest(option):
                    run = stage.quillbeam("record", "--seconds", 2, option, "--output", option + ".mp4")
                    self.assertEqual(0, run.code, run)
                    movie = Movie(stage.file(option + ".mp4"))
                    self.assertEqual(1, len(movie.tracks("audio")))
                    self.assertAlmostEqual(0.4, movie.tone_level(0, tone), delta=0.05)

    def test_finishes_the_file_on_each_signal_into_the_videos_directory(self):
        with Stage("clock") as stage:
            for number in (signal.SIGINT, signal.SIGTERM, signal.SIGHUP):
                with self.subTest(number):
                    process = stage.start_quillbeam("record", "--json")
                    wait_for_recording(lambda: sorted(stage.file("Videos").glob("*.mp4")))
                    run = interrupt(process, number)
                    self.assertEqual(0, run.code, run)
                    recorded = pathlib.Path(run.json["filePath"])
                    self.assertRegex(recorded.name, r"^Recording \d{4}-\d\d-\d\d at \d\d\.\d\d\.\d\d\.mp4$")
                    self.assertGreater(Movie(recorded).duration, 0.5)
                    recorded.unlink()

    def test_leaves_an_existing_file_alone(self):
        with Stage("clock") as stage:
            stage.file("out.mp4").write_text("mine")
            run = stage.quillbeam("record", "--seconds", 2, "--output", "out.mp4")
            self.assertEqual(1, run.code, run)
            self.assertEqual("mine", stage.file("out.mp4").read_text())
            self.assertEqual("", run.out)

    def test_says_why_a_place_cannot_be_written(self):
        with Stage("clock") as stage:
            run = stage.quillbeam("record", "--seconds", 2, "--output", "/proc/nowhere/out.mp4")
            self.assertEqual(1, run.code, run)
            self.assertIn("quillbeam: ", run.err)

    def test_names_the_missing_display(self):
        with Stage(desktop_options=["--no-display"]) as stage:
            run = stage.quillbeam("record", "--seconds", 2, "--output", "out.mp4", environment={"DISPLAY": ":4711"})
            self.assertEqual(3, run.code, run)
            self.assertIn(":4711", run.err)
            self.assertFalse(stage.file("out.mp4").exists())

    def test_names_the_missing_sound_server(self):
        with Stage("clock", desktop_options=["--no-sound"]) as stage:
            run = stage.quillbeam("record", "--seconds", 2, "--output", "out.mp4")
            self.assertEqual(3, run.code, run)
            self.assertIn("sound server", run.err)
            self.assertFalse(stage.file("out.mp4").exists())

    def test_a_second_one_is_told_that_one_runs(self):
        with Stage("clock") as stage:
            first = stage.start_quillbeam("record", "--output", "first.mp4", "--json")
            wait_until_recorded(stage.file("first.mp4"))
            second = stage.quillbeam("record", "--seconds", 1, "--output", "second.mp4")
            self.assertEqual(1, second.code, second)
            self.assertIn("already in progress", second.err)
            self.assertIn(str(first.pid), second.err)
            self.assertFalse(stage.file("second.mp4").exists())
            run = interrupt(first)
            self.assertEqual(0, run.code, run)
            self.assertEqual("", Movie(stage.file("first.mp4")).decodes_cleanly())

    def test_keeps_what_fitted_on_a_full_disk(self):
        with Stage("meeting") as stage, small_disk(stage, "10m") as disk:
            run = stage.quillbeam("record", "--seconds", 60, "--json", "--output", disk / "out.mp4", timeout=90)
            self.assertEqual(1, run.code, run)
            self.assertIn("kept", run.err)
            movie = Movie(disk / "out.mp4")
            self.assertGreater(movie.duration, 1)
            self.assertEqual("", movie.decodes_cleanly())

    def test_keeps_what_was_recorded_when_the_display_dies(self):
        with Stage("clock") as stage:
            process = stage.start_quillbeam("record", "--output", "out.mp4")
            wait_until_recorded(stage.file("out.mp4"))
            os.kill(int(stage.environment["PRIVATE_DESKTOP_DISPLAY_PID"]), signal.SIGTERM)
            run = finish(process)
            self.assertEqual(1, run.code, run)
            self.assertIn("kept", run.err)
            self.assertEqual(WITH_SOUND_AND_MICROPHONE, Movie(stage.file("out.mp4")).summary())


class Usage(unittest.TestCase):
    def test_refuses_what_it_does_not_know(self):
        with Stage(desktop_options=["--no-display", "--no-sound"]) as stage:
            for arguments in [[], ["dance"], ["record", "--seconds", "-1"], ["record", "--mode", "x"], ["call", "a"],
                              ["repair"], ["call", "a", "b", "{not json"]]:
                with self.subTest(arguments):
                    self.assertEqual(2, stage.quillbeam(*arguments).code)
            self.assertRegex(stage.quillbeam("--version").out, r"^quillbeam \d+\.\d+\.\d+\n$")


def wait_for_recording(files):
    wait_until(lambda: any(map(has_recorded, files())), "something is recorded")


class small_disk:
    """A file system that holds little. Needs the right to mount."""

    def __init__(self, stage, size):
        self.directory = stage.file("small")
        self.size = size

    def __enter__(self):
        self.directory.mkdir()
        mounted = subprocess.run(["mount", "-t", "tmpfs", "-o", f"size={self.size}", "tmpfs", self.directory],
                                 capture_output=True, text=True, check=False)
        if mounted.returncode != 0:
            if os.environ.get("QUILLBEAM_SKIP_NOTHING"):
                raise AssertionError(f"cannot mount a small disk: {mounted.stderr}")
            print(f"SKIPPED LOUDLY: cannot mount a small disk: {mounted.stderr}")
            raise unittest.SkipTest(mounted.stderr)
        return self.directory

    def __exit__(self, *_):
        subprocess.run(["umount", self.directory], check=True)


if __name__ == "__main__":
    unittest.main()
