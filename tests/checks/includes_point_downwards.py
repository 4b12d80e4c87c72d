#!/usr/bin/env python3
"""Checks every include of the library, the program and the Python package against the layers.

    includes_point_downwards.py ROOT [PUBLIC_HEADER…]

An include may only point to its own folder or to a lower layer. Media libraries are known to clipworks/engine alone, and
a public header includes nothing but public headers, tl/expected.hpp and the standard library.
Prints one line for each fault; exit code 1 when there is one.
"""

import os
import re
import sys
from pathlib import Path

# From the lowest to the highest. Folders on one line are beside each other: none of them includes another.
LAYERS = [
    ["clipworks/engine"],  # what all of the engine shares
    ["clipworks/engine/boxes"],
    ["clipworks/engine/pictures"],
    ["clipworks/engine/input", "clipworks/engine/output"],
    ["clipworks/engine/capture", "clipworks/engine/pipeline", "clipworks/engine/stills"],
    ["clipworks/media/base"],
    ["clipworks/media/time", "clipworks/media/geometry", "clipworks/media/dispatch"],
    ["clipworks/media/asset"],
    ["clipworks/media/composition"],
    ["clipworks/media/images"],
    ["clipworks/media/samples", "clipworks/media/audio", "clipworks/media/export"],
    ["clipworks/edit"],
    ["clipworks/worker"],
    ["clipworks/exporter", "clipworks/filedeck", "clipworks/stillpress"],
    ["clipworks/foundation"],
    ["clipworks/compressor", "clipworks/looper", "clipworks/narration", "clipworks/reverse", "clipworks/rotate",
     "clipworks/speed", "clipworks/tophoto"],
    ["clipworks"],  # the header that includes all operations
    ["app"],
    ["python"],
]
LEVELS = {folder: level for level, layer in enumerate(LAYERS) for folder in layer}

# What the layers above the engine may include beside each other.
STANDARD = re.compile(r"[a-z0-9_]+")  # <vector>, <cstdint>
POSIX = re.compile(r"(dlfcn|errno|fcntl|poll|pthread|pwd|sched|signal|spawn|termios|unistd|sys/[a-z]+|linux/[a-z]+)\.h")
LIBRARY = re.compile(r"tl/expected\.hpp")
OTHERS = {"clipworks/edit": re.compile(r"nlohmann/json(_fwd)?\.hpp"), "clipworks/worker": re.compile(r"nlohmann/json\.hpp"),
          "app": re.compile(r"(CLI|nlohmann|fmt)/[A-Za-z/._]+|(seccomp|httplib|xxhash|nettle/sha2)\.h"),
          "python": re.compile(r"pybind11/[a-z0-9/]+\.h")}

OURS = ("clipworks/", "app/", "python/")
INCLUDE = re.compile(r'^\s*#\s*include\s*([<"])([^">]+)[">]', re.MULTILINE)


def folder_of(path):
    """The layer's folder that holds `path`: the longest one named in LAYERS."""
    return next((str(parent) for parent in Path(path).parents if str(parent) in LEVELS), None)


def fault_of(folder, target, public_headers, is_public):
    """Why `folder` may not include this header; None when it may."""
    if not target.startswith(OURS):
        if folder.startswith("clipworks/engine") and not is_public or STANDARD.fullmatch(target) or LIBRARY.fullmatch(target):
            return None
        if is_public:
            return "a public header includes a header that its users may not have"
        is_allowed = POSIX.fullmatch(target) or (folder in OTHERS and OTHERS[folder].fullmatch(target))
        return None if is_allowed else "this folder may not know another library"
    other = folder_of(target)
    if other is None:
        return "points to a folder without a layer"
    if other != folder and LEVELS[other] >= LEVELS[folder]:
        return f"points from {folder} up or across to {other}"
    return "a public header includes one that is not installed" if is_public and target not in public_headers else None


def faults_of(path, text, public_headers):
    """Faults of one file, `path` relative to the repository's root."""
    folder = folder_of(path)
    if folder is None:
        return [f"{path}: lies in a folder without a layer"]
    faults = []
    for match in INCLUDE.finditer(text):
        quote, target = match.groups()
        if quote == '"' and not target.startswith(OURS):
            target = os.path.normpath(Path(path).parent / target)
        if fault := fault_of(folder, target, public_headers, str(path) in public_headers):
            faults.append(f"{path}:{text.count(chr(10), 0, match.start(2)) + 1}: {target}: {fault}")
    return faults


def main(root, headers):
    root = Path(root).resolve()
    public_headers = {str(Path(header).resolve().relative_to(root)) for header in headers}
    files = [file for top in ("clipworks", "app", "python") for file in sorted((root / top).rglob("*")) if file.suffix in (".h", ".cpp")]
    if not files:
        sys.exit(f"there are no sources below {root}")
    faults = [fault for file in files for fault in faults_of(file.relative_to(root), file.read_text(encoding="utf-8"), public_headers)]
    print("\n".join(faults) if faults else f"{len(files)} files, every include points downwards")
    return 1 if faults else 0


if __name__ == "__main__":
    sys.exit(main(sys.argv[1], sys.argv[2:]))
