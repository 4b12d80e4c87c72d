#!/usr/bin/env python3
"""Walks over the boxes of what the program writes and adds them up; by this code and ffprobe alone.

boxes_add_up.py PROGRAM

Makes clips with ffmpeg, edits them with PROGRAM and says of each output what is wrong: lengths of samples against that of
the media, edits against the track's and the movie's, time scales, offsets, which pictures are shown, and rates.
"""
import json
import os
import struct
import subprocess
import sys
import tempfile


def run(*command):
    done = subprocess.run([str(word) for word in command], capture_output=True, text=True)
    if done.returncode != 0:
        raise RuntimeError(f"{' '.join(map(str, command))}: {done.stderr.strip()[-400:]}")
    return done.stdout


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
    wide = data[0] == 1
    at = 4 + (16 if wide else 8)
    scale = 0 if between else struct.unpack(">I", data[at:at + 4])[0]
    at += between or 4
    return scale, struct.unpack(">Q" if wide else ">I", data[at:at + (8 if wide else 4)])[0]


def runs(data, value):
    """The values of stts or ctts, one for each sample."""
    count = struct.unpack(">I", data[4:8])[0] if data else 0
    pairs = struct.iter_unpack(">I" + value, data[8:8 + 8 * count])
    return [number for times, number in pairs for _ in range(times)]


class Track:
    """The first track of pictures of a file."""

    def __init__(self, path):
        with open(path, "rb") as file:
            movie = box(file.read(), "moov")
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
    shown = track.shown()
    told = json.loads(run("ffprobe", "-v", "error", "-select_streams", "v:0", "-show_entries",
                          "stream=avg_frame_rate,r_frame_rate,nb_frames,codec_name,has_b_frames", "-of", "json",
                          path))["streams"][0]
    ratio = lambda text: float(text.split("/")[0]) / float(text.split("/")[1])
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
        f"until {wanted['until']} s, not {track.length / track.movie_scale:.4f}":
            abs(track.length / track.movie_scale - wanted["until"]) < 0.0005,
        "decoding starts at most three pictures ahead":
            track.presentation[0] - track.decode[0] <= 3.1 * track.scale / 30,
        f"{wanted['rate']} pictures a second, not {told['avg_frame_rate']}":
            abs(ratio(told["avg_frame_rate"]) / wanted["rate"] - 1) < 0.0005,
    }
    if told["codec_name"] == "h264":
        trace = subprocess.run(["ffmpeg", "-hide_banner", "-i", path, "-c:v", "copy", "-bsf:v", "trace_headers", "-frames:v", "1",
                                "-f", "null", "-"], capture_output=True, text=True).stderr
        number = lambda name: next((int(l.split("=")[-1]) for l in trace.splitlines() if f" {name} " in l), None)
        tick, scale = number("num_units_in_tick"), number("time_scale")
        stream = scale / tick / 2 if tick else None
        checks[f"the stream says {wanted['stream']} pictures a second, not {stream}"] = \
            stream is None or abs(stream / wanted["stream"] - 1) < 0.01
    return [check for check, holds in checks.items() if not holds]


def trim_edit(source, target, seconds):
    """A copy of a file whose pictures start late, with their edit beginning later in the media by whole seconds."""
    track = Track(source)
    (empty, _), (length, start) = track.edits
    entry = lambda time, media: struct.pack(">iihhii", empty, -1, 1, 0, time, media)
    with open(source, "rb") as file:
        data = file.read()
    assert data.count(entry(length, start)) == 1
    with open(target, "wb") as file:
        file.write(data.replace(entry(length, start),
                                entry(length - seconds * track.movie_scale, start + seconds * track.scale)))
    return target


def shorten_edit(source, target, seconds):
    """A copy of a file whose pictures' edit, and any like it, ends at `seconds`."""
    track = Track(source)
    ((length, start),) = track.edits
    with open(source, "rb") as file:
        data = file.read()
    with open(target, "wb") as file:
        file.write(data.replace(struct.pack(">ii", length, start), struct.pack(">ii", round(seconds * track.movie_scale), start)))
    return target


def shorten_movie(source, target, seconds):
    """A copy of a file whose movie header says `seconds`."""
    track = Track(source)
    with open(source, "rb") as file:
        data = file.read()
    length = lambda value: struct.pack(">II", track.movie_scale, value)
    with open(target, "wb") as file:
        file.write(data.replace(length(track.movie_length), length(round(seconds * track.movie_scale)), 1))
    return target


def make_clips(folder):
    """30 pictures a second, groups of 60 with B pictures; the name tells what is special."""
    make = lambda name, *arguments: run("ffmpeg", "-v", "error", "-y", *arguments, os.path.join(folder, name)) or os.path.join(folder, name)
    plain = make("plain.mp4", "-f", "lavfi", "-i", "testsrc2=size=320x180:rate=30:duration=4", "-f", "lavfi", "-i",
                 "sine=sample_rate=44100:duration=4", "-c:v", "libx264", "-preset", "veryfast", "-bf", "2", "-g", "60",
                 "-sc_threshold", "0", "-c:a", "aac")
    late = make("late.mp4", "-i", plain, "-itsoffset", "0.5", "-i", plain, "-map", "0:a", "-map", "1:v", "-c", "copy")
    trimmed = make("trimmed.mp4", "-ss", "1", "-i", plain, "-c", "copy")
    uncut = make("uncut.mp4", "-i", plain, "-c", "copy", "-use_editlist", "0")
    return {"plain": plain, "late": late, "trimmed": trimmed,
            "without edits": shorten_movie(uncut, os.path.join(folder, "without_edits.mp4"), 4),
            "late and trimmed": trim_edit(late, os.path.join(folder, "late_trimmed.mp4"), 1),
            "cut": shorten_edit(plain, os.path.join(folder, "cut.mp4"), 2.4),
            "piece": make("piece.m4a", "-f", "lavfi", "-i", "sine=frequency=700:duration=1", "-c:a", "aac")}


def cases(clips):
    """Words of the program; pictures shown, samples, from, until, rate by the index and by the stream."""
    narrate = ("--piece", f"{clips['piece']}@0.5:0.8")
    return {
        "loop, copied": (["loop", clips["plain"], "--count", 3], 360, 360, 0, 12, 30, 30),
        "loop, encoded": (["loop", clips["trimmed"], "--count", 2], 180, 180, 0, 6, 30, 30),
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
        "narration over a clip without edits":
            (["narrate", clips["without edits"], *narrate], 118, 118, 1 / 15, 4, 30, 30),
        "compression of a clip without edits":
            (["compress", clips["without edits"], "--preset", "360p"], 118, 118, 1 / 15, 4, 30, 30),
        "reversal": (["reverse", clips["plain"]], 120, 120, 0, 4, 30, 30),
    }


def main():
    program = sys.argv[1]
    wrong = 0
    with tempfile.TemporaryDirectory() as folder:
        clips = make_clips(folder)
        for name, (words, *wanted) in cases(clips).items():
            out = os.path.join(folder, name.replace(" ", "_").replace(",", ""))
            os.mkdir(out)
            path = run(program, "--outputs", out, "--temp", out, *words).strip().splitlines()[-1]
            found = faults(path, dict(zip(("shown", "samples", "from", "until", "rate", "stream"), wanted)))
            wrong += bool(found)
            print(f"{'FAIL' if found else 'ok'}  {name}" + "".join(f"\n      not so: {fault}" for fault in found))
    sys.exit(wrong != 0)


if __name__ == "__main__":
    main()
