#!/usr/bin/env python3
"""Jobs that are data: run once whatever happens, one by one and in batches. jobs.py PROGRAM"""
import hashlib
import json
import os
import random
import signal
import subprocess
import sys
import tempfile
import time
import unittest

PROGRAM = sys.argv.pop(1)
TRIM = {"step": "trim", "from": 0.21, "to": 0.9}
SMALL = {"step": "compress", "preset": "144p"}


class Jobs(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        cls.clips = tempfile.TemporaryDirectory()
        cls.addClassCleanup(cls.clips.cleanup)
        cls.clip = os.path.join(cls.clips.name, "clip.mp4")
        subprocess.run(["ffmpeg", "-v", "error", "-f", "lavfi", "-i", "testsrc2=s=320x180:r=30:d=1", "-f", "lavfi", "-i",
                        "sine=d=1", "-c:v", "libx264", "-preset", "veryfast", "-c:a", "aac", cls.clip], check=True)

    def setUp(self):
        directory = tempfile.TemporaryDirectory()
        self.addCleanup(directory.cleanup)
        self.directory = directory.name

    def path(self, name):
        return os.path.join(self.directory, name)

    def job(self, *steps, out="new.mp4", clip=None, **options):
        return json.dumps({"in": clip or self.clip, "steps": steps or [TRIM], "out": self.path(out), **options})

    def run_program(self, *words):
        """The exit code, the last event, and what standard error says."""
        done = subprocess.run([PROGRAM, "--json", *words], capture_output=True, text=True, timeout=120, cwd=self.directory)
        events = [json.loads(line) for line in done.stdout.splitlines()]
        return done.returncode, events[-1] if events else {}, done.stderr

    def receipt(self, name="new.mp4"):
        with open(self.path(name) + ".receipt.json", encoding="utf-8") as file:
            return json.load(file)

    def test_says_the_same_as_words(self):
        steps = [{"step": "loop", "count": 2}, {"step": "join", "in": [self.clip]}, {"step": "trim", "keep": ["0.1-0.4", "0.6-1"]},
                 {"step": "rotate", "by": "left", "lossless": False}]
        code, _, error = self.run_program("run", self.job(*steps, **{"strip-metadata": True, "threads": 1, "id": 3}))
        self.assertEqual(code, 0, error)
        words = ["--strip-metadata", "--threads", "1", "-o", self.path("words.mp4"), "loop", self.clip, "--count", "2", "then",
                 "join", self.clip, "then", "trim", "--keep", "0.1-0.4", "--keep", "0.6-1", "then", "rotate", "--by", "left"]
        self.assertEqual(self.run_program(*words)[0], 0)
        with open(self.path("new.mp4"), "rb") as new, open(self.path("words.mp4"), "rb") as old:
            self.assertEqual(new.read(), old.read())

    def test_refuses_what_is_no_job(self):
        for code, words, job in [
            (2, 'it has no "steps"', '{"in": "a", "out": "b"}'),
            (2, "parse error", '{"in": '),
            (2, '"info" is not known', self.job({"step": "info"})),
            (2, '"--counts=2" is not known', self.job({"step": "loop", "count": 2, "counts": 2})),
            (2, '"--confinement=off" is not known', self.job(confinement="off")),
            (2, '"from" takes a text', self.job({"step": "trim", "from": {}})),
            (2, 'nothing can follow "frame"', self.job({"step": "frame", "at": 0}, {"step": "rotate"}, out="a.jpg")),
            (1, "cannot be opened", self.job(clip="/nowhere.mp4")),
            # The host's limits hold, whatever the job says.
            (3, "pixels", self.job(**{"max-pixels": 268_435_456})),
        ]:
            with self.subTest(job):
                got, _, error = self.run_program("run", job, "--max-pixels", "500" if code == 3 else "1000000")
                self.assertEqual(got, code, error)
                self.assertIn(words, error)
                self.assertEqual(os.listdir(self.directory), [])

    def test_has_a_schema_that_holds(self):
        import jsonschema
        schema = json.loads(subprocess.run([PROGRAM, "schema"], capture_output=True, check=True).stdout)
        jsonschema.Draft202012Validator.check_schema(schema)
        valid = jsonschema.Draft202012Validator(schema).is_valid
        for job, is_valid in [(self.job(TRIM, SMALL, codec="hevc", id=7), True), (self.job({"step": "trim", "keep": ["1-2"]}), True),
                              (self.job({"step": "frame", "at": "#3"}), True), (self.job({"step": "info"}), False),
                              (self.job(force=True), False), (self.job({"step": "loop", "counts": 2}), False)]:
            self.assertEqual(valid(json.loads(job)), is_valid, job)

    def test_leaves_a_receipt_and_is_done_once(self):
        clip = self.path("clip.mp4")
        with open(self.clip, "rb") as source:
            content = source.read()
        with open(clip, "wb") as file:
            file.write(content)
        job = self.job(TRIM, SMALL, clip=clip)
        self.assertEqual(self.run_program("run", job, "--sha256")[1].get("skipped"), False)
        receipt = self.receipt()
        for told, name in [(receipt["in"][0], "clip.mp4"), (receipt["out"][0], "new.mp4")]:
            with open(self.path(name), "rb") as file:
                self.assertEqual(told["sha256"], hashlib.sha256(file.read()).hexdigest())
        self.assertEqual((receipt["job"], receipt["encoders"]), (json.loads(job), ["libx264", "aac"]))

        def damage(name):
            with open(self.path(name), "r+b") as file:
                file.seek(-1, os.SEEK_END)
                last = file.read(1)
                file.seek(-1, os.SEEK_END)
                file.write(bytes([last[0] ^ 1]))

        def lead_elsewhere():
            receipt["out"][0]["name"] = "../" + os.path.basename(self.directory) + "/new.mp4"
            with open(self.path("new.mp4.receipt.json"), "w", encoding="utf-8") as file:
                json.dump(receipt, file)

        before = os.stat(self.path("new.mp4"))
        for why, change in [("same", None), ("output", lambda: damage("new.mp4")), ("input", lambda: damage("clip.mp4")),
                            ("receipt", lead_elsewhere), ("no receipt", lambda: os.remove(self.path("new.mp4.receipt.json")))]:
            with self.subTest(why):
                if change:
                    change()
                    self.assertIn(self.run_program("run", job)[0], (2, 4))  # not done; 4 while a receipt may still come
                    self.assertEqual(self.run_program("run", job, "--force")[1].get("skipped"), False)
                self.assertEqual(self.run_program("run", job)[1].get("skipped"), True)
                if not change:
                    self.assertEqual(os.stat(self.path("new.mp4")), before)

    def test_may_run_twice_at_once(self):
        for number in range(4):
            name = f"{number}.mp4"
            words = [PROGRAM, "--json", "run", self.job(TRIM, SMALL, out=name)]
            runs = [subprocess.Popen(words, stdout=subprocess.PIPE, stderr=subprocess.DEVNULL, text=True) for _ in range(4)]
            ends = [json.loads(run.communicate(timeout=60)[0].splitlines()[-1]) for run in runs]
            made = [end for end in ends if end.get("skipped") is False]
            self.assertEqual(len(made), 1, ends)
            self.assertTrue({end.get("code", "busy") for end in ends} == {"busy"}, ends)
            self.assertEqual({run.returncode for run in runs} - {0, 4}, set())
            self.assertEqual(self.run_program(*words[2:])[1]["skipped"], True)

    def jobs(self, count):
        steps = [[TRIM], [SMALL], [{"step": "frame", "at": 0.5}]]
        lines = [self.job(*steps[i % 3], out=f"{i}.{'jpg' if i % 3 == 2 else 'mp4'}", id=i) for i in range(count)]
        return lines, [json.loads(line)["out"] for line in lines]

    def write(self, lines):
        with open(self.path("jobs.jsonl"), "w", encoding="utf-8") as file:
            file.write("\n".join(lines) + "\n")
        return self.path("jobs.jsonl")

    def batch(self, *words):
        done = subprocess.run([PROGRAM, "--json", "batch", *words], capture_output=True, text=True, timeout=240)
        events = [json.loads(line) for line in done.stdout.splitlines()]
        states = {event["line"]: event["state"] for event in events if event["event"] == "job"}
        return done.returncode, states, events

    def test_batch_does_what_can_be_done(self):
        lines, outputs = self.jobs(6)
        bad = [self.job(clip="/nowhere.mp4", out="no.mp4"), "{}", lines[0], self.job(out="late.mp4", timeout=0.001)]
        list_ = self.write(lines + ["", *bad])
        code, states, events = self.batch(list_, "--jobs", "3")
        self.assertEqual(states, dict.fromkeys(range(1, 7), "done") | dict.fromkeys(range(8, 12), "failed"))
        exits = {event["line"]: event["exit"] for event in events if event.get("state") == "failed"}
        self.assertEqual((code, exits), (1, {8: 1, 9: 2, 10: 2, 11: 3}))
        names = {os.path.basename(path) for path in outputs}
        self.assertEqual(set(os.listdir(self.directory)), names | {name + ".receipt.json" for name in names} | {"jobs.jsonl"})
        self.assertEqual(self.batch(list_)[1], dict.fromkeys(range(1, 7), "skipped") | dict.fromkeys(range(8, 12), "failed"))
        self.assertEqual(self.batch(self.write(lines[1:2]), "--memory", "100MB", "--resume")[0], 0)
        os.remove(outputs[1])
        code, _, events = self.batch(self.write(lines[1:2]), "--memory", "100MB")
        self.assertEqual(code, 3)
        self.assertIn("it may need", [event["message"] for event in events if event["event"] == "job"][0])

    def test_batch_makes_jobs_of_a_directory(self):
        for name in ("a.mp4", "a.mov", "b.MP4", "notes.txt"):
            os.symlink(self.clip, self.path(name))
        os.mkdir(self.path("small"))
        self.assertEqual(self.batch("--from", self.directory, "--preset", "144p", "--outputs", self.path("small"))[0], 0)
        movies = {name for name in os.listdir(self.path("small")) if name.endswith(".mp4")}
        self.assertEqual(movies, {"a-mp4-compressed.mp4", "a-mov-compressed.mp4", "b-compressed.mp4"})

    def test_batch_goes_on_after_any_end(self):
        lines, outputs = self.jobs(30)
        words = [PROGRAM, "batch", self.write(lines), "--resume"]
        chance = random.Random(5)
        for number in (signal.SIGKILL, signal.SIGINT, signal.SIGKILL):
            run = subprocess.Popen(words, stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)
            time.sleep(chance.uniform(0.1, 1))
            run.send_signal(number)
            run.wait(20)
            for path in outputs:  # what is there is whole
                if os.path.exists(path) and path.endswith("mp4"):
                    subprocess.run(["ffmpeg", "-v", "error", "-xerror", "-i", path, "-f", "null", "-"], check=True)
        code, states, _ = self.batch(*words[2:])
        self.assertEqual((code, set(states.values()) - {"done", "skipped"}, len(states)), (0, set(), 30))
        names = {os.path.basename(path) for path in outputs}
        self.assertEqual(set(os.listdir(self.directory)), names | {name + ".receipt.json" for name in names} | {"jobs.jsonl"})
        self.assertEqual(set(self.batch(*words[2:])[1].values()), {"skipped"})


if __name__ == "__main__":
    unittest.main()
