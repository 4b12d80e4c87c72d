#!/usr/bin/env python3
"""Attacks the server of `clipworks serve`, and asks it for what the page asks for.

    server_test.py PROGRAM
"""

import json
import os
import socket
import tempfile
import time
import unittest
from pathlib import Path

from serving import PATIENCE, Serving, facts_of, make_clip, numbers_in, program_named

PROGRAM = program_named()


class ServerTest(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        cls.outside = tempfile.TemporaryDirectory()
        cls.directory = tempfile.TemporaryDirectory()
        cls.folder = Path(cls.directory.name)
        cls.clip = make_clip(cls.folder / "bars.mp4")
        secret = make_clip(Path(cls.outside.name) / "secret.mp4", 3)
        (cls.folder / "link.mp4").symlink_to(secret)
        (cls.folder / "inner.mp4").symlink_to(cls.clip)
        os.mkfifo(cls.folder / "pipe.mp4")
        (cls.folder / "broken.mp4").write_bytes(b"no clip at all" * 100)
        cls.serving = Serving(PROGRAM, cls.folder)
        cls.first = cls.serving.enter()

    @classmethod
    def tearDownClass(cls):
        # In the midst of work.
        long = {"in": "bars.mp4", "out": "long", "steps": [{"step": "loop", "count": 3000}, {"step": "rotate"}]}
        number = cls.serving.post("/api/start", long)[1]["job"]
        while json.loads(cls.serving.ask("GET", "/api/job?job=" + number)[2])["share"] == 0:
            time.sleep(0.02)
        began = time.monotonic()
        code, left = cls.serving.stop()
        made = sorted(os.listdir(cls.folder))
        cls.directory.cleanup()
        cls.outside.cleanup()
        assert (code, left, made) == (0, [], ["bars.mp4", "broken.mp4", "inner.mp4", "link.mp4", "pipe.mp4"]), (code, left, made)
        assert time.monotonic() - began < 10

    def test_the_key_lets_in_once(self):
        cookie = self.first["Set-Cookie"]
        self.assertIn("HttpOnly", cookie)
        self.assertIn("SameSite=Strict", cookie)
        again = self.serving.ask("GET", self.serving.address.removeprefix(self.serving.origin), Cookie=None)
        self.assertEqual(again[0], 403)
        self.assertEqual(os.stat(os.path.join(self.serving.temp.name, *os.listdir(self.serving.temp.name))).st_mode & 0o77, 0)

    def test_strangers_are_refused(self):
        other = "http://evil.example"
        for status, method, path, headers in [
                (200, "GET", "/api/clips", {}),
                (403, "GET", "/api/clips", {"Cookie": None}),
                (403, "GET", "/", {"Cookie": None}),
                (403, "GET", "/?key=" + "0" * 64, {"Cookie": None}),
                (403, "GET", "/api/clips", {"Cookie": self.serving.headers["Cookie"][:-1]}),
                (403, "GET", "/api/clips", {"Host": f"localhost:{self.serving.port}"}),
                (403, "GET", "/api/clips", {"Host": "evil.example"}),
                (403, "GET", "/api/clips", {"Origin": other}),
                (403, "GET", "/media/clip?name=bars.mp4", {"Sec-Fetch-Site": "cross-site"}),
                (403, "GET", "/media/clip?name=bars.mp4", {"Sec-Fetch-Site": "same-site"}),
                (403, "POST", "/api/plan", {"Origin": other}),
                (403, "POST", "/api/plan", {"Origin": None}),
                (403, "POST", "/api/plan", {"Origin": "null"}),
                (415, "POST", "/api/plan", {"Content-Type": "text/plain"}),
                (415, "POST", "/api/plan", {"Content-Type": "application/x-www-form-urlencoded"}),
                (415, "POST", "/api/upload?name=a.mp4", {"Content-Type": "video/mp4"}),
                (415, "POST", "/api/recording", {"Content-Type": "text/html"}),
                (411, "POST", "/api/plan", {"Transfer-Encoding": "chunked"}),
                (411, "POST", "/api/plan", {"Content-Encoding": "gzip"}),
                (405, "DELETE", "/api/clips", {}),
                (405, "OPTIONS", "/api/plan", {"Origin": other}),
                (404, "GET", "/api/nothing", {}),
                (404, "GET", "/../etc/passwd", {})]:
            with self.subTest(method=method, path=path, headers=headers):
                got, answer, _ = self.serving.ask(method, path, "{}" if method == "POST" else None, **headers)
                self.assertEqual(got, status)
                self.assertNotIn("Access-Control-Allow-Origin", answer)
                self.assertIn("default-src 'none'", answer["Content-Security-Policy"])
                self.assertEqual(answer["X-Content-Type-Options"], "nosniff")

    def test_nothing_outside_is_reached(self):
        _, _, content = self.serving.ask("GET", "/api/clips")
        names = [clip["name"] for clip in json.loads(content)["clips"]]
        self.assertEqual(names, ["bars.mp4", "broken.mp4", "inner.mp4"])
        for name in ["link.mp4", "pipe.mp4", "../" + Path(self.outside.name).name + "/secret.mp4", "..", ".", "",
                     self.outside.name + "/secret.mp4", "/etc/passwd", "bars.mp4%00", "bars.mp4/", "recording-1/../x"]:
            for path in ["/media/clip?name=", "/api/facts?name=", "/media/picture?at=0&name=", "/api/peaks?count=9&name="]:
                with self.subTest(name=name, path=path):
                    self.assertEqual(self.serving.ask("GET", path + name)[0], 404)
        for job in [{"in": "link.mp4", "steps": [{"step": "loop", "count": 2}]},
                    {"in": "bars.mp4", "steps": [{"step": "loop", "count": 2, "output": "/tmp/x.mp4"}]},
                    {"in": "bars.mp4", "steps": [{"step": "loop", "count": 2, "confinement": "off"}]},
                    {"in": "bars.mp4", "steps": [{"step": "loop", "count": 2}], "force": True},
                    {"in": "bars.mp4", "steps": [{"step": "info"}]},
                    {"in": "bars.mp4", "steps": [{"step": "narrate", "piece": "/etc/passwd@0"}]},
                    {"in": "bars.mp4", "steps": [{"step": "narrate", "piece": "link.mp4@0"}]},
                    {"in": ["bars.mp4", "link.mp4"], "steps": [{"step": "join"}]},
                    {"in": "bars.mp4", "steps": [{"step": "loop", "count": 2}, {"step": "join", "in": ["link.mp4"]}]},
                    {"in": ["bars.mp4", "inner.mp4"], "steps": [{"step": "loop", "count": 2}]},
                    {"in": [], "steps": [{"step": "loop", "count": 2}]},
                    {"in": "bars.mp4", "steps": []}, {"in": 7, "steps": 7}, {}]:
            with self.subTest(job=job):
                self.assertEqual(self.serving.post("/api/start", {**job, "out": "x", "temporary": True})[0], 422)
        option = {"in": "bars.mp4", "out": "x", "steps": [{"step": "loop", "count": "--any-codec"}]}  # a value, whatever it looks like
        self.assertIn("--count", self.serving.post("/api/plan", option)[1]["error"])
        for out in ["../x", "a/b", "", ".hidden", "x" * 300]:
            job = {"in": "bars.mp4", "steps": [{"step": "loop", "count": 2}], "out": out}
            with self.subTest(out=out):
                self.assertEqual(self.serving.post("/api/start", job)[0], 422)
                self.assertEqual(self.serving.ask("POST", "/api/upload?name=" + out.replace("/", "%2F"), "x",
                                                  Content_Type="application/octet-stream")[0], 422)

    def test_large_and_slow_clients_are_bounded(self):
        def connected():
            return socket.create_connection(("127.0.0.1", self.serving.port), PATIENCE)

        def head(method, path, length):
            return (f"{method} {path} HTTP/1.1\r\nHost: {self.serving.host}\r\nOrigin: {self.serving.origin}\r\n"
                    f"Cookie: {self.serving.headers['Cookie']}\r\nContent-Type: application/json\r\n"
                    f"Content-Length: {length}\r\n\r\n").encode()

        with connected() as client:  # a gigabyte is refused before it is sent, and is not read
            client.sendall(head("POST", "/api/plan", 10**9))
            self.assertIn(b" 413 ", client.recv(4096))
        with connected() as client:  # a head without an end
            with self.assertRaises(OSError):
                for _ in range(100):
                    client.sendall(b"A" * 65536)
                    time.sleep(0.01)
                raise AssertionError("the server still reads")
        slow = connected()  # a byte now and then: ended after ten seconds
        slow.settimeout(PATIENCE)
        slow.sendall(head("POST", "/api/plan", 100))
        began = time.monotonic()
        crowd = [socket.socket() for _ in range(500)]
        for client in crowd:
            client.setblocking(False)
            client.connect_ex(("127.0.0.1", self.serving.port))
        time.sleep(1)
        status = Path(f"/proc/{self.serving.process.pid}/status").read_text()
        self.assertLess(int(status.split("Threads:")[1].split()[0]), 60)
        self.assertLess(len(os.listdir(f"/proc/{self.serving.process.pid}/fd")), 120)
        for client in crowd:
            client.close()
        self.assertEqual(self.serving.ask("GET", "/api/clips")[0], 200)
        while slow.recv(4096):
            pass
        self.assertLess(time.monotonic() - began, 20)
        slow.close()

    def test_ranges_are_streamed(self):
        whole = self.clip.read_bytes()
        for asked, status, first, last in [("bytes=0-99", 206, 0, 99), ("bytes=100-", 206, 100, len(whole) - 1),
                                           ("bytes=-50", 206, len(whole) - 50, len(whole) - 1), (None, 200, 0, len(whole) - 1),
                                           ("bytes=0-999999999", 206, 0, len(whole) - 1), ("bytes=0-1,5-6", 200, 0, len(whole) - 1),
                                           (f"bytes={len(whole)}-", 416, 0, -1)]:
            with self.subTest(asked=asked):
                got, headers, content = self.serving.ask("GET", "/media/clip?name=bars.mp4", Range=asked)
                self.assertEqual((got, content), (status, whole[first:last + 1]))
                if got == 206:
                    self.assertEqual(headers["Content-Range"], f"bytes {first}-{last}/{len(whole)}")
        huge = self.folder / "huge.mp4"
        with open(huge, "wb") as file:
            file.truncate(3 * 2**30)
        got, headers, content = self.serving.ask("GET", "/media/clip?name=huge.mp4", Range="bytes=2147483648-")
        huge.unlink()
        self.assertEqual((got, len(content), headers["Content-Range"]), (206, 2**22, "bytes 2147483648-2151677951/3221225472"))

    def test_what_the_page_is_told(self):
        facts = json.loads(self.serving.ask("GET", "/api/facts?name=bars.mp4")[2])
        self.assertEqual((facts["size"], facts["tracks"][0]["codec"]), ([640, 360], "h264"))
        self.assertAlmostEqual(facts["seconds"], 3, delta=0.03)
        times = json.loads(self.serving.ask("GET", "/api/times?name=bars.mp4")[2])["times"]
        self.assertEqual([round(value * 30 / scale, 6) for value, scale in times], list(range(90)))
        peaks = json.loads(self.serving.ask("GET", "/api/peaks?name=bars.mp4&count=10")[2])["peaks"]
        for i, peak in enumerate(peaks):  # the tone swells evenly to full scale
            self.assertAlmostEqual(peak, 10 * (i + 1), delta=4)
        for path in ["/api/facts", "/api/times"]:
            self.assertIn("broken.mp4", json.loads(self.serving.ask("GET", path + "?name=broken.mp4")[2])["error"])
        self.assertEqual(self.serving.ask("GET", "/media/picture?at=0&name=broken.mp4")[0], 422)

    def test_jobs_are_planned_run_and_cancelled(self):
        job = {"in": "bars.mp4", "out": "it's",
               "steps": [{"step": "trim", "from": "1", "to": "2"}, {"step": "crop", "rect": "0,0,320,180"}]}
        status, told = self.serving.post("/api/plan", job)
        self.assertEqual((status, told["plan"]["length"]["seconds"]), (200, 1))
        self.assertEqual(os.system(told["command"].replace("clipworks ", f"'{PROGRAM}' ", 1) + " >/dev/null"), 0)
        typed = self.folder / "it's.mp4"
        made = self.finished(self.serving.post("/api/start", job)[1]["job"])
        self.assertEqual((made["state"], made["name"]), ("done", "it's-2.mp4"))
        for file in (typed, self.folder / made["name"]):
            self.assertEqual(facts_of(file), (320, 180, 1))
            file.unlink()
        long = {"in": "bars.mp4", "out": "long", "steps": [{"step": "loop", "count": 300}, {"step": "rotate"}]}
        number = self.serving.post("/api/start", long)[1]["job"]
        waiting = self.serving.post("/api/start", long)[1]["job"]
        for one in (waiting, number):
            self.assertEqual(self.serving.post("/api/cancel", {"job": one})[0], 200)
            self.assertEqual(self.finished(one)["state"], "cancelled")
        self.assertFalse((self.folder / "long.mp4").exists())

    def test_files_come_in_whole_or_not_at_all(self):
        content = self.clip.read_bytes()
        status, _, answer = self.serving.ask("POST", "/api/upload?name=new.mp4", content, Content_Type="application/octet-stream")
        self.assertEqual((status, json.loads(answer)["name"]), (200, "new.mp4"))
        self.assertEqual((self.folder / "new.mp4").read_bytes(), content)
        (self.folder / "new.mp4").unlink()
        with socket.create_connection(("127.0.0.1", self.serving.port), PATIENCE) as client:
            client.sendall((f"POST /api/upload?name=half.mp4 HTTP/1.1\r\nHost: {self.serving.host}\r\n"
                            f"Origin: {self.serving.origin}\r\nCookie: {self.serving.headers['Cookie']}\r\n"
                            "Content-Type: application/octet-stream\r\nContent-Length: 1000\r\n\r\nhalf").encode())
            client.shutdown(socket.SHUT_WR)
            client.recv(4096)
        self.assertFalse((self.folder / "half.mp4").exists())
        status, _, answer = self.serving.ask("POST", "/api/recording", content, Content_Type="audio/mp4;codecs=opus")
        piece = json.loads(answer)["name"]
        job = {"in": "bars.mp4", "out": "told", "steps": [{"step": "narrate", "piece": [piece + "@1:0.5"], "base-volume": "0"}]}
        made = self.finished(self.serving.post("/api/start", job)[1]["job"])
        self.assertEqual(made["state"], "done")
        told = self.folder / made["name"]
        self.assertEqual(numbers_in(told), list(range(90)))
        told.unlink()

    def finished(self, number):
        deadline = time.monotonic() + PATIENCE
        while time.monotonic() < deadline:
            told = json.loads(self.serving.ask("GET", "/api/job?job=" + number)[2])
            if told["state"] not in ("waiting", "running"):
                return told
            time.sleep(0.02)
        raise AssertionError("the job does not end")


if __name__ == "__main__":
    unittest.main()
