"""Runs `clipworks serve` for tests, and makes the clips that it shows."""

import http.client
import json
import os
import signal
import subprocess
import sys
import tempfile
import urllib.parse
from pathlib import Path

PATIENCE = 30
WIDTH, HEIGHT, BITS = 640, 360, 10


class Serving:
    """The program, serving a directory, and a client that has its cookie."""

    def __init__(self, program, folder):
        self.temp = tempfile.TemporaryDirectory()
        words = [program, "--temp", self.temp.name, "serve", str(folder), "--no-open"]
        self.process = subprocess.Popen(words, stdout=subprocess.PIPE, text=True)
        self.address = self.process.stdout.readline().strip()
        parsed = urllib.parse.urlsplit(self.address)
        self.port, self.host = parsed.port, parsed.netloc
        self.origin = f"http://{self.host}"
        self.headers = {}

    def enter(self):
        """Trades the key in the address for the cookie."""
        status, headers, _ = self.ask("GET", self.address.removeprefix(self.origin))
        assert status == 200, status
        self.headers["Cookie"] = headers["Set-Cookie"].split(";")[0]
        return headers

    def ask(self, method, path, body=None, **headers):
        """Status, headers and bytes of an answer. Headers that are None are left out."""
        connection = http.client.HTTPConnection("127.0.0.1", self.port, timeout=PATIENCE)
        all_headers = {**self.headers, **{name.replace("_", "-"): value for name, value in headers.items()}}
        if method == "POST":
            all_headers = {"Origin": self.origin, "Content-Type": "application/json", **all_headers}
        connection.request(method, path, body, {n: v for n, v in all_headers.items() if v is not None})
        answer = connection.getresponse()
        content = answer.read()
        connection.close()
        return answer.status, answer.headers, content

    def post(self, path, message):
        status, _, content = self.ask("POST", path, json.dumps(message))
        return status, json.loads(content)

    def stop(self):
        """Ctrl-C; returns the exit code, and what is left of temporary files."""
        self.process.send_signal(signal.SIGINT)
        code = self.process.wait(PATIENCE)
        left = os.listdir(self.temp.name)
        self.temp.cleanup()
        self.process.stdout.close()
        return code, left


def make_clip(path, pictures=90, rate=30, *options):
    """A clip whose pictures carry their number as bars, black or white, with a tone that swells."""
    frames = bytearray()
    for number in range(pictures):
        for bit in range(BITS):
            frames += bytes([235 if number >> (BITS - 1 - bit) & 1 else 16]) * (WIDTH // BITS)
    options = options or ("-c:v", "libx264", "-pix_fmt", "yuv420p", "-g", "30")
    command = ["ffmpeg", "-v", "error", "-y", "-f", "rawvideo", "-pix_fmt", "gray", "-s", f"{WIDTH}x1", "-r", str(rate)]
    command += ["-i", "-", "-f", "lavfi", "-i", f"aevalsrc=sin(2*PI*440*t)*t*{rate}/{pictures}:s=48000"]
    command += ["-vf", f"scale={WIDTH}:{HEIGHT}:flags=neighbor", *options, "-c:a", "aac", "-shortest", str(path)]
    subprocess.run(command, input=bytes(frames), check=True)
    return Path(path)


def numbers_in(path):
    """The bars' numbers of a clip's pictures, in order, by ffmpeg."""
    command = ["ffmpeg", "-v", "error", "-i", str(path), "-vf", "scale=40:4:flags=area,format=gray", "-fps_mode", "passthrough"]
    pixels = subprocess.run([*command, "-f", "rawvideo", "-"], check=True, capture_output=True).stdout
    rows = [pixels[i + 80:i + 120] for i in range(0, len(pixels), 160)]
    return [sum((row[4 * bit + 2] > 125) << (BITS - 1 - bit) for bit in range(BITS)) for row in rows]


def facts_of(path):
    """Width, height and length of a clip, by ffprobe."""
    command = ["ffprobe", "-v", "error", "-of", "json", "-show_entries", "stream=width,height,codec_name:format=duration"]
    facts = json.loads(subprocess.run([*command, str(path)], check=True, capture_output=True).stdout)
    video = next(stream for stream in facts["streams"] if "width" in stream)
    return video["width"], video["height"], float(facts["format"]["duration"])


def program_named():
    return sys.argv.pop(1)
