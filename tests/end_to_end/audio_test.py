"""quillbeam record without pictures: two sounds into one file, also after a crash and with an upload."""

import array
import math
import signal
import time
import unittest
import wave

from movie import Movie, boxes
from stage import Stage, interrupt, wait_until
from upload_service import TOKEN, UploadService

LEVEL = 0.2  # quiet enough that both together, the microphone 2.5 times as loud, stay below full scale
ONE_MIXED_TRACK = [("aac", "LC", "48000", 2)]


class AudioRecording(unittest.TestCase):
    def assert_mixed(self, path, seconds, delta=0.5):
        movie = Movie(path)
        self.assertEqual(ONE_MIXED_TRACK, movie.summary())
        self.assertEqual("", movie.decodes_cleanly())
        self.assertAlmostEqual(seconds, movie.duration, delta=delta)
        system, microphone = (movie.tone_level(0, hertz, window=0.025) for hertz in (440, 1000))
        self.assertAlmostEqual(LEVEL, system, delta=0.02)
        self.assertAlmostEqual(2.5, microphone / system, delta=0.1)
        types = boxes(path)
        self.assertLess(types.index("moov"), types.index("mdat"))
        self.assertEqual(b"M4A ", path.read_bytes()[8:12])
        return movie

    def assert_uploaded_mix(self, movie):
        self.assertEqual([("aac", "LC", "48000", 1)], movie.summary())
        self.assertEqual("", movie.decodes_cleanly())
        for hertz, level in [(440, 0.4 * LEVEL), (1000, LEVEL)]:
            self.assertAlmostEqual(level, movie.tone_level(0, hertz, window=0.025), delta=0.1 * level)

    def assert_nothing_left(self, stage):
        self.assertEqual([], tracks(stage))
        self.assertEqual([], journal(stage))

    def place(self, service):
        return ("--upload-url", service.url, "--token", TOKEN, "--team", "team-1", "--folder", "folder-1", "--name", "Talk")

    def test_mixes_system_sound_and_a_louder_microphone(self):
        with SoundStage() as stage:
            for mode in ("audio_only", "system_audio_with_mic"):
                with self.subTest(mode):
                    run = stage.quillbeam("record", "--mode", mode, "--seconds", 5, "--json", "--output", mode + ".m4a")
                    self.assertEqual(0, run.code, run)
                    movie = self.assert_mixed(stage.file(mode + ".m4a"), 5)
                    self.assertEqual(str(stage.file(mode + ".m4a")), run.json["filePath"])
                    self.assertAlmostEqual(run.json["durationSeconds"], movie.duration, delta=0.1)
                    self.assert_nothing_left(stage)

    def test_needs_no_display(self):
        with SoundStage("--no-display") as stage:
            process = stage.start_quillbeam("record", "--mode", "audio_only", "--json")
            wait_until(lambda: tracks(stage), "something is recorded")
            time.sleep(4)
            run = interrupt(process)
            self.assertEqual(0, run.code, run)
            (recorded,) = stage.file("Videos").glob("Recording *.m4a")
            self.assert_mixed(recorded, 4, delta=1)

    def test_names_the_missing_sound_server_and_leaves_an_existing_file_alone(self):
        with Stage(desktop_options=["--no-sound", "--no-display"]) as stage:
            stage.file("mine.m4a").write_text("mine")
            for name, code in [("out.m4a", 3), ("mine.m4a", 1)]:
                run = stage.quillbeam("record", "--mode", "audio_only", "--seconds", 2, "--output", name)
                self.assertEqual(code, run.code, run)
            self.assertFalse(stage.file("out.m4a").exists())
            self.assertEqual("mine", stage.file("mine.m4a").read_text())
            self.assertEqual(2, stage.quillbeam("record", "--mode", "audio_only", "--no-microphone").code)
            self.assert_nothing_left(stage)

    def test_a_killed_one_is_mixed_by_the_next_start(self):
        with SoundStage() as stage:
            process = stage.start_quillbeam("record", "--mode", "audio_only", "--output", "out.m4a")
            wait_until(lambda: tracks(stage), "something is recorded")
            time.sleep(6)
            interrupt(process, signal.SIGKILL)
            self.assertFalse(stage.file("out.m4a").exists())
            stage.serve()
            wait_until(lambda: not journal(stage), "the tracks are mixed")
            self.assert_mixed(stage.file("out.m4a"), 5.5, delta=1.5)
            self.assert_nothing_left(stage)

    def test_keeps_the_tracks_when_they_cannot_be_mixed(self):
        with SoundStage() as stage:
            folder = stage.file("folder")
            folder.mkdir()
            process = stage.start_quillbeam("record", "--mode", "audio_only", "--output", "folder/out.m4a")
            wait_until(lambda: tracks(stage), "something is recorded")
            time.sleep(3)
            folder.rmdir()
            run = interrupt(process)
            self.assertEqual(1, run.code, run)
            (kept,) = tracks(stage)
            self.assertIn(str(kept), run.err)
            self.assertEqual(ONE_MIXED_TRACK * 2, Movie(kept).summary())
            folder.mkdir()
            stage.serve()
            wait_until(lambda: not journal(stage), "the tracks are mixed")
            self.assert_mixed(folder / "out.m4a", 3, delta=1)

    def test_uploads_what_it_records(self):
        with UploadService() as service, SoundStage() as stage:
            run = stage.quillbeam("record", "--mode", "audio_only", "--seconds", 12, "--output", "out.m4a", "--json",
                                  *self.place(service))
            self.assertEqual(0, run.code, run)
            local = self.assert_mixed(stage.file("out.m4a"), 12)
            file_id = run.json["nativeUploadFileId"]
            uploaded = Movie(service.file(file_id))
            self.assertAlmostEqual(local.duration, uploaded.duration, delta=0.2)
            self.assert_uploaded_mix(uploaded)
            types = boxes(service.file(file_id))
            self.assertEqual(["ftyp", "moov"], types[:2])
            self.assertEqual({"moof", "mdat"}, set(types[2:]))
            self.assertEqual(3, types.count("moof"), "segments of 5 s")
            self.assertEqual("multipart-upload-audio-macos", service.record(file_id)["source"])

    def test_a_killed_upload_can_be_recovered(self):
        with UploadService() as service, SoundStage() as stage:
            process = stage.start_quillbeam("record", "--mode", "audio_only", "--output", "out.m4a", *self.place(service))
            wait_until(lambda: tracks(stage), "something is recorded")
            time.sleep(13)
            interrupt(process, signal.SIGKILL)
            (recording,) = stage.quillbeam("recover", "--json").json
            recovered = stage.quillbeam("recover", recording["id"], "--output", "recovered.m4a")
            self.assertEqual(0, recovered.code, recovered)
            movie = Movie(stage.file("recovered.m4a"))
            self.assertGreater(movie.duration, 9)
            self.assert_uploaded_mix(movie)


class SoundStage(Stage):
    """440 Hz from the speakers and 1 kHz into the microphone, equally loud; nothing on the screen."""

    def __init__(self, *desktop_options):
        super().__init__(desktop_options=desktop_options)

    def __enter__(self):
        super().__enter__()
        for hertz, sink in [(440, "speakers"), (1000, "mouth")]:
            tone = self.file(f"{hertz}.wav")
            write_tone(tone, hertz, seconds=60)
            self.start("paplay", "--device=" + sink, tone)
        time.sleep(1)
        return self


def write_tone(path, hertz, seconds):
    rate = 48000
    second = array.array("h", (round(32767 * LEVEL * math.sin(2 * math.pi * hertz * i / rate)) for i in range(rate)))
    with wave.open(str(path), "wb") as file:
        file.setparams((1, 2, rate, 0, "NONE", None))
        file.writeframes(second.tobytes() * seconds)


def tracks(stage):
    return sorted(stage.home.glob(".cache/io.quillbeam.app/tmp/multitrack_audio_*.m4a"))


def journal(stage):
    return sorted(stage.home.glob(".local/share/io.quillbeam.app/open_recordings/*.json"))


if __name__ == "__main__":
    unittest.main()
