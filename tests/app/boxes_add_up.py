#!/usr/bin/env python3
"""Walks over the boxes of what the program writes and adds them up; by this code and ffprobe alone.

boxes_add_up.py PROGRAM

Makes clips with ffmpeg, edits them with PROGRAM and says of each output what is wrong: lengths of samples against that of
the media, edits against the track's and the movie's, time scales, offsets, which pictures are shown, and rates.
"""
import json
import os
import re
import struct
import subprocess
import sys
import tempfile
from fractions import Fraction
from pathlib import Path


def run(*command):
    return subprocess.run([str(word) for word in command], check=True, stdout=subprocess.PIPE, text=True).stdout


def boxes(data):
    at = 0
    while at + 8 <= len(data):
        size, kind = struct.unpack(">I4s", data[at:at + 8])
        head = 8
        if size == 1:
            size, head = struct.unpack(">Q", data[at + 8:at + 16])[0], 16
        yield kind.decode("latin1"), data[at + head:at + size]
        at += size


def box(data, *path):
    for kind in path:
        data = next((content for name, content in boxes(data) if name == kind), b"")
    return data


def header(data, between):
    """Time scale and duration of mvhd and mdhd (between = 0), or 0 and the duration of tkhd (8)."""
    at, length = (20, ">Q") if data[0] == 1 else (12, ">I")
    return 0 if between else struct.unpack_from(">I", data, at)[0], struct.unpack_from(length, data, at + (between or 4))[0]


def runs(data, value):
    """The values of stts or ctts, one for each sample."""
    return [number for times, number in struct.iter_unpack(">I" + value, data[8:]) for _ in range(times)]


class Track:
    """The first track of pictures of a file."""

    def __init__(self, path):
        movie = box(Path(path).read_bytes(), "moov")
        self.movie_scale, self.movie_length = header(box(movie, "mvhd"), 0)
        tracks = [content for kind, content in boxes(movie) if kind == "trak"]
        self.lengths = [header(box(track, "tkhd"), 8)[1] for track in tracks]
        track = next(t for t in tracks if box(t, "mdia", "hdlr")[8:12] == b"vide")
        self.length = header(box(track, "tkhd"), 8)[1]
        self.scale, self.media_length = header(box(track, "mdia", "mdhd"), 0)
        samples = box(track, "mdia", "minf", "stbl")
        self.deltas = runs(box(samples, "stts"), "I")
        self.offsets = runs(box(samples, "ctts"), "i") or [0] * len(self.deltas)
        self.count = struct.unpack(">I", box(samples, "stsz")[8:12])[0]
        edits = box(track, "edts", "elst") or bytes(8)
        row = ">qqhh" if edits[0] == 1 else ">iihh"
        self.edits = [struct.unpack_from(row, edits, 8 + i * struct.calcsize(row))[:2]
                      for i in range(struct.unpack(">I", edits[4:8])[0])]
        self.decode = [sum(self.deltas[:i]) for i in range(len(self.deltas))]
        self.presentation = sorted(d + o for d, o in zip(self.decode, self.offsets))

    def shown(self):
        """When each picture comes on screen, in seconds."""
        length, start = self.edits[-1]
        late = sum(empty for empty, _ in self.edits[:-1]) / self.movie_scale
        end = start + length * self.scale / self.movie_scale
        return [late + (time - start) / self.scale for time in self.presentation if start <= time < end]


def faults(path, wanted):
    track = Track(path)
    media, start = track.edits[-1]
    late = [length for length, _ in track.edits[:-1]]
    shown, until = track.shown(), track.length / track.movie_scale
    told = json.loads(run("ffprobe", "-v", "error", "-select_streams", "v:0", "-show_streams", "-of", "json", path))["streams"][0]
    rate = float(Fraction(told["avg_frame_rate"]))
    checks = {
        "lengths of samples add up to that of the media": sum(track.deltas) == track.media_length,
        "every sample has a length": min(track.deltas) > 0 and len(track.deltas) == track.count == len(track.offsets),
        "no picture is shown before it is decoded": min(track.offsets) >= 0,
        "no two pictures are shown at once": len(set(track.presentation)) == len(track.presentation),
        "edits add up to the track's length": media + sum(late) == track.length,
        "the movie is as long as its longest track": track.movie_length == max(track.lengths),
        "an empty edit only before the first picture": all(time == -1 for _, time in track.edits[:-1]) and len(late) < 2,
        "what starts late counts in the movie's scale": not late or track.scale == track.movie_scale,
        "a picture is shown where the edit begins": start in track.presentation,
        f"{wanted['shown']} pictures are shown, not {len(shown)}": len(shown) == wanted["shown"],
        f"{wanted['samples']} samples, not {track.count}": track.count == wanted["samples"],
        f"shown from {wanted['from']} s on, not {shown[0]:.4f}": abs(shown[0] - wanted["from"]) < 0.0005,
        f"until {wanted['until']} s, not {until:.4f}": abs(until - wanted["until"]) < 0.0005,
        "decoding starts at most three pictures ahead": track.presentation[0] - track.decode[0] <= 3.1 * track.scale / 30,
        f"{wanted['rate']} pictures a second, not {rate}": abs(rate / wanted["rate"] - 1) < 0.0005,
    }
    if told["codec_name"] == "h264":
        trace = subprocess.run(["ffmpeg", "-hide_banner", "-i", path, "-c:v", "copy", "-bsf:v", "trace_headers", "-frames:v", "1",
                                "-f", "null", "-"], capture_output=True, text=True).stderr
        tick, scale = (re.search(rf" {name} .*=\s*(\d+)", trace) for name in ("num_units_in_tick", "time_scale"))
        stream = int(scale[1]) / int(tick[1]) / 2 if tick else None
        checks[f"the stream says {wanted['stream']} pictures a second, not {stream}"] = \
            stream is None or abs(stream / wanted["stream"] - 1) < 0.01
    return [check for check, holds in checks.items() if not holds]


