"""quillbeam record with an upload while it runs, and what a crash leaves of it."""

import unittest

import torture
from movie import Movie
from stage import Stage
from upload_service import TOKEN, UploadService


class Streaming(unittest.TestCase):
    def place(self, service):
        return ("--upload-url", service.url, "--token", TOKEN, "--team", "team-1", "--folder", "folder-1", "--name", "Weekly")

    def backups(self, stage):
        return sorted((stage.home / ".local/share/io.quillbeam.app/segment_recordings").glob("*"))

    def test_uploads_what_it_records(self):
        with UploadService() as service, Stage("clock", ("440",)) as stage:
            run = stage.quillbeam("record", "--seconds", 23, "--output", "out.mp4", "--json", *self.place(service))
            self.assertEqual(0, run.code, run)
            self.assertTrue(run.json["usedNativeUpload"])
            uploaded = Movie(service.file(run.json["nativeUploadFileId"]))
            local, backup = Movie(stage.file("out.mp4")), Movie(stage.file("out_chunk_backup.mp4"))
            for movie in (uploaded, local, backup):
                self.assertEqual("", movie.decodes_cleanly())
                self.assertAlmostEqual(local.duration, movie.duration, delta=0.1)
            self.assertEqual([], self.backups(stage))
            self.assertEqual(("Weekly", "multipart-upload-screen-macos"),
                             tuple(service.record(run.json["nativeUploadFileId"])[key] for key in ("name", "source")))

    def test_a_killed_recording_can_be_recovered(self):
        torture.kill_once(self, 22.5)

    def test_keeps_everything_when_the_service_is_gone(self):
        with UploadService() as service, Stage("clock") as stage:
            place = self.place(service)
            service.stop()
            run = stage.quillbeam("record", "--seconds", 3, "--output", "out.mp4", *place)
            self.assertEqual(8, run.code, run)
            self.assertIn("the recording itself is", run.err)
            self.assertEqual("", Movie(stage.file("out.mp4")).decodes_cleanly())
            self.assertEqual(1, len(self.backups(stage)))


if __name__ == "__main__":
    unittest.main()
