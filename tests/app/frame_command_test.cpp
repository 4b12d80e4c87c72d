#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <string>

#include <nlohmann/json.hpp>

#include <tests/app/ProgramUnderTest.h>
#include <tests/support/BarCodeClip.h>
#include <tests/support/MediaJudge.h>
#include <tests/support/SmallFileSystem.h>
#include <tests/support/TemporaryDirectory.h>

namespace clipworks::test {
namespace {

namespace fs = std::filesystem;
using testing::HasSubstr;
using testing::IsEmpty;

/// Of a rate that varies, with the second picture only 1/600 s behind the first, and times that decimals do not hold.
BarCodeClip unevenClip() {
  return BarCodeClip({.frameTimes = {0, 1, 20, 41, 61, 200, 219, 240, 700, 710},
                      .lastFrameLength = 20,
                      .timescale = 600,
                      .outputArguments = {"-metadata", "creation_time=2024-05-06T07:08:09Z"}});
}

ProgramResult runFrame(const fs::path& outputs, const Arguments& more) {
  Arguments arguments{"--outputs", outputs, "frame", unevenClip().path()};
  arguments.insert(arguments.end(), more.begin(), more.end());
  return runClipworks(arguments);
}

struct PlaceCase {
  std::string name;
  std::string at;
  int number;

  friend std::ostream& operator<<(std::ostream& out, const PlaceCase& c) { return out << c.name; }
};

class FramePlace : public testing::TestWithParam<PlaceCase> {};

TEST_P(FramePlace, GivesThatVeryPicture) {
  const TemporaryDirectory outputs;
  const auto result = runFrame(outputs.path(), {"--at", GetParam().at, "--format", "png", "--name", "still"});
  ASSERT_EQ(result.exitCode, 0) << result;
  EXPECT_EQ(result.standardOutput, outputs.file("still.png").string() + "\n");
  EXPECT_EQ(result.standardError, "");
  EXPECT_EQ(namesIn(outputs.path()), std::set<std::string>{"still.png"});
  EXPECT_EQ(numbersOf(MediaJudge(outputs.file("still.png")).pictures()), std::vector<int>{GetParam().number});
}

INSTANTIATE_TEST_SUITE_P(
    Table, FramePlace,
    testing::Values(PlaceCase{"the_start", "0", 0}, PlaceCase{"just_before_a_picture_comes", "0.001666666", 0},
                    PlaceCase{"just_after_it_came", "0.001666667", 1},
                    PlaceCase{"more_digits_than_count", "0.00166666666666666666", 0}, PlaceCase{"seconds", "0.35", 5},
                    PlaceCase{"a_clock_without_hours", "0:1.1667", 8}, PlaceCase{"a_clock", "00:00:00.069", 3},
                    PlaceCase{"the_first_by_number", "#0", 0}, PlaceCase{"the_second_by_number", "#1", 1},
                    PlaceCase{"one_by_number", "#6", 6}, PlaceCase{"the_last_by_number", "#9", 9},
                    PlaceCase{"the_end", "1.216", 9}),
    [](const auto& testCase) { return testCase.param.name; });

struct RefusalCase {
  std::string name;
  Arguments arguments;
  std::string words;

