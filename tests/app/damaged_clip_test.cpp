#include <algorithm>
#include <fstream>

#include <clipworks/engine/input/MediaFile.h>

#include <tests/app/ProgramUnderTest.h>

namespace clipworks::test {
namespace {

using testing::HasSubstr;

/// Three of its 60 pictures have bytes in their middle that are not the encoder's.
std::string damagedClip() {
  static const TemporaryDirectory directory;
  const fs::path path = directory.file("damaged.mp4");
  if (fs::exists(path)) return path;
  const auto whole = engine::MediaFile::open(BarCodeClip({.bFrames = 0}).path());
  std::string bytes = fileBytes(BarCodeClip({.bFrames = 0}).path());
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
  Arguments words;
  int pictures;  // that are told to be damaged
};

class DamagedClip : public testing::TestWithParam<Work> {};

TEST_P(DamagedClip, IsToldOfAndRefusedByStrictWork) {
  auto [words, pictures] = GetParam();
  words.insert(words.begin() + 1, {damagedClip(), "--json"});
  const TemporaryDirectory outputs;
  const auto shown = runClipworks(outputs.path(), words);
  ASSERT_EQ(shown.exitCode, 0) << shown;
  const auto done = eventsOf(shown, "done").front();
  if (pictures == 0) {
    EXPECT_EQ(shown.standardError, "");
    EXPECT_FALSE(done.contains("damagedPictures"));
    return;
  }
  const std::string sentence = std::to_string(pictures) + (pictures == 1 ? " picture" : " pictures") +
                               " of damaged.mp4 " + (pictures == 1 ? "is" : "are") + " damaged";
  EXPECT_THAT(shown.standardError, HasSubstr("clipworks: " + sentence + "; what could be decoded is shown\n"));
  EXPECT_EQ(done.at("damagedPictures"), nlohmann::json::array({{{"file", "damaged.mp4"}, {"pictures", pictures}}}));

  const TemporaryDirectory nothing;
  words.push_back("--strict");
  const auto refused = runClipworks(nothing.path(), words);
  EXPECT_EQ(refused.exitCode, 1) << refused;
  EXPECT_THAT(refused.standardError, HasSubstr(sentence));
  EXPECT_EQ(namesIn(nothing.path()), Names{});
}

INSTANTIATE_TEST_SUITE_P(All, DamagedClip,
                         testing::Values(Work{{"compress", "--preset", "144p"}, 3},
                                         Work{{"preview", "--preset", "144p"}, 3}, Work{{"rotate"}, 3},
                                         Work{{"crop", "--rect", "0,0,160,90"}, 3}, Work{{"reverse"}, 3},
                                         Work{{"loop", "--count", "2", "--codec", "hevc"}, 3},
                                         Work{{"loop", "--count", "2"}, 0}, Work{{"frame", "--at=#20"}, 1},
                                         Work{{"frame", "--at=#5"}, 0}));

}  // namespace
}  // namespace clipworks::test
