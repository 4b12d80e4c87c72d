"""Jobs in a Celery queue, whose children are killed and whose worker is started anew."""

import gc
import os
import signal
import sys

from services import IS_LONG, ServiceTest, children, free_port, is_listening, is_working, needs, until

needs("celery", "redis-server", "inotifywait", "xxhash")

PYTHON = f"{os.environ['EXAMPLES']}/python"
CELERY = [sys.executable, "-m", "celery", "-A", "celery_tasks", "worker"]
CELERY += ["--pool", "prefork", "--concurrency", "2", "--without-gossip", "--without-mingle"]


class Queue(ServiceTest):
    def setUp(self):
        super().setUp()
        port = free_port()
        self.start("redis-server", "--bind", "127.0.0.1", "--port", port, "--save", "", "--dir", self.folder)
        until(lambda: is_listening(port), "redis-server does not start")
        os.environ.update(BROKER=f"redis://127.0.0.1:{port}", LONGEST_JOB="10")
        sys.path.insert(0, PYTHON)

    def worker(self):
        path = f"{PYTHON}:{os.environ['PYTHONPATH']}"
        return self.start(*CELERY, env={**os.environ, "PYTHONPATH": path, "C_FORCE_ROOT": "1"}, cwd=self.folder)

    def test_jobs_are_done_once_whatever_becomes_of_the_workers(self):
        import celery_tasks

        came = self.watch()
        jobs = list(self.jobs(100 if IS_LONG else 20))
        sent = [celery_tasks.edit.delay(job).id for job in jobs]
        result = celery_tasks.app.AsyncResult
        self.addCleanup(gc.collect)  # they ask the server when they go

        def await_share(share):
            is_reached = lambda: sum(result(one).ready() for one in sent) >= share * len(jobs)
            until(is_reached, f"no {share:.0%} of the jobs end:\n{self.logs()}", 120)

        first = self.worker()
        await_share(0.2)
        # One of its children, at work.
        child = until(lambda: next(filter(is_working, children(first.pid)), None), "no child works")
        os.kill(child, signal.SIGKILL)
        await_share(0.4)
        first.terminate()  # lets it end what it works at
        first.wait(timeout=60)
        second = self.worker()
        if IS_LONG:
            await_share(0.6)
            self.kill(second)  # What it held comes again after the visibility timeout.
            self.worker()
        await_share(1)
        ended = [result(one).result for one in sent]
        self.assertEqual([(one["job"]["id"], one["error"]) for one in ended], [(job["id"], None) for job in jobs])
        self.assertLessEqual(came(), 3)  # at most what those held that were killed
        self.check_outputs(jobs)
