"""Runs `clipworks serve` for tests, and makes the clips that it shows."""

import array
import cmath
import http.client
import json
import math
import operator
import os
import signal
import subprocess
import sys
import tempfile
import urllib.parse
from pathlib import Path

PATIENCE = 30
WIDTH, HEIGHT, BITS = 640, 360, 10
LEVEL_STEP = 0.002  # seconds


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


def make_scene(path):
    """Six seconds along hills in the evening, in the wind."""
    hills = [(248, 68, 0x967FA0), (308, 52, 0x6E628C), (375, 45, 0x424268), (450, 34, 0x1E223A)]
    planes = []
    for shift, top, low, sun in [(16, 70, 240, 255), (8, 110, 170, 236), (0, 190, 130, 190)]:
        away = "hypot(X-850,Y-176)"
        seen = f"lerp(lerp({top},{low},min(1,Y/322)),{sun},if(lt({away},34),1,0.75*exp(-{away}/112)))"
        for k, (y, rise, colour) in enumerate(hills):
            ridge = f"{y}-{rise}*(sin(X/{20 * k + 40}+{k * k})/2+sin(X/{23 * k + 23}+{5 * k})/3+abs(sin(X/73+{k}))/2)"
            seen = f"if(gt(Y,{ridge}),{colour >> shift & 255},{seen})"
        planes.append(f"{'bgr'[shift // 8]}='{seen}'")
    still = f"color=s=1440x540:r=30,format=gbrp,trim=end_frame=1,geq={':'.join(planes)}"
    scene = still + ",loop=-1:1,setpts=N/30/TB,crop=960:540:80*t:0"
    wind = "anoisesrc=c=pink:a=0.7:seed=1,tremolo=f=0.4:d=0.9"
    command = ["ffmpeg", "-v", "error", "-y", "-f", "lavfi", "-i", scene, "-f", "lavfi", "-i", wind, "-t", "6"]
    subprocess.run([*command, "-c:v", "libx264", "-pix_fmt", "yuv420p", "-c:a", "aac", str(path)], check=True)


def make_bursts(path, frequency):
    """A tenth of a second of a tone in each second, at a quarter of full scale."""
    sound = f"aevalsrc=0.25*sin(2*PI*{frequency}*t)*lt(mod(t\\,1)\\,0.1):s=48000:d=60"
    subprocess.run(["ffmpeg", "-v", "error", "-f", "lavfi", "-i", sound, str(path)], check=True)
    return path


def levels_in(path, frequency):
    """The amplitude of a tone, of full scale 1, in the 20 ms around each of a clip's moments."""
    command = ["ffmpeg", "-v", "error", "-i", str(path), "-af", "aresample=async=1:first_pts=0", "-ac", "1", "-ar", "48000"]
    samples = subprocess.run([*command, "-vn", "-f", "f32le", "-"], check=True, capture_output=True).stdout
    sound = array.array("f", bytes(4 * 480) + samples)
    wave = [cmath.exp(-2j * math.pi * frequency * i / 48000) / 480 for i in range(960)]
    places = range(0, len(sound) - 960, round(48000 * LEVEL_STEP))
    return [abs(sum(map(operator.mul, wave, sound[at : at + 960]))) for at in places]


def to_palette(picture, place):
    """A picture in 256 colours, for the docs."""
    colours = "split[a][b];[a]palettegen=stats_mode=full[p];[b][p]paletteuse=dither=sierra2_4a"
    subprocess.run(["ffmpeg", "-v", "error", "-y", "-i", str(picture), "-vf", colours, str(place)], check=True)


def facts_of(path):
    """Width, height and length of a clip, by ffprobe."""
    command = ["ffprobe", "-v", "error", "-of", "json", "-show_entries", "stream=width,height,codec_name:format=duration"]
    facts = json.loads(subprocess.run([*command, str(path)], check=True, capture_output=True).stdout)
    video = next(stream for stream in facts["streams"] if "width" in stream)
    return video["width"], video["height"], float(facts["format"]["duration"])


def program_named():
    return sys.argv.pop(1)
