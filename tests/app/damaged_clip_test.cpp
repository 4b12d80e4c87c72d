#include <algorithm>
#include <fstream>

#include <tests/app/ProgramUnderTest.h>
#include <tests/support/MediaJudge.h>

namespace clipworks::test {
namespace {

/// The clip with bytes in the middle of three of its 60 pictures that are not the encoder's.
fs::path damagedClip() {
  const auto clip = BarCodeClip({.bFrames = 0}).path();
  std::string bytes = fileBytes(clip);
  const auto samples = MediaJudge(clip).codedSamples("video");
  for (const std::size_t picture : {10U, 20U, 40U}) {
    const auto start = bytes.begin() + samples.at(picture).position + samples.at(picture).bytes / 3;
    std::transform(start, start + 60, start, [](char byte) { return static_cast<char>(byte ^ 0x55); });
  }
  static const TemporaryDirectory directory;
  std::ofstream(directory.file("damaged.mp4"), std::ios::binary) << bytes;
  return directory.file("damaged.mp4");
}

TEST(DamagedClip, IsToldOfAndRefusedByStrictWork) {
  struct {
    Arguments words;
    int pictures;  // that are told to be damaged
  } const cases[] = {{{"compress", "--preset", "144p"}, 3},
                     {{"rotate"}, 3},
                     {{"reverse"}, 3},
                     {{"loop", "--count", "2", "--codec", "hevc"}, 3},
                     {{"loop", "--count", "2"}, 0},
                     {{"frame", "--at=#20"}, 1},
                     {{"frame", "--at=#5"}, 0}};
  const auto clip = damagedClip();
  for (auto [words, pictures] : cases) {
    SCOPED_TRACE(testing::PrintToString(words));
    words.insert(words.begin() + 1, {clip, "--json"});
    const TemporaryDirectory outputs;
    const auto shown = runClipworks(outputs.path(), words);
    ASSERT_EQ(shown.exitCode, 0) << shown;
    const std::string sentence = std::to_string(pictures) + (pictures == 1 ? " picture" : " pictures") +
                                 " of damaged.mp4 " + (pictures == 1 ? "is" : "are") + " damaged";
    const std::string told = "clipworks: " + sentence + "; what could be decoded is shown\n";
    EXPECT_EQ(shown.standardError.find(told) != std::string::npos, pictures > 0) << shown;
    const nlohmann::json damage{{"file", "damaged.mp4"}, {"pictures", pictures}};
    EXPECT_EQ(eventsOf(shown, "done").front().value("damagedPictures", nlohmann::json()),
              pictures > 0 ? nlohmann::json::array({damage}) : nlohmann::json());

    const TemporaryDirectory nothing;
    words.push_back("--strict");
    const auto refused = runClipworks(nothing.path(), words);
    EXPECT_EQ(std::pair(refused.exitCode, namesIn(nothing.path()).empty()),
              std::pair(pictures > 0 ? 1 : 0, pictures > 0));
    EXPECT_EQ(refused.standardError.find(sentence) != std::string::npos, pictures > 0) << refused;
  }
}

}  // namespace
}  // namespace clipworks::test
