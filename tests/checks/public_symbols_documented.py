#!/usr/bin/env python3
"""Checks that every public symbol has a docstring.

    public_symbols_documented.py PUBLIC_HEADER…

Public symbols are, in an installed header: classes, structures, enumerations, functions, constants and aliases of the
namespace, and the public member functions and types of those classes. A docstring is a `///` before the symbol, or a
`///<` behind it, and it also holds for what follows without an empty line between. None is needed for what a reader
knows: forward declarations, friends, constructors without parameters, destructors, deleted and defaulted functions, and
overriding ones, which keep the docstring of what they override. Data members are the class's own matter.
Prints one line for each symbol without; exit code 1 when there is one.
"""

import re
import sys
from pathlib import Path

TYPE = re.compile(r"^(?:template\s*<.*>\s*)?(class|struct|enum(?:\s+class|\s+struct)?|union)\b")
ACCESS = re.compile(r"^(public|protected|private)\s*:")
# One that the formatter has laid out: from its line over those that are deeper, to the first that ends it or opens a block.
DECLARATION = re.compile(r"( *)((?:template <.*\n *)?[^\s}].*?(?:\n\1 +.*?)*?[;{}])[ \x02\x03]*$", re.MULTILINE)
NEEDS_NONE = re.compile(r"=\s*(?:delete|default)$|\boverride\b|\bfinal$|^friend\b|^using\s+[\w:]+::\w+$|^~|^static_assert")


def without_noise(text):
    """The text with plain comments, preprocessor lines and the insides of literals gone; docstrings become one `\x01`
    before, or `\x02` behind a symbol. Line breaks stay."""
    text = re.sub(r"/\*.*?\*/", lambda m: "\n" * m.group().count("\n"), text, flags=re.DOTALL)
    text = re.sub(r'R"\((.*?)\)"', lambda m: '""' + "\n" * m.group().count("\n"), text, flags=re.DOTALL)
    text = re.sub(r"\"(?:\\.|[^\"\\\n])*\"|(?<![0-9A-Fa-f])'(?:\\.|[^'\\\n])+'", '""', text)
    text = re.sub(r"///<[^\n]*", "\x02", text)
    text = re.sub(r"///[^\n]*", "\x01", text)
    text = re.sub(r"//[^\n]*", "\x03", text)  # a plain comment: not an empty line, not a docstring
    return re.sub(r"^[ \t]*#(?:[^\n]*\\\n)*[^\n]*", "", text, flags=re.MULTILINE)


def needs_docstring(flat, name):
    """Whether a declaration that opens no type needs one, in the type `name` or, without, in a namespace."""
    if TYPE.match(flat) or NEEDS_NONE.search(flat):
        return False  # a type without a body is a forward declaration
    if not name:
        return True
    if re.fullmatch(rf"(?:explicit |constexpr )*{re.escape(name)} ?\( ?\).*", flat):
        return False
    return flat.startswith("using ") or "(" in re.sub(r"=.*|<[^<>]*>", "", flat)


def faults_of(path, text):
    text = without_noise(text) + "\n"
    scopes = [("", "public", False)]  # each one's type, access (None where nobody sees it), and `documented` before it
    faults, documented, at = [], False, 0
    while at < len(text):
        line = text[at : text.index("\n", at)]
        name, access, before = scopes[-1]
        label, found = ACCESS.match(line.strip()), DECLARATION.match(text, at)
        at += len(line) + 1
        if label:
            scopes[-1] = (name, access and label[1], before)
        if label or not line.strip():
            documented = False
        elif "\x01" in line:
            documented = True
        elif line.strip().startswith("}"):
            documented = scopes.pop()[2]
        elif found:
            at = found.end() + 1
            flat = re.sub(r"\[\[.*?\]\]|CLIPWORKS_API|[\x01-\x03]", " ", found[2])
            flat = " ".join(flat.split()).rstrip("; {")
            type_ = TYPE.match(flat) and re.match(r"[^:{]*?(\w+)( final)?(?: ?[:{]|$)", flat)
            is_namespace = re.match(r"(inline )?namespace\b", flat)
            needs = (type_ and "{" in found[2]) or needs_docstring(flat, name)
            if access == "public" and needs and not is_namespace and not documented and "\x02" not in found[0]:
                faults.append(f"{path}:{text.count(chr(10), 0, found.start()) + 1}: no docstring: {flat[:90]}")
            if found[2].endswith("{"):
                inside = access if is_namespace and not re.search(r"namespace$|detail", flat) else None
                if type_ and access == "public":
                    inside = {"class": "private", "struct": "public", "union": "public"}.get(TYPE.match(flat)[1])
                scopes.append((type_[1] if type_ else "", inside, documented))
                documented = False
    return faults


def main(headers):
    if not headers:
        sys.exit("no headers given")
    faults = [fault for header in headers for fault in faults_of(header, Path(header).read_text(encoding="utf-8"))]
    print("\n".join(faults) if faults else f"{len(headers)} headers, every public symbol has a docstring")
    return 1 if faults else 0


if __name__ == "__main__":
    sys.exit(main(sys.argv[1:]))
