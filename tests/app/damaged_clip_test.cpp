#include <algorithm>
#include <fstream>
#include <iterator>
#include <string>

#include <clipworks/engine/input/MediaFile.h>

#include <tests/app/ProgramUnderTest.h>

namespace clipworks::test {
namespace {

using testing::HasSubstr;
using testing::Not;

/// Three of its 60 pictures have bytes in their middle that are not the encoder's.
std::filesystem::path damagedClip() {
  static const TemporaryDirectory directory;
  const std::filesystem::path path = directory.file("damaged.mp4");
  if (std::filesystem::exists(path)) return path;
  const auto whole = engine::MediaFile::open(BarCodeClip({.bFrames = 0}).path());
  std::string bytes(static_cast<std::size_t>((*whole)->handle()->size()), '\0');
  std::ifstream(BarCodeClip({.bFrames = 0}).path(), std::ios::binary)
      .read(bytes.data(), static_cast<std::streamsize>(bytes.size()));
  const auto table = *(*whole)->pictureTable((*whole)->streams().front().index);
  for (const std::size_t picture : {10U, 20U, 40U}) {
    const auto& sample = table->samples()[table->sampleOfPicture(picture)];
    const auto start = bytes.begin() + sample.position + sample.bytes / 3;
    std::transform(start, start + 60, start, [](char byte) { return static_cast<char>(byte ^ 0x55); });
  }
  std::ofstream(path, std::ios::binary) << bytes;
  return path;
}

struct Work {
  const char* name;
  Arguments words;
  int pictures;  // that are told to be damaged
};
std::ostream& operator<<(std::ostream& out, const Work& work) { return out << work.name; }

class DamagedClip : public testing::TestWithParam<Work> {};

TEST_P(DamagedClip, IsToldOfAndRefusedByStrictWork) {
  const Work& work = GetParam();
  const TemporaryDirectory outputs;
  Arguments words{"--outputs", outputs.path(), work.words.front(), damagedClip()};
  words.insert(words.end(), work.words.begin() + 1, work.words.end());
  words.insert(words.begin(), "--json");
  const auto shown = runClipworks(words);
  ASSERT_EQ(shown.exitCode, 0) << shown;
  const auto done = eventsOf(shown, "done").front();
  if (work.pictures == 0) {
    EXPECT_EQ(shown.standardError, "");
    EXPECT_FALSE(done.contains("damagedPictures"));
    return;
  }
  const std::string sentence = std::to_string(work.pictures) + (work.pictures == 1 ? " picture" : " pictures") +
                               " of damaged.mp4 " + (work.pictures == 1 ? "is" : "are") + " damaged";
  EXPECT_THAT(shown.standardError, HasSubstr("clipworks: " + sentence + "; what could be decoded is shown\n"));
  EXPECT_EQ(done.at("damagedPictures"),
            nlohmann::json::array({{{"file", "damaged.mp4"}, {"pictures", work.pictures}}}));

  const TemporaryDirectory nothing;
  words[2] = nothing.path();
  words.push_back("--strict");
  const auto refused = runClipworks(words);
  EXPECT_EQ(refused.exitCode, 1) << refused;
  EXPECT_THAT(refused.standardError, HasSubstr(sentence));
  EXPECT_EQ(namesIn(nothing.path()), std::set<std::string>{});
}

INSTANTIATE_TEST_SUITE_P(
    All, DamagedClip,
    testing::Values(Work{"compress", {"compress", "--preset", "144p"}, 3},
                    Work{"preview", {"preview", "--preset", "144p"}, 3}, Work{"rotate", {"rotate"}, 3},
                    Work{"crop", {"crop", "--rect", "0,0,160,90"}, 3}, Work{"reverse", {"reverse"}, 3},
                    Work{"loop_encoded", {"loop", "--count", "2", "--codec", "hevc"}, 3},
                    Work{"loop_copied", {"loop", "--count", "2"}, 0}, Work{"frame", {"frame", "--at=#20"}, 1},
                    Work{"frame_of_another", {"frame", "--at=#5"}, 0}),
    [](const auto& test) { return std::string(test.param.name); });

}  // namespace
}  // namespace clipworks::test
