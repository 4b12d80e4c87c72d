"""The Python package, used as its users use it, on clips that ffmpeg makes."""

import contextlib
import multiprocessing
import operator
import os
import signal
import subprocess
import sys
import tempfile
import threading
import time
import unittest
from concurrent.futures import ThreadPoolExecutor
from pathlib import Path

import clipworks
from clipworks.worker import Worker

EXAMPLES = Path(os.environ["EXAMPLES"])


def make_clip(path, *arguments, size="320x180", seconds=2):
    pictures = ["-f", "lavfi", "-i", f"testsrc2=size={size}:rate=10:duration={seconds}"]
    sound = ["-f", "lavfi", "-i", f"sine=duration={seconds}"]
    coded = ["-c:v", "libx264", "-preset", "ultrafast", "-pix_fmt", "yuv420p", "-c:a", "aac", *arguments]
    subprocess.run(["ffmpeg", "-nostdin", "-v", "error", *pictures, *sound, *coded, path], check=True)


def facts(path, entries="stream=codec_name,width,height,nb_read_packets"):
    command = ["ffprobe", "-v", "error", "-count_packets", "-select_streams", "v", "-of", "csv=p=0", "-show_entries"]
    return subprocess.run([*command, entries, path], check=True, capture_output=True, text=True).stdout.strip()


def run(*arguments, **options):
    return subprocess.run([sys.executable, *arguments], capture_output=True, text=True, timeout=60, **options)


def loop_in_child(clip, outputs, results):
    results.put(str(clipworks.loop(clip, 1, outputs=outputs)))


def stop(progress, error=StopIteration):
    if progress > 0:
        raise error("enough")


