"""Jobs in numbers, on this machine or on many; each is done once, however often it is given out.

    from clipworks import batch

    jobs = ({"in": f"{n}.mp4", "steps": [{"step": "compress", "preset": "480p"}], "out": f"{n}-small.mp4"} for n in range(1000))
    for result in batch.run(jobs, attempts=3):
        print(result.paths or result.error)

A job is what `clipworks run` takes: "in", a path or a list of paths; "steps"; "out"; an "id" of the caller's own; and
options of the program without their dashes. It leaves a receipt beside its output, and what has one that fits is skipped,
so that a run may be repeated after any end.

"in" and "out" may be URLs that fsspec (python3-fsspec) knows, such as "s3://bucket/clip.mp4". Such files are fetched to a
temporary folder of the process that does the job, and put back whole, the receipt last. Paths of many machines must lead
to the same files.
"""

import os
import queue
import threading
import time
import uuid
from concurrent.futures import BrokenExecutor, Executor, Future, ProcessPoolExecutor, ThreadPoolExecutor, wait
from dataclasses import dataclass, replace
from typing import Any, Callable, Iterable, Iterator, Literal, Mapping, TypedDict, Unpack

from . import AnyPath, Error, elsewhere
from .worker import Worker

__all__ = ["AGAIN", "Job", "JobResult", "Settings", "do", "each", "run"]

Job = Mapping[str, Any]

#: The codes of failures after which the same may succeed.
AGAIN = frozenset({"noMemory", "noSpace", "busy", "cancelled", "transfer", "workerLost"})
_thread = threading.local()


class Settings(TypedDict, total=False):
    """What holds for every job, and is stronger than what the job says.

    force: an output that is there, without a receipt that fits, is replaced; else that is a failure. For queues, whose
        outputs are theirs: what was killed between an output and its receipt leaves such a one.
    sha256: receipts tell SHA-256, too.
    threads: how many each encoder and decoder may have. The output depends on it.
    confinement: "auto" confines a job as far as the system allows, "require" fails where that is not all.
    memory, max_output: the most bytes of a job's memory and of a new file. timeout: the most seconds of its work.
    max_fetch: the most bytes that a job may fetch from elsewhere.
    storage_options: how fsspec reaches files elsewhere, for each protocol: {"s3": {"endpoint_url": "http://…"}}.
    program: the program "clipworks", on the machine that does the job.
    """

    force: bool
    sha256: bool
    threads: int | None
    confinement: Literal["auto", "require"]
    memory: int | None
    timeout: float | None
    max_output: int | None
    max_fetch: int | None
    storage_options: Mapping[str, Mapping[str, Any]] | None
    program: AnyPath


@dataclass(frozen=True)
class JobResult:
    """What became of a job.

    paths: of the outputs, or their URLs; none where it failed.
    receipt: its path, or its URL.
    skipped: whether output and receipt were there already.
    error, code: why it failed, in one sentence, and what kind of failure it was, as `clipworks.Error` has it; also
        "notFound" and "badArgument"; "busy" where another run made the output meanwhile, "transfer" where a file
        elsewhere could not be fetched or put, and "workerLost" where the process that did it ended.
    seconds: how long the last attempt took. attempts: how often it was given out.
    """

    job: Job
    paths: tuple[str, ...] = ()
    receipt: str | None = None
    skipped: bool = False
    error: str | None = None
    code: str | None = None
    seconds: float = 0
    attempts: int = 1

    def check(self) -> "JobResult":
        """Itself, or `clipworks.Error` where the job failed."""
        if self.error is not None:
            raise Error(self.error, self.code or "internal")
        return self


def do(job: Job, **settings: Unpack[Settings]) -> JobResult:
    """Does a job in this thread's own worker process, which is kept for the next one; for queues that call functions.

    A failure of the job is told, never raised; an interruption (KeyboardInterrupt, SystemExit) is, and ends the job.
    """
    settings = _known(settings)
    began = time.monotonic()
    try:
        result = _done(job, settings)
    except Exception as error:
        result = JobResult(job, error=_sentence(error), code=_code(error))
    return replace(result, seconds=time.monotonic() - began)


def run(
    jobs: Iterable[Job],
    executor: Executor | None = None,
    *,
    attempts: int = 2,
    window: int = 1000,
    on_result: Callable[[JobResult], Any] | None = None,
    **settings: Unpack[Settings],
) -> list[JobResult]:
    """Does all jobs, and returns what became of each, in their order; `on_result` is called as they end, in this thread.

    executor: any of `concurrent.futures`, such as Dask's `Client.get_executor()`; the package and the program are installed
        where it works. When not given, a thread for each processor that this process may use, with a worker each.
    attempts: how often a job is given out at most: again where its worker is lost, or where the same may succeed later
        (the codes in `AGAIN`); it begins a second later then, the third time two.
    window: how many jobs are taken from `jobs` before their time; a pool of processes has as many as processes.
    threads: when not given, 1, since jobs run beside each other.

    KeyboardInterrupt, and what `on_result` raises, cancels the jobs that wait and comes out of it. Those that run are ended
    where no executor was given; another executor's come to their end there.
    """
    results: dict[int, JobResult] = {}
    for number, result in _each(jobs, executor, attempts, window, settings):
        results[number] = result
        if on_result is not None:
            on_result(result)
    return [results[number] for number in sorted(results)]


