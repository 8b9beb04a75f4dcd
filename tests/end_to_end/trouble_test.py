"""Trouble with a disk or the service while a recording streams: its file is complete, the user is told, nothing is lost."""

import contextlib
import json
import signal
import tempfile
import time
import unittest

from movie import Movie
from record_test import small_disk
from stage import BIN, Stage, finish, interrupt, wait_until
from upload_service import TOKEN, UploadService

SLOW = 300_000  # bytes a second; a busy screen makes nearly as many, and each is written twice
HEALTHY = "put,part=99,status=500"  # strikes nothing
PLACE = ("--team", "team-1", "--folder", "folder-1")


class BusyStage(Stage):
    """Someone who records a busy screen."""

    def __init__(self):
        super().__init__("meeting", ("440",))

    @property
    def data(self):
        return self.file(".local/share/io.quillbeam.app")

    def record(self, service, *arguments, output="out.mp4", environment=()):
        return self.start_quillbeam("record", "--output", output, "--json", *PLACE, "--upload-url", service.url,
                                    "--token", TOKEN, *arguments, environment=environment)

    def backups(self, data=None):
        return sorted(((data or self.data) / "segment_recordings").glob("*/"))

    def wait_for_segment(self, name, data=None):
        wait_until(lambda: any((backup / name).exists() for backup in self.backups(data)), f"{name} is on disk")

    def session(self):
        """The record of its upload; empty when there is none yet."""
        return next((json.loads(path.read_text()) for path in self.data.glob("native_upload_sessions/*.json")), {})


