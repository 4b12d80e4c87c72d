#include <cmath>
#include <filesystem>
#include <string>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <tests/app/ProgramUnderTest.h>
#include <tests/support/BarCodeClip.h>
#include <tests/support/MediaJudge.h>
#include <tests/support/TemporaryDirectory.h>

namespace clipworks::test {
namespace {

namespace fs = std::filesystem;
using testing::HasSubstr;
using testing::MatchesRegex;

// The ffmpeg program folds two equal channels of AAC into one that is 3 dB louder.
const double foldGain = std::sqrt(2);

/// The test tone on its own, in whatever the ending asks for.
fs::path toneFile(const std::string& encoder, const std::string& ending, int rate = 48'000) {
  return BarCodeClip({.frames = 0, .audioCodec = encoder, .sampleRate = rate, .audioSeconds = 1, .extension = ending})
      .path();
}

fs::path silentClip() { return BarCodeClip({.frames = 10, .audioCodec = ""}).path(); }

struct PieceCase {
  std::string name;
  std::string encoder;
  std::string ending;
  int rate = 48'000;

  friend std::ostream& operator<<(std::ostream& out, const PieceCase& c) { return out << c.name; }
};

class NarratePiece : public testing::TestWithParam<PieceCase> {};

TEST_P(NarratePiece, IsHeardWhereItWasAsked) {
  const auto& [name, encoder, ending, rate] = GetParam();
  const TemporaryDirectory outputs;
  const TemporaryDirectory pieces;
  const fs::path piece = pieces.file("a@b: c" + ending);
  fs::copy_file(toneFile(encoder, ending, rate), piece);
  const BarCodeClip clip({.frames = 120});
  const auto result =
      runClipworks({"--outputs", outputs.path(), "narrate", clip.path(), "--piece", piece.string() + "@2.25:0.5",
                    "--base-volume", "0", "--piece", piece.string() + "@0.5"});
  ASSERT_EQ(result.exitCode, 0) << result;
  EXPECT_EQ(result.standardError, "");
  ASSERT_THAT(result.standardOutput, MatchesRegex("[^\n]+\\.mp4\n"));
  const fs::path output = result.standardOutput.substr(0, result.standardOutput.size() - 1);
  EXPECT_EQ(namesIn(outputs.path()), std::set<std::string>{output.filename()});
  EXPECT_EQ(MediaJudge(output).stream("video").codec, "h264");
  EXPECT_EQ(MediaJudge(output).pictures().size(), 120U);

  const Sound heard = MediaJudge(output).sound();
  const Sound tone = makeTone(heard.rate, 0, 1);
  for (const auto& [at, volume] : {std::pair(0.5, 1.0), std::pair(2.25, 0.5)}) {
    const auto lag = lagMilliseconds(tone, heard.part(at, at + 1));
    ASSERT_TRUE(lag) << at;
    EXPECT_NEAR(*lag, 0, 1) << at;
    EXPECT_NEAR(heard.part(at + 0.1, at + 0.9).level() / tone.part(0.1, 0.9).level(), volume * foldGain, 0.03) << at;
  }
  EXPECT_LT(heard.part(1.6, 2.2).level(), 0.003) << "the clip's own sound";
}

INSTANTIATE_TEST_SUITE_P(Formats, NarratePiece,
                         testing::Values(PieceCase{"WAV", "pcm_s16le", ".wav", 44'100}, PieceCase{"AAC", "aac", ".m4a"},
                                         PieceCase{"FLAC", "flac", ".flac"}),
                         [](const auto& testCase) { return testCase.param.name; });

struct RefusedCase {
  std::string name;
  Arguments arguments;
  std::string sentence;
  int exitCode;

  friend std::ostream& operator<<(std::ostream& out, const RefusedCase& c) { return out << c.name; }
};

class NarrateRefuses : public testing::TestWithParam<RefusedCase> {};

TEST_P(NarrateRefuses, InOneSentence) {
  const TemporaryDirectory outputs;
  Arguments arguments{"--outputs", outputs.path(), "narrate"};
  arguments.insert(arguments.end(), GetParam().arguments.begin(), GetParam().arguments.end());
  const auto result = runClipworks(arguments);
  EXPECT_EQ(result.exitCode, GetParam().exitCode) << result;
  EXPECT_THAT(result.standardError, HasSubstr(GetParam().sentence));
  EXPECT_EQ(namesIn(outputs.path()), std::set<std::string>{});
}

std::vector<RefusedCase> refusedCases() {
  const std::string clip = BarCodeClip({.frames = 60}).path();
  const std::string tone = toneFile("pcm_s16le", ".wav");
  return {{"a_piece_without_a_time", {clip, "--piece", tone}, "--piece takes AUDIO@S", 2},
          {"a_piece_without_a_file", {clip, "--piece", "@2"}, "--piece takes AUDIO@S", 2},
          {"a_time_that_is_no_number", {clip, "--piece", tone + "@1s"}, "--piece takes AUDIO@S", 2},
          {"a_negative_time", {clip, "--piece", tone + "@-1"}, "would start before the clip", 2},
          {"a_negative_volume", {clip, "--piece", tone + "@1:-1"}, "needs a volume from 0 to 1000", 2},
          {"an_infinite_base_volume", {clip, "--piece", tone + "@1", "--base-volume", "inf"}, "--base-volume takes", 2},
          {"an_unknown_quality", {clip, "--piece", tone + "@1", "--quality", "high"}, "takes low, highCompressed", 2},
          {"a_time_behind_the_clip", {clip, "--piece", tone + "@2"}, "ends at 2.000 seconds", 2},
          {"no_piece", {clip}, "--piece is required", 2},
          {"a_piece_that_is_not_there", {clip, "--piece", "/nowhere/a.wav@1"}, "a.wav", 1},
          {"a_piece_without_sound", {clip, "--piece", silentClip().string() + "@1"}, "has no sound track", 1},
          {"a_silent_clip", {silentClip(), "--piece", tone + "@0"}, "has no sound track; narration needs one", 1},
          {"sound_alone", {tone, "--piece", tone + "@0"}, "has no video track; narration needs one", 1}};
}

INSTANTIATE_TEST_SUITE_P(Cases, NarrateRefuses, testing::ValuesIn(refusedCases()),
                         [](const auto& testCase) { return testCase.param.name; });

}  // namespace
}  // namespace clipworks::test
