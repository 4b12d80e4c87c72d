#include <clipworks/speed/VideoSpeedConverter.h>

#include <chrono>
#include <filesystem>
#include <memory>
#include <optional>
#include <string>
#include <type_traits>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <clipworks/filedeck/FileSystem.h>
#include <clipworks/media/dispatch/DispatchQueue.h>
#include <clipworks/media/export/AVAssetExportSession.h>
#include <clipworks/media/export/EncoderAvailability.h>

#include <tests/support/BarCodeClip.h>
#include <tests/support/MediaJudge.h>
#include <tests/support/PrintedLinesCapture.h>
#include <tests/support/TemporaryDirectory.h>

namespace clipworks::test {
namespace {

namespace fs = std::filesystem;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::MatchesRegex;
using testing::SizeIs;

constexpr std::chrono::seconds patience{100};
using Quality = VideoSpeedConverter::ConversionQuality;
using ExportResult = Result<URL, VideoSpeedConverter::ConversionError>;
using CompositionResult = Result<std::shared_ptr<AVMutableComposition>, VideoSpeedConverter::ConversionError>;

class SpeedConverter : public testing::Test {
 protected:
  void SetUp() override { FileSystem::shared().setOutputsURL(URL(outputs_.path())); }

  /// Ten seconds, with a movie header that counts in 600ths.
  static BarCodeClip clip() {
    return BarCodeClip({.width = 96,
                        .height = 64,
                        .frames = 100,
                        .rate = {10, 1},
                        .timescale = 600,
                        .rotation = 90,
                        .outputArguments = {"-movie_timescale", "600"}});
  }

  static std::shared_ptr<AVMutableComposition> compose(VideoSpeedConverter& converter, double from, double to,
                                                       double ratio) {
    std::vector<CompositionResult> results;
    converter.createComposition(from, to, ratio, [&](const CompositionResult& result) { results.push_back(result); });
    EXPECT_THAT(results, SizeIs(1)) << "called once, before the call returns";
    return results.empty() || !results.front() ? nullptr : *results.front();
  }

  static std::optional<ExportResult> apply(VideoSpeedConverter& converter, double ratio, Quality quality,
                                           const std::optional<std::string>& name) {
    std::optional<ExportResult> got;
    converter.applySpeedChange(2, 4, ratio, name, quality, [&](const ExportResult& result) { got = result; });
    EXPECT_FALSE(got) << "not before the call returns";
    EXPECT_TRUE(DispatchQueue::main().runOne(patience)) << "no result came to the main queue";
    return got;
  }