class Trouble(unittest.TestCase):
    def assert_plays(self, path, seconds):
        movie = Movie(path)
        self.assertEqual("", movie.decodes_cleanly())
        self.assertGreater(movie.duration, seconds - 1)
        return movie

    def assert_recoverable(self, stage, seconds):
        (recording,) = stage.quillbeam("recover", "--json").json
        recovered = stage.quillbeam("recover", recording["id"], "--output", "recovered.mp4")
        self.assertEqual(0, recovered.code, recovered)
        self.assert_plays(stage.file("recovered.mp4"), seconds)

    def assert_left_to_the_user(self, run, code, stage, seconds):
        self.assertEqual(code, run.code, run)
        self.assertIn("the recording itself is. To go on: quillbeam uploads resume, or quillbeam upload '", run.err)
        self.assert_plays(stage.file("out.mp4"), seconds)

    def assert_can_be_uploaded(self, stage, service):
        run = stage.quillbeam("upload", "out.mp4", *PLACE, "--json")
        self.assertEqual(0, run.code, run)
        self.assertEqual(stage.file("out.mp4").read_bytes(), service.file(run.json["fileId"]).read_bytes())

    def test_a_slow_disk_delays_the_upload_and_drops_nothing(self):
        # The file itself in memory: what else happens on this machine's disk must not count.
        with UploadService() as service, BusyStage() as stage, tempfile.TemporaryDirectory(dir="/dev/shm") as memory:
            slow = {"LD_PRELOAD": BIN / "libslow_disk.so", "SLOW_DISK_BELOW": stage.data, "SLOW_DISK_RATE": str(SLOW)}
            begun = time.monotonic()
            run = finish(stage.record(service, "--seconds", 12, output=memory + "/out.mp4", environment=slow), 120)
            self.assertEqual((0, 0), (run.code, run.json["droppedFrames"]), run)
            uploaded = service.file(run.json["nativeUploadFileId"])
            self.assertGreater(time.monotonic() - begun, 2 * uploaded.stat().st_size / SLOW, "the disk was not slow")
            local = self.assert_plays(memory + "/out.mp4", 12)
            for path in (uploaded, memory + "/out_chunk_backup.mp4"):
                self.assertAlmostEqual(local.duration, self.assert_plays(path, 12).duration, delta=0.1)
            self.assertEqual([], stage.backups())

    def test_the_backup_goes_to_the_caches_when_its_place_cannot_be_written(self):
        with UploadService() as service, BusyStage() as stage:
            caches = stage.file(".cache/io.quillbeam.app")
            stage.data.mkdir(parents=True)
            (stage.data / "segment_recordings").write_text("not a directory")
            killed = stage.record(service)
            stage.wait_for_segment("segment_0001.mp4", caches)
            interrupt(killed, signal.SIGKILL)
            self.assert_recoverable(stage, 10)
            kept = stage.backups(caches)
            second = stage.record(service, "--seconds", 4, output="second.mp4")
            wait_until(lambda: len(stage.backups(caches)) == 2, "there is a second backup")
            run = finish(second)
            self.assertEqual(0, run.code, run)
            self.assert_plays(service.file(run.json["nativeUploadFileId"]), 4)
            self.assertEqual(kept, stage.backups(caches))

    def test_a_full_data_disk_costs_the_upload_only(self):
        with UploadService() as service, BusyStage() as stage, small_disk(stage, "48m") as disk:
            stage.environment["XDG_DATA_HOME"] = str(disk)
            data = disk / "io.quillbeam.app"
            recorder = stage.record(service, "--seconds", 14)
            stage.wait_for_segment("segment_0001.mp4", data)
            fill(disk / "filler")
            self.assert_left_to_the_user(finish(recorder), 7, stage, 14)
            self.assertEqual([], list((data / "temp_chunks").iterdir()))
            (disk / "filler").unlink()
            self.assert_recoverable(stage, 10)
            self.assert_can_be_uploaded(stage, service)

    def test_a_service_that_comes_back_after_the_upload_could_not_begin(self):
        with UploadService() as service, BusyStage() as stage:
            service.stop()
            recorder = stage.record(service, "--seconds", 5)
            stage.wait_for_segment("init.mp4")
            time.sleep(1.5)  # the upload is opened half a second after the first picture
            service.start()
            self.assert_left_to_the_user(finish(recorder), 8, stage, 5)
            self.assertEqual([], service.requests())
            self.assert_recoverable(stage, 5)
            self.assert_can_be_uploaded(stage, service)

    def test_a_service_that_is_gone_before_the_first_part(self):
        with UploadService() as service, BusyStage() as stage:
            recorder = stage.record(service, "--seconds", 5)
            wait_until(stage.session, "the upload has begun")
            service.stop()
            self.assert_left_to_the_user(finish(recorder), 8, stage, 5)
            self.assert_recoverable(stage, 5)
            service.start()
            self.assert_can_be_uploaded(stage, service)

    def record_until_the_last_part_has_failed(self, stage, service):
        recorder = stage.record(service, "--seconds", 5)
        wait_until(lambda: stage.session().get("pendingParts"), "the last part is handed over")
        service.stop(signal.SIGKILL)
        wait_until(lambda: stage.session()["failedParts"], "it has failed")
        return recorder

    def test_a_service_that_comes_back_in_time_gets_everything(self):
        with UploadService("put,delay=60000") as service, BusyStage() as stage:
            recorder = self.record_until_the_last_part_has_failed(stage, service)
            service.start(HEALTHY)
            run = finish(recorder)
            self.assertEqual(0, run.code, run)
            self.assert_plays(service.file(run.json["nativeUploadFileId"]), 5)
            self.assertEqual([], stage.backups())

    def test_a_service_that_stays_away_gets_the_rest_later(self):
        with UploadService("put,delay=60000") as service, BusyStage() as stage:
            recorder = self.record_until_the_last_part_has_failed(stage, service)
            time.sleep(2)  # the program waits for the upload by now
            self.assert_left_to_the_user(interrupt(recorder), 130, stage, 5)
            self.assert_recoverable(stage, 5)
            service.start(HEALTHY)
            resumed = stage.quillbeam("uploads", "resume")
            self.assertEqual((0, "completed"), (resumed.code, stage.session()["state"]), resumed)
            self.assert_plays(service.file(stage.session()["fileId"]), 5)


def fill(path):
    with contextlib.suppress(OSError), open(path, "wb", buffering=0) as file:
        while True:
            file.write(bytes(4096))


if __name__ == "__main__":
    unittest.main()
