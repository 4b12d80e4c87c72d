#!/usr/bin/env python3
"""What the program may still do once it is confined, tried from inside by tests/app/ProbeCommand.cpp.

confinement.py PROBE_PROGRAM

PROBE_PROGRAM is the program with one command more. Everything that it harms is this test's own, in a directory that goes.
"""
import json
import os
import signal
import socket
import subprocess
import sys
import tempfile
import unittest

PROGRAM = sys.argv.pop(1)


class Confinement(unittest.TestCase):
    def setUp(self):
        self.directory = tempfile.TemporaryDirectory()
        self.addCleanup(self.directory.cleanup)
        for name in ("outputs", "beside"):
            os.mkdir(self.path(name))
        for name in ("clip.mp4", "beside/secret", "outputs/older.mp4"):
            with open(self.path(name), "w", encoding="utf-8") as file:
                file.write("content")

    def path(self, name):
        return os.path.join(self.directory.name, name)

    def tried(self, *attempts, options=()):
        """What became of each attempt: "done", or the error's name."""
        run = subprocess.run([PROGRAM, "--outputs", self.path("outputs"), *options, "probe", self.path("clip.mp4"), *attempts],
                             capture_output=True, text=True, timeout=60, check=False)
        lines = [line.rsplit(" ", 1) for line in run.stdout.splitlines()]
        self.assertEqual([line[0] for line in lines], list(attempts), run)
        return dict(lines)

    def server(self, family, kind, address):
        made = socket.socket(family, kind)
        self.addCleanup(made.close)
        made.bind(address)
        if kind == socket.SOCK_STREAM:
            made.listen()
        made.settimeout(0.2)
        return made

    def attempts(self):
        tcp = self.server(socket.AF_INET, socket.SOCK_STREAM, ("127.0.0.1", 0))
        udp = self.server(socket.AF_INET, socket.SOCK_DGRAM, ("127.0.0.1", 0))
        self.server(socket.AF_UNIX, socket.SOCK_STREAM, self.path("socket"))
        self.server(socket.AF_UNIX, socket.SOCK_STREAM, "\0" + self.path("abstract"))
        other = subprocess.Popen(["sleep", "60"])
        self.addCleanup(other.wait)
        self.addCleanup(other.kill)
        return [
            "read=/etc/passwd", "list=" + os.path.expanduser("~"), "read=" + self.path("beside/secret"),
            "read=" + self.path("outputs/older.mp4"), "list=" + self.path("outputs"),
            "write=" + self.path("beside/new"), "write=" + self.path("outputs/new.mp4"),
            "write=" + self.path("clip.mp4"), "remove=" + self.path("outputs/older.mp4"),
            "rename=" + self.path("outputs/older.mp4"), "chmod=" + self.path("beside/secret"),
            "utimes=" + self.path("beside/secret"), f"tcp={tcp.getsockname()[1]}", f"udp={udp.getsockname()[1]}",
            "unix=" + self.path("socket"), "unix=@" + self.path("abstract"), "children=200", f"trace={os.getpid()}",
            f"signal={other.pid}", "sharedMemory=4096", "exec=/bin/true",
            # By the process that makes files for it.
            "new=" + self.path("beside/new.mp4"), "new=" + self.path("outputs/.hidden.mp4"),
            "new=" + self.path("outputs/profile"), "new=" + self.path("outputs/../beside/new.mp4"),
            "replaced=" + self.path("outputs/older.mp4"),
        ], other

    def test_refuses_what_clips_never_need(self):
        attempts, other = self.attempts()
        for attempt, outcome in self.tried(*attempts).items():
            self.assertIn(outcome, ("EACCES", "EPERM"), attempt)
        self.assertIsNone(other.poll())
        self.assertEqual(sorted(os.listdir(self.path("outputs"))), ["older.mp4"])
        self.assertEqual(os.listdir(self.path("beside")), ["secret"])

    def test_allows_what_they_do(self):
        needed = ["read=" + self.path("clip.mp4"), "new=" + self.path("outputs/new.mp4"), "memory=1000000000"]
        self.assertEqual(set(self.tried(*needed).values()), {"done"})
        self.assertEqual(sorted(os.listdir(self.path("outputs"))), ["new.mp4", "older.mp4"])
        replaced = "replaced=" + self.path("outputs/older.mp4")
        options = ("-o", self.path("outputs/older.mp4"), "--force")
        self.assertEqual(self.tried(replaced, options=options), {replaced: "done"})

    def test_would_succeed_unconfined(self):
        """Else the refusals prove nothing."""
        attempts, _ = self.attempts()
        harmless = [a for a in attempts if a.split("=")[0] in ("read", "list", "tcp", "udp", "unix", "children", "sharedMemory", "chmod")]
        outcomes = self.tried(*harmless, options=("--confinement", "off"))
        self.assertEqual(set(outcomes.values()), {"done"}, outcomes)

    def test_keeps_its_limits(self):
        self.assertEqual(self.tried("memory=600000000", options=("--memory", "500MB")), {"memory=600000000": "ENOMEM"})
        fill = "fill=" + self.path("outputs/full.mp4")
        self.assertEqual(self.tried(fill, options=("--max-output", "5MB")), {fill: "EFBIG"})
        self.assertEqual(self.tried(fill), {fill: "done"})

    def test_tells_what_it_got(self):
        def confinement(*prefix):
            run = subprocess.run([*prefix, PROGRAM, "--json", "doctor"], capture_output=True, text=True, timeout=60, check=True)
            return json.loads(run.stdout)["confinement"]

        told = confinement()
        self.assertTrue(told["landlock"] > 0 and told["seccomp"], told)

    def test_leaves_no_process(self):
        """The one that makes files goes with the one that it serves, even when that one is killed."""
        probe = subprocess.Popen([PROGRAM, "--outputs", self.path("outputs"), "probe", self.path("clip.mp4"), "wait=0"],
                                 stdout=subprocess.PIPE, text=True)
        probe.stdout.readline()
        with open(f"/proc/{probe.pid}/task/{probe.pid}/children", encoding="ascii") as file:
            brokers = file.read().split()
        self.assertEqual(len(brokers), 1)
        probe.send_signal(signal.SIGKILL)
        probe.wait()
        # Whoever reads the program's output is not kept waiting by it either.
        self.assertEqual(probe.stdout.read(), "")
        probe.stdout.close()
        for _ in range(100):
            try:
                with open(f"/proc/{brokers[0]}/stat", encoding="ascii") as file:
                    if file.read().split()[2] == "Z":
                        break
            except FileNotFoundError:
                break
            subprocess.run(["sleep", "0.05"], check=True)
        else:
            self.fail("the process that makes files lives on")


if __name__ == "__main__":
    unittest.main()
