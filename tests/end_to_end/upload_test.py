"""quillbeam upload, uploads and config against the reference upload service."""

import hashlib
import json
import os
import random
import signal
import stat
import unittest

from stage import Household, interrupt, wait_until
from upload_service import PART_SIZE, TOKEN, UploadService

PLACE = ("--team", "team-1", "--folder", "folder-1")


class UploadHome(Household):
    """Someone who has configured the service and has a file to upload."""

    def __init__(self, service):
        super().__init__()
        self.service = service

    def __enter__(self):
        super().__enter__()
        self.environment["QUILLBEAM_UPLOAD_TOKEN"] = self.service.token
        configured = self.quillbeam("config", "set-upload", self.service.url)
        if configured.code != 0:
            raise AssertionError(configured)
        return self

    def make_file(self, size, name="talk.mp4"):
        content = random.Random(size).randbytes(size)
        self.file(name).write_bytes(content)
        return hashlib.sha256(content).hexdigest()

    @property
    def data(self):
        return self.home / ".local/share/io.quillbeam.app"

    def part_files(self):
        return sorted(os.listdir(self.data / "temp_chunks"))

    def records(self):
        """What is on disk; every file there decodes."""
        return [json.loads(path.read_text()) for path in (self.data / "native_upload_sessions").glob("*")]

    def record(self):
        (record,) = self.records()
        return record

    def wait_for_record(self, condition, what):
        wait_until(lambda: any(condition(record) for record in self.records()), what)


class Upload(unittest.TestCase):
    def test_survives_a_storage_that_fails_every_fifth_time(self):
        with UploadService("put,probability=0.2,seed=7,max-per-part=3,status=503") as service, UploadHome(service) as home:
            sha256 = home.make_file(200_000_000)
            run = home.quillbeam("upload", "talk.mp4", *PLACE, "--name", "Weekly", "--json", timeout=150)
            self.assertEqual(0, run.code, run)
            self.assertTrue(run.json["completed"])
            self.assertEqual(sha256, service.sha256(run.json["fileId"]))
            self.assertEqual(("Weekly", "video/mp4", "multipart-upload-file-macos", 39),
                             tuple(service.record(run.json["fileId"])[key]
                                   for key in ("name", "contentType", "source", "parts")))
            failed = [put for put in service.requests("put") if put["status"] == 503]
            self.assertGreater(len(failed), 3)
            self.assertEqual(39 + len(failed), len(service.requests("url")), "a fresh address for every attempt")
            record = home.record()
            self.assertEqual(("completed", len(failed), [], []),
                             tuple(record[key] for key in ("state", "errorCount", "pendingParts", "failedParts")))
            self.assertEqual([], home.part_files())

    def test_gives_a_part_up_after_five_attempts_and_says_so(self):
        with UploadService("put,part=2,status=500") as service, UploadHome(service) as home:
            home.make_file(3 * PART_SIZE)
            run = home.quillbeam("upload", "talk.mp4", *PLACE)
            self.assertEqual(7, run.code, run)
            self.assertIn("Part #2 failed 5 times: HTTP error: 500", run.err)
            puts = [put for put in service.requests("put") if put["part"] == 2]
            self.assertEqual(5, len(puts))
            record = home.record()
            self.assertEqual(("active", 3, "HTTP error: 500"),
                             tuple(record[key] for key in ("state", "totalPartsExpected", "lastError")))
            self.assertEqual([(2, 5)], [(part["partNumber"], part["retryCount"]) for part in record["failedParts"]])
            self.assertEqual([], home.part_files())

            resumed = home.quillbeam("uploads", "resume")
            self.assertEqual(1, resumed.code, resumed)
            self.assertIn("Recording interrupted by app termination", resumed.out)
            self.assertEqual("failed", home.record()["state"])
            self.assertEqual([], service.requests("finalize"))

    def test_a_killed_uploader_leaves_what_the_next_launch_expects(self):
        with UploadService("put,part=3,delay=60000") as service, UploadHome(service) as home:
            home.make_file(5 * PART_SIZE)
            uploader = home.start_quillbeam("upload", "talk.mp4", *PLACE)
            home.wait_for_record(lambda record: len(record["uploadedParts"]) == 4, "four parts are confirmed")
            interrupt(uploader, signal.SIGKILL)
            record = home.record()
            self.assertEqual(("active", [3]), (record["state"], record["pendingParts"]))
            self.assertEqual([record["id"] + "_part3.chunk"], home.part_files())
            self.assertEqual(PART_SIZE, (home.data / "temp_chunks" / home.part_files()[0]).stat().st_size)

            self.assertEqual(1, home.quillbeam("uploads", "resume").code)
            record = home.record()
            self.assertEqual(("failed", "Recording interrupted by app termination"), (record["state"], record["lastError"]))
            self.assertEqual([], home.part_files())

    def test_an_interrupted_upload_goes_on_where_it_was(self):
        with UploadService("put,part=2,delay=60000") as service, UploadHome(service) as home:
            sha256 = home.make_file(3 * PART_SIZE + 1)
            uploader = home.start_quillbeam("upload", "talk.mp4", *PLACE)
            home.wait_for_record(lambda record: len(record["uploadedParts"]) == 3, "all parts but one are confirmed")
            run = interrupt(uploader)
            self.assertEqual(130, run.code, run)
            self.assertIn("3 of 4 parts are at the service", run.err)
            record = home.record()
            self.assertEqual("uploading", record["state"])
            self.assertEqual([(2, 1)], [(part["partNumber"], part["retryCount"]) for part in record["failedParts"]])
            self.assertIn("uploading  3/4 parts (75 %)", home.quillbeam("uploads").out)

            service.stop(signal.SIGKILL)
            service.start("put,part=9,status=500")
            resumed = home.quillbeam("uploads", "resume")
            self.assertEqual(0, resumed.code, resumed)
            self.assertEqual("completed", home.record()["state"])
            self.assertEqual(sha256, service.sha256(record["fileId"]))
            self.assertEqual([], home.part_files())

    def test_a_launch_resumes_by_itself(self):
        with UploadService("put,part=1,delay=60000") as service, UploadHome(service) as home:
            sha256 = home.make_file(PART_SIZE + 7)
            uploader = home.start_quillbeam("upload", "talk.mp4", *PLACE)
            home.wait_for_record(lambda record: len(record["uploadedParts"]) == 1, "one part is confirmed")
            interrupt(uploader)
            service.stop(signal.SIGKILL)
            service.start("put,part=9,status=500")
            server = home.serve()
            home.wait_for_record(lambda record: record["state"] == "completed", "the launch completes it")
            self.assertEqual(sha256, service.sha256(home.record()["fileId"]))
            self.assertEqual([], home.call("native_upload_config", "getIncompleteUploadSessions").json)
            self.assertEqual(0, interrupt(server, signal.SIGTERM).code)

    def test_never_finalises_twice_and_can_be_aborted(self):
        with UploadService("finalize,delay=60000") as service, UploadHome(service) as home:
            home.make_file(100_000)
            uploader = home.start_quillbeam("upload", "talk.mp4", *PLACE)
            home.wait_for_record(lambda record: record["state"] == "completing", "the service is asked for the file")
            interrupt(uploader, signal.SIGKILL)
            service.stop(signal.SIGKILL)
            service.start("put,part=9,status=500")

            self.assertEqual(1, home.quillbeam("uploads", "resume").code)
            self.assertEqual("completing", home.record()["state"])
            aborted = home.quillbeam("uploads", "abort", home.record()["id"])
            self.assertEqual(0, aborted.code, aborted)
            self.assertEqual("aborted", home.record()["state"])
            self.assertEqual([200], [abort["status"] for abort in service.requests("abort")])
            self.assertNotEqual(0, home.quillbeam("uploads", "abort", home.record()["id"]).code, "once is enough")
            self.assertEqual([], [path for path in service.assembled_files()])

    def test_stopping_early_makes_the_service_forget(self):
        with UploadService("put,delay=1000") as service, UploadHome(service) as home:
            home.make_file(20 * PART_SIZE)
            uploader = home.start_quillbeam("upload", "talk.mp4", *PLACE)
            home.wait_for_record(lambda record: len(record["uploadedParts"]) >= 2, "parts are confirmed")
            run = interrupt(uploader)
            self.assertEqual(130, run.code, run)
            self.assertEqual("aborted", home.record()["state"])
            self.assertEqual(1, len(service.requests("abort")))
            self.assertEqual([], home.part_files())


