#!/usr/bin/env python3
"""Shows that the checks beside it can fail: each sample has faults in known lines, and none elsewhere."""

import re
import shutil
import tempfile
import unittest
from pathlib import Path

import includes_point_downwards as includes
import public_symbols_documented as documented
import pages_hold


def lines_of(faults):
    return [int(re.search(r":(\d+):", fault).group(1)) for fault in faults]


class IncludesPointDownwards(unittest.TestCase):
    def test_faults_are_found_where_they_are(self):
        a = "clipworks/media/asset/A."
        for path, text, public, wanted in [
            (a + "cpp", "#include <vector>\n#include <clipworks/media/time/CMTime.h>\n#include <clipworks/looper/A.h>\n", [], [3]),
            ("clipworks/media/time/A.h", '#include "../geometry/CGSize.h"\n#include <clipworks/stray/A.h>\n', [], [1, 2]),
            ("clipworks/engine/A.cpp", "#include <libavutil/frame.h>\n#include <clipworks/media/base/A.h>\n", [], [2]),
            ("clipworks/media/export/A.cpp", "#include <libavutil/frame.h>\n#include <CLI/CLI.hpp>\n", [], [1, 2]),
            ("app/A.cpp", "#include <zimg.h>\n#include <CLI/CLI.hpp>\n#include <sys/stat.h>\n", [], [1]),
            ("python/A.cpp", "#include <app/A.h>\n#include <pybind11/stl.h>\n#include <fmt/format.h>\n", [], [3]),
            (a + "h", "#include <tl/expected.hpp>\n#include <unistd.h>\n#include <clipworks/media/base/Secret.h>\n", [a + "h"], [2, 3]),
        ]:
            self.assertEqual(lines_of(includes.faults_of(path, text, set(public))), wanted, path)


SAMPLE = """namespace a {
/// Documented.
class CLIPWORKS_API Good {
 public:
  int bare() const;

  /// Documented.
  int one(int x) const { return x; }

  int bareAfterAnEmptyLine();
  // A plain comment is none.
  explicit Good(int x) : x_{x} { if (x) { y(); } }
  using Bare = int;
};

struct CLIPWORKS_API Bare {
  bool f() const { return true; }
};

inline constexpr int bareLimit = 5;
CLIPWORKS_API void bareFunction(const char* text = "");
}
"""


@unittest.skipUnless(shutil.which("doxygen"), "there is no Doxygen")
class PublicSymbolsDocumented(unittest.TestCase):
    def test_the_bare_symbols_are_found_and_no_others(self):
        wanted = [number for number, line in enumerate(SAMPLE.splitlines(), 1) if re.search(r"\bbare|\bBare|explicit|bool f", line)]
        with tempfile.TemporaryDirectory() as directory:
            header = Path(directory, "A.h")
            header.write_text(SAMPLE)
            self.assertEqual(lines_of(documented.faults_of([str(header)])), wanted)


class PagesHold(unittest.TestCase):
    PAGE = "Text\n```sh\nclipworks loop A --count 3  # twice\nclipworks jump A --high\nmake\n```\n```cpp\nint x;\n```\n[there](a.py) [not](b.md)\n"

    def test_code_links_and_commands_are_judged(self):
        self.assertEqual(pages_hold.code_faults({"p": self.PAGE}, {"e": "int x;\n"}, "cpp"), [])
        self.assertEqual(len(pages_hold.code_faults({"p": self.PAGE}, {"e": "int y;\n"}, "cpp")), 2)
        helps = {"": "Commands:\n  loop    Play\n", "loop": "  --count N\n"}
        self.assertEqual(pages_hold.command_faults("p", self.PAGE, helps.get),
                         ["p shows a command that is none: clipworks jump A --high", "p shows --high, which is unknown: clipworks jump A --high"])
        with tempfile.TemporaryDirectory() as directory:
            Path(directory, "a.py").touch()
            page = Path(directory, "p.md")
            self.assertEqual(pages_hold.link_faults(page, self.PAGE), [f"{page} links to b.md, which is not there"])


if __name__ == "__main__":
    unittest.main()
