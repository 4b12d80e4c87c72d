#include <clipworks/looper/VideoLooperUtils.h>

#include <chrono>
#include <filesystem>
#include <functional>
#include <memory>
#include <optional>
#include <regex>
#include <string>
#include <thread>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <clipworks/filedeck/FileSystem.h>
#include <clipworks/media/dispatch/DispatchQueue.h>
#include <clipworks/media/export/AVAssetExportSession.h>

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
using testing::StartsWith;

constexpr std::chrono::seconds patience{100};
using ExportResult = Result<URL, VideoLooperError>;
using CompositionResult = Result<std::shared_ptr<AVMutableComposition>, VideoLooperError>;

class Looper : public testing::Test {
 protected:
  void SetUp() override { FileSystem::shared().setOutputsURL(URL(outputs_.path())); }

  /// 2.5 seconds, with a movie header that counts in 600ths.
  static BarCodeClip clip(int rotation = 0) {
    return BarCodeClip({.width = 160,
                        .height = 90,
                        .frames = 75,
                        .timescale = 30,
                        .rotation = rotation,
                        .outputArguments = {"-movie_timescale", "600"}});
  }

  static std::shared_ptr<AVMutableComposition> createLoop(VideoLooperUtils& looper, int count) {
    std::vector<CompositionResult> results;
    looper.createLoopComposition(count, [&](const CompositionResult& result) { results.push_back(result); });
    EXPECT_THAT(results, SizeIs(1)) << "called once, before the call returns";
    return results.empty() || !results.front() ? nullptr : *results.front();
  }

  /// Exports, lets `meanwhile` happen, and pumps the main queue until the result comes.
  static std::optional<ExportResult> exportLoop(
      VideoLooperUtils& looper, const std::function<void()>& meanwhile = [] {}) {
    std::optional<ExportResult> got;
    std::thread::id calledOn;
    looper.exportCurrentComposition([&](const ExportResult& result) {
      EXPECT_FALSE(got) << "called twice";
      got = result;
      calledOn = std::this_thread::get_id();
    });
    EXPECT_FALSE(got) << "not before the call returns";
    meanwhile();
    EXPECT_TRUE(DispatchQueue::main().runOne(patience)) << "no result came to the main queue";
    EXPECT_EQ(calledOn, std::this_thread::get_id());
    return got;
  }

  TemporaryDirectory outputs_;
};

TEST_F(Looper, PlacesTheCopiesAtMultiplesOfTheLength) {
  const auto looper = VideoLooperUtils::make(URL(clip(90).path()));
  EXPECT_EQ(looper->composition(), nullptr);
  const auto composition = createLoop(*looper, 3);
  ASSERT_NE(composition, nullptr);
  EXPECT_EQ(looper->composition(), composition);
  ASSERT_EQ(composition->compositionTracks().size(), 2U);
  EXPECT_EQ(composition->compositionTracks()[1]->mediaType(), AVMediaType::audio);
  EXPECT_EQ(composition->compositionTracks()[0]->preferredTransform(), (CGAffineTransform{0, 1, -1, 0, 90, 0}));
  EXPECT_EQ(composition->duration(), CMTime(4500, 600));
  for (const auto& track : composition->compositionTracks()) {
    const auto& segments = track->compositionSegments();
    ASSERT_EQ(segments.size(), 3U);
    for (int i = 0; i < 3; ++i) {
      const auto& segment = segments[static_cast<std::size_t>(i)];
      EXPECT_EQ(segment.target, CMTimeRange(CMTime(1500 * i, 600), CMTime(1500, 600)));
      EXPECT_EQ(segment.source, CMTimeRange(kCMTimeZero, CMTime(1500, 600)));
    }
  }
}

TEST_F(Looper, ExportsTwiceToTwoFilesOfNewNames) {
  const PrintedLinesCapture printed;
  const auto looper = VideoLooperUtils::make(URL(clip(90).path()));
  ASSERT_NE(createLoop(*looper, 3), nullptr);
  const std::regex uuid("[0-9A-F]{8}-[0-9A-F]{4}-4[0-9A-F]{3}-[89AB][0-9A-F]{3}-[0-9A-F]{12}\\.mp4");
  for (int i = 1; i <= 2; ++i) {
    const auto result = exportLoop(*looper);
    ASSERT_TRUE(result && *result);
    const fs::path path = (*result)->path();
    EXPECT_THAT(printed.lines(), SizeIs(i)) << "one line for each export";
    EXPECT_THAT(printed.lines().back(), MatchesRegex("Current capacity: [1-9][0-9]*"));
    EXPECT_EQ(path.parent_path(), outputs_.path());
    EXPECT_TRUE(std::regex_match(path.filename().string(), uuid)) << path;
    EXPECT_EQ(std::distance(fs::directory_iterator(outputs_.path()), {}), i);
    const MediaJudge output(path);
    EXPECT_EQ(output.stream("video").codec, "hevc");
    EXPECT_EQ(output.stream("video").rotation, 90);
    EXPECT_EQ(output.pictures().size(), 225U);
    EXPECT_EQ(numberAt(output.pictures(), 5.02), 0) << "the third copy's first picture";
    EXPECT_EQ(numberAt(output.pictures(), 7.48), 74);
    EXPECT_NEAR(output.duration(), 7.5, 0.03);
  }
}

