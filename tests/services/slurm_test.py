"""Jobs as an array of Slurm, on a cluster of this machine; one of its tasks is requeued in the midst."""

import json
import os
import subprocess
import sys

from services import IS_LONG, ServiceTest, free_port, needs, until

if os.getuid() != 0:
    print("skipped: only root starts slurmd")
    sys.exit(77)
needs("munged", "slurmctld", "slurmd", "sbatch", "inotifywait", "xxhash")

SETTINGS = """
ClusterName=test
SlurmctldHost={host}(127.0.0.1)
SlurmctldPort={ports[0]}
SlurmdPort={ports[1]}
SlurmUser=root
AuthInfo=socket={folder}/munge.sock
StateSaveLocation={folder}
SlurmdSpoolDir={folder}/spool
SlurmctldPidFile={folder}/slurmctld.pid
SlurmdPidFile={folder}/slurmd.pid
ProctrackType=proctrack/linuxproc
SelectType=select/cons_tres
SelectTypeParameters=CR_Core_Memory
SchedulerParameters=sched_min_interval=100000
NodeName={host} NodeAddr=127.0.0.1 CPUs={processors} RealMemory=4000
PartitionName=main Nodes={host} Default=YES
"""


class Slurm(ServiceTest):
    def setUp(self):
        super().setUp()
        os.chmod(self.folder, 0o755)
        here = {"host": os.uname().nodename, "folder": self.folder, "processors": os.cpu_count()}
        (self.folder / "slurm.conf").write_text(SETTINGS.format(ports=(free_port(), free_port()), **here))
        (self.folder / "munge.key").touch(0o600)
        (self.folder / "munge.key").write_bytes(os.urandom(1024))
        os.environ["SLURM_CONF"] = str(self.folder / "slurm.conf")
        places = {"key-file": "key", "socket": "sock", "pid-file": "pid", "log-file": "said", "seed-file": "seed"}
        options = [f"--{name}={self.folder}/munge.{ending}" for name, ending in places.items()]
        self.start("munged", "--foreground", "--force", *options)
        until((self.folder / "munge.sock").exists, "munged does not start")
        self.start("slurmctld", "-D")
        self.start("slurmd", "-D")
        until(lambda: "idle" in self.slurm("sinfo", "-h", "-o", "%t"), "the cluster does not start")

    def slurm(self, *command):
        options = {"capture_output": True, "text": True, "cwd": self.folder, "timeout": 300}
        return subprocess.run([*map(str, command)], **options).stdout

    def test_an_array_does_its_jobs_once(self):
        jobs, came = list(self.jobs(40 if IS_LONG else 10)), self.watch()
        (self.folder / "jobs.jsonl").write_text("".join(json.dumps(job) + "\n" for job in jobs))
        batch = ["sbatch", "--parsable", "--cpus-per-task=1", "--mem=1G", f"{os.environ['EXAMPLES']}/slurm/array.sh", "jobs.jsonl"]
        array = self.slurm(*batch).strip()
        until(lambda: any(self.outputs.iterdir()), "no job ends")
        self.slurm("scontrol", "requeue", f"{array}_1")
        # Slurm lets two minutes pass.
        until(lambda: self.slurm("squeue", "-h", "-t", "PENDING", "-o", "%K").split() == ["1"], "nothing is requeued")
        self.slurm("scontrol", "update", f"JobId={array}_1", "StartTime=now")
        until(lambda: self.slurm("squeue", "-h", "-j", array) == "", f"the array does not end:\n{self.logs()}", 200)
        self.assertLessEqual(came(), 1)  # where that one was between an output and its receipt
        said = "".join(path.read_text() for path in self.folder.glob("slurm-*.out"))
        self.check_outputs(jobs)
        self.assertNotIn("clipworks:", said)
