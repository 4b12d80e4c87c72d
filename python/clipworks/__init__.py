"""Edits real phone clips, exactly and fast, and tells what they hold.

Each operation reads one clip, makes a new file and returns its path:

    import clipworks

    looped = clipworks.loop("clip.mp4", 3, outputs="results")
    print(clipworks.info(looped)["duration"]["seconds"])

What can go wrong is raised: FileNotFoundError for a file or folder that is not there, ValueError for arguments that do
not fit the clip, and Error, with one sentence, for everything else. No file is left then, and none is harmed.

Operations run one after the other, whatever threads call them, and let other threads of Python run meanwhile. To work
on several clips at once, use processes (multiprocessing with "spawn", or concurrent.futures with that context); one that
is forked after its parent has used this package raises Error.

Ctrl-C ends an operation with KeyboardInterrupt, and an exception of a progress callback ends it with that exception.
Work that cannot be cut short, such as the search for one picture, is waited for.
"""

import json
import operator
import os
import re
import warnings
from pathlib import Path
from typing import Any, Callable, Literal, NamedTuple, Sequence, TypedDict, Unpack

from . import _clipworks

__version__ = _clipworks.version
__all__ = [
    "Error", "Options", "Piece", "compress", "crop", "frame", "info", "loop", "narrate", "preview", "reverse", "rotate",
    "speed",
]  # fmt: skip

AnyPath = str | os.PathLike[str]
Preset = Literal["144p", "360p", "480p", "540p", "720p", "1080p"]


class Error(RuntimeError):
    """An operation failed; its text is one sentence that says what and why."""


class Options(TypedDict, total=False):
    """The keywords that every operation takes.

    outputs: the folder for the new file, which must exist; the current one when not given.
    temp: the folder for intermediate files; a hidden one beside the result when not given, gone at the end.
    codec: for pictures that are encoded; "auto" is HEVC where the clip is HEVC, else H.264. `rotate` and `crop` choose
        HEVC only when told to; `compress`, `preview`, `reverse` and low qualities are always H.264.
    strip_metadata: whether the date, place and device of the recording are left out; they are kept otherwise.
    strict: whether damaged pictures of an input are an `Error`; else what could be decoded is shown, and a
        `RuntimeWarning` tells of it.
    progress: called on the calling thread with rising numbers from 0 to 1; what it raises ends the operation. The last
        call, with 1, comes when the new file is in its place.
    """

    outputs: AnyPath
    temp: AnyPath
    codec: Literal["auto", "h264", "hevc"]
    strip_metadata: bool
    strict: bool
    progress: Callable[[float], Any]


class Piece(NamedTuple):
    """A recording that `narrate` lays over a clip.

    audio: any audio file, or a video for its sound.
    at: where it starts, in seconds of the clip.
    volume: how loud it is; 1 leaves its level as it is, 0 is silence.
    """

    audio: AnyPath
    at: float = 0
    volume: float = 1


def loop(file: AnyPath, count: int, **options: Unpack[Options]) -> Path:
    """Plays the clip `count` times in a row, from 1 to 100000. It needs pictures and sound."""
    return _make("loop", file, {"count": count}, options)


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
    arguments = {"from": start, "to": end, "ratio": ratio, "quality": quality, "name": name}
    return _make("speed", file, arguments, options)


def compress(file: AnyPath, preset: Preset, *, bitrate: int | None = None, **options: Unpack[Options]) -> Path:
    """Encodes the clip anew at the preset's height, as H.264 and AAC.

    `bitrate` is that of the pictures in kilobits a second, in place of the preset's; 0 is constant quality.
    """
    return _make("compress", file, {"preset": preset, "bitrate": bitrate}, options)


def preview(file: AnyPath, preset: Preset, *, bitrate: int | None = None, **options: Unpack[Options]) -> Path:
    """Does with the first five seconds what `compress` does with the whole clip, to judge a preset."""
    return _make("preview", file, {"preset": preset, "bitrate": bitrate}, options)


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
    if part not in ("both", "video", "audio"):
        raise ValueError(f'part takes both, video or audio, not "{part}"')
    return _make("reverse", file, {"name": name, "video-only": part == "video", "audio-only": part == "audio"}, options)


