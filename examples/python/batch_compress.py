#!/usr/bin/env python3
"""Compresses every clip of a folder to 480p: batch_compress.py CLIPS RESULTS"""

import sys
from pathlib import Path

import clipworks


def show(name):
    return lambda progress: print(f"\r{name} {progress:4.0%}", end="", file=sys.stderr)


clips, results = map(Path, sys.argv[1:])
results.mkdir(exist_ok=True)
for clip in sorted(clips.iterdir()):
    if clip.suffix.lower() not in {".mp4", ".mov"}:
        continue
    try:
        small = clipworks.compress(clip, "480p", outputs=results, progress=show(clip.name))
    except clipworks.Error as error:
        print(f"\r{error}", file=sys.stderr)
        continue
    recorded = clipworks.info(clip)["metadata"].get("creation_time", "an unknown day")
    print(f"\r{clip.name} of {recorded}: {clip.stat().st_size} bytes, now {small.stat().st_size} in {small.name}")
