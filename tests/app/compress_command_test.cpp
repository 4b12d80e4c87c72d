// Compressing batches and previews, as users do it.

#include <csignal>
#include <fstream>
#include <iterator>
#include <string>

#include <tests/app/ProgramUnderTest.h>
#include <tests/support/MediaJudge.h>
#include <tests/support/SmallFileSystem.h>

namespace clipworks::test {
namespace {

using nlohmann::json;
using testing::HasSubstr;
using testing::MatchesRegex;

std::string smallClip(int frames) { return BarCodeClip({.width = 160, .height = 90, .frames = frames}).path(); }

/// A clip whose matrix shrinks its pictures to nothing.
std::string shapelessClip(const TemporaryDirectory& directory) {
  std::ifstream original(smallClip(5), std::ios::binary);
  std::string bytes{std::istreambuf_iterator<char>(original), {}};
  // Past the type, version, flags, times, number, length, layer and volume: ISO/IEC 14496-12, 8.3.2.
  bytes.replace(bytes.find("tkhd") + 44, 36, 36, '\0');
  std::ofstream(directory.file("shapeless.mp4"), std::ios::binary) << bytes;
  return directory.file("shapeless.mp4");
}

TEST(Compress, WritesWhatItCanAndNamesTheRest) {
  const TemporaryDirectory inputs;
  const TemporaryDirectory outputs;
  const std::string none = inputs.file("none.mp4");
  const std::string shapeless = shapelessClip(inputs);
  const std::string sound = soundAlone();
  const auto result = runClipworks({"--json", "--outputs", outputs.path(), "compress", smallClip(20), none, sound,
                                    smallClip(10), shapeless, "--preset", "144p", "--bitrate", "0"});
  EXPECT_EQ(result.exitCode, 1) << result;
  EXPECT_THAT(result.standardError,
              MatchesRegex("[^\n]*mp4: [0-9.]+ kB, now [0-9.]+ kB: [a-z0-9]+-compressed.mp4\n"
                           "clipworks: none.mp4 cannot be opened: [^\n]*\n"
                           "clipworks: [^\n]*m4a has no video track; compressing it needs one\n"
                           "[^\n]*mp4: [0-9.]+ kB, now [0-9.]+ kB: [a-z0-9]+-compressed.mp4\n"
                           "clipworks: shapeless.mp4 shows 0 × 0 pixels, a shape that a height of 144 [^\n]*\n"
                           "clipworks: 3 of 5 files could not be compressed: none.mp4, [^\n]*\n"));
  const json last = eventsOf(result).back();
  EXPECT_EQ(last.at("event"), "error");
  ASSERT_EQ(last.at("failed").size(), 3U) << result;
  EXPECT_EQ(last.at("failed").at(1).at("input"), sound);
  ASSERT_EQ(last.at("outputs").size(), 2U) << result;
  EXPECT_EQ(namesIn(outputs.path()).size(), 2U);
  const std::string first = last.at("outputs").at(0);
  EXPECT_EQ(MediaJudge(first).pictures().size(), 20U) << "in the order of the clips";
  EXPECT_EQ(MediaJudge(first).stream("video").height, 144);
}

TEST(Compress, LeavesNothingWhenItIsInterrupted) {
  const TemporaryDirectory outputs;
  RunningProgram program(clipworksCommand(
      {"--json", "--outputs", outputs.path(), "compress", smallClip(10), slowClip(), "--preset", "1080p"}));
  ASSERT_TRUE(program.waitForText(", now ")) << program.wait();
  program.send(SIGINT);
  const auto result = program.wait();
  EXPECT_EQ(result.exitCode, 130) << result;
  EXPECT_EQ(namesIn(outputs.path()), std::set<std::string>{});
}

TEST(Compress, FindsWrongUseBeforeAnythingRuns) {
  const std::string clip = smallClip(10);
  const std::pair<Arguments, std::string> uses[] = {
      {{"compress", clip, "--preset", "481p"}, "not \"481p\""},
      {{"compress", clip}, "--preset is required"},
      {{"compress", "--preset", "480p"}, "FILE is required"},
      {{"compress", clip, "--preset", "480p", "--bitrate", "-1"}, "from 0 to 1000000, not \"-1\""},
      {{"preview", clip, "--preset", "480p", "--bitrate", "9223372036854776"}, "not \"9223372036854776\""},
      {{"preview", clip, "--preset", "480p", "--bitrate", "5k"}, "not \"5k\""},
  };
  for (const auto& [use, sentence] : uses) {
    const TemporaryDirectory outputs;
    Arguments arguments{"--outputs", outputs.path()};
    arguments.insert(arguments.end(), use.begin(), use.end());
    const auto result = runClipworks(arguments);
    EXPECT_EQ(result.exitCode, 2) << result;
    EXPECT_THAT(result.standardError, HasSubstr(sentence));
    EXPECT_EQ(namesIn(outputs.path()), std::set<std::string>{});
  }
}

TEST(Preview, HoldsTheFirstSecondsOrSaysWhyNot) {
  const TemporaryDirectory outputs;
  const auto result = runClipworks({"--outputs", outputs.path(), "preview", slowClip(), "--preset", "144p"});
  ASSERT_EQ(result.exitCode, 0) << result;
  const std::string output = result.standardOutput.substr(0, result.standardOutput.find('\n'));
  EXPECT_NEAR(MediaJudge(output).duration(), 5, 0.05);
  EXPECT_EQ(MediaJudge(output).pictures().size(), 150U);

  const SmallFileSystem small(64);
  if (!small.isMounted()) GTEST_SKIP() << small.whyNot();
  const auto full = runClipworks({"--outputs", small.path(), "preview", slowClip(), "--preset", "1080p"});
  EXPECT_EQ(full.exitCode, 1) << full;
  EXPECT_THAT(full.standardError,
              MatchesRegex("clipworks: [^\n]*-preview.mp4 cannot be written: No space left on device\n"));
  EXPECT_EQ(namesIn(small.path()), std::set<std::string>{});
}

}  // namespace
}  // namespace clipworks::test
