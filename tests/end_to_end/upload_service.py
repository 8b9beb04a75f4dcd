"""The reference upload service as a process of its own, and a plain client of it that shares no code with ours."""

import hashlib
import http.client
import json
import pathlib
import shutil
import signal
import subprocess
import tempfile

from stage import BIN

TOKEN = "a-token-for-tests"
PART_SIZE = 5 * 1024 * 1024


class UploadService:
    """with UploadService("put,part=2,times=1,status=503") as service: …

    Its directory outlives `stop` and `start`, and goes with the block."""

    def __init__(self, *faults, token=TOKEN):
        self.faults, self.token = faults, token
        self.process = None

    def __enter__(self):
        self.directory = pathlib.Path(tempfile.mkdtemp(prefix="quillbeam-uploads-"))
        self.port = 0
        self.start()
        return self

    def __exit__(self, failure, *_):
        code = self.stop()
        shutil.rmtree(self.directory)
        if code != 0 and failure is None:
            raise AssertionError(f"the upload service ended with {code}")

    def start(self, *faults):
        """Also again after `stop`, on the same port; with other faults if any are given."""
        self.faults = faults or self.faults
        rules = [argument for rule in self.faults for argument in ("--fault", rule)]
        command = [BIN / "quillbeam-upload-service", "--port", str(self.port), "--dir", self.directory,
                   "--token", self.token, *rules]
        self.process = subprocess.Popen(command, stdout=subprocess.PIPE, text=True)
        line = self.process.stdout.readline()
        if not line.startswith("listening on "):
            self.stop()
            raise RuntimeError("the upload service did not come up")
        self.url = line.split()[-1]
        self.port = int(self.url.rsplit(":", 1)[1])

    def stop(self, number=signal.SIGTERM):
        """The exit code."""
        if self.process.poll() is None:
            self.process.send_signal(number)
        code = self.process.wait(timeout=10)
        self.process.stdout.close()
        return code

    def requests(self, endpoint=None):
        """What was asked so far, oldest first: dicts of requests.jsonl."""
        lines = map(json.loads, (self.directory / "requests.jsonl").read_text().splitlines())
        return [line for line in lines if endpoint in (None, line["endpoint"])]

    def assembled_files(self):
        """{file id: path} of the uploads that were finished."""
        return {path.stem: path.with_suffix("") for path in (self.directory / "files").glob("*.json")}

    def file(self, file_id):
        return self.directory / "files" / file_id

    def record(self, file_id):
        return json.loads((self.directory / "files" / (file_id + ".json")).read_text())

    def sha256(self, file_id):
        """Of the assembled bytes themselves, not what the service says of them."""
        with open(self.file(file_id), "rb") as file:
            return hashlib.file_digest(file, "sha256").hexdigest()


class Answer:
    def __init__(self, status, headers, body):
        self.status, self.headers, self.body = status, headers, body

    @property
    def json(self):
        return json.loads(self.body)

    @property
    def data(self):
        if self.status != 200:
            raise AssertionError(self)
        return self.json["data"]

    @property
    def code(self):
        return self.json["error"]["code"]

    def __repr__(self):
        return f"{self.status} {self.body!r}"


class PlainClient:
    """One connection; raises http.client's and the system's errors."""

    def __init__(self, service, token=TOKEN, timeout=10):
        self.token = token
        self.connection = http.client.HTTPConnection("127.0.0.1", service.port, timeout=timeout)

    def __enter__(self):
        return self

    def __exit__(self, *_):
        self.connection.close()

    def request(self, method, target, body=None, headers=()):
        try:
            self.connection.request(method, target, body, dict(headers))
            response = self.connection.getresponse()
            return Answer(response.status, response.headers, response.read())
        except OSError:
            self.connection.close()
            raise

    def call(self, method, path, body=None):
        headers = {"Authorization": "Bearer " + self.token}
        if body is not None:
            headers["Content-Type"] = "application/json"
            body = json.dumps(body)
        return self.request(method, "/files/upload/multipart/" + path, body, headers)

    def put(self, url, body):
        return self.request("PUT", "/" + url.split("/", 3)[3], body)


class PlainUpload:
    """One upload through a plain client."""

    def __init__(self, client, team="team-1", folder="folder-1", source=None):
        self.client, self.team, self.folder = client, team, folder
        body = {"contentType": "video/mp4", **({"source": source} if source else {})}
        ids = client.call("PUT", f"init/{team}/{folder}", body).data
        self.file_id, self.upload_id = ids["fileId"], ids["uploadId"]
        self.place = f"{team}/{folder}/{self.file_id}"

    def url(self, part):
        return self.client.call("PUT", f"url/{self.place}/{self.upload_id}/{part}", {"contentType": "video/mp4"})

    def put(self, part, body):
        return self.client.put(self.url(part).data["uploadUrl"], body)

    def pulse(self):
        return self.client.call("POST", f"pulse/{self.place}")

    def finalize(self, name="Weekly.mp4"):
        file = {"contentType": "video/mp4", "name": name, "description": "", "notes": []}
        return self.client.call("PUT", f"finalize/{self.place}/{self.upload_id}", {"file": file})

    def abort(self):
        return self.client.call("DELETE", f"abort/{self.place}/{self.upload_id}")
