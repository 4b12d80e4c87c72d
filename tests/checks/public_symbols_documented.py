#!/usr/bin/env python3
"""Checks that every public symbol has a docstring.

    public_symbols_documented.py PUBLIC_HEADER…

Public symbols are, in an installed header, as Doxygen lists them: types, functions, constants and aliases of the namespace,
and the public member functions and types of those classes. A docstring is a `///` before the symbol, or a `///<` behind
it, and it also holds for what follows without an empty line between. None is needed for what a reader knows: friends,
constructors without parameters, destructors, deleted and defaulted functions, and overriding ones, which keep the
docstring of what they override. Data members are the class's own matter.
Prints one line for each symbol without; exit code 1 when there is one.
"""

import re
import subprocess
import sys
import tempfile
from pathlib import Path
from xml.etree import ElementTree

SETTINGS = """EXTRACT_ALL=YES\nGENERATE_XML=YES\nGENERATE_HTML=NO\nGENERATE_LATEX=NO\nHAVE_DOT=NO\nQUIET=YES\nWARNINGS=NO
MACRO_EXPANSION=YES\nEXPAND_ONLY_PREDEF=YES\nPREDEFINED=CLIPWORKS_API=\n"""
KNOWN = re.compile(r"=\s*(delete|default)|\boverride\b|\bfinal\b")


def symbols(headers):
    """The file, line and name of each one that needs a docstring."""
    with tempfile.TemporaryDirectory() as folder:
        settings = f"{SETTINGS}INPUT={' '.join(headers)}\nOUTPUT_DIRECTORY={folder}\n"
        subprocess.run(["doxygen", "-"], input=settings, text=True, check=True, stdout=subprocess.DEVNULL, cwd="/")
        compounds = [compound for file in Path(folder, "xml").glob("*.xml") for compound in ElementTree.parse(file).iter("compounddef")]
    for compound in compounds:
        owner = compound.findtext("compoundname").rpartition("::")[2]
        is_type = compound.get("kind") in ("class", "struct", "union")
        if compound.get("prot", "public") != "public" or not is_type and compound.get("kind") != "namespace":
            continue
        for symbol in [compound] * is_type + compound.findall("sectiondef/memberdef[@prot='public']"):
            name, arguments = symbol.findtext("name", owner), symbol.findtext("argsstring") or ""
            is_known = name == owner and arguments == "()" or name.startswith("~") or KNOWN.search(arguments)
            if not is_known and symbol.get("kind") != "friend" and not (is_type and symbol.get("kind") == "variable"):
                yield symbol.find("location").get("file"), int(symbol.find("location").get("line")), name


def is_documented(lines, at):
    """Whether what begins at the index `at` has a docstring, or stands below one."""
    if re.fullmatch(r" *(class|struct) \w+;", lines[at]):
        return True  # declared only
    end = next(i for i in range(at, len(lines)) if re.search(r"[;{]", lines[i]))
    indent = re.match(" *", lines[at])[0]
    start = at
    while start and lines[start - 1].strip() and not re.match(rf"(?!{indent}).*[:{{]$", lines[start - 1]):
        start -= 1
    return any(re.search("///(?!<)", line) for line in lines[start:at]) or "///<" in "".join(lines[at : end + 1])


def faults_of(headers):
    texts = {header: Path(header).read_text(encoding="utf-8").splitlines() for header in headers}
    return [f"{file}:{line}: no docstring: {name}" for file, line, name in sorted(set(symbols(headers)))
            if not is_documented(texts[file], line - 1)]


def main(headers):
    if not headers:
        sys.exit("no headers given")
    faults = faults_of(headers)
    print("\n".join(faults) if faults else f"{len(headers)} headers, every public symbol has a docstring")
    return 1 if faults else 0


if __name__ == "__main__":
    sys.exit(main(sys.argv[1:]))