class Operations(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        cls.folder = Path(cls.enterClassContext(tempfile.TemporaryDirectory()))
        cls.clip = cls.folder / "-clip with a space.mp4"
        make_clip(cls.clip, "-metadata", "creation_time=2024-05-06T07:08:09Z")

    def setUp(self):
        self.outputs = self.folder / self.id().rpartition(".")[2]
        self.outputs.mkdir()

    def make(self, name, *arguments, **options):
        make_clip(self.folder / name, *arguments, **options)
        return self.folder / name

    def test_every_operation_returns_the_path_of_what_it_made(self):
        clip, options = self.clip, {"outputs": self.outputs}
        wanted = {
            clipworks.loop(clip, 3, **options): "h264,320,180,60",
            clipworks.speed(clip, 0.5, 1, 2, name="slow", **options): "h264,320,180,20",
            clipworks.compress(clip, "144p", **options): "h264,256,144,20",
            clipworks.preview(clip, "144p", bitrate=100, **options): "h264,256,144,20",
            clipworks.reverse(clip, name="backwards", **options): "h264,320,180,20",
            clipworks.reverse(clip, part="audio", **options): "",
            clipworks.rotate(clip, **options): "h264,180,320,20",
            clipworks.crop(clip, (0, 0, 180, 180), **options): "h264,180,180,20",
            clipworks.frame(clip, "#3", format="png", name="third", **options): "png,320,180,1",
            clipworks.narrate(clip, [clipworks.Piece(clip, 0.25, 0.5), (clip, 1)], **options): "h264,320,180,20",
        }
        self.assertEqual({path: facts(path) for path in wanted}, wanted)
        self.assertEqual(set(wanted), set(self.outputs.iterdir()))
        self.assertLessEqual({"slow.mp4", "backwards.mp4", "reversed_audio.m4a", "third.png"}, {p.name for p in wanted})

    def test_codec_and_metadata_are_chosen_anew_for_each_call(self):
        made = {codec: clipworks.rotate(self.clip, outputs=self.outputs, codec=codec, strip_metadata=codec == "h264")
                for codec in ("hevc", "h264", "auto")}
        codecs = {codec: facts(path, "stream=codec_name") for codec, path in made.items()}
        self.assertEqual(codecs, {"hevc": "hevc", "h264": "h264", "auto": "h264"})
        # After a call that keeps HEVC off: what is HEVC stays so.
        again = clipworks.loop(made["hevc"], 1, outputs=self.outputs)
        self.assertEqual(facts(again, "stream=codec_name"), "hevc")
        dated = {codec for codec, path in made.items() if "creation_time" in clipworks.info(path)["metadata"]}
        self.assertEqual(dated, {"hevc", "auto"})

    def test_limits_and_threads_reach_the_core(self):
        for limits, why in ({"max_pixels": 57599}, "57599 are allowed"), ({"max_seconds": 1.5}, "1.5 are allowed"):
            for call in (clipworks.open, clipworks.info, lambda file, **limits: clipworks.reverse(file, **limits)):
                with self.assertRaisesRegex(clipworks.Error, why) as raised:
                    call(self.clip, **limits)
                self.assertEqual(raised.exception.code, "limitReached")
        odd = self.make("odd.avi", "-c:v", "cinepak", "-pix_fmt", "rgb24")
        self.assertRaisesRegex(clipworks.Error, "coded as cinepak", clipworks.rotate, odd, outputs=self.outputs)
        made = clipworks.frame(odd, 1, outputs=self.outputs, any_codec=True, max_pixels=57600, threads=1)
        self.assertEqual(facts(made), "mjpeg,320,180,1")
        for wrong in {"max_pixels": 0}, {"max_seconds": 0}, {"threads": 0}:
            self.assertRaises(ValueError, clipworks.rotate, self.clip, outputs=self.outputs, **wrong)

    def test_progress_rises_on_the_calling_thread(self):
        told = []
        clip = self.make("longer.mp4", size="1280x720", seconds=6)
        clipworks.rotate(clip, outputs=self.outputs, progress=lambda value: told.append((value, threading.get_ident())))
        values, threads = zip(*told)
        self.assertGreater(len(values), 2)
        self.assertEqual(list(values), sorted(set(values)))
        self.assertEqual((values[0], values[-1], set(threads)), (0, 1, {threading.get_ident()}))

    def test_a_chain_is_one_movie(self):
        clip = clipworks.open(self.clip).speed(0.5, 1, 2).crop((100, 0, 180, 180)).compress("144p")
        self.assertEqual((clip.duration, clip.size), (2.5, (144, 144)))
        self.assertEqual(clip.plan()["tracks"][0]["encoder"], "libx264")
        path = clip.save(self.outputs / "short.mp4")
        self.assertEqual(facts(path), "h264,144,144,20")
        with self.assertRaises(clipworks.Error) as refused:
            clip.save(path)
        self.assertEqual(refused.exception.code, "notWritable")
        self.assertEqual(clip.rotate("half").save(path, overwrite=True), path)
        self.assertEqual(facts(clip.frame("#19", self.outputs / "last.png")), "png,144,144,1")

    def test_eight_work_at_once(self):
        clip = self.make("one of eight.mp4", size="640x360", seconds=3)

        turn = lambda _: (time.monotonic(), clipworks.rotate(clip, outputs=self.outputs), time.monotonic())
        with ThreadPoolExecutor(8) as threads:
            began, made, ended = zip(*threads.map(turn, range(8)))
        self.assertEqual([facts(path, "stream=height,nb_read_packets") for path in made], ["640,30"] * 8)
        self.assertEqual(len(set(made)), 8)
        self.assertLess(max(began), min(ended), "they took turns")

    def test_what_goes_wrong_is_raised_and_leaves_nothing(self):
        options = {"outputs": self.outputs}
        broken = self.folder / "broken.mp4"
        broken.write_bytes(b"no movie")
        cases = [
            (FileNotFoundError, "nowhere", lambda: clipworks.loop("nowhere.mp4", 2, **options)),
            (FileNotFoundError, "nowhere", lambda: clipworks.narrate(self.clip, [("nowhere.m4a", 0)], **options)),
            (FileNotFoundError, "no-folder", lambda: clipworks.rotate(self.clip, outputs=self.folder / "no-folder")),
            (FileNotFoundError, "nowhere", lambda: clipworks.info("nowhere.mp4")),
            (clipworks.Error, "broken.mp4", lambda: clipworks.rotate(broken, **options)),
            (clipworks.Error, "broken.mp4", lambda: clipworks.info(broken)),
            (ValueError, "count must be at least 1$", lambda: clipworks.loop(self.clip, 0, **options)),
            (ValueError, "four numbers", lambda: clipworks.crop(self.clip, (1, 2, 3), **options)),
            (ValueError, "^codec takes auto", lambda: clipworks.rotate(self.clip, codec="av1", **options)),
            (ValueError, "null", lambda: clipworks.frame(self.clip, 0, name="a\0b", **options)),
            (TypeError, "integer", lambda: clipworks.loop(self.clip, "three", **options)),
            (TypeError, "'output'", lambda: clipworks.rotate(self.clip, output=self.outputs)),
        ]
        for raised, words, call in cases:
            with self.subTest(words), self.assertRaisesRegex(raised, words):
                call()
        self.assertEqual(list(self.outputs.iterdir()), [])

    def test_a_worker_does_the_same_in_another_process(self):
        clip = clipworks.open(self.clip).trim(0.5, 1.5)  # copied: x264 may come to other bits each time
        with Worker(os.environ["PROGRAM"], timeout=20) as worker:
            shares = []
            made = worker.save(clip, self.outputs / "there.mp4", progress=shares.append)
            self.assertEqual(made.read_bytes(), clip.save(self.outputs / "here.mp4").read_bytes())
            self.assertEqual(shares, sorted(shares))
            with self.assertRaises(StopIteration):
                worker.save(clip.loop(50), self.outputs / "stopped.mp4", progress=stop)
            for error, code, arguments in [
                (FileNotFoundError, None, ["loop", "/nowhere.mp4", "--count", "2"]),
                (ValueError, None, ["loop", self.clip, "--count", "0"]),
                (clipworks.Error, "limitReached", ["--max-output", "1kB", "loop", self.clip, "--count", "2"]),
            ]:
                with self.assertRaises(error) as caught:
                    worker.run(["--outputs", self.outputs, *arguments])
                self.assertEqual(getattr(caught.exception, "code", None), code)
        self.assertEqual(sorted(os.listdir(self.outputs)), ["here.mp4", "there.mp4"])

    def test_an_exception_of_the_callback_ends_the_operation(self):
        clip = self.make("not short.mp4", size="1280x720", seconds=10)
        for call in (clipworks.rotate, clipworks.reverse):
            with self.subTest(call.__name__), self.assertRaisesRegex(StopIteration, "enough"):
                call(clip, outputs=self.outputs, progress=stop)
        self.assertEqual(list(self.outputs.iterdir()), [])
        # What would have been replaced is still there, even where the work was over before anybody looked.
        old = clipworks.speed(self.clip, 0, 1, 2, outputs=self.outputs, name="old")
        with self.assertRaisesRegex(StopIteration, "enough"):
            late = lambda value: value and (time.sleep(1) or stop(1))
            clipworks.speed(self.clip, 0, 1, 3, outputs=self.outputs, name="old", progress=late)
        self.assertTrue(old.exists())
        # And the next one is none the worse for it.
        self.assertEqual(facts(clipworks.loop(self.clip, 2, outputs=self.outputs), "stream=nb_read_packets"), "40")

    def test_failures_and_interruptions_leave_nothing_open(self):
        whole = self.make("whole.mp4", "-movflags", "+faststart", size="640x360", seconds=4)
        cut = self.folder / "cut.mp4"
        cut.write_bytes(whole.read_bytes()[: whole.stat().st_size // 2])

        def try_everything():
            for clip, progress in (cut, None), (whole, lambda value: stop(value, KeyboardInterrupt)), (self.folder / "broken-too.mp4", None):
                clip.touch()
                for operation, *arguments in (
                        (clipworks.loop, 2), (clipworks.speed, 0.5, 1, 2), (clipworks.compress, "144p"), (clipworks.reverse,), (clipworks.rotate,),
                        (clipworks.crop, (0, 0, 100, 100)), (clipworks.frame, 3.9), (clipworks.narrate, [(clip, 0)])):
                    with contextlib.suppress(clipworks.Error, KeyboardInterrupt):
                        operation(clip, *arguments, outputs=self.outputs, progress=progress)

        def open_and_running():
            return len(os.listdir("/proc/self/fd")), len(os.listdir("/proc/self/task"))

        try_everything()
        descriptors, threads = open_and_running()
        for _ in range(3):
            try_everything()
        # The library's own threads go on for a moment, and keep some for the next work.
        most = (descriptors, threads + 4)
        deadline = time.monotonic() + 20
        while (is_more := any(map(operator.gt, open_and_running(), most))) and time.monotonic() < deadline:
            time.sleep(0.1)
        self.assertFalse(is_more, (open_and_running(), most))
        self.assertEqual([path.name for path in self.outputs.iterdir() if path.name.startswith(".")], [])

    def test_control_c_and_the_end_of_the_interpreter_end_the_operation(self):
        clip = self.make("long.mp4", size="1280x720", seconds=60)  # takes longer than what follows
        start = f"import clipworks, os, threading, time; work = lambda: clipworks.rotate({str(clip)!r}, outputs={str(self.outputs)!r}); "
        interrupt = "threading.Timer(1, os.kill, (os.getpid(), 2)).start(); work()"
        leave = "threading.Thread(target=work, daemon=True).start(); time.sleep(0.3)"
        for script, code, words in (interrupt, -signal.SIGINT, "KeyboardInterrupt"), (leave, 0, ""):
            ran = run("-c", start + script)
            self.assertEqual(ran.returncode, code, ran.stderr)
            self.assertIn(words, ran.stderr)
            self.assertEqual(list(self.outputs.iterdir()), [])

    def test_new_processes_work_forked_ones_too(self):
        clipworks.loop(self.clip, 1, outputs=self.outputs)
        for method in "spawn", "fork":
            context = multiprocessing.get_context(method)
            results = context.Queue()
            child = context.Process(target=loop_in_child, args=(self.clip, self.outputs, results))
            child.start()
            self.assertTrue(os.path.exists(results.get(timeout=60)))
            child.join()

    def test_the_first_example_loops_a_clip(self):
        os.link(self.clip, self.outputs / "clip.mp4")
        ran = run(EXAMPLES / "loop.py", cwd=self.outputs)
        self.assertRegex(ran.stdout, r"^0.0\n(.*\n)*1.0\n.*\.mp4 6.0\d*\n$", ran.stderr)

    def test_the_example_compresses_a_folder(self):
        clips = self.outputs / "clips"
        clips.mkdir()
        make_clip(clips / "a.mp4", "-metadata", "creation_time=2024-05-06T07:08:09Z")
        (clips / "b.mp4").write_bytes(b"no movie")
        ran = run(EXAMPLES / "batch_compress.py", clips, self.outputs / "small")
        self.assertEqual(ran.returncode, 0, ran.stderr)
        self.assertRegex(ran.stdout, r"^\na.mp4 of 2024-05-06.*: \d+ bytes, now \d+ in .*\.mp4\n$")
        self.assertIn("b.mp4", ran.stderr)
        self.assertEqual([facts(path) for path in (self.outputs / "small").iterdir()], ["h264,854,480,20"])


if __name__ == "__main__":
    unittest.main()
