"""Operations in another process, for files from strangers: see `Worker`."""

import json
import os
import signal
import subprocess
import threading
from dataclasses import dataclass
from pathlib import Path
from typing import Any, Mapping, Sequence

from . import AnyPath, Clip, Codec, Error, OnProgress, _raise

__all__ = ["JobReport", "Worker"]

_EXIT_CODES = {2: "badArgument", 3: "limitReached", 4: "noMemory", 130: "cancelled"}


@dataclass(frozen=True)
class JobReport:
    """What became of a job.

    paths: of the new files.
    receipt: where it tells what was read and made; left last.
    skipped: whether output and receipt were there already, and nothing was done.
    """

    paths: tuple[Path, ...]
    receipt: Path
    skipped: bool


class Worker:
    """Does jobs in another process: each in a copy of one that has read no file, confined to the job's own files.

    For hosts that cannot confine themselves and take files from strangers. What a file does to the process, a crash, too,
    is raised here as for the functions of the package. One process serves any number of jobs, one at a time; it is started
    with the first, and anew where it is gone. Any thread; use several workers for jobs beside each other, and `close` one,
    or use it in a `with` statement, to end its process.

    program: the program "clipworks".
    confinement: "auto" confines as far as the system allows, "require" fails where that is not all.
    memory, max_output: the most bytes of a job's memory and of a new file; timeout: the most seconds of a job. What passes
        them is an `Error` with the code "limitReached". One with the code "workerLost" tells that the process itself ended.
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
        self._writing = threading.Lock()
        self._process: subprocess.Popen[str] | None = None
        self._owner = 0  # the process that started it; copies of that one keep off
        self._jobs = 0

    def run(self, arguments: Sequence[AnyPath], *, progress: OnProgress | None = None) -> list[Path]:
        """Does what the program does with these arguments, and returns the paths of the new files.

        worker.run(["loop", "clip.mp4", "--count", "3", "-o", "three.mp4"])
        """
        return _paths(self._do(arguments, progress))

    def job(
        self,
        job: Mapping[str, Any],
        *,
        force: bool = False,
        sha256: bool = False,
        threads: int | None = None,
        progress: OnProgress | None = None,
    ) -> JobReport:
        """Does a job, as `clipworks run` does: what is done already, and has a receipt that fits, is not done again.

        worker.job({"in": "a.mp4", "steps": [{"step": "trim", "from": 1, "to": 2.5}], "out": "b.mp4"})

        `force` replaces an output that has no such receipt; `sha256` has the receipt tell SHA-256 too; `threads` is how
        many each encoder and decoder may have, which the output depends on.
        """
        words = ["run", json.dumps(job, default=os.fspath), *["--force"] * force, *["--sha256"] * sha256]
        if threads is not None:
            words += ["--threads", str(threads)]
        done = self._do(words, progress)
        return JobReport(tuple(_paths(done)), Path(done["receipt"]), done["skipped"])

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

    def cancel(self) -> None:
        """Ends the job that runs in another thread, where it is an `Error` with the code "cancelled"."""
        try:
            self._write({"cancel": self._jobs})
        except (OSError, ValueError, AttributeError):  # There is none.
            pass

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

    def _do(self, arguments: Sequence[AnyPath], progress: OnProgress | None) -> dict[str, Any]:
        """The event that tells of the success."""
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

    def _send(self, message: dict[str, Any]) -> None:
        if self._process is not None and self._owner != os.getpid():
            self._end()
        if self._process is not None:
            try:
                self._write(message)
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
        self._owner = os.getpid()
        self._write(message)

    def _write(self, message: dict[str, Any]) -> None:
        with self._writing:
            self._process.stdin.write(json.dumps(message) + "\n")
            self._process.stdin.flush()

    def _await(self, number: int, progress: OnProgress | None) -> tuple[dict[str, Any], dict[str, Any], tuple[str, str] | None]:
        """How the job ended, what it told of its success, and of a failure."""
        done: dict[str, Any] = {}
        error: tuple[str, str] | None = None
        for line in self._process.stdout:
            event = json.loads(line)
            kind = event["event"]
            if kind == "progress" and progress is not None:
                progress(event["value"])
            elif kind == "done":
                done = event
            elif kind == "error":
                error = event["message"], event.get("code", "internal")
            elif kind == "ended" and event["job"] == number:
                return event, done, error
        self._end()
        raise Error("the worker ended in the midst of the job", "workerLost")

    @staticmethod
    def _result(event: dict[str, Any], done: dict[str, Any], error: tuple[str, str] | None) -> dict[str, Any]:
        if "signal" in event:
            sentence = f"the job was ended by a signal ({signal.strsignal(event['signal'])})"
            killed = event["signal"] == signal.SIGKILL
            raise Error(f"{sentence}; the system does so where memory is short", "noMemory") if killed else Error(sentence)
        if event["code"] == 0:
            return done
        sentence, code = error or ("the job failed", "internal")
        by_exit = _EXIT_CODES.get(event["code"], code)
        return _raise(sentence, by_exit if code == "internal" or by_exit == "limitReached" else code)

    def _cancel(self, number: int) -> None:
        """Ends the job, and waits for that, so that the next one finds the process free."""
        if self._process is None:
            return
        try:
            self._write({"cancel": number})
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
        if self._owner == os.getpid():
            process.terminate()  # Copies of this process may hold its standard input open.
            process.wait()


def _paths(done: dict[str, Any]) -> list[Path]:
    return [Path(path) for path in done.get("outputs", [])]
