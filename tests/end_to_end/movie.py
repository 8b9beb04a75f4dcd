"""What a finished file holds, as a player sees it."""

import array
import json
import math
import statistics
import subprocess

SOUND_RATE = 48000


class Movie:
    def __init__(self, path):
        self.path = path
        text = _output(["ffprobe", "-v", "error", "-of", "json", "-show_streams", "-show_format", path])
        self.facts = json.loads(text)

    @property
    def duration(self):
        return float(self.facts["format"]["duration"])

    def tracks(self, kind):
        return [stream for stream in self.facts["streams"] if stream["codec_type"] == kind]

    def summary(self):
        """Codec, profile and sound format of each track, for comparison as a whole."""
        return [(t["codec_name"], t.get("profile"), t.get("sample_rate"), t.get("channels")) for t in self.facts["streams"]]

    def picture(self, at):
        """A function (x, y in 0…1) → (red, green, blue) of the picture shown at `at` seconds."""
        width, height = (self.tracks("video")[0][side] for side in ("width", "height"))
        raw = _output(["ffmpeg", "-v", "error", "-ss", str(at), "-i", self.path, "-frames:v", "1",
                       "-pix_fmt", "rgb24", "-f", "rawvideo", "-"])

        def color(x, y):
            place = 3 * (int(y * (height - 1)) * width + int(x * (width - 1)))
            return tuple(raw[place:place + 3])
        return color

    def picture_times(self):
        text = _output(["ffprobe", "-v", "error", "-select_streams", "v", "-of", "csv=p=0",
                        "-show_entries", "packet=pts_time", self.path]).decode()
        return sorted(float(line.strip(",")) for line in text.split() if line.strip(","))

    def frame_numbers(self, every=1):
        """The numbers that the scene painted into its frames, in the order of the file's pictures."""
        squares = 24
        raw = _output(["ffmpeg", "-v", "error", "-i", self.path, "-fps_mode", "passthrough", "-vf",
                       f"crop={squares}*16:16:0:0,scale={squares}:1:flags=area,format=gray", "-f", "rawvideo", "-"])
        rows = (raw[i:i + squares] for i in range(0, len(raw), squares * every))
        return [sum(1 << bit for bit, level in enumerate(row) if level > 127) for row in rows]

    def tone_level(self, track, hertz, window=0.1):
        """Amplitude (0…1) of a tone on the left of an audio track: the median over the windows (whole periods, in seconds)
        of its middle second, so that a hiccup of a busy machine's player does not count. A drift that is being corrected
        takes something away; less so in short windows."""
        raw = _output(["ffmpeg", "-v", "error", "-ss", str(self.duration / 2 - 0.5), "-t", "1", "-i", self.path,
                       "-map", f"0:a:{track}", "-af", "pan=mono|c0=c0", "-ar", str(SOUND_RATE), "-f", "f32le", "-"])
        samples = array.array("f", raw)
        size = round(SOUND_RATE * window)
        return statistics.median(_amplitude(samples[i:i + size], hertz) for i in range(0, len(samples) - size, size))

    def decodes_cleanly(self):
        """The decoder's complaints about the whole file; empty when there are none."""
        return subprocess.run(["ffmpeg", "-v", "error", "-i", self.path, "-fps_mode", "passthrough",
                               "-enc_time_base", "-1", "-f", "null", "-"],
                              capture_output=True, text=True, check=False).stderr


def boxes(path):
    """Types of the file's top-level boxes, in order."""
    types = []
    with open(path, "rb") as file:
        while header := file.read(8):
            size, kind = int.from_bytes(header[:4], "big"), header[4:].decode("latin-1")
            skipped = 8
            if size == 1:
                size, skipped = int.from_bytes(file.read(8), "big"), 16
            types.append(kind)
            if size == 0:
                break
            file.seek(size - skipped, 1)
    return types


def _amplitude(samples, hertz):
    step = 2 * math.pi * hertz / SOUND_RATE
    real = sum(s * math.cos(step * i) for i, s in enumerate(samples))
    imaginary = sum(s * math.sin(step * i) for i, s in enumerate(samples))
    return 2 * math.hypot(real, imaginary) / len(samples)


def _output(command):
    return subprocess.run([str(part) for part in command], capture_output=True, check=True).stdout
