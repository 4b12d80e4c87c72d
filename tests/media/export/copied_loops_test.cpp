#include "ExportTesting.h"

// Loops whose coded pictures stay as they are. Clips are short, since what can go wrong is at their joins.

namespace clipworks::test {
namespace {

using testing::Each;
using testing::Field;

constexpr double wholeTicks = 0.0001;

struct Clip {
  const char* sentence;
  std::vector<int> counts;
  ClipOptions options;
  std::string_view preset = toH264;
  double tolerance = wholeTicks;
};

void expectSamplesOf(const MediaJudge& source, const MediaJudge& output, int count) {
  const auto once = hashesOf(source.codedSamples("video"));
  std::vector<std::string> expected;
  for (int copy = 0; copy < count; ++copy) expected.insert(expected.end(), once.begin(), once.end());
  const auto samples = output.codedSamples("video");
  EXPECT_EQ(hashesOf(samples), expected) << "coded pictures are copied byte by byte";
  expectDecodable(samples);
  for (std::size_t i = 0; i < samples.size(); i += once.size())
    EXPECT_TRUE(samples[i].isAccessPoint) << "every copy can be jumped to";
}

/// Each join's neighbourhood sounds like the end of the clip and its start put together.
void expectSound(const Sound& source, const Sound& output, double length, int count) {
  for (int copy = 0; copy < count; ++copy) {
    const double join = copy * length;
    if (copy == 1 || (copy > 0 && copy == count - 1)) {
      Sound expected = source.part(length - 0.45, length);
      const Sound start = source.part(0, 0.45);
      expected.samples.insert(expected.samples.end(), start.samples.begin(), start.samples.end());
      const Sound got = output.part(join - 0.45, join + 0.45);
      EXPECT_NEAR(lagOf(expected, got), 0, 1) << "at join " << copy;
      EXPECT_NEAR(got.level(), expected.level(), 0.1 * expected.level()) << "at join " << copy;
    }
    for (const double t : {0.12, 0.45, 0.8, 1.05, 1.25, 1.45}) {
      if (t > length - 0.1) continue;
      EXPECT_EQ(toneSecondAt(output, join + t), toneSecondAt(source, t)) << t << " s in copy " << copy;
    }
  }
}

void expectLoop(const Clip& c, int count) {
  const BarCodeClip clip(c.options);
  const double length = lengthOf(clip.path());
  const auto exported = exportAsset(loopOf(clip.path(), count), c.preset);
  EXPECT_TRUE(exported.tracks.at(0).copied) << exported.tracks.at(0).remark;

  const MediaJudge source(clip.path());
  const MediaJudge& output = exported.output;
  expectPictures(output.pictures(), loopedPictures(clip.times(), length, count), c.tolerance);
  expectSamplesOf(source, output, count);
  EXPECT_EQ(output.warnings(), "");
  const ProbedStream from = source.stream("video");
  const ProbedStream video = output.stream("video");
  EXPECT_EQ(video.matrix, from.matrix);
  // As told, or as players take video of this size for. Of HEVC, ffprobe tells what the pictures say themselves.
  const bool isTold = !from.colorPrimaries.empty() && from.colorPrimaries != "unknown";
  if (from.codec != "hevc") {
    EXPECT_EQ(video.colorPrimaries, isTold ? from.colorPrimaries : "smpte170m");
  }
  EXPECT_NEAR(video.startTime, clip.times().front(), c.tolerance);
  EXPECT_NEAR(output.duration(), count * length, 0.03) << "whatever ends last, up to one block of sound";
  if (c.options.audioCodec.empty()) {
    EXPECT_EQ(output.streams().size(), 1U);
    return;
  }
  EXPECT_NEAR(output.stream("audio").startTime, 0, 0.0001);
  EXPECT_EQ(output.stream("audio").channels, c.options.channels);
  expectSound(source.sound(), output.sound(), length, count);
  if (count > 1) return;
  // The sound of a single copy needs no encoder either.
  EXPECT_THAT(exported.tracks, Each(Field(&ExportedTrack::copied, true)));
  EXPECT_THAT(exported.tracks, Each(Field(&ExportedTrack::encoder, "")));
  EXPECT_EQ(hashesOf(output.codedSamples("audio")), hashesOf(source.codedSamples("audio")));
  EXPECT_NEAR(lagOf(source.sound(), output.sound()), 0, 0.1);
}

TEST(CopiedLoops, PlayEveryPictureAndSoundAgainInItsPlace) {
  // 1.6 seconds, a hole of 0.6 among them.
  const std::vector<std::int64_t> uneven{0,      1001,   2002,   4004,   5005,   9000,   10'000,
                                         10'500, 28'500, 29'500, 30'500, 32'502, 33'503, 35'000,
                                         36'001, 38'000, 39'001, 41'003, 44'000, 46'000};
  std::vector<std::int64_t> late;
  for (std::int64_t time = 12'000; time <= 27'000; time += 1000) late.push_back(time);
  ClipOptions openHEVC = small({.frames = 40, .videoCodec = "libx265", .preset = "ultrafast", .gop = 10});
  openHEVC.groups = GroupOfPictures::open;
  const Clip clips[] = {
      {"a constant rate with B pictures", {1, 50}, small({.frames = 40, .rate = {30'000, 1001}, .gop = 12})},
      {"a variable rate with B pictures and a hole",
       {3},
       small({.frameTimes = uneven, .lastFrameLength = 2000, .timescale = 30'000, .gop = 9})},
      {"sound that is shorter than the pictures", {1, 3}, small({.frames = 50, .audioSeconds = 1.2})},
      {"sound that is longer than the pictures", {3}, small({.frames = 30, .audioSeconds = 1.4})},
      {"sound that starts late", {3}, small({.frames = 45, .audioDelay = 0.3})},
      {"pictures that start late",
       {50},
       small({.frameTimes = late, .lastFrameLength = 1000, .timescale = 30'000, .audioSeconds = 0.93})},
      {"mono sound at 22,050 Hz", {1, 3, 50}, small({.frames = 40, .sampleRate = 22'050, .channels = 1})},
      {"5.1 sound", {3}, small({.frames = 40, .channels = 6})},
      {"HEVC with open groups", {3, 50}, openHEVC, toHEVC},
      {"H.264 with open groups", {3}, small({.frames = 40, .gop = 10, .groups = GroupOfPictures::open})},
      {"pictures turned a quarter", {3}, small({.frames = 30, .rotation = 90})},
      // Matroska counts in milliseconds; other clips' pictures lie on whole ticks.
      {"a Matroska file", {3}, small({.frames = 40, .audioCodec = "flac", .extension = ".mkv"}), toH264, 0.0006},
      {"a QuickTime movie with PCM", {3}, small({.frames = 40, .audioCodec = "pcm_s16le", .extension = ".mov"})},
      {"MPEG-4 pictures, passed through", {1, 3}, small({.frames = 40, .videoCodec = "mpeg4"}), passedThrough},
      {"no sound at all", {3}, small({.frames = 40, .audioCodec = ""})},
  };
  for (const Clip& clip : clips) {
    for (const int count : clip.counts) {
      SCOPED_TRACE(clip.sentence + std::string(", times ") + std::to_string(count));
      expectLoop(clip, count);
    }
  }
}

// Where an export ends inside a group, pictures that come later but are referred to stay in the file, behind its end.
// Where it starts inside one, so do those that decoding begins with, before its start.
void expectPart(const ClipOptions& options, std::int64_t from, std::int64_t to) {
  SCOPED_TRACE(options.videoCodec + " from " + std::to_string(from) + " to " + std::to_string(to));
  const auto exported = exportAsset(cutOf({{BarCodeClip(options).path(), from, to}}), passedThrough);
  std::vector<int> wanted;
  for (int i = 0; i < 40; ++i) {
    if (i * 1000 >= from * 30 && i * 1000 < to * 30) wanted.push_back(i);
  }
  const auto pictures = exported.output.pictures();
  EXPECT_EQ(numbersOf(pictures), wanted);
  EXPECT_NEAR(pictures.front().seconds, 0, wholeTicks);
  EXPECT_NEAR(exported.output.duration(), static_cast<double>(to - from) / 1000, 0.0005);
  EXPECT_EQ(exported.output.warnings(), "");
  EXPECT_EQ(assetAt(exported.path)->tracks(AVMediaTypeVideo).at(0)->timeRange().end(), at(to - from));
}

TEST(CopiedPart, StartsAndEndsAtAnyPictureOfAGroup) {
  const ClipOptions closed = small({.frames = 40, .bFrames = 3, .gop = 20});
  ClipOptions turned = closed;
  turned.groups = GroupOfPictures::open;
  turned.rotation = 90;
  ClipOptions hevc = small({.frames = 40, .videoCodec = "libx265", .preset = "ultrafast", .gop = 10});
  hevc.groups = GroupOfPictures::open;
  for (const std::int64_t pictures : {21, 24, 25, 26, 27, 33, 38}) {
    for (const auto& clip : {closed, turned}) expectPart(clip, 0, pictures * 1000 / 30);
  }
  for (const std::int64_t first : {0, 3, 12, 18, 21, 30, 39}) {
    for (const auto& clip : {closed, hevc}) expectPart(clip, first * 1000 / 30, 1333);
  }
}

TEST(CopiedPart, IsNotCutInsideAGroupBeforeAJoin) {
  const auto clip = BarCodeClip(small({.frames = 40, .bFrames = 3, .gop = 20})).path();
  int refused = 0;
  for (const std::int64_t end : {700, 733, 766, 800}) {  // one of four neighbours is no B picture
    const auto exported = tryToExport(cutOf({{clip, 0, end}, {clip, 0, 1333}}), passedThrough);
    if (exported.failure.find("cut inside a group of pictures") != std::string::npos) ++refused;
  }
  EXPECT_GE(refused, 1);
}

}  // namespace
}  // namespace clipworks::test
