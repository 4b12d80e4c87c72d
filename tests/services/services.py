"""What the tests of services share: clips and jobs, judges of what came of them, and servers that end with the test."""

import contextlib
import importlib.util
import json
import os
import shutil
import signal
import socket
import subprocess
import sys
import tempfile
import time
import unittest
from pathlib import Path

IS_LONG = os.environ.get("CLIPWORKS_SERVICES") == "long"
HEIGHT = 144
os.environ["PATH"] = f"{os.environ['PROGRAMS']}:{os.environ['PATH']}"


def needs(*names):
    """Skips the test where one of these programs and Python modules is not installed."""
    missing = [name for name in names if not shutil.which(name) and importlib.util.find_spec(name) is None]
    if missing:
        print("skipped: not installed:", *missing)
        sys.exit(77)


def until(condition, what, seconds=60):
    """What the condition gives, as soon as it is true."""
    deadline = time.monotonic() + seconds
    while not (found := condition()):
        if time.monotonic() > deadline:
            raise TimeoutError(what)
        time.sleep(0.01)
    return found


def free_port():
    with socket.socket() as probe:
        probe.bind(("127.0.0.1", 0))
        return probe.getsockname()[1]


def is_listening(port):
    with socket.socket() as probe:
        return probe.connect_ex(("127.0.0.1", port)) == 0


def children(process):
    """Their ids, of those that any of its threads has started."""
    tasks = Path(f"/proc/{process}/task").glob("*/children")
    return [int(child) for task in tasks for child in task.read_text().split()]


def is_working(process):
    """Whether a worker that it has started does a job."""
    return any(children(worker) for worker in children(process))


class ServiceTest(unittest.TestCase):
    def setUp(self):
        self.folder = Path(self.enterContext(tempfile.TemporaryDirectory()))
        self.outputs = self.folder / "out"
        self.outputs.mkdir()

    def start(self, *command, **options):
        """A process with its children, which end with the test at the latest; what it says is in log of its number."""
        log = self.enterContext((self.folder / f"{len(list(self.folder.glob('*.log')))}.log").open("wb"))
        process = subprocess.Popen([*map(str, command)], stdin=subprocess.DEVNULL, stdout=log, stderr=log, start_new_session=True, **options)
        self.addCleanup(self.kill, process)
        return process

    def kill(self, process):
        with contextlib.suppress(ProcessLookupError):
            os.killpg(process.pid, signal.SIGKILL)
        process.wait()

    def logs(self):
        return "\n".join(path.read_text(errors="replace")[-4000:] for path in self.folder.glob("*.log"))

    def clips(self):
        """Ours, and in the long form half a second of those that telephones have recorded."""
        made = []
        for number, size in enumerate(("320x180", "640x360", "180x320")):
            made.append(self.folder / f"made{number}.mp4")
            drawn = ["-f", "lavfi", "-i", f"testsrc2=size={size}:rate=10:duration=1", "-f", "lavfi", "-i", "sine=duration=1"]
            ffmpeg(*drawn, "-c:v", "libx264", "-preset", "ultrafast", "-pix_fmt", "yuv420p", "-c:a", "aac", made[-1])
        media = os.environ.get("CLIPWORKS_MEDIA")
        for clip in Path(media).glob("phone_h264*.mov") if IS_LONG and media else ():
            made.append(self.folder / clip.name)
            ffmpeg("-i", clip, "-t", "1", "-c", "copy", "-map", "0:v", "-map", "0:a?", made[-1])
        return made

    def jobs(self, count, place=None):
        clips = self.clips()
        for number in range(count):
            start, clip = number % 4 / 10, str(clips[number % len(clips)])
            steps = [{"step": "trim", "from": start, "to": start + 0.5}, {"step": "compress", "preset": f"{HEIGHT}p"}]
            yield {"in": clip, "steps": steps, "out": f"{place or self.outputs}/{number}.mp4", "id": number}

    def check_outputs(self, jobs):
        """Each is there and right, with a receipt that tells of it, and nothing else is there."""
        import xxhash

        wanted = [name for job in jobs for name in (Path(job["out"]).name, Path(job["out"]).name + ".receipt.json")]
        self.assertEqual(sorted(wanted), sorted(os.listdir(self.outputs)), self.logs())
        for job in jobs:
            output = self.outputs / Path(job["out"]).name
            facts = ffprobe("-show_entries", "stream=height,nb_read_packets:format=duration", output)
            self.assertEqual(facts["streams"][0]["height"], HEIGHT)
            self.assertGreaterEqual(int(facts["streams"][0]["nb_read_packets"]), 5)
            self.assertAlmostEqual(float(facts["format"]["duration"]), 0.5, delta=0.15)
            receipt = json.loads(output.with_name(output.name + ".receipt.json").read_text())
            self.assertEqual(receipt["job"], {key: value for key, value in job.items() if key != "id"})
            for told, path in (receipt["in"][0], self.folder / Path(job["in"]).name), (receipt["out"][0], output):
                data = path.read_bytes()
                self.assertEqual((told["bytes"], told["xxh3"]), (len(data), xxhash.xxh3_128(data).hexdigest()))

    def watch(self):
        """A function that tells how many outputs more than one of each name came into their folder, as the kernel saw."""
        log = self.folder / "came"
        process = self.start("inotifywait", "-m", "-q", "-e", "create,moved_to", "--format", "%f", "-o", log, self.outputs)
        probe = self.outputs / "probe"

        def is_watching():
            probe.touch()
            probe.unlink()
            return log.exists() and "probe" in log.read_text()

        until(is_watching, "inotifywait does not watch")

        def came():
            time.sleep(0.2)
            self.kill(process)
            names = [name for name in log.read_text().split() if name.endswith(".mp4")]
            return len(names) - len(set(names))

        return came


def ffmpeg(*arguments):
    subprocess.run(["ffmpeg", "-nostdin", "-v", "error", *map(str, arguments)], check=True)


def ffprobe(*arguments):
    command = ["ffprobe", "-v", "error", "-count_packets", "-select_streams", "v", "-of", "json", *map(str, arguments)]
    return json.loads(subprocess.run(command, check=True, capture_output=True).stdout)
