#include <csignal>
#include <functional>

#include <gmock/gmock.h>

#include <tests/support/BarCodeClip.h>
#include <tests/support/MediaJudge.h>
#include <tests/support/RunProgram.h>
#include <tests/support/TemporaryDirectory.h>

// The judges judged: they can fail.

namespace clipworks::test {
namespace {

using ::testing::Each;
using ::testing::Field;

/// Runs `ffmpeg` on a clip: `-i CLIP arguments… OUTPUT`.
std::filesystem::path processed(const BarCodeClip& clip, std::vector<std::string> arguments, const std::string& name) {
  static const TemporaryDirectory directory;
  arguments.insert(arguments.begin(), {"ffmpeg", "-nostdin", "-v", "error", "-y", "-i", clip.path()});
  arguments.push_back(directory.file(name));
  const ProgramResult result = runProgram(arguments);
  EXPECT_TRUE(result.succeeded()) << result;
  return directory.file(name);
}

TEST(MediaJudge, TellsWrongPicturesFromRightOnes) {
  const BarCodeClip clip({.frames = 30, .audioCodec = ""});
  const auto seen = [&](const std::string& filter) {
    return MediaJudge(processed(clip, {"-vf", filter}, "out.mp4")).pictures();
  };
  EXPECT_EQ(numbersOf(seen("reverse")).front(), 29);
  EXPECT_THAT(numbersOf(seen("tmix=frames=2:weights=1 1,trim=start_frame=1")), Each(-1)) << "blended neighbours";
  const auto mirrored = seen("hflip");
  EXPECT_THAT(mirrored, Each(Field(&SeenPicture::orientation, Orientation{true, 0})));
  EXPECT_EQ(numberAt(mirrored, 0.499), 14);
  EXPECT_EQ(numberAt(mirrored, 0.5), 15);
  const MediaJudge source(clip.path());
  const MediaJudge encoded(processed(clip, {"-c:v", "libx264"}, "out.mp4"));
  EXPECT_NE(encoded.pictureHashes(), source.pictureHashes());
  EXPECT_NE(hashesOf(encoded.codedSamples("video")), hashesOf(source.codedSamples("video")));
}

TEST(MediaJudge, HearsAHoleOfAFewMilliseconds) {
  const BarCodeClip clip({.frames = 60, .audioCodec = "pcm_s16le", .extension = ".mov"});
  const auto late =
      processed(clip, {"-af", "asetpts='PTS+if(gte(T,1),0.02/TB,0)'", "-c:v", "copy", "-c:a", "pcm_s16le"}, "late.mkv");
  const Sound source = MediaJudge(clip.path()).sound();
  const Sound got = MediaJudge(late).sound();
  EXPECT_NEAR(lagMilliseconds(source.part(0, 0.9), got.part(0, 0.9)).value(), 0, 0.6) << "Matroska's clock";
  EXPECT_NEAR(lagMilliseconds(source.part(1.1, 1.9), got.part(1.1, 1.9)).value(), 20, 0.6);
}

TEST(MediaJudge, SaysWhatIsDamagedOrNoMedia) {
  const BarCodeClip clip({.frames = 30, .audioCodec = ""});
  const TemporaryDirectory directory;
  std::ofstream(directory.file("damaged.mp4"), std::ios::binary)
      << fileBytes(clip.path()).replace(2000, 3000, 3000, '\x55');
  EXPECT_NE(MediaJudge(directory.file("damaged.mp4")).warnings(), "");
  EXPECT_ANY_THROW((void)MediaJudge(directory.file("absent.mp4")).pictures());
  EXPECT_ANY_THROW(BarCodeClip({.videoCodec = "no-such-encoder"}));
}

TEST(Tone, OfTwoAtOnceIsNoSecondAndSilenceHasNoShift) {
  Sound mix = makeTone(16'000, 0, 2);
  EXPECT_FALSE(lagMilliseconds(mix, {16'000, std::vector<float>(32'000, 0.0F)}));
  const Sound other = makeTone(16'000, 3, 2);
  std::transform(mix.samples.begin(), mix.samples.end(), other.samples.begin(), mix.samples.begin(), std::plus<>());
  EXPECT_EQ(toneSecondAt(mix, 0.5), -1);
}

TEST(RunProgram, EndsAtItsDeadlineWithItsChildrenAndKeepsWhatWasPrinted) {
  const auto result = runProgram({"sh", "-c", "echo begun; cat | wc -c; sleep 100 & sleep 100"},
                                 {.deadline = std::chrono::milliseconds(500)});
  EXPECT_TRUE(result.timedOut);
  EXPECT_EQ(result.signal, SIGKILL);
  EXPECT_EQ(result.standardOutput, "begun\n0\n");
  EXPECT_EQ(runProgram({"no-such-program-here"}).exitCode, 127);
  EXPECT_FALSE(RunningProgram({"true"}).waitForText("ready")) << "it ended without saying so";
}

}  // namespace
}  // namespace clipworks::test
