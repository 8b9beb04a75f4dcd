"""The reference upload service, judged by a client that knows nothing but HTTP."""

import hashlib
import http.client
import os
import unittest

from upload_service import PART_SIZE, TOKEN, PlainClient, PlainUpload, UploadService

FULL = os.urandom(PART_SIZE)
OTHER = os.urandom(PART_SIZE)
REST = os.urandom(1000)


class UploadServiceUploads(unittest.TestCase):
    def test_assembles_the_parts_once(self):
        with UploadService() as service, PlainClient(service) as client:
            upload = PlainUpload(client, source="multipart-upload-screen-macos")
            etags = [upload.put(part, body).headers["ETag"] for part, body in ((3, REST), (1, OTHER), (2, FULL))]
            self.assertRegex(etags[0], '^"[0-9a-f]+"$')
            self.assertEqual(200, upload.put(1, FULL).status, "a part may be put again")
            self.assertEqual({}, upload.pulse().data)
            self.assertEqual({}, upload.finalize().data)
            self.assertEqual({}, upload.finalize("Another name").data, "its answer may have been lost")

            whole = FULL + FULL + REST
            self.assertEqual(whole, service.file(upload.file_id).read_bytes())
            self.assertEqual({"fileId": upload.file_id, "uploadId": upload.upload_id, "team": "team-1",
                              "folder": "folder-1", "source": "multipart-upload-screen-macos",
                              "contentType": "video/mp4", "name": "Weekly.mp4", "description": "",
                              "notes": [], "size": len(whole), "parts": 3,
                              "sha256": hashlib.sha256(whole).hexdigest(), "assemblies": 1},
                             service.record(upload.file_id))
            self.assertEqual([404, 404], [upload.url(4).status, upload.abort().status])

    def test_refuses_to_assemble_what_is_no_whole(self):
        with UploadService() as service, PlainClient(service) as client:
            for parts, code in [({}, "InvalidPart"), ({2: FULL}, "InvalidPart"), ({1: FULL, 3: REST}, "InvalidPart"),
                                ({1: FULL, 2: REST, 3: FULL}, "EntityTooSmall"),
                                ({1: FULL + b"x", 2: REST}, "EntityTooLarge")]:
                with self.subTest(code, parts=list(parts)):
                    upload = PlainUpload(client)
                    for part, body in parts.items():
                        upload.put(part, body)
                    answer = upload.finalize()
                    self.assertEqual((400, code), (answer.status, answer.code))
            self.assertEqual({}, service.assembled_files())

class UploadServiceRefusals(unittest.TestCase):
    def test_wants_the_token_and_keeps_secrets_out_of_its_log(self):
        with UploadService() as service, PlainClient(service) as client:
            upload = PlainUpload(client)
            upload.put(1, REST)
            client.token = "wrong"
            answers = [upload.url(1), upload.pulse(), upload.finalize(), upload.abort()]
            self.assertEqual([(401, "Unauthorized")] * 4, [(answer.status, answer.code) for answer in answers])
            self.assertEqual(401, client.request("PUT", "/files/upload/multipart/init/t/f", "{}").status)
            log = (service.directory / "requests.jsonl").read_text()
            for secret in (TOKEN, "signature", "expires", "wrong"):
                self.assertNotIn(secret, log)

class UploadServiceFaults(unittest.TestCase):
    def test_a_lost_answer_had_its_effect_and_a_closed_connection_none(self):
        with UploadService("put,part=1,times=1,lost-answer", "put,part=2,times=1,close", "finalize,times=1,close",
                           "finalize,from=2,times=1,lost-answer") as service, PlainClient(service) as client:
            upload = PlainUpload(client)
            for part in (1, 2):
                with self.assertRaises((http.client.RemoteDisconnected, ConnectionError)):
                    upload.put(part, FULL)
            self.assertEqual(["part-1"], [path.name for path in service.directory.glob("uploads/**/part-*")])
            upload.put(2, REST)
            for is_assembled in (False, True):
                with self.assertRaises(http.client.RemoteDisconnected):
                    upload.finalize()
                self.assertEqual(is_assembled, upload.file_id in service.assembled_files())
            upload.finalize().data
            self.assertEqual(1, service.record(upload.file_id)["assemblies"])
            self.assertEqual([None, None, 200], [line["status"] for line in service.requests("put")])

    def test_chance_follows_from_the_seed_whatever_the_timing(self):
        rule = "put,probability=0.5,seed=7,max-per-part=2,status=503"
        forth = self.outcomes(rule, range(1, 21))
        self.assertEqual(forth, self.outcomes(rule, range(20, 0, -1)))
        self.assertNotEqual(forth, self.outcomes(rule.replace("seed=7", "seed=8"), range(1, 21)))
        failures = [outcomes.count(503) for outcomes in forth.values()]
        self.assertEqual({0, 1, 2}, set(failures))
        self.assertTrue(all(outcomes[-1] == 200 for outcomes in forth.values() if outcomes[:2] == [503, 503]))

    def outcomes(self, rule, parts):
        """{part: statuses of its first three attempts}"""
        with UploadService(rule) as service, PlainClient(service) as client:
            upload = PlainUpload(client)
            statuses = {part: [] for part in parts}
            for _ in range(3):
                for part in parts:
                    statuses[part].append(upload.put(part, REST).status)
            return statuses


if __name__ == "__main__":
    unittest.main()
