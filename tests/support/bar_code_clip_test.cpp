#include <algorithm>
#include <filesystem>
#include <fstream>
#include <functional>
#include <iterator>
#include <numeric>
#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <tests/support/BarCode.h>
#include <tests/support/BarCodeClip.h>
#include <tests/support/MediaJudge.h>
#include <tests/support/RunProgram.h>
#include <tests/support/TemporaryDirectory.h>
#include <tests/support/Tone.h>

// The judges judged: what the other tests believe stands on these.

namespace clipworks::test {
namespace {

using ::testing::AllOf;
using ::testing::Each;
using ::testing::ElementsAreArray;
using ::testing::Field;
using ::testing::SizeIs;

std::vector<int> upTo(int count) {
  std::vector<int> numbers(static_cast<std::size_t>(count));
  std::iota(numbers.begin(), numbers.end(), 0);
  return numbers;
}

/// A grey picture with the code of `number` alone.
GreyPicture painted(int number, int width, int height) {
  GreyPicture picture{width, height, {}};
  for (int y = 0; y < height; ++y) {
    for (int x = 0; x < width; ++x) {
      const double u = ((x + 0.5) / width - BarCode::panelStart) / BarCode::panelLength;
      const double v = ((y + 0.5) / height - BarCode::panelStart) / BarCode::panelLength;
      const bool inside = u >= 0 && u < 1 && v >= 0 && v < 1;
      const bool white = inside && BarCode::isWhite(number, static_cast<int>(u * BarCode::columns),
                                                    static_cast<int>(v * BarCode::rows));
      picture.pixels.push_back(white ? 235 : inside ? 16 : 100);
    }
  }
  return picture;
}

/// Runs `ffmpeg` on a clip: `-i CLIP arguments… OUTPUT`.
std::filesystem::path processed(const TemporaryDirectory& directory, const BarCodeClip& clip,
                                std::vector<std::string> arguments, const std::string& name = "out.mp4") {
  std::vector<std::string> argv{"ffmpeg", "-nostdin", "-v", "error", "-y", "-i", clip.path()};
  argv.insert(argv.end(), arguments.begin(), arguments.end());
  argv.push_back(directory.file(name));
  const ProgramResult result = runProgram(argv);
  EXPECT_TRUE(result.succeeded()) << result;
  return directory.file(name);
}

TEST(BarCode, EveryNumberReadsBackAndNoOther) {
  for (int number = 0; number < BarCode::numbers; number += 97) {
    const auto read = BarCode::read(painted(number, 40, 30));
    ASSERT_TRUE(read) << number;
    EXPECT_EQ(read->number, number);
    EXPECT_EQ(read->orientation, Orientation{});
  }
}

TEST(BarCode, WhatIsNoPictureOfOneNumberIsNotRead) {
  GreyPicture blend = painted(5, 80, 80);
  const GreyPicture next = painted(6, 80, 80);
  std::transform(blend.pixels.begin(), blend.pixels.end(), next.pixels.begin(), blend.pixels.begin(),
                 [](int a, int b) { return static_cast<std::uint8_t>((a + b) / 2); });
  EXPECT_FALSE(BarCode::read(blend)) << "two pictures blended";

  GreyPicture torn = painted(5, 80, 80);
  const GreyPicture other = painted(0x5A5A, 80, 80);
  std::copy(other.pixels.begin() + 80 * 40, other.pixels.end(), torn.pixels.begin() + 80 * 40);
  EXPECT_FALSE(BarCode::read(torn)) << "the lower half of another picture";

  EXPECT_FALSE(BarCode::read({80, 80, std::vector<std::uint8_t>(6400, 16)})) << "black";
}

TEST(BarCodeClip, HoldsItsPicturesAtTheirTimesAndTheToneInItsSeconds) {
  const BarCodeClip clip({.frames = 90});
  const MediaJudge judge(clip.path());
  const auto pictures = judge.pictures();
  EXPECT_THAT(numbersOf(pictures), ElementsAreArray(upTo(90)));
  ASSERT_THAT(pictures, SizeIs(90));
  for (std::size_t i = 0; i < pictures.size(); ++i) {
    EXPECT_NEAR(pictures[i].seconds, static_cast<double>(i) / 30, 1e-9);
    EXPECT_EQ(pictures[i].orientation, Orientation{});
  }
  const Sound sound = judge.sound();
  EXPECT_NEAR(sound.seconds(), 3.0, 0.03);
  for (const int second : {0, 1, 2}) {
    EXPECT_EQ(toneSecondAt(sound, second + 0.1), second);
    EXPECT_EQ(toneSecondAt(sound, second + 0.9), second);
  }
  const auto lag = lagMilliseconds(makeTone(16'000, 0, 3), sound);
  ASSERT_TRUE(lag);
  EXPECT_NEAR(*lag, 0, 0.1);
  EXPECT_EQ(judge.warnings(), "");
  EXPECT_NEAR(judge.duration(), 3.0, 0.001);
}

TEST(BarCodeClip, TheSameOptionsGiveTheSameBytes) {
  const auto bytes = [](const BarCodeClip& clip) {
    std::ifstream in(clip.path(), std::ios::binary);
    return std::string(std::istreambuf_iterator<char>(in), {});
  };
  const BarCodeClip one({.frames = 20, .outputArguments = {"-movie_timescale", "1000"}});
  const BarCodeClip two({.frames = 20});  // 1000 is the muxer's default
  EXPECT_NE(one.path(), two.path());
  EXPECT_EQ(bytes(one), bytes(two));
  EXPECT_EQ(BarCodeClip({.frames = 20}).path(), two.path()) << "made once a process";
}

struct FormCase {
  std::string name;
  ClipOptions options;
  std::string codec;
};
void PrintTo(const FormCase& form, std::ostream* out) { *out << form.name; }

class BarCodeClipForms : public ::testing::TestWithParam<FormCase> {};

TEST_P(BarCodeClipForms, ShowsEveryPictureInOrder) {
  const BarCodeClip clip(GetParam().options);
  const MediaJudge judge(clip.path());
  EXPECT_EQ(judge.stream("video").codec, GetParam().codec);
  EXPECT_EQ(judge.stream("video").width, GetParam().options.width);
  EXPECT_EQ(judge.stream("video").height, GetParam().options.height);
  const auto pictures = judge.pictures();
  EXPECT_THAT(numbersOf(pictures), ElementsAreArray(upTo(static_cast<int>(clip.times().size()))));
  ASSERT_EQ(pictures.size(), clip.times().size());
  for (std::size_t i = 0; i < pictures.size(); ++i) {
    EXPECT_NEAR(pictures[i].seconds, clip.times()[i], 0.0006) << i;
  }
}

INSTANTIATE_TEST_SUITE_P(
    All, BarCodeClipForms,
    ::testing::Values(
        FormCase{"HeavyCompression", {.frames = 12, .outputArguments = {"-crf", "45"}}, "h264"},
        FormCase{"TinyPictures", {.width = 48, .height = 32, .frames = 12}, "h264"},
        FormCase{"OddSize", {.width = 321, .height = 181, .frames = 6, .pixelFormat = "yuv444p"}, "h264"},
        FormCase{
            "OpenGroupsOfHEVC",
            {.frames = 40, .videoCodec = "libx265", .preset = "ultrafast", .gop = 10, .groups = GroupOfPictures::open},
            "hevc"},
        FormCase{"TenBitHEVC",
                 {.frames = 12, .videoCodec = "libx265", .preset = "ultrafast", .pixelFormat = "yuv420p10le"},
                 "hevc"},
        FormCase{"VariableRate", {.frameTimes = {0, 20, 53, 87, 120, 220, 253, 300}, .timescale = 600}, "h264"},
        FormCase{"PicturesThatStartLate", {.frameTimes = {150, 170, 190, 230}, .timescale = 600}, "h264"},
        FormCase{"BroadcastRate", {.frames = 30, .rate = {30'000, 1001}, .extension = ".mov"}, "h264"},
        FormCase{"OtherContainer", {.frames = 20, .audioCodec = "flac", .extension = ".mkv"}, "h264"}),
    [](const auto& form) { return form.param.name; });

TEST(BarCodeClip, GroupsOfPicturesAreAsAsked) {
  const BarCodeClip closed({.frames = 40, .gop = 10});
  const BarCodeClip open({.frames = 40, .gop = 10, .groups = GroupOfPictures::open});
  const auto leadingPictures = [](const BarCodeClip& clip) {
    int leading = 0;
    double accessPoint = 0;
    for (const CodedSample& sample : MediaJudge(clip.path()).codedSamples("video")) {
      accessPoint = sample.isAccessPoint ? sample.presentation : accessPoint;
      leading += sample.presentation < accessPoint ? 1 : 0;
    }
    return leading;
  };
  EXPECT_EQ(leadingPictures(closed), 0);
  EXPECT_GT(leadingPictures(open), 0);
}

TEST(BarCodeClip, VariableRateEndsAsAsked) {
  const BarCodeClip clip({.frameTimes = {0, 20, 53, 100}, .lastFrameLength = 44, .timescale = 600, .audioCodec = ""});
  EXPECT_DOUBLE_EQ(clip.videoEnd(), 0.24);
  const auto [value, timescale] = MediaJudge(clip.path()).movieHeaderDuration();
  EXPECT_NEAR(static_cast<double>(value) / static_cast<double>(timescale), 0.24, 0.001);
}

TEST(BarCodeClip, DelayedSoundStartsLaterAndStillTellsTheMoviesSeconds) {
  const BarCodeClip clip({.frames = 60, .audioSeconds = 1.2, .audioDelay = 0.4});
  EXPECT_DOUBLE_EQ(clip.audioEnd(), 1.6);
  const Sound sound = MediaJudge(clip.path()).sound();
  EXPECT_EQ(toneSecondAt(sound, 0.25), -1) << "silence before it";
  EXPECT_EQ(toneSecondAt(sound, 0.5), 0);
  EXPECT_EQ(toneSecondAt(sound, 1.2), 1);
  const auto lag = lagMilliseconds(makeTone(16'000, 0, 1.6).part(0.4, 1.6), sound.part(0.4, 1.6));
  ASSERT_TRUE(lag);
  EXPECT_NEAR(*lag, 0, 1);
}

TEST(BarCodeClip, TheMatrixTurnsThePicturesOnlyWhenSeenUpright) {
  for (const int degrees : {90, 180, 270}) {
    const MediaJudge judge(BarCodeClip({.frames = 5, .rotation = degrees}).path());
    EXPECT_EQ(judge.stream("video").rotation, degrees);
    EXPECT_THAT(judge.pictures(), Each(Field(&SeenPicture::orientation, Orientation{})));
    EXPECT_THAT(judge.pictures(PictureView::upright),
                AllOf(SizeIs(5), Each(Field(&SeenPicture::orientation, Orientation{false, degrees / 90}))));
  }
}

TEST(MediaJudge, TellsWrongPicturesFromRightOnes) {
  const BarCodeClip clip({.frames = 30, .audioCodec = ""});
  const TemporaryDirectory directory;
  const auto numbers = [&](const std::string& filter) {
    return numbersOf(MediaJudge(processed(directory, clip, {"-vf", filter})).pictures());
  };
  std::vector<int> backwards = upTo(30);
  std::reverse(backwards.begin(), backwards.end());
  EXPECT_THAT(numbers("reverse"), ElementsAreArray(backwards));
  EXPECT_THAT(numbers("trim=start_frame=7,setpts=PTS-STARTPTS").front(), 7);
  EXPECT_THAT(numbers("tmix=frames=2:weights=1 1,trim=start_frame=1"), ElementsAreArray(std::vector<int>(29, -1)))
      << "blended neighbours are no picture of the clip";

  const auto mirrored = MediaJudge(processed(directory, clip, {"-vf", "hflip"})).pictures();
  EXPECT_THAT(mirrored, AllOf(SizeIs(30), Each(Field(&SeenPicture::orientation, Orientation{true, 0}))));
  EXPECT_EQ(numberAt(mirrored, 0.5), 15);
  EXPECT_EQ(numberAt(mirrored, 0.499), 14);
}

TEST(MediaJudge, HashesTellACopyFromAnEncode) {
  const BarCodeClip clip({.frames = 10, .audioCodec = ""});
  const TemporaryDirectory directory;
  const MediaJudge source(clip.path());
  const MediaJudge copy(processed(directory, clip, {"-c", "copy"}, "copy.mp4"));
  const MediaJudge encode(processed(directory, clip, {"-c:v", "libx264"}, "encode.mp4"));
  EXPECT_THAT(source.pictureHashes(), SizeIs(10));
  EXPECT_EQ(copy.pictureHashes(), source.pictureHashes());
  EXPECT_NE(encode.pictureHashes(), source.pictureHashes());
  const auto hashes = [](const MediaJudge& judge) {
    std::vector<std::string> all;
    for (const CodedSample& sample : judge.codedSamples("video")) {
      all.push_back(sample.hash);
    }
    return all;
  };
  EXPECT_EQ(hashes(copy), hashes(source));
  EXPECT_NE(hashes(encode), hashes(source));
}

TEST(MediaJudge, HearsAHoleOfAFewMilliseconds) {
  // Two seconds of tone whose second half starts 20 ms late.
  const TemporaryDirectory directory;
  const BarCodeClip clip({.frames = 60, .audioCodec = "pcm_s16le", .extension = ".mov"});
  const auto late =
      processed(directory, clip, {"-af", "asetpts='PTS+if(gte(T,1),0.02/TB,0)'", "-c:v", "copy", "-c:a", "pcm_s16le"},
                "late.mkv");
  const Sound source = MediaJudge(clip.path()).sound();
  const Sound got = MediaJudge(late).sound();
  const auto before = lagMilliseconds(source.part(0, 0.9), got.part(0, 0.9));
  const auto after = lagMilliseconds(source.part(1.1, 1.9), got.part(1.1, 1.9));
  ASSERT_TRUE(before && after);
  EXPECT_NEAR(*before, 0, 0.6) << "the container counts in milliseconds";
  EXPECT_NEAR(*after, 20, 0.6);
}

TEST(MediaJudge, AFileThatIsNoMediaIsSaidSo) {
  const TemporaryDirectory directory;
  std::ofstream(directory.file("note.mp4")) << "no movie";
  EXPECT_ANY_THROW((void)MediaJudge(directory.file("note.mp4")).streams());
  EXPECT_ANY_THROW((void)MediaJudge(directory.file("absent.mp4")).pictures());
  EXPECT_ANY_THROW(BarCodeClip({.videoCodec = "no-such-encoder"}));
}

TEST(MediaJudge, DamageIsAWarning) {
  const BarCodeClip clip({.frames = 30, .audioCodec = ""});
  const TemporaryDirectory directory;
  std::filesystem::copy(clip.path(), directory.file("damaged.mp4"));
  std::fstream file(directory.file("damaged.mp4"), std::ios::in | std::ios::out | std::ios::binary);
  file.seekp(2000);
  file << std::string(3000, '\x55');
  file.close();
  EXPECT_NE(MediaJudge(directory.file("damaged.mp4")).warnings(), "");
}

TEST(Tone, ShiftsAreMeasuredToAFractionOfASample) {
  const Sound tone = makeTone(16'000, 0, 2);
  for (const double shift : {-12.34, -0.5, 0.0, 0.03, 2.5, 48.0}) {
    const auto lag = lagMilliseconds(tone, makeTone(16'000, -shift / 1000, 2).part(0, 2));
    ASSERT_TRUE(lag) << shift;
    EXPECT_NEAR(*lag, shift, 0.02);
  }
  EXPECT_FALSE(lagMilliseconds(tone, {16'000, std::vector<float>(32'000, 0.0F)})) << "silence";
}

TEST(Tone, NoSecondIsHeardWhereTwoAreMixed) {
  Sound mix = makeTone(16'000, 0, 1);
  const Sound other = makeTone(16'000, 3, 1);
  std::transform(mix.samples.begin(), mix.samples.end(), other.samples.begin(), mix.samples.begin(), std::plus<>());
  EXPECT_EQ(toneSecondAt(mix, 0.5), -1);
  EXPECT_EQ(toneSecondAt(other, 0.5), 3);
}

}  // namespace
}  // namespace clipworks::test