def rotate(file: AnyPath, **options: Unpack[Options]) -> Path:
    """Turns the clip by a quarter turn, counterclockwise; one held upright in portrait turns clockwise."""
    return _make("rotate", file, {}, options)


def crop(file: AnyPath, rect: Sequence[float], **options: Unpack[Options]) -> Path:
    """Cuts `rect` out of the pictures: left, top, width, height.

    In a portrait clip the rectangle's width stands for the whole width, in any other its height for the whole height;
    with the clip's own size in pixels, units are pixels.
    """
    return _make("crop", file, {"rect": ",".join(map(_number, rect))}, options)


def frame(
    file: AnyPath,
    at: float | str,
    *,
    format: Literal["jpg", "png", "heic"] = "jpg",
    name: str | None = None,
    **options: Unpack[Options],
) -> Path:
    """Saves the picture on screen at a time: seconds, "HH:MM:SS.mmm", or "#N" for picture number N, the first being #0.

    `name` is the new file's, without its ending.
    """
    place = at if isinstance(at, str) else f"{at:.9f}"
    return _make("frame", file, {"at": place, "format": format, "name": name}, options)


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
    pieces = [Piece(*piece) for piece in pieces]
    for piece in pieces:
        os.stat(piece.audio)
    texts = [f"{os.fspath(piece.audio)}@{_number(piece.at)}:{_number(piece.volume)}" for piece in pieces]
    return _make("narrate", file, {"piece": texts, "base-volume": base_volume, "quality": quality}, options)


def info(file: AnyPath) -> dict[str, Any]:
    """Tells what a file holds: `duration`, `tracks` with their `segments`, `metadata`; lengths in seconds too."""
    os.stat(file)
    ran = _run(["--json", "info", "--", os.fspath(file)], None)
    return json.loads(ran.text)["files"][0]


def _make(command: str, file: AnyPath, arguments: dict[str, Any], options: Options) -> Path:
    options = {"outputs": os.curdir, **options}
    progress = options.pop("progress", None)
    unknown = options.keys() - Options.__annotations__.keys()
    if unknown:
        raise TypeError(f"{command}() got an unexpected keyword argument {min(unknown)!r}")
    for path in (file, options["outputs"], options.get("temp")):
        if path is not None:
            os.stat(path)
    ran = _run([command, *_words(options), *_words(arguments), "--", os.fspath(file)], progress)
    for sentence in ran.warnings:
        warnings.warn(sentence.decode(errors="replace"), RuntimeWarning, stacklevel=3)
    return Path(os.fsdecode(ran.outputs[0]))


def _words(arguments: dict[str, Any]) -> list[str]:
    """The program's own words for them."""
    words = []
    for name, value in arguments.items():
        option = "--" + name.replace("_", "-")
        if value is True:
            words.append(option)
        elif value is not None and value is not False:
            for text in map(_number, value if isinstance(value, list) else [value]):
                # Each of the two forms has texts that only the other one can tell: an empty one, and one with a dash.
                words += [f"{option}={text}"] if text else [option, text]
    return words


def _number(value: Any) -> str:
    """Numbers of any library as plain ones, with all their digits; other values as they are."""
    if isinstance(value, (str, os.PathLike)):
        return os.fspath(value)
    try:
        return str(operator.index(value))
    except TypeError:
        return repr(float(value))


# What the program's sentences call arguments that have another name here.
_NAMES = {"--from": "start", "--to": "end", "--video-only": 'part="video"', "--audio-only": 'part="audio"'}


def _run(words: list[str], progress: Callable[[float], Any] | None) -> _clipworks.Ran:
    if any("\0" in word for word in words):
        raise ValueError("embedded null character")
    ran = _clipworks.run([os.fsencode(word) for word in words], progress)
    if ran.code == _clipworks.ExitCode.done:
        return ran
    sentence = re.sub('; "clipworks [a-z ]*--help" tells more$', "", ran.sentence.decode(errors="replace"))
    if ran.code != _clipworks.ExitCode.wrong_use:
        raise Error(sentence)
    raise ValueError(" ".join(_NAMES.get(word, word) for word in sentence.split(" ")).replace(" --", " ").removeprefix("--"))
