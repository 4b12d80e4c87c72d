#!/usr/bin/env python3
"""Shows that the checks beside it can fail: each sample has faults in known lines, and none elsewhere."""

import re
import unittest

import includes_point_downwards as includes
import public_symbols_documented as documented
import readme_shows_example


def lines_of(faults):
    return [int(re.search(r":(\d+):", fault).group(1)) for fault in faults]


class IncludesPointDownwards(unittest.TestCase):
    def faults(self, path, text, public=()):
        return lines_of(includes.faults_of(path, text, set(public)))

    def test_only_lower_folders_are_fine(self):
        text = (
            "#include <vector>\n"
            "#include <clipworks/media/time/CMTime.h>\n"
            "#include <clipworks/media/asset/AVAsset.h>\n"
            "#include <clipworks/media/composition/AVMutableComposition.h>\n"
            "#include <clipworks/looper/VideoLooperUtils.h>\n"
        )
        self.assertEqual(self.faults("clipworks/media/asset/A.cpp", text), [4, 5])
        self.assertEqual(self.faults("clipworks/looper/A.cpp", text), [])

    def test_neighbours_of_a_layer_and_unknown_folders_are_faults(self):
        text = "#include <clipworks/media/geometry/CGSize.h>\n#include <clipworks/stray/A.h>\n"
        self.assertEqual(self.faults("clipworks/media/time/A.h", text), [1, 2])
        self.assertEqual(len(includes.faults_of("elsewhere/A.h", "", set())), 1)

    def test_the_engine_knows_no_platform(self):
        text = "#include <libavcodec/avcodec.h>\n#include <clipworks/media/base/URL.h>\n"
        self.assertEqual(self.faults("clipworks/engine/output/A.cpp", text), [2])

    def test_quoted_includes_are_seen_too(self):
        self.assertEqual(self.faults("clipworks/media/base/A.cpp", '#include "../time/CMTime.h"\n'), [1])
        self.assertEqual(self.faults("clipworks/media/base/A.cpp", '  #  include "URL.h"\n'), [])

    def test_media_libraries_stay_in_the_engine_and_the_programs_in_the_program(self):
        text = "#include <libavutil/frame.h>\n#include <zimg.h>\n#include <CLI/CLI.hpp>\n#include <sys/stat.h>\n"
        self.assertEqual(self.faults("clipworks/media/export/A.cpp", text), [1, 2, 3])
        self.assertEqual(self.faults("app/A.cpp", text), [1, 2])

    def test_public_headers_include_public_headers_only(self):
        path = "clipworks/media/asset/A.h"
        text = (
            "#include <tl/expected.hpp>\n"
            "#include <unistd.h>\n"
            "#include <clipworks/media/base/URL.h>\n"
            "#include <clipworks/media/base/Secret.h>\n"
        )
        self.assertEqual(self.faults(path, text, {path, "clipworks/media/base/URL.h"}), [2, 4])
        self.assertEqual(self.faults(path, text), [])


SAMPLE = """#pragma once
#include <string>

namespace a {

class Forward;

/// Documented.
class CLIPWORKS_API Good : public Base {
 public:
  Good();
  ~Good() override;
  Good(const Good&) = delete;
  int bare() const;

  /// Documented.
  [[nodiscard]] int one(int x = f({1, 2})) const { return x; }
  int alsoThatOne();

  int bareAfterAnEmptyLine(std::function<void()> then);
  int same() override;
  int trailing();  ///< Documented.
  // A plain comment is none.
  explicit Good(int x) : x_{x} { if (x) { y(); } }
  int field = 0;
  using Bare = int;
 protected:
  int hidden();
 private:
  int alsoHidden();
};

struct CLIPWORKS_API Bare {
  int x = 0;
  bool f() const { return true; }
};

enum class BareChoice { one, two };

/// Documented.
inline constexpr int limit = 3;
inline constexpr int sameGroup = 4;

inline constexpr int bareLimit = 5;
CLIPWORKS_API void bareFunction(const char* text = "///");

/// Documented.
template <class T, class E = int>
using Alias = Other<T, E>;

namespace {
int unseen();
}
namespace detail {
int unseenToo();
}
}
"""


class PublicSymbolsDocumented(unittest.TestCase):
    def test_the_bare_symbols_are_found_and_no_others(self):
        wanted = [
            number
            for number, line in enumerate(SAMPLE.splitlines(), 1)
            if re.search(r"\bbare|\bBare|explicit|bool f", line)
        ]
        self.assertEqual(lines_of(documented.faults_of("A.h", SAMPLE)), wanted)


class ReadmeShowsExample(unittest.TestCase):
    def test_only_cpp_blocks_count(self):
        page = "Text\n```sh\nmake\n```\n```cpp\nint x;\n\nint y;\n```\nmore\n"
        self.assertEqual(readme_shows_example.shown(page), ["int x;\n\nint y;\n"])


if __name__ == "__main__":
    unittest.main()
