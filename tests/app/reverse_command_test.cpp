#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <csignal>
#include <ostream>
#include <regex>
#include <set>
#include <string>

#include <tests/app/ProgramUnderTest.h>
#include <tests/support/BarCodeClip.h>
#include <tests/support/MediaJudge.h>
#include <tests/support/RunProgram.h>
#include <tests/support/SmallFileSystem.h>
#include <tests/support/TemporaryDirectory.h>

namespace clipworks::test {
namespace {

using testing::HasSubstr;
using Names = std::set<std::string>;

std::filesystem::path datedClip() {
  ClipOptions options;
  options.outputArguments = {"-metadata", "creation_time=2024-05-06T07:08:09Z"};
  return BarCodeClip(options).path();
}

std::string tagsOf(const std::filesystem::path& file) {
  return runProgram({"ffprobe", "-v", "error", "-show_entries", "format_tags", "-of", "json", file}).standardOutput;
}

std::vector<int> backwards(int count) {
  std::vector<int> numbers;
  for (int i = count; i-- > 0;) numbers.push_back(i);
  return numbers;
}

TEST(Reverse, PlaysTheClipBackwardsUnderItsName) {
  const TemporaryDirectory outputs;
  const TemporaryDirectory temp;
  const auto result = runClipworks(
      {"--json", "--outputs", outputs.path(), "--temp", temp.path(), "reverse", datedClip(), "--name", "back"});
  ASSERT_EQ(result.exitCode, 0) << result;
  EXPECT_EQ(result.standardError, "");
  const auto file = outputs.path() / "back.mp4";
  EXPECT_EQ(eventsOf(result).back().at("outputs"), (nlohmann::json{file.string()}));
  EXPECT_EQ(namesIn(outputs.path()), Names{"back.mp4"});
  EXPECT_EQ(namesIn(temp.path()), Names{});
  EXPECT_EQ(numbersOf(MediaJudge(file).pictures()), backwards(60));
  EXPECT_EQ(toneSecondAt(MediaJudge(file).sound(), 0.5), 1);
  EXPECT_THAT(tagsOf(file), HasSubstr("2024-05-06T07:08:09"));

  std::vector<double> values;
  for (const auto& event : eventsOf(result, "progress")) values.push_back(event.at("value"));
  EXPECT_TRUE(std::is_sorted(values.begin(), values.end())) << result;
  EXPECT_EQ(values.front(), 0);
  EXPECT_EQ(values.back(), 1);
  EXPECT_GT(values.size(), 20U) << "the pictures tell how far they are";
  EXPECT_EQ(std::count_if(values.begin(), values.end(), [](double value) { return value == 1; }), 1);
}

TEST(Reverse, IsNotHeldToAPoorDataRate) {
  const TemporaryDirectory outputs;
  ClipOptions options;
  options.outputArguments = {"-b:v", "20k"};
  const auto clip = BarCodeClip(options).path();
  const auto result = runClipworks({"--outputs", outputs.path(), "reverse", clip, "--video-only", "--name", "a"});
  ASSERT_EQ(result.exitCode, 0) << result;
  const auto compared = runProgram({"ffmpeg", "-nostdin", "-hide_banner", "-i", outputs.path() / "a.mov", "-i", clip,
                                    "-lavfi", "[1:v]reverse[b];[0:v][b]psnr", "-f", "null", "-"});
  std::smatch least;
  ASSERT_TRUE(std::regex_search(compared.standardError, least, std::regex(" min:([0-9.]+)"))) << compared;
  EXPECT_GT(std::stod(least[1]), 32);
}

struct HalfCase {
  std::string name;
  Arguments options;
  std::string file;
  std::set<std::string> types;
  friend std::ostream& operator<<(std::ostream& out, const HalfCase& c) { return out << c.name; }
};

class ReverseHalf : public testing::TestWithParam<HalfCase> {};

TEST_P(ReverseHalf, IsMadeAlone) {
  const TemporaryDirectory outputs;
  Arguments arguments{"--outputs", outputs.path(), "reverse", datedClip()};
  arguments.insert(arguments.end(), GetParam().options.begin(), GetParam().options.end());
  const auto result = runClipworks(arguments);
  EXPECT_EQ(result.exitCode, 0) << result;
  const auto file = outputs.path() / GetParam().file;
  EXPECT_EQ(result.standardOutput, file.string() + "\n") << "none of the library's lines";
  std::set<std::string> types;
  for (const auto& stream : MediaJudge(file).streams()) types.insert(stream.type);
  EXPECT_EQ(types, GetParam().types);
  EXPECT_EQ(MediaJudge(file).warnings(), "");
  EXPECT_THAT(tagsOf(file), HasSubstr("2024-05-06T07:08:09"));
}

INSTANTIATE_TEST_SUITE_P(Of, ReverseHalf,
                         testing::Values(HalfCase{"pictures", {"--video-only"}, "reversed_video.mov", {"video"}},
                                         HalfCase{
                                             "pictures_by_name", {"--video-only", "--name", "p"}, "p.mov", {"video"}},
                                         HalfCase{"sound", {"--audio-only"}, "reversed_audio.m4a", {"audio"}}),
                         [](const auto& testCase) { return testCase.param.name; });

TEST(Reverse, KeepsNoDateWhenToldSo) {
  const TemporaryDirectory outputs;
  const auto result =
      runClipworks({"--outputs", outputs.path(), "--strip-metadata", "reverse", datedClip(), "--name", "a"});
  EXPECT_EQ(result.exitCode, 0) << result;
  EXPECT_THAT(tagsOf(outputs.path() / "a.mp4"), testing::Not(HasSubstr("2024")));
}

struct RefusalCase {
  std::string name;
  Arguments arguments;
  int exitCode;
  std::string sentence;
  friend std::ostream& operator<<(std::ostream& out, const RefusalCase& c) { return out << c.name; }
};

class ReverseRefusal : public testing::TestWithParam<RefusalCase> {};

TEST_P(ReverseRefusal, SaysWhy) {
  const TemporaryDirectory outputs;
  Arguments arguments{"--outputs", outputs.path(), "reverse"};
  arguments.insert(arguments.end(), GetParam().arguments.begin(), GetParam().arguments.end());
  const auto result = runClipworks(arguments);
  EXPECT_EQ(result.exitCode, GetParam().exitCode) << result;
  EXPECT_THAT(result.standardError, HasSubstr(GetParam().sentence));
  EXPECT_EQ(namesIn(outputs.path()), Names{});
}

INSTANTIATE_TEST_SUITE_P(
    Of, ReverseRefusal,
    testing::Values(
        RefusalCase{
            "a_clip_without_sound", {silentClip()}, 1, "has no sound track; reversing needs one, unless --video-only"},
        RefusalCase{"sound_alone", {soundAlone()}, 1, "has no video track; reversing needs one, unless --audio-only"},
        RefusalCase{"a_path_for_a_name", {silentClip(), "--video-only", "--name", "a/b"}, 2, "--name takes a name"},
        RefusalCase{"an_empty_name", {silentClip(), "--video-only", "--name", ""}, 2, "--name must not be empty"},
        RefusalCase{"both_halves", {silentClip(), "--video-only", "--audio-only"}, 2, "--audio-only"},
        RefusalCase{"a_missing_file", {"missing.mp4"}, 1, "missing.mp4"}),
    [](const auto& testCase) { return testCase.param.name; });

TEST(Reverse, NeverReplacesItsInput) {
  const TemporaryDirectory outputs;
  std::filesystem::copy_file(BarCodeClip({.frames = 5}).path(), outputs.path() / "clip.mp4");
  const auto result =
      runClipworks({"--outputs", outputs.path(), "reverse", outputs.path() / "clip.mp4", "--name", "clip"});
  EXPECT_EQ(result.exitCode, 2) << result;
  EXPECT_THAT(result.standardError, HasSubstr("is the input itself"));
}

TEST(Reverse, SaysWhenTheDiskIsFull) {
  const SmallFileSystem small(256);
  if (!small.isMounted()) GTEST_SKIP() << small.whyNot();
  const auto result = runClipworks({"--outputs", small.path(), "reverse", slowClip(), "--name", "a"});
  EXPECT_EQ(result.exitCode, 1) << result;
  EXPECT_THAT(result.standardError, HasSubstr("No space left on device"));
  EXPECT_EQ(namesIn(small.path()), Names{});
}

TEST(Reverse, EndsAtOnceWhenItIsInterrupted) {
  const TemporaryDirectory outputs;
  RunningProgram program(clipworksCommand({"--json", "--outputs", outputs.path(), "reverse", slowClip()}));
  ASSERT_TRUE(program.waitForText(R"("value":0.1)")) << program.wait();
  program.send(SIGINT);
  const auto result = program.wait();
  EXPECT_EQ(result.exitCode, 130) << result;
  EXPECT_EQ(result.standardError, "clipworks: interrupted\n");
  EXPECT_EQ(namesIn(outputs.path()), Names{});
}

}  // namespace
}  // namespace clipworks::test