  TemporaryDirectory outputs_;
};

static_assert(!std::is_default_constructible_v<VideoSpeedConverter>);

TEST_F(SpeedConverter, ScalesTheStretchInBothTracks) {
  const auto source = clip();
  const auto converter = VideoSpeedConverter::make(URL(source.path()));
  EXPECT_EQ(converter->videoURL(), URL(source.path()));
  for (const auto& [ratio, length] : {std::pair{2.0, 12.0}, std::pair{0.25, 8.5}}) {
    const auto composition = compose(*converter, 2, 4, ratio);
    ASSERT_NE(composition, nullptr);
    EXPECT_EQ(composition->duration(), CMTime(length, 600));
    ASSERT_THAT(composition->compositionTracks(), SizeIs(2));
    EXPECT_EQ(composition->compositionTracks()[0]->preferredTransform(), (CGAffineTransform{0, 1, -1, 0, 64, 0}));
    for (const auto& track : composition->compositionTracks()) {
      const auto& segments = track->compositionSegments();
      ASSERT_THAT(segments, SizeIs(testing::Ge(3U))) << "a shorter track has padding behind it";
      EXPECT_EQ(segments[1].source, CMTimeRange(CMTime(2, 1), CMTime(2, 1)));
      EXPECT_EQ(segments[1].target, CMTimeRange(CMTime(2, 1), CMTime(2 * ratio, 600)));
      EXPECT_EQ(segments[2].source.start, CMTime(4, 1));
    }
  }
}

TEST_F(SpeedConverter, ExportsTheKeptCompositionUnderTheNameGiven) {
  const PrintedLinesCapture printed;
  const auto converter = VideoSpeedConverter::make(URL(clip().path()));
  const auto first = apply(*converter, 2, Quality::low, "clip");
  ASSERT_TRUE(first && *first);
  EXPECT_EQ((*first)->path(), outputs_.path() / "clip.mp4");
  EXPECT_NEAR(MediaJudge((*first)->path()).duration(), 12, 0.03);
  // Kept: another change on the same object is the first one again, and replaces the file of its name.
  const auto second = apply(*converter, 0.5, Quality::low, "clip");
  ASSERT_TRUE(second && *second);
  EXPECT_NEAR(MediaJudge((*second)->path()).duration(), 12, 0.03);
  // A new composition is another matter.
  ASSERT_NE(compose(*converter, 2, 4, 0.5), nullptr);
  const auto third = apply(*converter, 7, Quality::low, std::nullopt);
  ASSERT_TRUE(third && *third);
  EXPECT_NEAR(MediaJudge((*third)->path()).duration(), 9, 0.03);
  EXPECT_THAT((*third)->path().filename().string(), MatchesRegex("[0-9A-F-]{36}\\.mp4"));
  EXPECT_THAT(printed.lines(), ElementsAre("Supports HEVC: true", "Supports HEVC: true", "Supports HEVC: true"));
  EXPECT_EQ(std::distance(fs::directory_iterator(outputs_.path()), fs::directory_iterator()), 2);
}

TEST_F(SpeedConverter, ChoosesThePresetByQuality) {
  const auto converter = VideoSpeedConverter::make(URL(clip().path()));
  const auto high = apply(*converter, 2, Quality::high, "high");
  ASSERT_TRUE(high && *high);
  EXPECT_EQ(MediaJudge((*high)->path()).stream("video").codec, "hevc");
  const auto low = apply(*converter, 2, Quality::low, "");
  ASSERT_TRUE(low && *low);
  EXPECT_EQ((*low)->path().filename(), ".mp4") << "a name is used as given";
  EXPECT_EQ(MediaJudge((*low)->path()).stream("video").codec, "h264");
}

TEST_F(SpeedConverter, AVideoThatLacksATrackFailsAtOnceOnTheCallingThread) {
  const PrintedLinesCapture printed;
  const BarCodeClip silent({.width = 96, .height = 64, .frames = 10, .audioCodec = ""});
  const BarCodeClip onlySound({.frames = 0, .audioSeconds = 1, .extension = ".m4a"});
  for (const auto& path : {silent.path(), onlySound.path(), fs::path("/nowhere/clip.mp4")}) {
    const auto converter = VideoSpeedConverter::make(URL(path));
    EXPECT_EQ(compose(*converter, 0, 1, 2), nullptr);
    std::vector<ExportResult> results;
    converter->applySpeedChange(0, 1, 2, "x", Quality::high,
                                [&](const ExportResult& result) { results.push_back(result); });
    ASSERT_THAT(results, SizeIs(1)) << path;
    ASSERT_FALSE(results.front());
    EXPECT_EQ(results.front().error(), VideoSpeedConverter::ConversionError::generic);
  }
  EXPECT_THAT(printed.lines(), IsEmpty());
}

TEST_F(SpeedConverter, SaysWhyAnExportFailedButNotThatItWasCancelled) {
  const PrintedLinesCapture printed;
  const auto converter = VideoSpeedConverter::make(URL(clip().path()));
  std::optional<ExportResult> got;
  converter->applySpeedChange(2, 4, 30, "x", Quality::low, [&](const ExportResult& result) { got = result; });
  for (const auto& session : AVAssetExportSession::liveSessions()) session->cancelExport();
  ASSERT_TRUE(DispatchQueue::main().runOne(patience)) << "no result came to the main queue";
  ASSERT_TRUE(got);
  EXPECT_FALSE(*got);
  const auto failed = apply(*converter, 2, Quality::low, "no/such/folder");
  ASSERT_TRUE(failed);
  EXPECT_FALSE(*failed);
  EXPECT_THAT(printed.lines(),
              ElementsAre("Supports HEVC: true", "Supports HEVC: true", MatchesRegex("FAILED: Optional\\(.+\\)")));
}

}  // namespace
}  // namespace clipworks::test
