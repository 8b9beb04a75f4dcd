"""quillbeam serve and its clients: call and listen."""

import json
import os
import signal
import stat
import time
import unittest

from movie import Movie, boxes
from stage import Stage, interrupt, wait_until_recorded

RECORDER = "io.quillbeam.app.mac_recorder"
START_CONFIG = {"recordingMode": "screen_with_audio_and_mic"}


class Serve(unittest.TestCase):
    def start_recording(self, stage, name):
        self.assertEqual("display", stage.call("screen_capture", "selectScreenCaptureContent").json["type"])
        started = stage.call("mac_recorder", "startMacRecording",
                             {"filePath": str(stage.file(name)), "config": START_CONFIG, "fileName": "Weekly"})
        self.assertEqual((0, "null\n"), (started.code, started.out), started)

    def test_answers_calls_and_tells_listeners(self):
        with Stage("clock", ("440",)) as stage:
            server = stage.serve()
            socket = stage.environment["XDG_RUNTIME_DIR"] + "/io.quillbeam.app/native.sock"
            self.assertEqual(0o600, stat.S_IMODE(os.stat(socket).st_mode))
            listener = stage.start_quillbeam("listen")
            time.sleep(1)

            self.assertFalse(stage.call("mac_recorder", "getMacRecordingStatus").json["isRecording"])
            self.start_recording(stage, "out.mp4")
            status = stage.call("mac_recorder", "getMacRecordingStatus").json
            self.assertTrue(status["isRecording"])
            wait_until_recorded(stage.file("out.mp4"))
            stopped = stage.call("mac_recorder", "stopMacRecording")
            self.assertEqual({"filePath": str(stage.file("out.mp4")), "usedNativeUpload": False,
                              "nativeUploadFileId": None}, stopped.json)
            self.assertEqual("", Movie(stage.file("out.mp4")).decodes_cleanly())

            lines = [json.loads(line) for line in interrupt(listener).out.splitlines()]
            self.assertEqual([("io.quillbeam.app.mac_recorder_events", "recordingEntryUpdate", "started", "Weekly")],
                             [(line["channel"], line["method"], line["arguments"]["event"], line["arguments"]["fileName"])
                              for line in lines])
            self.assertEqual(0, interrupt(server, signal.SIGTERM).code)

    def test_tells_faults_apart_by_exit_code(self):
        with Stage("clock") as stage:
            self.assertEqual(6, stage.call("mac_recorder", "getMacRecordingStatus").code)
            stage.serve()
            wrong = stage.call("mac_recorder", "startMacRecording", {"filePath": 7})
            self.assertEqual(4, wrong.code, wrong)
            self.assertEqual({"code": "INVALID_ARGUMENTS", "message": "File path required", "details": None},
                             json.loads(wrong.err))
            self.assertEqual(5, stage.call("mac_recorder", "dance").code)
            self.assertEqual(5, stage.call("no_such_channel", "dance").code)

    def test_record_goes_through_a_running_one(self):
        with Stage("clock") as stage:
            server = stage.serve()
            run = stage.quillbeam("record", "--seconds", 2, "--output", "out.mp4", "--json")
            self.assertEqual(0, run.code, run)
            self.assertAlmostEqual(run.json["durationSeconds"], Movie(stage.file("out.mp4")).duration, delta=0.1)
            self.assertIsNone(server.poll(), "the server lives on")
            self.assertEqual(0, interrupt(server, signal.SIGTERM).code)

    def test_an_orderly_end_finishes_the_file(self):
        with Stage("clock", ("440",)) as stage:
            server = stage.serve()
            self.start_recording(stage, "out.mp4")
            wait_until_recorded(stage.file("out.mp4"))
            run = interrupt(server, signal.SIGTERM)
            self.assertEqual(0, run.code, run)
            self.assertIn("🎯", run.out)
            self.assertNotIn("moof", boxes(stage.file("out.mp4")))
            self.assertEqual("", Movie(stage.file("out.mp4")).decodes_cleanly())


if __name__ == "__main__":
    unittest.main()
