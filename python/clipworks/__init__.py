"""Edits real phone clips, exactly and fast, and tells what they hold.

A clip is opened, goes through steps, and is saved; however many steps there are, each picture is encoded once at most:

    import clipworks

    clip = clipworks.open("clip.mp4").speed(2, 4, 2).crop((100, 100, 800, 800)).compress("720p")
    print(clip.duration, clip.save("short.mp4"))

Each operation also stands as a function that reads one clip, makes a new file and returns its path:

    looped = clipworks.loop("clip.mp4", 3, outputs="results")
    print(clipworks.info(looped)["duration"]["seconds"])

What can go wrong is raised: FileNotFoundError for a file or folder that is not there, ValueError for arguments that do
not fit the clip, and Error, with one sentence and a code, for everything else. No file is left then, and none is harmed.

Any number of operations may work at once, each in a thread of its own; they let other threads of Python run. Ctrl-C ends
an operation with KeyboardInterrupt, and an exception of a progress callback ends it with that exception.
"""

import errno
import json
import operator
import os
import sys
import warnings
from pathlib import Path
from typing import Any, Callable, Literal, NamedTuple, NoReturn, Sequence, TypedDict, Unpack

from . import _clipworks

__version__ = _clipworks.version
__all__ = [
    "Clip", "Error", "Options", "Piece", "compress", "crop", "frame", "info", "loop", "narrate", "open", "preview",
    "reverse", "rotate", "speed",
]  # fmt: skip

AnyPath = str | os.PathLike[str]
Codec = Literal["auto", "h264", "hevc"]
Format = Literal["jpg", "png", "heic"]
Preset = Literal["144p", "360p", "480p", "540p", "720p", "1080p"]
OnProgress = Callable[[float], Any]

_PREVIEW_SECONDS = 5


class Error(RuntimeError):
    """Something could not be done; the text is one sentence that says what and why.

    code: what kind of failure it was: "notReadable", "notAMovie", "unsupported", "damaged", "noPictures", "noSound",
        "tooLarge", "noEncoder", "notWritable", "noSpace", "noMemory", "limitReached", "busy", "cancelled", "internal", or one
        that `clipworks.batch` tells of.
    """

    def __init__(self, sentence: str, code: str = "internal") -> None:
        super().__init__(sentence)
        self.code = code


class Options(TypedDict, total=False):
    """The keywords that every operation takes.

    outputs: the folder for the new file, which must exist; the current one when not given.
    temp: accepted for callers of old; no intermediate files are made.
    codec: for pictures that are encoded; "auto" is HEVC where the clip is HEVC and part of it can be copied, else H.264.
    strip_metadata: whether the date, place and device of the recording, and its data tracks, are left out; they are
        kept otherwise.
    strict: whether damaged pictures of an input are an `Error`; else what could be decoded is shown, and a
        `RuntimeWarning` tells of it.
    max_pixels, max_seconds, any_codec: what of the files is let in, see `open`.
    threads: how many each encoder and decoder may have at most; when not given, as many as suit the processors that the
        process may use.
    progress: called on the calling thread with rising numbers from 0 to 1; what it raises ends the operation. The last
        call, with 1, comes when the new file is in its place.
    """

    outputs: AnyPath
    temp: AnyPath
    codec: Codec
    strip_metadata: bool
    strict: bool
    max_pixels: int
    max_seconds: float
    any_codec: bool
    threads: int
    progress: OnProgress


class Piece(NamedTuple):
    """A recording that is laid over a clip.

    audio: any audio file, or a video for its sound.
    at: where it starts, in seconds of the clip.
    volume: how loud it is; 1 leaves its level as it is, 0 is silence.
    """

    audio: AnyPath
    at: float = 0
    volume: float = 1


