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


class Reader:
    """Walks one header's declarations."""

    def __init__(self, path, text):
        self.path = path
        self.text = without_noise(text)
        self.at = 0
        self.faults = []

    def scope(self, access, is_class, name):
        """Reads declarations up to the closing brace. `access` is None in a scope that nobody sees."""
        documented = False
        while self.at < len(self.text):
            skipped = re.compile(r"[\s\x01\x02\x03;]*").match(self.text, self.at).group()
            self.at += len(skipped)
            documented = self.docstring_after(skipped, documented)
            if self.at >= len(self.text) or self.text[self.at] == "}":
                self.at += 1
                return
            label = ACCESS.match(self.text[self.at :])
            if is_class and label:
                access = label.group(1) if access is not None else None
                self.at += label.end()
                documented = False
                continue
            documented = self.declaration(access, is_class, name, documented)

    @staticmethod
    def docstring_after(skipped, documented):
        lines = skipped.split("\n")  # the first is the rest of the line before, the last the indentation of what comes
        for number, line in enumerate(lines):
            if "\x01" in line:
                documented = True
            elif 0 < number < len(lines) - 1 and not line.strip():
                documented = False
        return documented

    def declaration(self, access, is_class, name, documented):
        start = self.at
        head = self.head()
        line = self.text.count("\n", 0, start) + 1
        opener = self.text[self.at] if self.at < len(self.text) else ";"
        if opener == "{":
            self.at += 1
        flat = " ".join(re.sub(r"[\x01\x02\x03]", " ", head).split())
        flat = re.sub(r"\[\[.*?\]\]\s*", "", flat)
        flat = flat.replace("CLIPWORKS_API ", "").replace('extern "" ', "")
        if opener == "{" and re.match(r"^(inline )?namespace\b", flat):
            hidden = flat in ("namespace", "inline namespace") or "detail" in flat
            self.scope(None if hidden else access, False, flat)
            return False
        kind = TYPE.match(flat)
        is_seen = access == "public"
        if kind and opener == "{":
            if is_seen and not documented:
                self.report(line, flat)
            self.body(kind.group(1), flat, access if is_seen else None)
            return documented
        if opener == "{":
            self.skip_block()
        trailing = re.compile(r"[ \t;]*\x02").match(self.text, self.at)
        if is_seen and not documented and not trailing and self.needs_docstring(flat, bool(kind), is_class, name):
            self.report(line, flat)
        return documented

    def head(self):
        """Reads up to the `;` or `{` that ends a declaration, past initializers in braces and lists of parameters."""
        start = self.at
        depth = 0
        while self.at < len(self.text):
            char = self.text[self.at]
            if char in "(":
                depth += 1
            elif char in ")":
                depth -= 1
            elif depth == 0 and char == ";":
                break
            elif char == "{":
                before = self.text[start : self.at].rstrip()
                is_initializer = depth > 0 or (
                    re.search(r"[\w\]>]$", before) is not None
                    and "(" not in before
                    and not TYPE.match(re.sub(r"\[\[.*?\]\]\s*|CLIPWORKS_API ", "", before).strip())
                    and not re.search(r"\bnamespace\b", before)
                )
                if not is_initializer and not before.endswith("="):
                    break
                self.at += 1
                self.skip_block()
                continue
            self.at += 1
        return self.text[start : self.at]

    def body(self, kind, flat, access):
        if kind.startswith("enum"):
            self.skip_block()
            return
        default = "private" if kind == "class" else "public"
        found = re.search(r"(\w+)\s*(?:final\s*)?(?::[^:].*)?$", flat)
        self.scope(default if access is not None else None, True, found.group(1) if found else "")

    def skip_block(self):
        depth = 1
        while self.at < len(self.text) and depth:
            depth += {"{": 1, "}": -1}.get(self.text[self.at], 0)
            self.at += 1

    @staticmethod
    def needs_docstring(flat, is_type, is_class, name):
        if not flat or is_type or NEEDS_NONE.search(flat):
            return False  # a type without a body is a forward declaration
        if not is_class:
            return True
        if re.fullmatch(rf"(?:explicit |constexpr )*{re.escape(name)} ?\( ?\).*", flat):
            return False
        is_alias = flat.startswith("using ")
        return is_alias or "(" in re.sub(r"=.*|<[^<>]*>", "", flat)

    def report(self, line, flat):
        self.faults.append(f"{self.path}:{line}: no docstring: {flat[:90]}")


def faults_of(path, text):
    reader = Reader(path, text)
    while reader.at < len(reader.text):
        reader.scope("public", False, "")
    return reader.faults


def main(headers):
    if not headers:
        sys.exit("no headers given")
    faults = [fault for header in headers for fault in faults_of(header, Path(header).read_text(encoding="utf-8"))]
    print("\n".join(faults) if faults else f"{len(headers)} headers, every public symbol has a docstring")
    return 1 if faults else 0


if __name__ == "__main__":
    sys.exit(main(sys.argv[1:]))
