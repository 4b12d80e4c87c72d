"""Does one job as `clipworks run` does, with its exit codes, and with files elsewhere, which the program leaves alone:

python3 -m clipworks run JOB [--force] [--sha256] [--memory BYTES] …
"""

import argparse
import json
import signal
import sys
from pathlib import Path

from . import __version__, batch


def main() -> int:
    """The exit code."""
    parser = argparse.ArgumentParser("python3 -m clipworks", description="Does a job; its files may be URLs that fsspec knows.")
    parser.add_argument("--version", action="version", version=f"clipworks {__version__}")
    run = parser.add_subparsers(required=True, metavar="run").add_parser("run", help="do a job")
    run.add_argument("job", metavar="JOB", help="a file with the job, - for standard input, or the JSON itself")
    for flag in ("--force", "--sha256"):
        run.add_argument(flag, action="store_true")
    for option in ("--threads", "--memory", "--max-output", "--max-fetch"):
        run.add_argument(option, type=int)
    run.add_argument("--timeout", type=float)
    run.add_argument("--confinement", choices=["auto", "require"], default="auto")
    run.add_argument("--storage-options", type=json.loads, help="JSON: for each protocol what its driver takes")
    run.add_argument("--program", default="clipworks")
    settings = vars(parser.parse_args())
    place = settings.pop("job")
    try:
        job = json.loads(place if place.startswith("{") else sys.stdin.read() if place == "-" else Path(place).read_text())
    except (OSError, ValueError) as error:
        parser.error(f"this is no job: {error}")
    signal.signal(signal.SIGTERM, signal.default_int_handler)
    try:
        result = batch.do(job, **settings)
    except KeyboardInterrupt:
        return 130
    if result.error is None:
        print(*result.paths, sep="\n")
        return 0
    print(f"clipworks: {result.error}", file=sys.stderr)
    codes = {"badArgument": 2, "limitReached": 3, **dict.fromkeys(batch.AGAIN, 4), "cancelled": 130}
    return codes.get(result.code, 1)


if __name__ == "__main__":
    sys.exit(main())
