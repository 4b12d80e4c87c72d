"""Operations in another process, for files from strangers: see `Worker`."""

import json
import os
import signal
import subprocess
import threading
from pathlib import Path
from typing import Any, Sequence

from . import AnyPath, Clip, Codec, Error, OnProgress, _raise

__all__ = ["Worker"]

_EXIT_CODES = {2: "badArgument", 3: "limitReached", 4: "noMemory", 130: "cancelled"}


class Worker:
    """Does jobs in another process: each in a copy of one that has read no file, confined to the job's own files.

    For hosts that cannot confine themselves and take files from strangers. What a file does to the process, a crash, too,
    is raised here as for the functions of the package. One process serves any number of jobs, one at a time; it is started
    with the first, and anew where it is gone. Any thread; use several workers for jobs beside each other, and `close` one,
    or use it in a `with` statement, to end its process.

    program: the program "clipworks".
    confinement: "auto" confines as far as the system allows, "require" fails where that is not all.
    memory, max_output: the most bytes of a job's memory and of a new file; timeout: the most seconds of a job. What passes
        them is an `Error` with the code "limitReached".
    """

    def __init__(
        self,
        program: AnyPath = "clipworks",
        *,
        confinement: str = "auto",
        memory: int | None = None,
        timeout: float | None = None,
        max_output: int | None = None,
    ) -> None:
        if confinement not in ("auto", "require"):
            raise ValueError(f'confinement takes "auto" or "require", not "{confinement}"')
        self._program = os.fspath(program)
        self._options = ["--confinement", confinement]
        for option, value in (("--memory", memory), ("--timeout", timeout), ("--max-output", max_output)):
            if value is not None:
                self._options += [option, str(value)]
        self._lock = threading.Lock()
        self._process: subprocess.Popen[str] | None = None
        self._jobs = 0

    def run(self, arguments: Sequence[AnyPath], *, progress: OnProgress | None = None) -> list[Path]:
        """Does what the program does with these arguments, and returns the paths of the new files.

        worker.run(["loop", "clip.mp4", "--count", "3", "-o", "three.mp4"])
        """
        with self._lock:
            self._jobs += 1
            number = self._jobs
            words = [*self._options, *(os.fspath(word) for word in arguments)]
            self._send({"job": number, "arguments": words, "directory": os.getcwd()})
            try:
                told = self._await(number, progress)
            except BaseException:
                self._cancel(number)
                raise
        return self._result(*told)

    def save(
        self,
        clip: Clip,
        path: AnyPath,
        *,
        overwrite: bool = False,
        codec: Codec = "auto",
        strip_metadata: bool = False,
        clean: bool = False,
        verify: bool | None = None,
        strict: bool = False,
        threads: int | None = None,
        progress: OnProgress | None = None,
    ) -> Path:
        """Makes the movie of a clip as `Clip.save` does. The clip itself was opened by this process, which reads headers."""
        words = ["edit", clip.json(), "-o", path, "--codec", codec]
        words += ["--force"] * overwrite + ["--strip-metadata"] * strip_metadata + ["--clean"] * clean + ["--strict"] * strict
        if threads is not None:
            words += ["--threads", str(threads)]
        if verify is not None:
            words.append("--verify" if verify else "--no-verify")
        return self.run(words, progress=progress)[0]

    def close(self) -> None:
        """Ends the process."""
        with self._lock:
            self._end()

    def __enter__(self) -> "Worker":
        return self

    def __exit__(self, *_: Any) -> None:
        self.close()

    def __del__(self) -> None:
        self._end()

    def _send(self, message: dict[str, Any]) -> None:
        line = json.dumps(message) + "\n"
        if self._process is not None:
            try:
                self._write(line)
                return
            except OSError:
                self._end()
        self._process = subprocess.Popen(
            [self._program, "worker"],
            stdin=subprocess.PIPE,
            stdout=subprocess.PIPE,
            stderr=subprocess.DEVNULL,
            text=True,
            encoding="utf-8",
            errors="surrogateescape",
        )
        self._write(line)

    def _write(self, line: str) -> None:
        self._process.stdin.write(line)
        self._process.stdin.flush()

    def _await(self, number: int, progress: OnProgress | None) -> tuple[dict[str, Any], list[Path], tuple[str, str] | None]:
        """How the job ended, its files, and what it told of a failure."""
        paths: list[Path] = []
        error: tuple[str, str] | None = None
        for line in self._process.stdout:
            event = json.loads(line)
            kind = event["event"]
            if kind == "progress" and progress is not None:
                progress(event["value"])
            elif kind == "done":
                paths = [Path(path) for path in event["outputs"]]
            elif kind == "error":
                error = event["message"], event.get("code", "internal")
            elif kind == "ended" and event["job"] == number:
                return event, paths, error
        self._end()
        raise Error("the worker ended in the midst of the job")

    @staticmethod
    def _result(event: dict[str, Any], paths: list[Path], error: tuple[str, str] | None) -> list[Path]:
        if "signal" in event:
            sentence = f"the job was ended by a signal ({signal.strsignal(event['signal'])})"
            killed = event["signal"] == signal.SIGKILL
            raise Error(f"{sentence}; the system does so where memory is short", "noMemory") if killed else Error(sentence)
        if event["code"] == 0:
            return paths
        sentence, code = error or ("the job failed", "internal")
        by_exit = _EXIT_CODES.get(event["code"], code)
        return _raise(sentence, by_exit if code == "internal" or by_exit == "limitReached" else code)

    def _cancel(self, number: int) -> None:
        """Ends the job, and waits for that, so that the next one finds the process free."""
        if self._process is None:
            return
        try:
            self._write(json.dumps({"cancel": number}) + "\n")
            for line in self._process.stdout:
                event = json.loads(line)
                if event["event"] == "ended" and event["job"] == number:
                    return
        except (OSError, ValueError):
            pass
        self._end()

    def _end(self) -> None:
        process, self._process = self._process, None
        if process is None:
            return
        for stream in (process.stdin, process.stdout):
            try:
                stream.close()
            except OSError:
                pass
        process.wait()
