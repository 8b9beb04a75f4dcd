"""A stage for the program under test: a private desktop, a scene on it, a user's directories; all gone afterwards."""

import json
import os
import pathlib
import shutil
import signal
import subprocess
import tempfile
import time

ROOT = pathlib.Path(__file__).resolve().parents[2]
BIN = pathlib.Path(os.environ.get("QUILLBEAM_BIN", ROOT / "bin")).resolve()


class Run:
    """How a finished run of the program went."""

    def __init__(self, code, out, err):
        self.code, self.out, self.err = code, out, err

    @property
    def json(self):
        return json.loads(self.out.strip().splitlines()[-1])

    def __repr__(self):
        return f"exit code {self.code}\n--- standard output\n{self.out}\n--- standard error\n{self.err}"


class Stage:
    """with Stage("clock") as stage: …"""

    def __init__(self, scene=None, tones=(), desktop_options=()):
        self.scene, self.tones, self.desktop_options = scene, tones, desktop_options

    def __enter__(self):
        self.home = pathlib.Path(tempfile.mkdtemp(prefix="quillbeam-test-"))
        self.running = []
        command = [ROOT / "scripts" / "private-desktop", *self.desktop_options, "sh", "-c", "env -0; printf '\\0'; exec cat"]
        self.desktop = subprocess.Popen(command, stdin=subprocess.PIPE, stdout=subprocess.PIPE)
        self.environment = {**self._desktop_environment(), "HOME": str(self.home), "TZ": "UTC"}
        for name in ("XDG_DATA_HOME", "XDG_CONFIG_HOME", "XDG_CACHE_HOME"):
            self.environment.pop(name, None)
        if self.scene:
            self._show_scene()
        return self

    def __exit__(self, *_):
        self._end_processes()
        self.desktop.stdin.close()
        self.desktop.wait()
        self.desktop.stdout.close()
        shutil.rmtree(self.home)

    def _end_processes(self):
        for process in reversed(self.running):
            if process.poll() is None:
                process.kill()
            process.communicate()

    def _desktop_environment(self):
        text = b""
        while not text.endswith(b"\0\0"):
            byte = os.read(self.desktop.stdout.fileno(), 65536)
            if not byte:
                raise RuntimeError("the private desktop did not come up")
            text += byte
        pairs = (entry.split("=", 1) for entry in text.decode().split("\0") if entry)
        return dict(pairs)

    def _show_scene(self):
        tones = [argument for tone in self.tones for argument in ("--tone", tone)]
        scene = self.start(BIN / "demo-scene", self.scene, *tones)
        if scene.stdout.readline().strip() != "ready":
            raise RuntimeError("the scene did not come up")
        time.sleep(0.5)  # the tones need the sound server's first block

    def start(self, *command, environment=()):
        """A process on this stage; killed at the end if it still runs."""
        process = subprocess.Popen([str(part) for part in command], env={**self.environment, **dict(environment)},
                                   cwd=self.home, text=True, stdout=subprocess.PIPE, stderr=subprocess.PIPE)
        self.running.append(process)
        return process

    def start_quillbeam(self, *arguments, environment=()):
        return self.start(BIN / "quillbeam", *arguments, environment=environment)

    def quillbeam(self, *arguments, timeout=60, environment=()):
        return finish(self.start_quillbeam(*arguments, environment=environment), timeout)

    def serve(self, *arguments):
        """A native half that answers."""
        process = self.start_quillbeam("serve", *arguments)
        wait_until(lambda: self.quillbeam("call", "io.quillbeam.app.mac_recorder", "getMacRecordingStatus",
                                          *arguments).code == 0, "the native half answers")
        return process

    def call(self, channel, method, arguments=None):
        extra = [] if arguments is None else [json.dumps(arguments)]
        return self.quillbeam("call", "io.quillbeam.app." + channel, method, *extra)

    def file(self, name):
        return self.home / name


class Household(Stage):
    """A user's directories without a display and without a sound server."""

    def __enter__(self):
        self.home = pathlib.Path(tempfile.mkdtemp(prefix="quillbeam-test-"))
        self.running = []
        runtime = self.home / "runtime"
        runtime.mkdir(mode=0o700)
        self.environment = {"HOME": str(self.home), "XDG_RUNTIME_DIR": str(runtime), "PATH": os.environ["PATH"], "TZ": "UTC",
                            **{name: os.environ[name] for name in ("ASAN_OPTIONS", "TSAN_OPTIONS") if name in os.environ}}
        return self

    def __exit__(self, *_):
        self._end_processes()
        shutil.rmtree(self.home)


def finish(process, timeout=60):
    out, err = process.communicate(timeout=timeout)
    return Run(process.returncode, out, err)


def interrupt(process, number=signal.SIGINT, timeout=60):
    process.send_signal(number)
    return finish(process, timeout)


def wait_until(condition, what, timeout=30):
    deadline = time.monotonic() + timeout
    while not condition():
        if time.monotonic() > deadline:
            raise AssertionError(f"waited {timeout} s in vain: {what}")
        time.sleep(0.1)


def has_recorded(path):
    """Whether a recording under way has some fragments, so about two seconds, on disk."""
    return path.exists() and path.read_bytes().count(b"moof") >= 3


def wait_until_recorded(path):
    wait_until(lambda: has_recorded(path), f"{path} holds fragments")
