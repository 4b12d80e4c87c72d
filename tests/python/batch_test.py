"""Jobs from Python on this machine: in threads and in a pool of processes, lost ones, and ones that are interrupted."""

import hashlib
import json
import os
import signal
import subprocess
import sys
import threading
import time
from concurrent.futures import ProcessPoolExecutor
from multiprocessing import get_context
from pathlib import Path

from services import ServiceTest, children, is_working, needs, until

needs("inotifywait", "xxhash", "yaml", "fsspec")

import yaml

from clipworks import Error, batch

LONG = [{"step": "loop", "count": 40}, {"step": "compress", "preset": "1080p"}]  # many times longer than what it is cut off at


class Batch(ServiceTest):
    def test_jobs_are_done_once_and_told_in_their_order(self):
        jobs, taken, ended = list(self.jobs(8)), [], []
        came = self.watch()
        bad = {"in": str(self.folder / "nowhere.mp4"), "steps": [{"step": "reverse"}], "out": str(self.outputs / "bad.mp4")}

        def given():
            for job in [*jobs, bad]:
                # No more than two for each thread, and what the loop itself holds.
                self.assertLessEqual(len(taken) - len(ended), 2 * len(os.sched_getaffinity(0)))
                taken.append(job)
                yield job

        for is_again in False, True:
            taken.clear(), ended.clear()
            results = batch.run(given(), on_result=ended.append)
            self.assertEqual([result.job for result in results], [*jobs, bad])
            self.assertEqual(sorted(map(repr, ended)), sorted(map(repr, results)))
            self.assertEqual([result.skipped for result in results], [is_again] * len(jobs) + [False])
            with self.assertRaisesRegex(Error, "nowhere.mp4"):
                results[-1].check()
            self.assertEqual((results[-1].code, results[-1].attempts), ("notFound", 1))
        # The same job twice at once: one does it, the other finds that out, at its second attempt.
        twice = [{**jobs[0], "out": str(self.outputs / "8.mp4")}] * 2
        self.assertEqual({(result.error, result.skipped) for result in batch.run(twice)}, {(None, False), (None, True)})
        self.assertEqual(came(), 0)
        self.check_outputs([*jobs, twice[0]])

    def test_pods_do_the_job_of_their_index_and_tell_by_exit_codes(self):
        (job,) = self.jobs(1)
        there = f"file://{self.outputs}/1.mp4"
        lines = [job, {**job, "out": there}, {**job, "in": "nowhere.mp4"}, {"in": 1}, {**job, "max-seconds": 0.1}, {}]
        (self.folder / "jobs.jsonl").write_text("\n".join(map(json.dumps, lines)))
        manifest = yaml.safe_load((Path(__file__).parents[2] / "deploy/kubernetes-job.yaml").read_text())["spec"]
        *shell, command = manifest["template"]["spec"]["containers"][0]["command"]
        command = command.replace("/jobs/", f"{self.folder}/").replace("python3", f"{sys.executable} -W error")

        def run(index, *more):
            environment = {**os.environ, "JOB_COMPLETION_INDEX": str(index)}
            command_here = [*shell, " ".join([command, *more])]
            ran = subprocess.run(command_here, env=environment, cwd=self.folder, capture_output=True, text=True, timeout=60)
            return ran.returncode, ran.stdout, ran.stderr.count("\n")

        self.assertEqual(run(0, "--sha256"), (0, f"{job['out']}\n", 0))
        receipt = json.loads(Path(f"{job['out']}.receipt.json").read_text())
        self.assertEqual(receipt["out"][0]["sha256"], hashlib.sha256(Path(job["out"]).read_bytes()).hexdigest())
        self.assertEqual(run(1), (0, f"{there}\n", 0))
        for index, code in enumerate((1, 2, 3, 2), 2):
            self.assertEqual(run(index), (code, "", 1), index)
            self.assertIn(code, manifest["podFailurePolicy"]["rules"][0]["onExitCodes"]["values"])
        self.assertEqual(run(0, "--program", "/nowhere"), (1, "", 1))
        self.check_outputs([job, {**job, "out": there}])

    def test_a_lost_process_costs_no_job(self):
        jobs, came, killed = list(self.jobs(10)), self.watch(), []
        pool = ProcessPoolExecutor(2, get_context("spawn"))

        def kill_one(_):
            if not killed:
                killed.append(until(lambda: next(filter(is_working, pool._processes), None), "no process works"))
                os.kill(killed[0], signal.SIGKILL)

        with pool:
            results = batch.run(jobs, pool, force=True, on_result=kill_one)
        self.assertEqual([result.error for result in results], [None] * len(jobs))
        self.assertIn(sum(result.attempts for result in results) - len(jobs), (1, 2))  # what the pool had
        self.assertLessEqual(came(), 1)  # where it was killed between an output and its receipt
        self.check_outputs(jobs)

    def test_a_lost_worker_is_told_and_tried_again(self):
        (job,) = self.jobs(1)
        job = {**job, "steps": LONG}
        lost = []

        def lose():
            """The worker, once it works, and the one that comes in its place."""
            for _ in range(2):
                here = lambda: [child for child in children(os.getpid()) if child not in lost and children(child)]
                lost.extend(until(here, "no worker works"))
                os.kill(lost[-1], signal.SIGKILL)

        killer = threading.Thread(target=lose)
        killer.start()
        (result,) = batch.run([job])
        killer.join()
        self.assertEqual((result.code, result.attempts, len(lost)), ("workerLost", 2, 2), result)
        self.assertEqual(os.listdir(self.outputs), [])

    def test_an_interruption_ends_what_runs_and_what_waits(self):
        (job,) = self.jobs(1)
        script = f"""
import itertools, signal
from clipworks import batch
signal.signal(signal.SIGINT, signal.default_int_handler)  # what started this may have had it ignored
jobs = ({{**{job!r}, "steps": {LONG!r}, "out": f"{self.outputs}/{{n}}.mp4"}} for n in itertools.count())
batch.run(jobs)
"""
        process = self.start(sys.executable, "-c", script)
        workers = until(lambda: len(found := children(process.pid)) > 1 and all(map(children, found)) and found, "nothing works")
        began = time.monotonic()
        process.send_signal(signal.SIGINT)
        self.assertEqual(process.wait(timeout=30), -signal.SIGINT)
        self.assertLess(time.monotonic() - began, 5)
        self.assertIn("KeyboardInterrupt", self.logs())
        until(lambda: not any(os.path.exists(f"/proc/{worker}") for worker in workers), "workers are left")
        self.assertEqual(os.listdir(self.outputs), [])
