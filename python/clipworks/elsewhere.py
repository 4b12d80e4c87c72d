"""Jobs whose files lie elsewhere, at URLs that fsspec knows: fetched, done here, put back. See `clipworks.batch`."""

import contextlib
import errno
import fcntl
import importlib.util
import json
import os
import re
import shutil
import tempfile
import time
import uuid
from pathlib import Path, PurePosixPath
from typing import Any, Callable, Iterator, Mapping

from . import Error
from .worker import Worker

__all__ = ["do", "is_elsewhere"]

_URL = re.compile(r"([a-z][a-z0-9+.-]*)://", re.IGNORECASE)
_PIECE = 1 << 20
_PREFIX = "clipworks-job-"
_YOUNG = 60  # seconds, in which a folder has got its lock


def is_elsewhere(job: Mapping[str, Any]) -> bool:
    """Whether its output or one of its inputs is a URL."""
    paths = [job.get("out")]
    _with_inputs(job, lambda path: paths.append(path) or path)
    return any(_URL.match(str(path)) for path in paths)


def do(
    worker: Worker,
    job: Mapping[str, Any],
    *,
    force: bool = False,
    sha256: bool = False,
    threads: int | None = None,
    max_fetch: int | None = None,
    storage_options: Mapping[str, Mapping[str, Any]] | None = None,
) -> tuple[list[str], str, bool]:
    """Where the outputs and the receipt are, and whether they were there already."""
    bare = json.loads(json.dumps({key: value for key, value in job.items() if key != "id"}, default=os.fspath))
    store = _Store(storage_options or {})
    target = store.file(bare["out"])
    receipt = target.beside(f"{target.name}.receipt.json")
    kept = receipt.text()
    if kept is not None and (names := _fitting(kept, bare, store, target)) is not None:
        return [target.beside(name).url for name in names], receipt.url, True
    if not force and target.seen() is not None:
        raise ValueError(f"{target.url} is there already and has no receipt that fits; force replaces it")
    with _folder() as folder:
        inputs = _Inputs(store, folder, max_fetch)
        (folder / "out").mkdir()
        local = {**_with_inputs(bare, inputs.here), "out": str(folder / "out" / target.name)}
        report = worker.job(local, sha256=sha256, threads=threads)
        made = json.loads(report.receipt.read_text())
        made["job"] = bare
        for entry in made["in"]:
            entry.update(inputs.told.get(entry["path"]) or store.file(entry["path"]).seen() or {})
        for path, entry in zip(report.paths, made["out"], strict=True):
            entry.update(target.beside(path.name).put(path))
        report.receipt.write_text(json.dumps(made))
        receipt.put(report.receipt)
        return [target.beside(path.name).url for path in report.paths], receipt.url, False


class _Store:
    """Finds the driver of a file."""

    def __init__(self, options: Mapping[str, Mapping[str, Any]]) -> None:
        self._options = options

    def file(self, url: str) -> "_File":
        matched = _URL.match(url)
        protocol = matched[1].lower() if matched else "file"
        options = self._options.get(protocol, {})
        if protocol in ("s3", "s3a") and importlib.util.find_spec("s3fs") is None:
            from .s3 import S3FileSystem

            return _File(url, S3FileSystem(**options), S3FileSystem._strip_protocol(url))
        import fsspec

        return _File(url, *fsspec.core.url_to_fs(url, **options))


class _File:
    """One that may lie elsewhere."""

    def __init__(self, url: str, system: Any, path: str) -> None:
        self.url, self._system, self.path = url, system, path
        self.name = PurePosixPath(path).name
        self.is_here = getattr(system, "local_file", False)

    def beside(self, name: str) -> "_File":
        return _File(self.url.removesuffix(self.name) + name, self._system, self.path.removesuffix(self.name) + name)

    def seen(self) -> dict[str, Any] | None:
        """How many bytes it has, and a key that is another one for other bytes; None where it is not there."""
        with _telling(f"{self.url} cannot be looked at"):
            self._system.invalidate_cache()
            try:
                facts = self._system.info(self.path)
                return {"bytes": facts["size"], "key": facts.get("ETag") or self._system.ukey(self.path)}
            except FileNotFoundError:
                return None

    def text(self) -> bytes | None:
        with _telling(f"{self.url} cannot be read"):
            try:
                return self._system.cat_file(self.path)
            except FileNotFoundError:
                return None

    def fetch(self, place: Path, most: float) -> int:
        """Brings it here; returns its size, in bytes, which may be `most`."""
        size = 0
        with _telling(f"{self.url} cannot be fetched"), self._system.open(self.path, "rb") as source, place.open("wb") as target:
            while piece := source.read(_PIECE):
                size += len(piece)
                _check(size, most)
                target.write(piece)
        return size

    def put(self, place: Path) -> dict[str, Any]:
        """Brings a file there; returns what is seen of it."""
        with _telling(f"{self.url} cannot be put"):
            if not self.is_here:
                self._system.put_file(str(place), self.path)
                return self.seen() or {}
            part = f"{self.path}.{uuid.uuid4().hex}.part"
            try:
                shutil.copyfile(place, part)
                os.replace(part, self.path)
            finally:
                with contextlib.suppress(FileNotFoundError):
                    os.remove(part)
            return self.seen() or {}