class Clip:
    """What a movie will be made of: a file, and the steps that it went through. Never changes; steps give new ones.

    Times of a step are seconds of what the clip shows so far, rectangles are pixels of it. Nothing is decoded or written
    before `save` or `frame`.
    """

    def __init__(self, edit: _clipworks.Edit) -> None:
        self._edit = edit

    @property
    def duration(self) -> float:
        """In seconds."""
        return self._edit.duration

    @property
    def size(self) -> tuple[float, float]:
        """Width and height of the pictures as they are seen, in pixels; zeros without pictures."""
        return self._edit.size

    def loop(self, count: int) -> "Clip":
        """Plays it `count` times in a row, from 1 to 100000. It needs pictures and sound."""
        return self._then("loop", operator.index(count))

    def speed(self, start: float, end: float, ratio: float) -> "Clip":
        """Makes the stretch from second `start` to second `end` last `ratio` times as long, its sound at the same pitch."""
        return self._then("speed", start, end, ratio)

    def reverse(self) -> "Clip":
        """Plays it backwards."""
        return self._then("reverse")

    def rotate(self, by: Literal["right", "left", "half"] = "right", *, lossless: bool = False) -> "Clip":
        """Turns the pictures; right is clockwise. `lossless` leaves them as they are coded, and has players turn them."""
        return self._then("turn_by_header" if lossless else "turn", _member(_clipworks.Turn, "by", by))

    def crop(self, rect: Sequence[float]) -> "Clip":
        """Shows `rect` of the pictures alone: left, top, width, height, in pixels as they are seen. Sides become even."""
        rect = [float(side) for side in rect]
        if len(rect) != 4:
            raise ValueError(f"rect takes four numbers, not {len(rect)}")
        return self._then("crop", rect)

    def narrate(self, pieces: Sequence[Piece], *, base_volume: float = 1) -> "Clip":
        """Lays recordings over the sound, which plays at `base_volume`."""
        pieces = [Piece(*piece) for piece in pieces]
        return self._then("narrate", [(_existing(file), at, volume) for file, at, volume in pieces], base_volume)

    def compress(self, preset: Preset | int | None = None, *, bitrate: int | None = None, max_size: int | None = None) -> "Clip":
        """Has the pictures encoded at the height of `preset`, or at as many pixels.

        `bitrate` is that of the pictures in kilobits a second, in place of the preset's; 0 is constant quality. `max_size`
        is what the file must not pass, in bytes; without a `preset` it decides on the height, too.
        """
        if preset is None:
            if max_size is None:
                raise ValueError("compress takes a preset, a max_size, or both")
            height, kilobits = 0, 0
        elif isinstance(preset, str):
            if preset not in _clipworks.presets:
                raise ValueError(f'preset takes {", ".join(_clipworks.presets)}, not "{preset}"')
            height, kilobits = _clipworks.presets[preset]
        else:
            height, kilobits = operator.index(preset), 0
        if bitrate is not None:
            kilobits = operator.index(bitrate)
            if not 0 <= kilobits <= 1_000_000:
                raise ValueError(f"bitrate takes a whole number from 0 to 1000000, not {kilobits}")
        if max_size is not None:
            if bitrate is not None:
                raise ValueError("max_size chooses the bit rate itself; it goes without bitrate")
            return self._then("compress_to", operator.index(max_size), height)
        return self._then("compress", height, kilobits)

    def trim(self, start: float, end: float) -> "Clip":
        """Keeps what lies from second `start` to second `end`."""
        return self.keep([(start, end)])

    def keep(self, parts: Sequence[tuple[float, float]]) -> "Clip":
        """Keeps several parts, each from a second to a second, one behind the other."""
        return self._then("keep", [(float(start), float(end)) for start, end in parts])

    def join(self, *others: "Clip", size: tuple[float, float] | None = None, fill: bool = False) -> "Clip":
        """Plays `others` behind it.

        Clips of another look are brought to the size of the first, or to `size`, width and height in pixels: shown whole,
        black beside, or filling it.
        """
        return self._then("join", [other._edit for other in others], size, fill)

    def plan(self, *, codec: Codec = "auto", clean: bool = False) -> dict[str, Any]:
        """What `save` would do: length, tracks with their stretches, what is copied and why not, what is left out."""
        return json.loads(_tell(self._edit.plan, _member(_clipworks.Codec, "codec", codec), clean))

    def save(
        self,
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
        """Makes the movie, and returns its path. A file of that name is an `Error` unless `overwrite` is given.

        `clean`: nothing that is not shown stays in the file; the groups of pictures that a cut goes through are encoded.
        `verify`: whether it is decoded once and compared with its plan, where a difference is an `Error`; when not given,
        where pictures are copied in pieces.
        The other keywords are those of `Options`.
        """
        existing = _clipworks.ExistingFile.replaced if overwrite else _clipworks.ExistingFile.refused
        os.stat(Path(path).parent)
        return self._make(path, existing, codec, strip_metadata, clean, verify, strict, threads, progress)

    def frame(
        self,
        at: float | str,
        path: AnyPath,
        *,
        overwrite: bool = False,
        strip_metadata: bool = False,
        strict: bool = False,
        threads: int | None = None,
    ) -> Path:
        """Saves the picture on screen at `at` as JPEG, PNG or HEIC, by the ending of `path`.

        `at` is in seconds, "HH:MM:SS.mmm", or "#N" for picture number N, the first being #0.
        """
        options = {"overwrite": overwrite, "strip_metadata": strip_metadata, "strict": strict, "threads": threads}
        return self.frames([(at, path)], **options)[0]

    def frames(
        self,
        wanted: Sequence[tuple[float | str, AnyPath]],
        *,
        overwrite: bool = False,
        strip_metadata: bool = False,
        strict: bool = False,
        threads: int | None = None,
        progress: OnProgress | None = None,
    ) -> list[Path]:
        """Saves several pictures, each with its time and its path as `frame` takes them, all of one format.

        Far cheaper than one at a time: pictures that lie close together are decoded once.
        """
        existing = _clipworks.ExistingFile.replaced if overwrite else _clipworks.ExistingFile.refused
        formats = {_format(path) for _, path in wanted}
        if len(formats) != 1:
            raise ValueError("frames takes one picture at least, and the same ending for all")
        return self._take(wanted, formats.pop(), existing, strip_metadata, strict, threads, progress)

    def json(self) -> str:
        """All of it as one line of text, for another process on this machine or for later; see `from_json`."""
        return self._edit.json()

    @staticmethod
    def from_json(text: str) -> "Clip":
        """The clip that `json` wrote. Its files must be as they were then."""
        return Clip(_tell(_clipworks.Edit.from_json, text))

    def __eq__(self, other: object) -> bool:
        return self._edit == other._edit if isinstance(other, Clip) else NotImplemented

    __hash__ = None

    def __reduce__(self) -> tuple[Any, ...]:
        return Clip.from_json, (self.json(),)

    def _then(self, step: str, *arguments: Any) -> "Clip":
        return Clip(_tell(getattr(self._edit, step), *arguments))

    def _make(
        self, path, existing, codec="auto", strip_metadata=False, clean=False, verify=None, strict=False, threads=None,
        progress=None,
    ) -> Path:  # fmt: skip
        codec = _member(_clipworks.Codec, "codec", codec)
        options = (codec, not strip_metadata, clean, verify, strict, _threads(threads))
        made = _tell(_clipworks.make_movie, self._edit, _path(path), existing, *options, progress)
        return _warned(*made)[0]

    def _take(self, wanted, format, existing, strip_metadata, strict, threads, progress) -> list[Path]:
        wanted = [(at if isinstance(at, str) else float(at), _path(path)) for at, path in wanted]
        options = (existing, not strip_metadata, strict, _threads(threads))
        made = _tell(_clipworks.take_pictures, self._edit, wanted, format, *options, progress)
        return _warned(*made)


def open(
    file: AnyPath, *, max_pixels: int | None = None, max_seconds: float | None = None, any_codec: bool = False
) -> Clip:
    """A clip of all of a file: its first track of pictures and its first of sound. Reads its headers only.

    `max_pixels`, width times height, and `max_seconds` are what a file may have at most, else it is an `Error`, whose
    code is "limitReached". Only those codecs are decoded that telephones, cameras and screen recorders use, unless
    `any_codec` is given. All of it holds for recordings that are laid over the clip, too.
    """
    return _opened(file, {"max_pixels": max_pixels, "max_seconds": max_seconds, "any_codec": any_codec})


def loop(file: AnyPath, count: int, **options: Unpack[Options]) -> Path:
    """Plays the clip `count` times in a row, from 1 to 100000. It needs pictures and sound."""
    return _save(_opened(file, options).loop(count), file, "looped", options)


def speed(
    file: AnyPath,
    start: float,
    end: float,
    ratio: float,
    *,
    quality: Literal["low", "high"] = "high",
    name: str | None = None,
    **options: Unpack[Options],
) -> Path:
    """Makes the stretch from second `start` to second `end` last `ratio` times as long, its sound at the same pitch.

    2 is half the speed, 0.5 double the speed. `name` is the new file's, without ".mp4".
    """
    clip = _opened(file, options).speed(start, end, ratio)
    if _choice("quality", quality, "low", "high") == "low":
        clip = Clip(clip._edit.small())
    return _save(clip, file, "retimed", options, name)


def compress(file: AnyPath, preset: Preset, *, bitrate: int | None = None, **options: Unpack[Options]) -> Path:
    """Encodes the clip anew at the preset's height, as H.264 and AAC.

    `bitrate` is that of the pictures in kilobits a second, in place of the preset's; 0 is constant quality.
    """
    return _save(_opened(file, options).compress(preset, bitrate=bitrate), file, "compressed", options)


def preview(file: AnyPath, preset: Preset, *, bitrate: int | None = None, **options: Unpack[Options]) -> Path:
    """Does with the first five seconds what `compress` does with the whole clip, to judge a preset."""
    clip = _opened(file, options).trim(0, _PREVIEW_SECONDS).compress(preset, bitrate=bitrate)
    return _save(clip, file, "preview", options)


def reverse(
    file: AnyPath,
    *,
    part: Literal["both", "video", "audio"] = "both",
    name: str | None = None,
    **options: Unpack[Options],
) -> Path:
    """Plays the clip backwards, pictures and sound; or one of them alone, as .mov or .m4a.

    `name` is the new file's, without its ending; "reversed_video" and "reversed_audio" for the parts when not given.
    """
    _choice("part", part, "both", "video", "audio")
    edit = _opened(file, options, whole_tracks=True)._edit
    for track, code, has, alone in (
        ("video", "noPictures", edit.has_pictures, "audio"),
        ("sound", "noSound", edit.has_sound, "video"),
    ):
        if part != alone and not has:
            raise Error(f'{edit.name} has no {track} track; reversing needs one, unless part="{alone}" is given', code)
    if part != "both":
        name = name if name is not None else f"reversed_{part}"
        edit = _tell(edit.pictures_only if part == "video" else edit.sound_only)
    ending = {"both": ".mp4", "video": ".mov", "audio": ".m4a"}[part]
    return _save(Clip(edit).reverse(), file, "reversed", options, name, ending)


def rotate(file: AnyPath, *, by: Literal["right", "left", "half"] = "right", **options: Unpack[Options]) -> Path:
    """Turns the clip; right is clockwise."""
    return _save(_opened(file, options).rotate(by), file, "turned", options)


def crop(file: AnyPath, rect: Sequence[float], **options: Unpack[Options]) -> Path:
    """Cuts `rect` out of the pictures: left, top, width, height, in pixels as they are seen."""
    return _save(_opened(file, options).crop(rect), file, "cropped", options)


def frame(
    file: AnyPath,
    at: float | str,
    *,
    format: Format = "jpg",
    name: str | None = None,
    **options: Unpack[Options],
) -> Path:
    """Saves the picture on screen at a time: seconds, "HH:MM:SS.mmm", or "#N" for picture number N, the first being #0.

    `name` is the new file's, without its ending.
    """
    clip = _opened(file, options)
    kind = _member(_clipworks.StillFormat, "format", format)
    options, path, existing = _place(options, file, "frame", name, f".{format}")
    options.pop("codec", None)
    options = {"strip_metadata": False, "strict": False, "threads": None, "progress": None, **options}
    return clip._take([(at, path)], kind, existing, **options)[0]


def narrate(
    file: AnyPath,
    pieces: Sequence[Piece],
    *,
    base_volume: float = 1,
    quality: Literal["low", "highCompressed", "highLossless"] = "highCompressed",
    **options: Unpack[Options],
) -> Path:
    """Lays recordings over the clip's own sound, which plays at `base_volume`.

    "low" makes small pictures; "highLossless" keeps the clip's own coded ones.
    """
    clip = _opened(file, options).narrate(pieces, base_volume=base_volume)
    if _choice("quality", quality, "low", "highCompressed", "highLossless") == "low":
        clip = Clip(clip._edit.small())
    elif quality == "highLossless":
        clip = Clip(clip._edit.keeping_coded_pictures())
    return _save(clip, file, "narrated", options)


def info(
    file: AnyPath, *, max_pixels: int | None = None, max_seconds: float | None = None, any_codec: bool = False
) -> dict[str, Any]:
    """Tells what a file holds: `duration`, `tracks` with their `segments`, `metadata`; lengths in seconds too.

    The keywords are those of `open`; a track that would not be decoded is told of all the same.
    """
    limits = {"max_pixels": max_pixels, "max_seconds": max_seconds, "any_codec": any_codec}
    return json.loads(_tell(_clipworks.describe, _existing(file), _limits(limits)))


def _opened(file: AnyPath, options: dict[str, Any], whole_tracks: bool = False) -> Clip:
    return Clip(_tell(_clipworks.Edit.open, _existing(file), whole_tracks, _limits(options)))


def _limits(options: dict[str, Any]) -> Any:
    pixels, seconds = options.get("max_pixels"), options.get("max_seconds")
    if pixels is not None and operator.index(pixels) < 1:
        raise ValueError(f"max_pixels takes a whole number from 1 on, not {pixels}")
    if seconds is not None and not float(seconds) > 0:
        raise ValueError(f"max_seconds takes seconds, more than 0, not {seconds}")
    return _clipworks.InputLimits(pixels, seconds, bool(options.get("any_codec", False)))


def _threads(threads: int | None) -> int:
    if threads is not None and not 1 <= operator.index(threads) <= 1024:
        raise ValueError(f"threads takes a whole number from 1 to 1024, not {threads}")
    return threads or 0


def _save(clip: Clip, file: AnyPath, done: str, options: Options, name: str | None = None, ending: str = ".mp4") -> Path:
    options, path, existing = _place(options, file, done, name, ending)
    return clip._make(path, existing, **options)


def _place(options: Options, file: AnyPath, done: str, name: str | None, ending: str):
    """The options without folders, where the new file goes, and what becomes of a file that is there."""
    options = dict(options)
    unknown = options.keys() - Options.__annotations__.keys()
    if unknown:
        raise TypeError(f"got an unexpected keyword argument {min(unknown)!r}")
    for taken in ("temp", "max_pixels", "max_seconds", "any_codec"):
        options.pop(taken, None)
    folder = Path(_existing(options.pop("outputs", os.curdir)))
    if name is None:
        return options, folder / f"{Path(file).stem}-{done}{ending}", _clipworks.ExistingFile.numbered
    if not name or "/" in name:
        raise ValueError("name must not be empty" if not name else f'name takes a name without a folder, not "{name}"')
    return options, folder / f"{name}{ending}", _clipworks.ExistingFile.replaced


def _existing(path: AnyPath) -> str:
    os.stat(path)
    return _path(path)


def _path(path: AnyPath) -> str:
    text = os.fsdecode(path)
    if "\0" in text:
        raise ValueError("embedded null character")
    return text


def _choice(name: str, value: str, *words: str) -> str:
    if value not in words:
        raise ValueError(f'{name} takes {", ".join(words[:-1])} or {words[-1]}, not "{value}"')
    return value


def _member(enumeration: Any, name: str, word: str) -> Any:
    return enumeration.__members__[_choice(name, word, *enumeration.__members__)]


def _format(path: AnyPath) -> Any:
    ending = Path(path).suffix.removeprefix(".").lower().replace("jpeg", "jpg")
    return _member(_clipworks.StillFormat, "the ending", ending)


def _warned(paths: list[Path], sentences: list[str]) -> list[Path]:
    """The paths, after warnings where this package was called."""
    level, frame = 1, sys._getframe()
    while frame.f_back is not None and frame.f_globals is globals():
        level, frame = level + 1, frame.f_back
    for sentence in sentences:
        warnings.warn(sentence, RuntimeWarning, stacklevel=level)
    return paths


def _tell(call: Callable[..., Any], *arguments: Any) -> Any:
    """What the core raises, as this package does."""
    try:
        return call(*arguments)
    except _clipworks.Failed as failed:
        code, sentence = failed.args
    _raise(sentence, code)


def _raise(sentence: str, code: str) -> NoReturn:
    if code == "badArgument":
        raise ValueError(sentence)
    if code == "notFound":
        raise FileNotFoundError(errno.ENOENT, sentence)
    raise Error(sentence, code)
