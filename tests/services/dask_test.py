"""Jobs on a Dask cluster, one of whose workers is killed in the midst."""

import json
import os
import subprocess
import sys

from services import IS_LONG, ServiceTest, is_working, needs, until

needs("distributed", "inotifywait", "xxhash")

from distributed import Client

from clipworks import batch


class Dask(ServiceTest):
    def test_a_killed_worker_costs_no_job(self):
        about = self.folder / "scheduler.json"
        common = ["--scheduler-file", about, "--host", "127.0.0.1", "--no-dashboard"]
        scheduler, worker = ([sys.executable, "-m", f"distributed.cli.dask_{what}", *common] for what in ("scheduler", "worker"))
        self.start(*scheduler, "--port", "0")
        until(about.exists, "the scheduler does not start")
        options = ["--nthreads", "1", "--nworkers", "1", "--no-nanny", "--local-directory", self.folder]
        workers = [self.start(*worker, *options) for _ in range(3)]
        came = self.watch()
        jobs = list(self.jobs(300 if IS_LONG else 30))
        ended = []

        def on_result(result):
            ended.append(result)
            if len(ended) == len(jobs) // 3:
                until(lambda: is_working(workers[0].pid), "the worker does not work")
                workers[0].kill()

        address = json.loads(about.read_text())["address"]
        with Client(address, set_as_default=False) as client:
            client.wait_for_workers(3, timeout=60)
            results = batch.run(iter(jobs), client.get_executor(), window=20, force=True, on_result=on_result)
            self.assertEqual(len(client.scheduler_info()["workers"]), 2)
            again = batch.run(jobs, client.get_executor())
            (self.folder / "list").write_text("\n".join({job["in"] for job in jobs}))
            example = [sys.executable, f"{os.environ['EXAMPLES']}/python/dask_batch.py", address, self.folder / "list"]
            said = subprocess.run(example, capture_output=True, text=True, check=True, timeout=60).stdout
        self.assertEqual([(result.job, result.error) for result in results], [(job, None) for job in jobs])
        # What was given out twice, the dead worker held: what it worked at, and results that nobody had fetched yet.
        self.assertLessEqual(sum(result.skipped for result in results), 2)
        self.assertLessEqual(came(), 1)
        self.check_outputs(jobs)
        self.assertTrue(all(result.skipped for result in again))
        self.assertRegex(said, r"^(.*-480p.mp4 took \d+ s\n){3,}$")