TEST_F(Looper, ACountOfZeroGivesAnEmptyCompositionThatDoesNotExport) {
  const PrintedLinesCapture printed;
  const auto looper = VideoLooperUtils::make(URL(clip().path()));
  const auto composition = createLoop(*looper, 0);
  ASSERT_NE(composition, nullptr);
  EXPECT_EQ(composition->duration(), kCMTimeZero);
  EXPECT_EQ(composition->tracks().size(), 2U);
  const auto result = exportLoop(*looper);
  ASSERT_TRUE(result);
  ASSERT_FALSE(*result);
  EXPECT_EQ(result->error(), VideoLooperError::generic);
  EXPECT_THAT(printed.lines(),
              ElementsAre(StartsWith("Current capacity: "), MatchesRegex("FAILED: Optional\\(.*Code=-[0-9]+ .*\\)")));
  EXPECT_TRUE(fs::is_empty(outputs_.path()));
}

TEST_F(Looper, AVideoThatCannotBeLoopedLeavesTheEarlierCompositionAlone) {
  const BarCodeClip silent({.width = 160, .height = 90, .frames = 10, .audioCodec = ""});
  const BarCodeClip onlySound({.frames = 0, .audioSeconds = 1, .extension = ".m4a"});
  for (const auto& path : {silent.path(), onlySound.path(), fs::path("/nowhere/clip.mp4")}) {
    const auto looper = VideoLooperUtils::make(URL(path));
    const auto earlier = AVMutableComposition::make();
    looper->setComposition(earlier);
    std::vector<CompositionResult> results;
    looper->createLoopComposition(3, [&](const CompositionResult& result) { results.push_back(result); });
    ASSERT_THAT(results, SizeIs(1)) << path;
    ASSERT_FALSE(results.front()) << path;
    EXPECT_EQ(results.front().error(), VideoLooperError::generic);
    EXPECT_EQ(looper->composition(), earlier);
  }
}

TEST_F(Looper, WithoutACompositionFailsAtOnceOnTheCallingThread) {
  const PrintedLinesCapture printed;
  const auto looper = VideoLooperUtils::make(URL(clip().path()));
  std::vector<ExportResult> results;
  looper->exportCurrentComposition([&](const ExportResult& result) { results.push_back(result); });
  ASSERT_THAT(results, SizeIs(1));
  EXPECT_FALSE(results.front());
  EXPECT_THAT(printed.lines(), IsEmpty());
}

TEST_F(Looper, ACancelledExportFailsWithoutALine) {
  const PrintedLinesCapture printed;
  const auto looper = VideoLooperUtils::make(URL(clip().path()));
  ASSERT_NE(createLoop(*looper, 200), nullptr);
  const auto got = exportLoop(*looper, [] {
    for (const auto& session : AVAssetExportSession::liveSessions()) session->cancelExport();
  });
  ASSERT_TRUE(got);
  EXPECT_FALSE(*got);
  EXPECT_THAT(printed.lines(), ElementsAre(StartsWith("Current capacity: ")));
  EXPECT_TRUE(fs::is_empty(outputs_.path()));
}

TEST_F(Looper, ExportsWhatTheHostPlacesThereAndNeedsNotLiveOn) {
  const PrintedLinesCapture printed;
  auto looper = VideoLooperUtils::make(URL("/nowhere/clip.mp4"));
  looper->setComposition(createLoop(*VideoLooperUtils::make(URL(clip().path())), 2));
  const auto got = exportLoop(*looper, [&] { looper.reset(); });
  ASSERT_TRUE(got && *got);
  EXPECT_NEAR(MediaJudge((*got)->path()).duration(), 5, 0.03);
}

TEST(LooperDeathTest, ANegativeCountAborts) {
  testing::FLAGS_gtest_death_test_style = "threadsafe";
  const BarCodeClip clip({.width = 160, .height = 90, .frames = 10});
  const auto looper = VideoLooperUtils::make(URL(clip.path()));
  EXPECT_DEATH(looper->createLoopComposition(-1, [](const CompositionResult&) {}), "must not be negative");
}

}  // namespace
}  // namespace clipworks::test