class Service(unittest.TestCase):
    def test_tells_refused_from_unreachable(self):
        with UploadService() as service, UploadHome(service) as home:
            home.make_file(1000)
            wrong = home.quillbeam("upload", "talk.mp4", *PLACE, "--url", service.url, "--token", "another")
            self.assertEqual(7, wrong.code, wrong)
            self.assertIn("Authentication token expired", wrong.err)
            self.assertEqual(0, home.quillbeam("config", "set-upload", service.url).code)
            service.stop()
            self.assertEqual(8, home.quillbeam("upload", "talk.mp4", *PLACE).code)
            self.assertEqual(0, home.quillbeam("config", "clear-upload").code)
            unconfigured = home.quillbeam("upload", "talk.mp4", *PLACE)
            self.assertEqual(2, unconfigured.code, unconfigured)
            self.assertIn("config set-upload", unconfigured.err)
            self.assertEqual(1, home.quillbeam("upload", "no-such-file.mp4", *PLACE).code)

    def test_keeps_the_token_to_itself(self):
        with UploadService("url,part=1,times=1,status=500") as service, UploadHome(service) as home:
            config = home.data / "MacNativeApiConfig.json"
            self.assertEqual({"baseUrl": service.url, "authToken": TOKEN}, json.loads(config.read_text()))
            self.assertEqual((0o600, 0o700), tuple(stat.S_IMODE(os.stat(path).st_mode) for path in (config, home.data)))
            home.make_file(PART_SIZE + 1)
            run = home.quillbeam("upload", "talk.mp4", *PLACE, environment={"QUILLBEAM_LOG": "debug"})
            self.assertEqual(0, run.code, run)
            said = run.out + run.err + "".join(map(str, home.records()))
            self.assertIn("Fetching fresh URL for part 1", said)
            self.assertNotIn(TOKEN, said)
            self.assertNotIn("signature", said)

    def test_goes_through_a_running_native_half_whose_listeners_hear_of_it(self):
        with UploadService() as service, UploadHome(service) as home:
            sha256 = home.make_file(2 * PART_SIZE)
            server = home.serve()
            listener = home.start_quillbeam("listen")
            wait_until(lambda: home.call("native_upload_config", "isNativeApiConfigured").json is True, "configured")
            run = home.quillbeam("upload", "talk.mp4", *PLACE, "--json")
            self.assertEqual(0, run.code, run)
            self.assertEqual(sha256, service.sha256(run.json["fileId"]))
            events = [json.loads(line)["arguments"] for line in interrupt(listener).out.splitlines()]
            self.assertEqual(["sessionReady", "uploadProgress", "uploadProgress", "uploadComplete"],
                             [event["event"] for event in events])
            self.assertEqual({run.json["fileId"]}, {event["fileId"] for event in events})
            self.assertIsNone(server.poll(), "the server lives on")
            self.assertEqual(0, interrupt(server, signal.SIGTERM).code)


if __name__ == "__main__":
    unittest.main()
