"""Jobs in a Celery queue with Redis: celery -A celery_tasks worker --pool prefork --concurrency 4"""

import os
from dataclasses import asdict

import clipworks
from celery import Celery
from clipworks import batch

LONGEST = float(os.environ.get("LONGEST_JOB", 3600))  # seconds that a job may take
BROKER = os.environ.get("BROKER", "redis://localhost")

app = Celery("celery_tasks", broker=BROKER, backend=BROKER)
app.conf.update(
    task_acks_late=True,  # a message goes when its job is done, not when it begins
    task_reject_on_worker_lost=True,  # a child that is killed: given out again at once
    worker_prefetch_multiplier=1,  # long jobs wait in the queue, not at one busy worker
    # A worker or machine that is gone: its messages are given out again after this time. Shorter than a job, and jobs
    # that still run would be given out a second time: they are done once all the same, but worked at twice.
    broker_transport_options={"visibility_timeout": 1.5 * LONGEST},
    result_expires=24 * 3600,
)


@app.task(bind=True, max_retries=3)
def edit(self, job):
    """Does a job; what may succeed later is tried again after ten seconds."""
    result = batch.do(job, force=True, timeout=LONGEST, memory=4_000_000_000)
    if result.code in batch.AGAIN:
        raise self.retry(countdown=10, exc=clipworks.Error(result.error, result.code))
    return asdict(result)