def each(
    jobs: Iterable[Job],
    executor: Executor | None = None,
    *,
    attempts: int = 2,
    window: int = 1000,
    **settings: Unpack[Settings],
) -> Iterator[JobResult]:
    """Does all jobs as `run` does, and gives their results as they end; for more jobs than memory has place for."""
    for _, result in _each(jobs, executor, attempts, window, settings):
        yield result


def _each(
    jobs: Iterable[Job], executor: Executor | None, attempts: int, window: int, settings: Settings
) -> Iterator[tuple[int, JobResult]]:
    settings = _known({"threads": 1, **settings})
    if attempts < 1 or window < 1:
        raise ValueError("attempts and window take a whole number from 1 on")
    given = _Given(executor, settings)
    waiting = enumerate(jobs)

    def fill() -> None:
        while len(given.out) < min(window, given.most) and (following := next(waiting, None)) is not None:
            given.give(*following)

    try:
        fill()
        while given.out:
            number, result = given.take()
            is_again = result.code in AGAIN and result.attempts < attempts
            if is_again:
                given.give(number, result.job, result.attempts + 1)
            fill()
            if not is_again:
                yield number, result
    finally:
        given.end()


class _Given:
    """The jobs that an executor has."""

    def __init__(self, executor: Executor | None, settings: Settings) -> None:
        self.out: dict[Future[JobResult], tuple[int, Job, int]] = {}
        self.most = 1 << 30
        self._settings = settings
        self._run = uuid.uuid4().hex
        self._ended: queue.SimpleQueue[Future[JobResult]] = queue.SimpleQueue()
        self._here: list[Worker] = []  # of our own threads
        self._own: Executor | None = None
        if executor is None:
            processors = len(os.sched_getaffinity(0))
            start = lambda: self._here.append(_worker(settings))
            executor = self._own = ThreadPoolExecutor(processors, "clipworks", start)
            self.most = 2 * processors
        self._set(executor)

    def give(self, number: int, job: Job, attempt: int = 1) -> None:
        # Dask takes calls with the same arguments for the same call.
        call = (_attempt, job, self._settings, attempt, f"{self._run}-{number}")
        try:
            future = self._executor.submit(*call)
        except BrokenExecutor:
            if not isinstance(self._executor, ProcessPoolExecutor):
                raise
            self._replace(self._executor)
            future = self._executor.submit(*call)
        self.out[future] = number, job, attempt
        future.add_done_callback(self._ended.put)

    def take(self) -> tuple[int, JobResult]:
        """The next one that ends."""
        future = self._ended.get()
        number, job, attempt = self.out.pop(future)
        error = None if future.cancelled() else future.exception()
        if error is None and not future.cancelled():
            return number, replace(future.result(), job=job, attempts=attempt)
        if error is not None and not isinstance(error, Exception):
            raise error
        why = f"what did the job was lost: {error!r}" if error else "the executor cancelled the job"
        return number, JobResult(job, error=why, code="workerLost", attempts=attempt)

    def end(self) -> None:
        running = [future for future in self.out if not future.cancel()]
        if self._own is None:
            return
        while isinstance(self._own, ThreadPoolExecutor) and wait(running, timeout=0.1).not_done:
            for worker in self._here:
                worker.cancel()
        self._own.shutdown()

    def _set(self, executor: Executor) -> None:
        self._executor = executor
        if isinstance(executor, ProcessPoolExecutor):
            # When a process is lost, all that the pool has is lost: it gets no more than it works at.
            self.most = executor._max_workers

    def _replace(self, pool: ProcessPoolExecutor) -> None:
        """Once it has lost a process, a pool never works again."""
        if self._own is not None:
            self._own.shutdown()
        self._own = ProcessPoolExecutor(pool._max_workers, pool._mp_context, pool._initializer, pool._initargs)
        self._set(self._own)


def _attempt(job: Job, settings: Settings, attempt: int, _: str) -> JobResult:
    time.sleep(attempt - 1)  # so that another run has left its receipt, and a service has come back
    return do(job, **settings)


def _known(settings: Settings) -> Settings:
    unknown = settings.keys() - Settings.__annotations__.keys()
    if unknown:
        raise TypeError(f"got an unexpected keyword argument {min(unknown)!r}")
    return settings


def _worker(settings: Settings) -> Worker:
    """This thread's, with these limits."""
    wanted = {key: settings[key] for key in ("program", "confinement", "memory", "timeout", "max_output") if key in settings}
    if getattr(_thread, "wanted", None) != wanted:
        _thread.worker = Worker(**wanted)
        _thread.wanted = wanted
    return _thread.worker


def _done(job: Job, settings: Settings) -> JobResult:
    worker = _worker(settings)
    options = {key: settings[key] for key in ("force", "sha256", "threads") if key in settings}
    if elsewhere.is_elsewhere(job):
        limits = {key: settings[key] for key in ("max_fetch", "storage_options") if key in settings}
        paths, receipt, skipped = elsewhere.do(worker, job, **options, **limits)
        return JobResult(job, tuple(paths), receipt, skipped)
    report = worker.job(job, **options)
    return JobResult(job, tuple(map(str, report.paths)), str(report.receipt), report.skipped)


def _sentence(error: Exception) -> str:
    if isinstance(error, OSError) and error.strerror:
        return f"{error.filename}: {error.strerror}" if error.filename else error.strerror
    return str(error) or repr(error)


def _code(error: Exception) -> str:
    kinds = {FileNotFoundError: "notFound", ValueError: "badArgument", TypeError: "badArgument", KeyError: "badArgument"}
    return getattr(error, "code", kinds.get(type(error), "internal"))
