#!/usr/bin/env python3
"""Holds docs/contract.md to the code: a row for each comment that says "kept:", by its file.

    contract_page.py ROOT

Prints one line for each file whose counts differ; exit code 1 when there is one.
"""

import re
import sys
from collections import Counter
from pathlib import Path


def main(root):
    clipworks = Path(root) / "clipworks"
    texts = {file: file.read_text(encoding="utf-8") for file in clipworks.rglob("*") if file.suffix in (".h", ".cpp")}
    said = Counter({str(file.relative_to(clipworks)): len(re.findall(r"//.*\bkept: ", text, re.IGNORECASE)) for file, text in texts.items()})
    page = (Path(root) / "docs" / "contract.md").read_text(encoding="utf-8")
    listed = Counter(re.findall(r"^\| `([^`]+)` \| .", page, re.MULTILINE))
    faults = [
        f"{file}: {said[file]} comments, {listed[file]} rows" for file in sorted(said.keys() | listed.keys()) if said[file] != listed[file]
    ]
    print("\n".join(faults) or f"{sum(said.values())} comments, a row for each")
    return 1 if faults or not said.total() else 0


if __name__ == "__main__":
    sys.exit(main(sys.argv[1]))
