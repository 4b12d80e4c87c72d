#include <ostream>
#include <string>
#include <string_view>
#include <tuple>
#include <vector>

#include "ExportTesting.h"

// Loops whose coded pictures stay as they are. Clips are short, since what can go wrong is at their joins.

namespace clipworks::test {
namespace {

using testing::Each;
using testing::Field;

/// Of Matroska, which counts in milliseconds; other clips' pictures lie on whole ticks.
constexpr double millisecondClock = 0.0006;
constexpr double wholeTicks = 0.0001;

struct Clip {
  const char* sentence;
  ClipOptions options;
  std::string_view preset = AVAssetExportPresetHighestQuality;
  double tolerance = wholeTicks;
};
void PrintTo(const Clip& clip, std::ostream* out) { *out << clip.sentence; }

ClipOptions small(ClipOptions options) {
  options.width = 160;
  options.height = 90;
  return options;
}

/// 1.6 seconds, a hole of 0.6 among them.
const std::vector<std::int64_t> unevenTimes{0,      1001,   2002,   4004,   5005,   9000,   10'000,
                                            10'500, 28'500, 29'500, 30'500, 32'502, 33'503, 35'000,
                                            36'001, 38'000, 39'001, 41'003, 44'000, 46'000};
const std::vector<std::int64_t> lateTimes{12'000, 13'000, 14'000, 15'000, 16'000, 17'000, 18'000, 19'000,
                                          20'000, 21'000, 22'000, 23'000, 24'000, 25'000, 26'000, 27'000};

const Clip reordered{"a constant rate with B pictures", small({.frames = 40, .rate = {30'000, 1001}, .gop = 12})};
const Clip variableRate{"a variable rate with B pictures and a hole",
                        small({.frameTimes = unevenTimes, .lastFrameLength = 2000, .timescale = 30'000, .gop = 9})};
const Clip shortSound{"sound that is shorter than the pictures", small({.frames = 50, .audioSeconds = 1.2})};
const Clip longSound{"sound that is longer than the pictures", small({.frames = 30, .audioSeconds = 1.4})};
const Clip lateSound{"sound that starts late", small({.frames = 45, .audioDelay = 0.3})};
const Clip latePictures{
    "pictures that start late",
    small({.frameTimes = lateTimes, .lastFrameLength = 1000, .timescale = 30'000, .audioSeconds = 0.93})};
const Clip mono{"mono sound at 22,050 Hz", small({.frames = 40, .sampleRate = 22'050, .channels = 1})};
const Clip surround{"5.1 sound", small({.frames = 40, .channels = 6})};
const Clip openHEVC{
    "HEVC with open groups",
    small({.frames = 40, .videoCodec = "libx265", .preset = "ultrafast", .gop = 10, .groups = GroupOfPictures::open}),
    AVAssetExportPresetHEVCHighestQuality};
const Clip openH264{"H.264 with open groups", small({.frames = 40, .gop = 10, .groups = GroupOfPictures::open})};
const Clip quarterTurn{"pictures turned a quarter", small({.frames = 30, .rotation = 90})};
const Clip matroska{"a Matroska file with FLAC", small({.frames = 40, .audioCodec = "flac", .extension = ".mkv"}),
                    AVAssetExportPresetHighestQuality, millisecondClock};
const Clip quickTime{"a QuickTime movie with PCM",
                     small({.frames = 40, .audioCodec = "pcm_s16le", .extension = ".mov"})};
const Clip untouchedMPEG4{"MPEG-4 pictures, passed through", small({.frames = 40, .videoCodec = "mpeg4"}),
                          AVAssetExportPresetPassthrough};
const Clip silent{"no sound at all", small({.frames = 40, .audioCodec = ""})};

class CopiedLoops : public testing::TestWithParam<std::tuple<Clip, int>> {
 protected:
  void expectSamplesOf(const MediaJudge& source, const MediaJudge& output, int count) {
    const auto once = hashesOf(source.codedSamples("video"));
    std::vector<std::string> expected;
    for (int copy = 0; copy < count; ++copy) expected.insert(expected.end(), once.begin(), once.end());
    const auto samples = output.codedSamples("video");
    EXPECT_EQ(hashesOf(samples), expected) << "coded pictures are copied byte by byte";
    for (std::size_t i = 0; i < samples.size(); ++i) {
      ASSERT_LE(samples[i].decode, samples[i].presentation) << "sample " << i;
      if (i > 0) {
        ASSERT_LT(samples[i - 1].decode, samples[i].decode) << "sample " << i;
      }
      if (i % (samples.size() / static_cast<std::size_t>(count)) == 0) {
        ASSERT_TRUE(samples[i].isAccessPoint) << "every copy can be jumped to";
      }
    }
  }

  /// Each join's neighbourhood sounds like the end of the clip and its start put together.
  void expectSound(const Sound& source, const Sound& output, double length, int count) {
    for (const int copy : {1, count - 1}) {
      const double join = copy * length;
      Sound expected = source.part(length - 0.45, length);
      const Sound start = source.part(0, 0.45);
      expected.samples.insert(expected.samples.end(), start.samples.begin(), start.samples.end());
      const Sound got = output.part(join - 0.45, join + 0.45);
      const auto lag = lagMilliseconds(expected, got);
      ASSERT_TRUE(lag) << "another sound at join " << copy;
      EXPECT_NEAR(*lag, 0, 1) << "at join " << copy;
      EXPECT_NEAR(got.level(), expected.level(), 0.1 * expected.level()) << "at join " << copy;
    }
    for (int copy = 0; copy < count; ++copy) {
      for (const double t : {0.12, 0.45, 0.8, 1.05, 1.25, 1.45}) {
        if (t > length - 0.1) continue;
        EXPECT_EQ(toneSecondAt(output, copy * length + t), toneSecondAt(source, t)) << t << " s in copy " << copy;
      }
    }
  }
};

TEST_P(CopiedLoops, PlayEveryPictureAndSoundAgainInItsPlace) {
  const auto& [c, count] = GetParam();
  const BarCodeClip clip(c.options);
  const double length = lengthOf(clip.path());
  const TemporaryDirectory directory;
  const auto exported = exportAsset(loopOf(clip.path(), count), c.preset, directory.file("loop.mp4"));
  ASSERT_EQ(exported.failure(), "");
  EXPECT_TRUE(exported.tracks.at(0).copied) << exported.tracks.at(0).remark;

  const MediaJudge source(clip.path());
  const MediaJudge output(directory.file("loop.mp4"));
  expectPictures(output.pictures(), loopedPictures(clip.times(), length, count), c.tolerance);
  expectSamplesOf(source, output, count);
  EXPECT_EQ(output.warnings(), "");
  EXPECT_EQ(output.stream("video").matrix, source.stream("video").matrix);
  // As told, or as players take video of this size for.
  const std::string told = source.stream("video").colorPrimaries;
  const std::string tag = told.empty() || told == "unknown" ? "smpte170m" : told;
  // Of HEVC, ffprobe tells what the pictures say themselves, which is nothing.
  if (source.stream("video").codec != "hevc") {
    EXPECT_EQ(output.stream("video").colorPrimaries, tag);
  }
  EXPECT_NEAR(output.stream("video").startTime, clip.times().front(), c.tolerance);
  EXPECT_NEAR(output.duration(), count * length, 0.03) << "whatever ends last, up to one block of sound";
  if (c.options.audioCodec.empty()) {
    EXPECT_EQ(output.streams().size(), 1U);
    return;
  }
  EXPECT_NEAR(output.stream("audio").startTime, 0, 0.0001);
  EXPECT_EQ(output.stream("audio").channels, c.options.channels);
  expectSound(source.sound(), output.sound(), length, count);
}

INSTANTIATE_TEST_SUITE_P(ThreeTimes, CopiedLoops,
                         testing::Combine(testing::Values(variableRate, shortSound, longSound, lateSound, mono,
                                                          surround, openHEVC, openH264, quarterTurn, matroska,
                                                          quickTime, untouchedMPEG4, silent),
                                          testing::Values(3)));
INSTANTIATE_TEST_SUITE_P(FiftyTimes, CopiedLoops,
                         testing::Combine(testing::Values(reordered, latePictures, mono, openHEVC),
                                          testing::Values(50)));

/// A clip of a single copy, whose sound needs no encoder either.
class CopiedOnce : public testing::TestWithParam<Clip> {};

TEST_P(CopiedOnce, AClipStaysAsItIsCoded) {
  const BarCodeClip clip(GetParam().options);
  const TemporaryDirectory directory;
  const auto exported = exportAsset(loopOf(clip.path(), 1), GetParam().preset, directory.file("copy.mp4"));
  ASSERT_EQ(exported.failure(), "");
  ASSERT_EQ(exported.tracks.size(), 2U);
  EXPECT_THAT(exported.tracks, Each(Field("copied", &ExportedTrack::copied, true)));
  EXPECT_THAT(exported.tracks, Each(Field("encoder", &ExportedTrack::encoder, "")));

  const MediaJudge source(clip.path());
  const MediaJudge output(directory.file("copy.mp4"));
  for (const char* type : {"video", "audio"}) {
    EXPECT_EQ(hashesOf(output.codedSamples(type)), hashesOf(source.codedSamples(type))) << type;
  }
  const auto lag = lagMilliseconds(source.sound(), output.sound());
  ASSERT_TRUE(lag);
  EXPECT_NEAR(*lag, 0, 0.1);
  EXPECT_EQ(output.warnings(), "");
}

INSTANTIATE_TEST_SUITE_P(Clips, CopiedOnce, testing::Values(reordered, mono, untouchedMPEG4, shortSound));

// Where an export ends inside a group, pictures that come later but are referred to stay in the file, behind its end.
TEST(CopiedPart, EndsAtAnyPictureOfAGroup) {
  const ClipOptions options = small({.frames = 40, .bFrames = 3, .gop = 20, .audioCodec = ""});
  const BarCodeClip clip(options);
  const BarCodeClip turned(
      small({.frames = 40, .bFrames = 3, .gop = 20, .groups = GroupOfPictures::open, .rotation = 90}));
  for (const auto& source : {clip, turned}) {
    for (const std::int64_t pictures : {21, 24, 25, 26, 27, 33, 38}) {
      SCOPED_TRACE(pictures);
      const TemporaryDirectory directory;
      const std::int64_t end = pictures * 1000 / 30;
      const auto exported =
          exportAsset(cutOf({{source.path(), 0, end}}), AVAssetExportPresetPassthrough, directory.file("part.mp4"));
      ASSERT_EQ(exported.failure(), "");
      const MediaJudge output(directory.file("part.mp4"));
      auto wanted = numbersOf(MediaJudge(source.path()).pictures());
      std::erase_if(wanted, [&](int number) { return number * 1000 >= end * 30; });
      EXPECT_EQ(numbersOf(output.pictures()), wanted);
      EXPECT_NEAR(output.duration(), static_cast<double>(end) / 1000, 0.0005);
      EXPECT_EQ(output.warnings(), "");
      const auto again = AVAsset::make(URL(directory.file("part.mp4")));
      EXPECT_EQ(again->tracks(AVMediaTypeVideo).at(0)->timeRange().end(), CMTime(end, 1000));
    }
  }
}

// Where it starts inside one, so do those that decoding begins with, before its start.
TEST(CopiedPart, StartsAtAnyPictureOfAGroup) {
  const BarCodeClip closed(small({.frames = 40, .bFrames = 3, .gop = 20}));
  const BarCodeClip open(small(
      {.frames = 40, .videoCodec = "libx265", .preset = "ultrafast", .gop = 10, .groups = GroupOfPictures::open}));
  for (const auto& source : {closed, open}) {
    for (const int first : {0, 3, 12, 18, 21, 30, 39}) {
      SCOPED_TRACE(first);
      const TemporaryDirectory directory;
      const std::int64_t start = first * 1000 / 30;
      const auto exported = exportAsset(cutOf({{source.path(), start, 1333}}), AVAssetExportPresetPassthrough,
                                        directory.file("part.mp4"));
      ASSERT_EQ(exported.failure(), "");
      const MediaJudge output(directory.file("part.mp4"));
      std::vector<int> wanted;
      for (int number = first; number < 40; ++number) wanted.push_back(number);
      const auto pictures = output.pictures();
      EXPECT_EQ(numbersOf(pictures), wanted);
      EXPECT_NEAR(pictures.front().seconds, 0, wholeTicks);
      EXPECT_NEAR(output.duration(), static_cast<double>(1333 - start) / 1000, 0.0005);
      EXPECT_EQ(output.warnings(), "");
    }
  }
}

TEST(CopiedPart, IsNotCutInsideAGroupBeforeAJoin) {
  const BarCodeClip clip(small({.frames = 40, .bFrames = 3, .gop = 20, .audioCodec = ""}));
  const TemporaryDirectory directory;
  int refused = 0;
  for (const std::int64_t end : {700, 733, 766, 800}) {  // one of four neighbours is no B picture
    const auto exported = exportAsset(cutOf({{clip.path(), 0, end}, {clip.path(), 0, 1333}}),
                                      AVAssetExportPresetPassthrough, directory.file(std::to_string(end) + ".mp4"));
    if (exported.failure().find("cut inside a group of pictures") != std::string::npos) ++refused;
  }
  EXPECT_GE(refused, 1);
}

}  // namespace
}  // namespace clipworks::test
