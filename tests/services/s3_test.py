"""Jobs over files of S3, as s3rver serves it."""

import json
import os
import sys
import tempfile
from pathlib import Path

from npm_packages import package
from services import IS_LONG, ServiceTest, free_port, is_listening, needs, until

needs("npm", "node", "boto3", "fsspec", "xxhash")

import boto3

from clipworks import batch

LOGIN = {"key": "S3RVER", "secret": "S3RVER"}  # what it lets in
os.environ["AWS_MAX_ATTEMPTS"] = "1"
S3RVER = package("s3rver", "3.7.1")
if not S3RVER:
    print("skipped: s3rver is not installed, and npm's registry does not give it")
    sys.exit(77)


class S3(ServiceTest):
    def setUp(self):
        super().setUp()
        port = free_port()
        place = ["--directory", self.folder / "s3", "--address", "127.0.0.1", "--port", port]
        self.start("node", S3RVER / "bin/s3rver.js", *place, "--configure-bucket", "clips")
        until(lambda: is_listening(port), "s3rver does not start")
        service = {"endpoint_url": f"http://127.0.0.1:{port}"}
        login = {"aws_access_key_id": LOGIN["key"], "aws_secret_access_key": LOGIN["secret"]}
        self.s3 = boto3.client("s3", **service, **login, region_name="us-east-1")
        self.settings = {"storage_options": {"s3": {**LOGIN, **service}}}
        self.temporary = Path(tempfile.mkdtemp(dir=self.folder))
        tempfile.tempdir = str(self.temporary)
        self.addCleanup(setattr, tempfile, "tempdir", None)

    def objects(self):
        return {entry["Key"]: entry for entry in self.s3.list_objects_v2(Bucket="clips").get("Contents", [])}

    def test_jobs_are_done_once_from_bucket_to_bucket(self):
        jobs = list(self.jobs(50 if IS_LONG else 10, "s3://clips/out"))
        for job in jobs:
            name = Path(job["in"]).name
            self.s3.upload_file(job["in"], "clips", name)
            job["in"] = f"s3://clips/{name}"
        before = self.objects()
        refused = batch.run(jobs[:3], max_fetch=1000, **self.settings)
        self.assertEqual({(result.code, result.attempts) for result in refused}, {("limitReached", 1)}, refused)
        self.assertEqual(self.objects(), before)

        biggest = max(entry["Size"] for entry in before.values())
        results = batch.run(jobs, max_fetch=biggest, **self.settings)
        self.assertEqual([(result.error, result.skipped) for result in results], [(None, False)] * len(jobs))
        self.assertEqual([result.paths for result in results], [(job["out"],) for job in jobs])
        now = self.objects()
        for key in now.keys() - before.keys():
            self.s3.download_file("clips", key, str(self.outputs / Path(key).name))
        self.check_outputs(jobs)
        told = json.loads((self.outputs / "0.mp4.receipt.json").read_text())
        keys = [now[key]["ETag"] for key in (Path(jobs[0]["in"]).name, "out/0.mp4")]
        self.assertEqual([told["in"][0]["path"], told["in"][0]["key"], told["out"][0]["key"]], [jobs[0]["in"], *keys])

        # What is done is known without its bytes; what is not as it was is found.
        self.assertEqual([result.skipped for result in batch.run(jobs, max_fetch=0, **self.settings)], [True] * len(jobs))
        self.s3.put_object(Bucket="clips", Key="out/1.mp4", Body=b"another's")
        self.s3.delete_object(Bucket="clips", Key="out/2.mp4.receipt.json")
        self.s3.delete_object(Bucket="clips", Key="out/3.mp4")
        for force, wanted in [
            (False, [(None, True), ("badArgument", False), ("badArgument", False), (None, False)]),
            (True, [(None, True), (None, False), (None, False), (None, True)]),
        ]:
            ended = batch.run(jobs[:4], force=force, **self.settings)
            self.assertEqual([(result.code, result.skipped) for result in ended], wanted)
        self.assertEqual(os.listdir(self.temporary), [])

    def test_what_fails_is_told_and_leaves_nothing(self):
        clip, steps, place = str(self.clips()[0]), [{"step": "reverse"}], "s3://clips/a.mp4"
        self.s3.put_object(Bucket="clips", Key="broken.mp4", Body=b"no movie")
        nowhere = {"storage_options": {"s3": {**LOGIN, "endpoint_url": "http://127.0.0.1:1"}}}
        for code, attempts, job, settings in [
            ("notFound", 1, {"in": "s3://clips/nowhere.mp4", "steps": steps, "out": place}, self.settings),
            ("damaged", 1, {"in": "s3://clips/broken.mp4", "steps": steps, "out": place}, self.settings),
            ("badArgument", 1, {"in": clip, "steps": [{"step": "fly"}], "out": place}, self.settings),
            ("transfer", 2, {"in": clip, "steps": steps, "out": "s3://nowhere/a.mp4"}, self.settings),
            ("transfer", 2, {"in": clip, "steps": steps, "out": place}, nowhere),
        ]:
            (result,) = batch.run([job], **settings)
            self.assertEqual((result.code, result.attempts, result.paths), (code, attempts, ()), result)
        self.assertEqual(list(self.objects()), ["broken.mp4"])
        # What a killed process has left goes with the next job.
        left = self.temporary / "clipworks-job-left"
        left.mkdir()
        os.utime(left, (0, 0))
        # Of a bucket and a path, to a path.
        self.s3.upload_file(clip, "clips", "clip.mp4")
        job = {"in": clip, "steps": [{"step": "join", "in": "s3://clips/clip.mp4"}], "out": str(self.outputs / "a.mp4")}
        self.assertEqual([batch.do(job, **self.settings).check().skipped for _ in range(2)], [False, True])
        self.assertEqual(sorted(os.listdir(self.outputs)), ["a.mp4", "a.mp4.receipt.json"])
        self.assertEqual(os.listdir(self.temporary), [])
