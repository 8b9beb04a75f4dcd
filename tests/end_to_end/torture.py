"""Kills recordings that upload while they run, at random moments, and looks at what is left.

usage: torture.py ROUNDS [SEED]      (QUILLBEAM_BIN names the programs; `make torture`)
"""

import random
import signal
import sys
import time
import unittest

from movie import Movie
from stage import Stage, interrupt, wait_until
from upload_service import TOKEN, UploadService

SEGMENT = 10  # seconds
LONGEST = 45


def kill_once(test, seconds):
    """One recording, killed after so many seconds."""
    with UploadService() as service, Stage("clock", ("440",)) as stage:
        recorder = stage.start_quillbeam("record", "--output", "out.mp4", "--upload-url", service.url, "--token", TOKEN,
                                         "--team", "team-1", "--folder", "folder-1")
        wait_until(lambda: stage.file("out.mp4").exists(), "the recording has begun")
        time.sleep(seconds)
        interrupt(recorder, signal.SIGKILL)

        found = stage.quillbeam("recover", "--json")
        test.assertEqual(0, found.code, found)
        # The command was the next native half: it has repaired both files.
        wait_until(lambda: not list(stage.home.glob(".local/share/io.quillbeam.app/open_recordings/*")) or
                   stage.quillbeam("recover").code != 0, "the files are repaired")
        local = Movie(stage.file("out.mp4"))
        test.assertEqual("", local.decodes_cleanly())
        test.assertGreater(local.duration, seconds - 2)
        if seconds > SEGMENT + 1:
            (recording,) = found.json
            recovered = stage.quillbeam("recover", recording["id"], "--output", "recovered.mp4")
            test.assertEqual(0, recovered.code, recovered)
            movie = Movie(stage.file("recovered.mp4"))
            test.assertEqual("", movie.decodes_cleanly())
            test.assertGreater(movie.duration, seconds - SEGMENT - 1)
            test.assertEqual(0, stage.quillbeam("recover", "--clean", 0).code)
        stage.quillbeam("uploads", "resume")
        for directory in ("segment_recordings", "temp_chunks"):
            left = lambda: list(stage.home.glob(f".local/share/io.quillbeam.app/{directory}/*"))
            wait_until(lambda: not left() or stage.quillbeam("recover").code != 0, f"{directory} is empty: {left()}")


def main():
    rounds = int(sys.argv[1])
    seed = int(sys.argv[2]) if len(sys.argv) > 2 else random.randrange(1 << 32)
    print(f"seed {seed}", flush=True)
    moments = random.Random(seed)
    test = unittest.TestCase()
    for round_ in range(rounds):
        seconds = moments.uniform(1, LONGEST)
        print(f"round {round_ + 1} of {rounds}: killed after {seconds:.1f} s", flush=True)
        kill_once(test, seconds)


if __name__ == "__main__":
    main()