  friend std::ostream& operator<<(std::ostream& out, const RefusalCase& c) { return out << c.name; }
};

class FrameRefusal : public testing::TestWithParam<RefusalCase> {};

TEST_P(FrameRefusal, ComesBeforeAnythingRuns) {
  const TemporaryDirectory outputs;
  const auto result = runFrame(outputs.path(), GetParam().arguments);
  EXPECT_EQ(result.exitCode, 2) << result;
  EXPECT_THAT(result.standardError, HasSubstr(GetParam().words));
  EXPECT_EQ(result.standardOutput, "");
  EXPECT_THAT(namesIn(outputs.path()), IsEmpty());
}

INSTANTIATE_TEST_SUITE_P(
    Table, FrameRefusal,
    testing::Values(RefusalCase{"no_time", {}, "--at"}, RefusalCase{"words", {"--at", "noon"}, "--at takes seconds"},
                    RefusalCase{"a_negative_time", {"--at", "-1"}, "--at takes seconds"},
                    RefusalCase{"sixty_minutes", {"--at", "0:60:00"}, "--at takes seconds"},
                    RefusalCase{"a_time_behind_the_end", {"--at", "1.3"}, "there is no picture at 1.3"},
                    RefusalCase{"a_picture_behind_the_last", {"--at", "#10"}, "has 10 pictures, from #0 to #9"},
                    RefusalCase{"a_huge_number", {"--at", "#99999999999999999999"}, "--at takes seconds"},
                    RefusalCase{"a_path_for_a_name", {"--at", "0", "--name", "a/b"}, "--name"},
                    RefusalCase{"an_unknown_format", {"--at", "0", "--format", "gif"}, "takes jpg, png or heic"}),
    [](const auto& testCase) { return testCase.param.name; });

TEST(Frame, RefusesToOverwriteItsInput) {
  const TemporaryDirectory outputs;
  fs::copy(unevenClip().path(), outputs.file("clip.jpg"));
  const auto size = fs::file_size(outputs.file("clip.jpg"));
  const auto result =
      runClipworks({"--outputs", outputs.path(), "frame", outputs.file("clip.jpg"), "--at", "0", "--name", "clip"});
  EXPECT_EQ(result.exitCode, 2) << result;
  EXPECT_THAT(result.standardError, HasSubstr("is the input itself"));
  EXPECT_EQ(fs::file_size(outputs.file("clip.jpg")), size);
}

TEST(Frame, KeepsTheRecordingsDateUnlessToldOtherwise) {
  const TemporaryDirectory outputs;
  const auto dateOf = [](const fs::path& file) {
    return runProgram({"exiftool", "-s3", "-DateTimeOriginal", file}).standardOutput;
  };
  const auto kept = runFrame(outputs.path(), {"--at", "0"});
  ASSERT_THAT(kept.standardOutput, testing::MatchesRegex(".*/[a-z0-9]+-frame\\.jpg\n")) << kept;
  EXPECT_EQ(dateOf(kept.standardOutput.substr(0, kept.standardOutput.size() - 1)), "2024:05:06 07:08:09\n");
  ASSERT_EQ(runFrame(outputs.path(), {"--at", "0", "--name", "stripped", "--strip-metadata"}).exitCode, 0);
  EXPECT_EQ(dateOf(outputs.file("stripped.jpg")), "");
}

TEST(Frame, SaysInWordsWhyThereIsNoStill) {
  const TemporaryDirectory outputs;
  const BarCodeClip sound({.frames = 0, .audioSeconds = 1});
  const auto silent = runClipworks({"--outputs", outputs.path(), "frame", sound.path(), "--at", "0"});
  EXPECT_EQ(silent.exitCode, 1);
  EXPECT_THAT(silent.standardError, HasSubstr("has no video track; taking a picture needs one"));

  const BarCodeClip flat({.width = 64, .height = 8, .frames = 2, .audioCodec = ""});
  const auto small = runClipworks({"--outputs", outputs.path(), "frame", flat.path(), "--at", "0", "--format", "heic"});
  EXPECT_EQ(small.exitCode, 1);
  EXPECT_THAT(small.standardError, HasSubstr("too small for HEIC"));
  EXPECT_THAT(namesIn(outputs.path()), IsEmpty());
}

TEST(Frame, AFullDiskFailsThoughTheOperationSaysSuccess) {
  const SmallFileSystem small(16);
  if (!small.isMounted()) GTEST_SKIP() << small.whyNot();
  const auto result = runFrame(small.path(), {"--at", "0", "--format", "png"});
  EXPECT_EQ(result.exitCode, 1) << result;
  EXPECT_THAT(result.standardError, HasSubstr("No space left on device"));
  EXPECT_EQ(result.standardOutput, "");
  EXPECT_THAT(namesIn(small.path()), IsEmpty());
}

}  // namespace
}  // namespace clipworks::test