def patched(source, target, change, most=-1):
    """A copy of a file with other bytes in place of some: `change` gives both of its track."""
    old, new = change(Track(source))
    data = Path(source).read_bytes()
    assert old in data
    Path(target).write_bytes(data.replace(old, new, most))
    return target


def make_clips(folder):
    """30 pictures a second, groups of 60 with B pictures; the name tells what is special."""
    path = lambda name: os.path.join(folder, name)
    make = lambda name, *arguments: run("ffmpeg", "-v", "error", "-y", *arguments, path(name)) or path(name)
    plain = make("plain.mp4", "-f", "lavfi", "-i", "testsrc2=size=320x180:rate=30:duration=4", "-f", "lavfi", "-i",
                 "sine=sample_rate=44100:duration=4", "-c:v", "libx264", "-preset", "veryfast", "-bf", "2", "-g", "60",
                 "-sc_threshold", "0", "-c:a", "aac")
    late = make("late.mp4", "-i", plain, "-itsoffset", "0.5", "-i", plain, "-map", "0:a", "-map", "1:v", "-c", "copy")
    trimmed = make("trimmed.mp4", "-ss", "1", "-i", plain, "-c", "copy")
    uncut = make("uncut.mp4", "-i", plain, "-c", "copy", "-use_editlist", "0")
    # The movie's header says 4 s; an edit behind an empty one begins a second later in the media; an edit ends at 2.4 s.
    whole = lambda track: [struct.pack(">II", track.movie_scale, length) for length in (track.movie_length, 4 * track.movie_scale)]
    trim = lambda track: [struct.pack(">iihhii", track.edits[0][0], -1, 1, 0, track.edits[1][0] - seconds * track.movie_scale,
                                      track.edits[1][1] + seconds * track.scale) for seconds in (0, 1)]
    cut = lambda track: [struct.pack(">ii", length, track.edits[0][1]) for length in (track.edits[0][0], round(2.4 * track.movie_scale))]
    return {"plain": plain, "late": late, "trimmed": trimmed,
            "without edits": patched(uncut, path("without_edits.mp4"), whole, 1),
            "late and trimmed": patched(late, path("late_trimmed.mp4"), trim),
            "cut": patched(plain, path("cut.mp4"), cut),
            "piece": make("piece.m4a", "-f", "lavfi", "-i", "sine=frequency=700:duration=1", "-c:a", "aac")}


def cases(clips):
    """Words of the program; pictures shown, samples, from, until, rate by the index and by the stream."""
    narrate = ("--piece", f"{clips['piece']}@0.5:0.8")
    return {
        "loop, copied": (["loop", clips["plain"], "--count", 3], 360, 360, 0, 12, 30, 30),
        "loop, its first group encoded": (["loop", clips["trimmed"], "--count", 2], 180, 180, 0, 6, 30, 30),
        "loop of a late start": (["loop", clips["late"], "--count", 2], 240, 240, 0.5, 9, 240 / 8.5, 30),
        "speed": (["speed", clips["plain"], "--from", 1, "--to", 3.5, "--ratio", 4], 120, 120, 0, 11.5, 120 / 11.5, 30),
        "speed from a trimmed start": (["speed", clips["trimmed"], "--from", 1.5, "--to", 2.5, "--ratio", 2], 90, 120, 0, 4, 30, 30),
        "narration": (["narrate", clips["plain"], *narrate], 120, 120, 0, 4, 30, 30),
        "narration over a trimmed start": (["narrate", clips["trimmed"], *narrate], 90, 120, 0, 3, 40, 30),
        "narration over a late, trimmed start": (["narrate", clips["late and trimmed"], *narrate], 90, 120, 0.5, 4.5, 30, 30),
        "narration over a cut end": (["narrate", clips["cut"], *narrate], 72, 73, 0, 4, 73 / 4, 30),
        "crop": (["crop", clips["plain"], "--rect", "0,0,160,180"], 120, 120, 0, 4, 30, 30),
        "compression": (["compress", clips["plain"], "--preset", "360p"], 120, 120, 0, 4, 30, 30),
        "compression of a late start": (["compress", clips["late"], "--preset", "360p"], 120, 120, 0.5, 4.5, 30, 30),
        "narration over a clip without edits": (["narrate", clips["without edits"], *narrate], 118, 118, 1 / 15, 4, 30, 30),
        "compression of a clip without edits": (["compress", clips["without edits"], "--preset", "360p"], 118, 118, 1 / 15, 4, 30, 30),
        "reversal": (["reverse", clips["plain"]], 120, 120, 0, 4, 30, 30),
    }


def main(program):
    wrong = 0
    with tempfile.TemporaryDirectory() as folder:
        clips = make_clips(folder)
        for name, (words, *wanted) in cases(clips).items():
            out = tempfile.mkdtemp(dir=folder)
            path = run(program, "--outputs", out, "--temp", out, *words).strip().splitlines()[-1]
            found = faults(path, dict(zip(("shown", "samples", "from", "until", "rate", "stream"), wanted)))
            wrong += bool(found)
            print(f"{'FAIL' if found else 'ok'}  {name}" + "".join(f"\n      not so: {fault}" for fault in found))
    sys.exit(wrong != 0)


if __name__ == "__main__":
    main(sys.argv[1])
