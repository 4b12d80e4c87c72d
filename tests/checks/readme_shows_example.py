#!/usr/bin/env python3
"""Checks that the C++ in README.md is the example that the build compiles.

    readme_shows_example.py README.md EXAMPLE.cpp
"""

import re
import sys
from pathlib import Path


def shown(readme):
    """The C++ blocks of a page."""
    return re.findall(r"^```cpp\n(.*?)^```$", readme, re.DOTALL | re.MULTILINE)


def main(readme, example):
    blocks = shown(Path(readme).read_text(encoding="utf-8"))
    if blocks != [Path(example).read_text(encoding="utf-8")]:
        sys.exit(f"the C++ in {readme} is not {example}; copy the file there as the page's one cpp block")


if __name__ == "__main__":
    main(*sys.argv[1:])
