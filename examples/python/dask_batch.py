"""Compresses clips on a Dask cluster: dask_batch.py SCHEDULER LIST, a file that names a clip on each line"""

import sys

from clipworks import batch
from dask.distributed import Client

clips = map(str.strip, open(sys.argv[2], encoding="utf-8"))
jobs = ({"in": clip, "steps": [{"step": "compress", "preset": "480p"}], "out": f"{clip[:-4]}-480p.mp4"} for clip in clips)
with Client(sys.argv[1]) as cluster:
    for result in batch.each(jobs, cluster.get_executor(), force=True, timeout=3600, max_fetch=2_000_000_000):
        print(result.job["out"], result.error or ("was done" if result.skipped else f"took {result.seconds:.0f} s"))
