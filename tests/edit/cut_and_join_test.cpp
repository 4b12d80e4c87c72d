// Parts of clips, and clips one behind the other, as they come out.

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <string>
#include <utility>
#include <vector>

#include <clipworks/edit/Chain.h>
#include <clipworks/edit/TakePicture.h>
#include <tests/support/BarCodeClip.h>
#include <tests/support/MediaJudge.h>
#include <tests/support/RunProgram.h>
#include <tests/support/TemporaryDirectory.h>
#include <tests/support/Tone.h>

namespace clipworks::test {
namespace {

struct Cut {
  ClipOptions clip;
  std::vector<std::pair<double, double>> parts;
  bool clean = false;
  std::int64_t leastEncoded = 0;
  std::int64_t mostEncoded = 0;
};

/// What no track here can tell apart, in seconds.
constexpr double hair = 2e-6;

/// Times and numbers of the pictures that `parts` of a clip show, one behind the other.
std::vector<std::pair<double, int>> shownOf(const BarCodeClip& clip,
                                            const std::vector<std::pair<double, double>>& parts) {
  std::vector<std::pair<double, int>> shown;
  double start = 0;
  for (const auto& [from, to] : parts) {
    const std::size_t before = shown.size();
    for (std::size_t i = 0; i < clip.times().size() && clip.times()[i] < to - hair; ++i) {
      if (clip.times()[i] <= from + hair) shown.resize(before);
      shown.emplace_back(start + std::max(clip.times()[i] - from, 0.0), static_cast<int>(i));
    }
    start += to - from;
  }
  return shown;
}

TEST(Trimmed, IsExactWhereverItIsCut) {
  const TemporaryDirectory directory;
  const ClipOptions baseline{.frames = 90, .outputArguments = {"-profile:v", "baseline"}};
  const ClipOptions open{.frames = 90, .videoCodec = "libx265", .preset = "ultrafast", .groups = GroupOfPictures::open};
  const ClipOptions irregular{.frameTimes = {0, 90, 150, 390, 400, 410, 700, 1000, 1010}, .timescale = 600};
  const std::vector<Cut> cuts{
      {{.frames = 90}, {{0.31, 2.77}}},
      {{.frames = 90}, {{1, 2}}},
      {open, {{0.51, 1.333}}},
      {open, {{1.2, 3}}},
      {irregular, {{0.2, 1.3}}},
      {irregular, {{1.2, 1.6}}},
      // A hair before and behind a picture, nearer than the file can tell.
      {{.frames = 60}, {{20 / 30.0 - hair / 2, 40 / 30.0 + hair / 2}, {10 / 30.0, 20 / 30.0 + hair / 2}}, false, 0, 60},
      // Groups of 30: from the cut to the next one, and at most three behind a last whole one.
      {{.frames = 90}, {{0.11, 2.77}}, true, 27, 30},
      {{.frames = 90}, {{0.31, 1.2}, {0.7, 2.77}}, false, 9, 15},
      {baseline, {{0.31, 1.5}, {0.7, 2.77}}, true, 30, 30},
      {open, {{0.2, 1.4}, {1.51, 2.9}}, true, 38, 60}};
  for (const Cut& cut : cuts) {
    const BarCodeClip clip(cut.clip);
    SCOPED_TRACE(clip.path().string() + " from " + std::to_string(cut.parts.front().first));
    const auto made =
        Chain(clip.path())
            .trim(cut.parts)
            .save(directory.file("a.mp4"), {.plan = {.hidesPictures = !cut.clean}, .existing = ExistingFile::replaced});
    ASSERT_TRUE(made) << made.error().sentence;
    EXPECT_GE(made->tracks.front().encodedPictures, cut.leastEncoded) << made->tracks.front().remark;
    EXPECT_LE(made->tracks.front().encodedPictures, cut.mostEncoded) << made->tracks.front().remark;
    const MediaJudge judge(made->path);
    const auto pictures = judge.pictures();
    const auto wanted = shownOf(clip, cut.parts);
    ASSERT_EQ(pictures.size(), wanted.size());
    for (std::size_t i = 0; i < wanted.size(); ++i) {
      EXPECT_EQ(pictures[i].number, wanted[i].second);
      EXPECT_NEAR(pictures[i].seconds, wanted[i].first, 0.001);
    }
    double length = 0;
    for (const auto& [from, to] : cut.parts) {
      const Sound source = MediaJudge(clip.path()).sound().part(from, to);
      EXPECT_NEAR(lagMilliseconds(source, judge.sound().part(length, length + to - from)).value(), 0, 1);
      length += to - from;
    }
    EXPECT_NEAR(judge.duration(), length, 0.001);
    if (cut.clean) {
      EXPECT_EQ(judge.codedSamples("video").size(), wanted.size());
      EXPECT_FALSE(made->tracks.back().isCopied);
    }
  }
}

TEST(Joined, KeepsWhatIsCodedAlikeAndBringsTheRestToOneLook) {
  const TemporaryDirectory directory;
  const BarCodeClip clip;
  const BarCodeClip upright({.width = 180, .height = 320, .frames = 30, .audioCodec = ""});
  const BarCodeClip sound({.frames = 0, .audioSeconds = 1});
  const auto chain = Chain(clip.path()).join(clip.path());
  const auto alike = chain.trim({{0, 1}, {2, 4}}).save(directory.file("alike.mp4"));
  ASSERT_TRUE(alike) << alike.error().sentence;
  EXPECT_TRUE(alike->tracks.front().isCopied) << alike->tracks.front().remark;
  const auto kept = MediaJudge(alike->path).pictures();
  for (const auto& [time, number] : std::vector<std::pair<double, int>>{{0.99, 29}, {1.01, 0}, {2.99, 59}})
    EXPECT_EQ(numberAt(kept, time), number) << time;

  const auto mixed =
      Chain(clip.path()).join(upright.path()).join(sound.path()).join(clip.path()).save(directory.file("mixed.mp4"));
  ASSERT_TRUE(mixed) << mixed.error().sentence;
  const MediaJudge judge(mixed->path);
  EXPECT_EQ(judge.stream("video").width, 320);
  EXPECT_EQ(judge.stream("video").height, 180);
  EXPECT_NEAR(judge.duration(), 6, 0.03);
  const auto pictures = judge.pictures();
  for (const auto& [time, number] : std::vector<std::pair<double, int>>{{1.99, 59}, {3.5, -1}, {4.01, 0}, {5.99, 59}})
    EXPECT_EQ(numberAt(pictures, time), number) << time;
  const Sound heard = judge.sound();
  for (const auto& [time, second] : std::vector<std::pair<double, int>>{{1.5, 1}, {2.5, -1}, {3.5, 0}, {5.5, 1}})
    EXPECT_EQ(toneSecondAt(heard, time), second) << time;
}

TEST(Joined, KeepsTheFirstWhereTheHeaderTurnsIt) {
  const TemporaryDirectory directory;
  const BarCodeClip onItsSide({.width = 180, .height = 320, .rotation = 90});
  const auto made =
      Chain(onItsSide.path()).join(BarCodeClip().path()).join(onItsSide.path()).save(directory.file("a.mp4"));
  ASSERT_TRUE(made) << made.error().sentence;
  EXPECT_EQ(made->tracks.front().encodedPictures, 60) << made->tracks.front().remark;
  const MediaJudge judge(made->path);
  EXPECT_EQ(judge.stream("video").width, 180);
  EXPECT_EQ(judge.stream("video").matrix, MediaJudge(onItsSide.path()).stream("video").matrix);
  const auto pictures = judge.pictures();
  ASSERT_EQ(pictures.size(), 180);
  for (const auto& [picture, quarterTurns] : {std::pair{0, 0}, {60, 3}, {119, 3}, {179, 0}}) {
    EXPECT_EQ(pictures[picture].number, picture % 60);
    EXPECT_EQ(pictures[picture].orientation, (Orientation{false, quarterTurns})) << picture;
  }
}

TEST(Joined, ShowsItsPicturesBeforeItIsAMovie) {
  const TemporaryDirectory directory;
  const BarCodeClip onItsSide({.width = 180, .height = 320, .rotation = 90});
  const auto joined = Chain(BarCodeClip().path()).join(onItsSide.path()).edit();
  const auto turned = turnedByHeader(*Edit::open(BarCodeClip().path()), Turn::right);
  const auto cropped = clipworks::cropped(*turned, {0, 0, 180, 320});
  const auto seenOf = [&](const Edit& edit, double time) {
    const auto taken = takePictures(edit, {{exactSeconds(time), directory.file("a.png")}},
                                    {.format = StillFormat::png, .existing = ExistingFile::replaced});
    return MediaJudge(taken->paths.front()).pictures().front();
  };
  const auto expect = [](const SeenPicture& picture, int quarterTurns) {
    EXPECT_EQ(picture.number, 15);
    EXPECT_EQ(picture.orientation, (Orientation{false, quarterTurns}));
  };
  expect(seenOf(*joined, 0.5), 0);
  expect(seenOf(*joined, 2.5), 1);
  expect(seenOf(*cropped, 0.5), 1);
}

TEST(Joined, GivesTheColoursOfTheFirst) {
  const TemporaryDirectory directory;
  // (200, 50, 20) by the numbers of both.
  const auto flat = [](const std::string& numbers, const std::string& range, const std::string& matrix) {
    return BarCodeClip({.frames = 10,
                        .audioCodec = "",
                        .outputArguments = {"-vf", "lutyuv=" + numbers, "-colorspace", matrix, "-color_range", range,
                                            "-color_primaries", "bt709", "-color_trc", "bt709"}});
  };
  const BarCodeClip high = flat("y=84:u=100:v=195", "tv", "bt709");
  const BarCodeClip standard = flat("y=91:u=88:v=205", "pc", "smpte170m");
  const auto made = Chain(high.path()).join(standard.path()).save(directory.file("a.mp4"));
  ASSERT_TRUE(made) << made.error().sentence;
  const auto decoded = runProgram({"ffmpeg", "-v", "error", "-i", made->path, "-f", "rawvideo", "-"}).standardOutput;
  const std::size_t luma = 320 * 180;
  ASSERT_EQ(decoded.size(), 20 * luma * 3 / 2);
  for (const std::size_t plane : {std::size_t{0}, luma, luma * 5 / 4}) {
    const auto sample = [&](std::size_t picture) {
      return static_cast<std::uint8_t>(decoded[picture * luma * 3 / 2 + plane]);
    };
    EXPECT_NEAR(sample(0), sample(19), 2) << "plane at " << plane;
  }
}

TEST(CompressedTo, IsNeverOverAndHardlyUnder) {
  const TemporaryDirectory directory;
  const BarCodeClip clip({.width = 640, .height = 360, .frames = 300, .preset = "ultrafast"});
  for (const std::int64_t most : {100'000, 400'000}) {
    const auto made = Chain(clip.path()).compressTo(most).save(directory.file(std::to_string(most) + ".mp4"));
    ASSERT_TRUE(made) << made.error().sentence;
    EXPECT_LE(made->bytes, most);
    EXPECT_GE(made->bytes, most * 97 / 100);
    EXPECT_EQ(MediaJudge(made->path).pictures().size(), 300U);
  }
  const auto refused = Chain(clip.path()).compressTo(20'000).edit();
  ASSERT_FALSE(refused);
  EXPECT_EQ(refused.error().code, ErrorCode::badArgument) << refused.error().sentence;
}

}  // namespace
}  // namespace clipworks::test
