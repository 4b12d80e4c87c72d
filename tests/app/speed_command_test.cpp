#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <ostream>
#include <string>

#include <tests/app/ProgramUnderTest.h>
#include <tests/support/BarCodeClip.h>
#include <tests/support/MediaJudge.h>
#include <tests/support/TemporaryDirectory.h>

namespace clipworks::test {
namespace {

using testing::HasSubstr;

TEST(Speed, SlowsAStretchDownAndCopiesThePictures) {
  const TemporaryDirectory outputs;
  const BarCodeClip clip;  // 60 pictures in two seconds
  const auto result = runClipworks({"--outputs", outputs.path(), "speed", clip.path(), "--from", "0.5", "--to", "1.5",
                                    "--ratio", "3", "--name", "slow"});
  ASSERT_EQ(result.exitCode, 0) << result;
  EXPECT_EQ(result.standardError, "");
  const auto output = outputs.path() / "slow.mp4";
  EXPECT_EQ(result.standardOutput, output.string() + "\n");
  EXPECT_EQ(namesIn(outputs.path()), std::set<std::string>{"slow.mp4"});
  const auto pictures = MediaJudge(output).pictures();
  EXPECT_EQ(pictures.size(), 60U);
  EXPECT_EQ(numberAt(pictures, 2.01), 30);
  EXPECT_EQ(numberAt(pictures, 3.99), 59);
  const auto hashes = MediaJudge(output).pictureHashes();
  EXPECT_EQ(hashes, MediaJudge(clip.path()).pictureHashes()) << "not encoded again";
}

struct WrongCase {
  std::string name;
  Arguments options;
  std::string sentence;
  int exitCode = 2;
  bool hasSound = true;

  friend std::ostream& operator<<(std::ostream& out, const WrongCase& c) { return out << c.name; }
};

class WrongSpeed : public testing::TestWithParam<WrongCase> {};

TEST_P(WrongSpeed, IsRefusedInOneSentence) {
  const TemporaryDirectory outputs;
  ClipOptions options;
  if (!GetParam().hasSound) options.audioCodec.clear();
  Arguments arguments{"--outputs", outputs.path(), "speed", BarCodeClip(options).path()};
  arguments.insert(arguments.end(), GetParam().options.begin(), GetParam().options.end());
  const auto result = runClipworks(arguments);
  EXPECT_EQ(result.exitCode, GetParam().exitCode) << result;
  EXPECT_THAT(result.standardError, HasSubstr(GetParam().sentence));
  EXPECT_EQ(result.standardOutput, "");
  EXPECT_EQ(namesIn(outputs.path()), std::set<std::string>{});
}

INSTANTIATE_TEST_SUITE_P(
    Uses, WrongSpeed,
    testing::Values(
        WrongCase{"end_before_start", {"--from", "1", "--to", "1", "--ratio", "2"}, "--from must come before --to"},
        WrongCase{"before_the_clip", {"--from=-1", "--to", "1", "--ratio", "2"}, "--from must not be negative"},
        WrongCase{"after_the_clip", {"--from", "1", "--to", "2.5", "--ratio", "2"}, "ends at 2.0"},
        WrongCase{
            "no_number_of_seconds", {"--from", "nan", "--to", "1", "--ratio", "2"}, "--from and --to take seconds"},
        WrongCase{"ratio_zero", {"--from", "0", "--to", "1", "--ratio", "0"}, "--ratio must be more than 0"},
        WrongCase{"ratio_infinite", {"--from", "0", "--to", "1", "--ratio", "inf"}, "--ratio must be more than 0"},
        WrongCase{"ratio_too_small", {"--from", "0", "--to", "1", "--ratio", "1e-9"}, "nothing of the stretch"},
        WrongCase{"ratio_too_great", {"--from", "0", "--to", "1", "--ratio", "1e9"}, "1000 hours"},
        WrongCase{"unknown_quality", {"--from", "0", "--to", "1", "--ratio", "2", "--quality", "best"}, "--quality"},
        WrongCase{
            "name_with_a_folder", {"--from", "0", "--to", "1", "--ratio", "2", "--name", "a/b"}, "without a folder"},
        WrongCase{"empty_name", {"--from", "0", "--to", "1", "--ratio", "2", "--name", ""}, "--name must not be empty"},
        WrongCase{"no_sound", {"--from", "0", "--to", "1", "--ratio", "2"}, "has no sound track", 1, false}),
    [](const auto& testCase) { return testCase.param.name; });

}  // namespace
}  // namespace clipworks::test