class _Inputs:
    """Brings the inputs of a job into a folder."""

    def __init__(self, store: _Store, folder: Path, most: int | None) -> None:
        self.told: dict[str, dict[str, Any]] = {}  # of each of their paths here
        self._store, self._folder = store, folder
        self._left = float("inf") if most is None else most

    def here(self, url: str) -> str:
        """Where it is here."""
        file = self._store.file(url)
        seen = file.seen()
        if seen is None:
            raise FileNotFoundError(errno.ENOENT, f"{url} is not there")
        place = Path(file.path)
        if not file.is_here:
            _check(seen["bytes"] or 0, self._left)
            place = self._folder / str(len(self.told)) / file.name
            place.parent.mkdir()
            size = file.fetch(place, self._left)
            if seen["bytes"] not in (size, None):
                raise Error(f"{url} has {seen['bytes']} bytes, and {size} of them came", "transfer")
            self._left -= size
        self.told[str(place)] = {"path": url, **seen}
        return str(place)


def _with_inputs(job: Mapping[str, Any], change: Callable[[Any], Any]) -> dict[str, Any]:
    """The job with each of its inputs as it is changed, those of later steps, too."""
    changed = {**job}
    if "in" in job:
        changed["in"] = [change(path) for path in job["in"]] if isinstance(job["in"], list) else change(job["in"])
    if isinstance(job.get("steps"), list):
        changed["steps"] = [_with_inputs(step, change) if isinstance(step, dict) else step for step in job["steps"]]
    return changed


def _fitting(kept: bytes, job: dict[str, Any], store: _Store, target: _File) -> list[str] | None:
    """The names of the outputs, where the receipt is for this job, and all that it tells of is as it was."""
    try:
        receipt = json.loads(kept)
        files = [(store.file(entry["path"]), entry) for entry in receipt["in"]]
        files += [(target.beside(entry["name"]), entry) for entry in receipt["out"]]
        is_same = receipt["job"] == job and all(
            file.seen() == {"bytes": entry["bytes"], "key": entry["key"]} for file, entry in files
        )
        return [entry["name"] for entry in receipt["out"]] if is_same else None
    except (KeyError, TypeError, ValueError):
        return None


def _check(size: float, most: float) -> None:
    if size > most:
        raise Error("the inputs have more bytes than max_fetch allows", "limitReached")


@contextlib.contextmanager
def _telling(what: str) -> Iterator[None]:
    """What drivers raise, of many kinds, as an `Error`."""
    try:
        yield
    except (Error, FileNotFoundError):
        raise
    except Exception as error:
        is_full = isinstance(error, OSError) and error.errno in (errno.ENOSPC, errno.EDQUOT)
        raise Error(f"{what}: {error}", "noSpace" if is_full else "transfer") from error


@contextlib.contextmanager
def _folder() -> Iterator[Path]:
    """A temporary folder. Those that killed processes have left are removed."""
    for left in Path(tempfile.gettempdir()).glob(f"{_PREFIX}*"):
        with contextlib.suppress(OSError):
            if left.lstat().st_uid == os.getuid() and time.time() - left.lstat().st_mtime > _YOUNG:
                with _locked(left):
                    shutil.rmtree(left)
    with tempfile.TemporaryDirectory(prefix=_PREFIX) as name, _locked(Path(name)):
        yield Path(name)


@contextlib.contextmanager
def _locked(folder: Path) -> Iterator[None]:
    """Fails where another process has it; the lock goes with the process."""
    descriptor = os.open(folder, os.O_RDONLY | os.O_DIRECTORY | os.O_NOFOLLOW)
    try:
        fcntl.flock(descriptor, fcntl.LOCK_EX | fcntl.LOCK_NB)
        yield
    finally:
        os.close(descriptor)
