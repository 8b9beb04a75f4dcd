"""The reference upload service, judged by a client that knows nothing but HTTP."""

import concurrent.futures
import hashlib
import http.client
import os
import socket
import subprocess
import tempfile
import time
import unittest

from stage import BIN, wait_until
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

    def test_abort_ends_an_upload(self):
        with UploadService() as service, PlainClient(service) as client:
            upload = PlainUpload(client)
            url = upload.url(1).data["uploadUrl"]
            upload.put(1, FULL)
            self.assertEqual({}, upload.abort().data)
            self.assertEqual([], list(service.directory.glob("uploads/**/part-*")))
            self.assertEqual([404] * 5, [answer.status for answer in (
                upload.finalize(), upload.url(2), upload.pulse(), upload.abort(), client.put(url, FULL))])

    def test_a_restart_changes_nothing(self):
        with UploadService() as service:
            with PlainClient(service) as client:
                upload = PlainUpload(client)
                upload.put(1, FULL)
                url = upload.url(2).data["uploadUrl"]
            self.assertEqual(0, service.stop())
            service.start()
            with PlainClient(service) as client:
                upload.client = client
                self.assertEqual(200, client.put(url, REST).status)
                upload.finalize().data
            self.assertEqual(FULL + REST, service.file(upload.file_id).read_bytes())

    def test_ends_with_connections_open_and_a_body_half_sent(self):
        with UploadService() as service, PlainClient(service) as idle, PlainClient(service) as client:
            upload = PlainUpload(idle)
            client.connection.putrequest("PUT", path_of(upload.url(1)))
            client.connection.putheader("Content-Length", str(PART_SIZE))
            client.connection.endheaders(FULL[:1000])
            wait_until(lambda: list(service.directory.glob("uploads/**/part-*")), "the part is being received")
            start = time.monotonic()
            self.assertEqual(0, service.stop())
            self.assertLess(time.monotonic() - start, 2)
            self.assertEqual([], list(service.directory.glob("uploads/**/part-*")))

    def test_takes_parts_of_several_uploads_at_once(self):
        with UploadService() as service:
            def run(number):
                with PlainClient(service) as client:
                    upload = PlainUpload(client)
                    bodies = [bytes([number, part]) * (PART_SIZE // 2) for part in range(1, 4)]
                    for part, body in enumerate(bodies, 1):
                        upload.put(part, body)
                    upload.finalize().data
                    return upload.file_id, hashlib.sha256(b"".join(bodies)).hexdigest()
            with concurrent.futures.ThreadPoolExecutor(8) as pool:
                for file_id, digest in pool.map(run, range(8)):
                    self.assertEqual(digest, service.sha256(file_id))


def path_of(answer):
    return "/" + answer.data["uploadUrl"].split("/", 3)[3]


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

    def test_url_is_for_one_part_and_a_while(self):
        with UploadService("url,part=9,expired") as service, PlainClient(service) as client:
            upload = PlainUpload(client)
            url = upload.url(1).data["uploadUrl"]
            last = "1" if url[-1] == "0" else "0"
            for wrong in (url[:-1] + last, url.replace("/1?", "/2?"), url.replace("expires=", "expires=9"),
                          url.split("?")[0]):
                answer = client.put(wrong, FULL)
                self.assertEqual(403, answer.status, wrong)
                self.assertIn(b"<Code>SignatureDoesNotMatch</Code>", answer.body)
            expired = upload.put(9, FULL)
            self.assertEqual(403, expired.status)
            self.assertIn(b"Request has expired", expired.body)
            self.assertEqual(200, client.put(url, FULL).status, "refusals leave the connection usable")

    def test_tells_what_is_wrong_with_a_request(self):
        with UploadService() as service, PlainClient(service) as client:
            upload = PlainUpload(client)
            other = f"{upload.team}/elsewhere/{upload.file_id}"
            for status, method, path, body in [
                    (400, "PUT", "init/t/f", {}), (400, "PUT", "init/t/f", {"contentType": ""}),
                    (400, "PUT", f"url/{upload.place}/{upload.upload_id}/0", {"contentType": "video/mp4"}),
                    (400, "PUT", f"finalize/{upload.place}/{upload.upload_id}", {"file": {"name": "x"}}),
                    (404, "POST", f"pulse/{other}", None), (404, "DELETE", f"abort/{other}/{upload.upload_id}", None),
                    (404, "PUT", f"url/{upload.place}/upload-0/1", {"contentType": "video/mp4"}),
                    (404, "POST", "init/t/f", {"contentType": "video/mp4"}), (404, "GET", "pulse/t/f/x", None)]:
                with self.subTest(path, body=body):
                    self.assertEqual(status, client.call(method, path, body).status)
            client.connection.putrequest("POST", f"/files/upload/multipart/pulse/{upload.place}")
            client.connection.endheaders()
            self.assertEqual(401, client.connection.getresponse().status, "without a body, and without its length")
            client.connection.close()
            chunked = client.request("PUT", path_of(upload.url(1)), iter([b"one", b"two"]))
            self.assertEqual(411, chunked.status, "a store wants to know the length")

    def test_bad_rules_end_it_with_2(self):
        for rule in ("dance,close", "put", "put,close,delay=1", "put,status=99", "put,part=0,close", "url,no-etag",
                     "put,probability=2,close", "init,close,body=x"):
            with self.subTest(rule), tempfile.TemporaryDirectory() as directory:
                run = subprocess.run([BIN / "quillbeam-upload-service", "--dir", directory, "--fault", rule],
                                     timeout=10, capture_output=True, text=True)
                self.assertEqual((2, ""), (run.returncode, run.stdout))
                self.assertIn(rule, run.stderr)


class UploadServiceFaults(unittest.TestCase):
    def test_answers_what_a_rule_says(self):
        rules = ("put,part=1,times=2,status=503,body=Slow down, please", "url,part=2,from=2,times=1,unauthorized",
                 "init,from=2,bad-json", "put,part=2,no-etag")
        with UploadService(*rules) as service, PlainClient(service) as client:
            upload = PlainUpload(client)
            answers = [upload.put(1, FULL) for _ in range(3)]
            self.assertEqual([503, 503, 200], [answer.status for answer in answers])
            self.assertEqual(b"Slow down, please", answers[0].body)
            self.assertEqual([200, 401, 200], [upload.url(2).status for _ in range(3)])
            self.assertNotIn("ETag", upload.put(2, REST).headers)
            upload.finalize().data
            strange = client.call("PUT", "init/t/f", {"contentType": "video/mp4"})
            self.assertEqual((200, b"this is not JSON"), (strange.status, strange.body))
            self.assertEqual([("status=503", 503)] * 2 + [(None, 200), ("no-etag", 200)],
                             [(line["fault"], line["status"]) for line in service.requests("put")])

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

    def test_waits_before_or_within_a_body(self):
        with UploadService("put,part=1,stall=1000", "pulse,delay=700", "put,part=2,delay=300",
                           "put,part=2,status=500") as service, PlainClient(service) as client:
            upload = PlainUpload(client)
            url = path_of(upload.url(1))
            start = time.monotonic()
            connection = socket.create_connection(("127.0.0.1", service.port))
            connection.sendall(f"PUT {url} HTTP/1.1\r\nContent-Length: {PART_SIZE}\r\n\r\n".encode())
            connection.settimeout(0.5)
            with self.assertRaises(TimeoutError, msg="the service reads on"):
                connection.sendall(FULL)
            connection.close()

            self.assertEqual({}, upload.pulse().data)
            self.assertGreater(time.monotonic() - start, 1.2)
            start = time.monotonic()
            self.assertEqual(500, upload.put(2, REST).status)
            self.assertGreater(time.monotonic() - start, 0.3)

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
