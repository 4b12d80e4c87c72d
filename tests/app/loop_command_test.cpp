
#include <algorithm>
#include <string>
#include <utility>

#include <tests/app/ProgramUnderTest.h>
#include <tests/support/MediaJudge.h>

namespace clipworks::test {
namespace {

using nlohmann::json;
using testing::MatchesRegex;

/// The one file that standard output names.
std::filesystem::path outputOf(const ProgramResult& result) {
  EXPECT_EQ(result.exitCode, 0) << result;
  EXPECT_THAT(result.standardOutput, MatchesRegex("[^\n]+\\.mp4\n"));
  return result.standardOutput.substr(0, result.standardOutput.find('\n'));
}

TEST(Loop, PlaysTheClipThreeTimes) {
  const TemporaryDirectory outputs;
  const BarCodeClip clip;
  const auto result = runClipworks({"--outputs", outputs.path(), "loop", clip.path(), "--count", "3"});
  EXPECT_EQ(result.standardError, "");
  const auto output = outputOf(result);
  EXPECT_EQ(namesIn(outputs.path()), std::set<std::string>{output.filename()});

  const auto pictures = MediaJudge(output).pictures();
  ASSERT_EQ(pictures.size(), 180U);
  for (std::size_t i = 0; i < pictures.size(); ++i) {
    EXPECT_EQ(pictures[i].number, static_cast<int>(i % 60));
    EXPECT_NEAR(pictures[i].seconds, static_cast<double>(i) / 30, 0.002);
  }
  const Sound sound = MediaJudge(output).sound();
  for (int second = 0; second < 6; ++second) EXPECT_EQ(toneSecondAt(sound, second + 0.5), second % 2) << second;
}

TEST(Loop, WritesToTheCurrentDirectoryByDefault) {
  const TemporaryDirectory current;
  const TemporaryDirectory temp;
  const auto result = runClipworks({"--temp", temp.path(), "loop", BarCodeClip().path(), "--count", "1"},
                                   {.workingDirectory = current.path()});
  const auto output = outputOf(result);
  EXPECT_FALSE(output.has_parent_path()) << output;
  EXPECT_EQ(namesIn(current.path()), std::set<std::string>{output});
  EXPECT_EQ(namesIn(temp.path()), std::set<std::string>{});
}

TEST(Loop, TellsProgramsHowFarItIs) {
  const TemporaryDirectory outputs;
  const auto result =
      runClipworks({"--json", "--outputs", outputs.path(), "loop", BarCodeClip().path(), "--count", "2"});
  ASSERT_EQ(result.exitCode, 0) << result;
  EXPECT_EQ(result.standardError, "");

  std::vector<double> values;
  for (const auto& event : eventsOf(result, "progress")) values.push_back(event.at("value"));
  ASSERT_GE(values.size(), 2U) << result;
  EXPECT_TRUE(std::is_sorted(values.begin(), values.end())) << result;
  EXPECT_EQ(values.front(), 0);
  EXPECT_EQ(values.back(), 1);

  const json last = eventsOf(result).back();
  EXPECT_EQ(last.at("event"), "done");
  ASSERT_EQ(last.at("outputs").size(), 1U);
  EXPECT_TRUE(std::filesystem::exists(last.at("outputs").at(0).get<std::string>()));
}

TEST(Loop, RunsAtTheSameTimeKeepApart) {
  const TemporaryDirectory outputs;
  const auto command = clipworksCommand({"--outputs", outputs.path(), "loop", BarCodeClip().path(), "--count", "2"});
  RunningProgram first(command);
  RunningProgram second(command);
  const auto a = outputOf(first.wait());
  const auto b = outputOf(second.wait());
  EXPECT_NE(a, b);
  EXPECT_EQ(namesIn(outputs.path()), (std::set<std::string>{a.filename(), b.filename()}));
}

TEST(Loop, IsOfTheCodecAskedFor) {
  struct {
    std::string sourceEncoder;
    std::string asked;
    std::string codec;
  } const cases[] = {{"libx264", "auto", "h264"},
                     {"libx265", "auto", "hevc"},
                     {"libx265", "h264", "h264"},
                     {"libx264", "hevc", "hevc"}};
  for (const auto& [sourceEncoder, asked, codec] : cases) {
    const BarCodeClip clip({.frames = 30, .videoCodec = sourceEncoder, .preset = "ultrafast"});
    const TemporaryDirectory outputs;
    const auto output =
        outputOf(runClipworks({"--outputs", outputs.path(), "--codec", asked, "loop", clip.path(), "--count", "2"}));
    EXPECT_EQ(MediaJudge(output).stream("video").codec, codec) << sourceEncoder << " as " << asked;
    EXPECT_EQ(MediaJudge(output).pictures().size(), 60U);
  }
}

TEST(Rotation, IsHEVCOnlyWhenToldTo) {
  const BarCodeClip clip({.frames = 10, .videoCodec = "libx265", .preset = "ultrafast"});
  const TemporaryDirectory outputs;
  for (const auto& [asked, codec] : {std::pair("auto", "h264"), std::pair("hevc", "hevc")}) {
    const auto output = outputOf(runClipworks({"--outputs", outputs.path(), "--codec", asked, "rotate", clip.path()}));
    EXPECT_EQ(MediaJudge(output).stream("video").codec, codec);
  }
}

TEST(Loop, LosesTheRecordingsDateOnlyWhenToldTo) {
  const TemporaryDirectory outputs;
  const BarCodeClip dated({.outputArguments = {"-metadata", "creation_time=2024-05-06T07:08:09Z"}});
  const auto stripped =
      runClipworks({"--outputs", outputs.path(), "--strip-metadata", "loop", dated.path(), "--count", "2"});
  const auto kept = runClipworks({"--outputs", outputs.path(), "loop", dated.path(), "--count", "2"});
  const auto tagsOf = [](const std::filesystem::path& file) {
    return runProgram({"ffprobe", "-v", "error", "-show_entries", "format_tags", file}).standardOutput;
  };
  EXPECT_THAT(tagsOf(outputOf(kept)), testing::HasSubstr("2024-05-06T07:08:09"));
  EXPECT_THAT(tagsOf(outputOf(stripped)), testing::Not(testing::HasSubstr("2024")));
}

}  // namespace
}  // namespace clipworks::test
