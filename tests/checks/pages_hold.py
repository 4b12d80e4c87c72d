#!/usr/bin/env python3
"""Checks what the pages of the documentation show: C++ and Python that tests run, commands that the program knows,
and links that lead somewhere.

    pages_hold.py REPOSITORY PROGRAM
"""

import itertools
import re
import shlex
import subprocess
import sys
from pathlib import Path


def blocks(page, language):
    """The blocks of code in a language."""
    return re.findall(rf"^```{language}\n(.*?)^```$", page, re.DOTALL | re.MULTILINE)


def code_faults(pages, examples, language):
    """Code that is no example as it stands, and examples that no page shows; `pages` and `examples`: text by name."""
    shown = {name: blocks(text, language) for name, text in pages.items()}
    faults = [f"{name} shows {language} that is no file of examples/" for name, all_shown in shown.items()
              for block in all_shown if block not in examples.values()]
    everything = [block for all_shown in shown.values() for block in all_shown]
    return faults + [f"no page shows {name}" for name, text in examples.items() if text not in everything]


def link_faults(path, text):
    """Relative links of a page to what is not there."""
    without_code = re.sub(r"^```.*?^```$", "", text, flags=re.DOTALL | re.MULTILINE)
    targets = re.findall(r"\]\(([^)#\s]+)[^)]*\)", without_code)
    return [f"{path} links to {target}, which is not there" for target in targets
            if "://" not in target and not (path.parent / target).exists()]


def commands_in(text):
    """The lines of shell blocks that run the program, with the words of each command; "then" stands between them."""
    for line in "".join(blocks(text, "sh")).splitlines():
        words = shlex.split(line, comments=True)
        if "clipworks" in words[:1]:
            yield from ((line, ["clipworks", *part]) for is_then, part in itertools.groupby(words[1:], "then".__eq__) if not is_then)


def command_faults(name, text, help_of):
    """Commands in shell blocks whose name or options the program does not know; `help_of` gives a command's help, the
    program's own for an empty name."""
    faults = []
    known = help_of("")
    for line, words in commands_in(text):
        command = next((word for word in words[1:] if not word.startswith("-") and re.search(rf"^  {re.escape(word)} ", known, re.MULTILINE)), None)
        understood = known + (help_of(command) if command else "")
        options = {word.split("=")[0] for word in words[1:] if word.startswith("--")}
        if command is None and options <= {"--version", "--licenses", "--help"}:
            continue
        if command is None:
            faults.append(f"{name} shows a command that is none: {line}")
        faults += [f"{name} shows {option}, which is unknown: {line}" for option in sorted(options)
                   if not re.search(rf"{option}\b", understood)]
    return faults


def main(repository, program):
    repository = Path(repository)
    paths = [*repository.glob("*.md"), *repository.glob("docs/**/*.md")]
    pages = {path: path.read_text(encoding="utf-8") for path in paths}
    guides = {str(path.relative_to(repository)): text for path, text in pages.items() if path.parent.name != "adr"}

    def examples(pattern):
        return {str(path.relative_to(repository)): path.read_text(encoding="utf-8") for path in repository.glob(f"examples/{pattern}")}

    def help_of(command):
        return subprocess.run([program, *command.split(), "--help"], check=True, capture_output=True, text=True).stdout

    faults = code_faults(guides, examples("*.cpp"), "cpp") + code_faults(guides, examples("python/*.py"), "python")
    faults += [fault for path, text in pages.items() for fault in link_faults(path, text)]
    faults += [fault for name, text in guides.items() for fault in command_faults(name, text, help_of)]
    sys.exit("\n".join(faults) or 0)


if __name__ == "__main__":
    main(*sys.argv[1:])
