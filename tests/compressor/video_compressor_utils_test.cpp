#include <clipworks/compressor/VideoCompressorUtils.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <filesystem>
#include <fstream>
#include <functional>
#include <iterator>
#include <memory>
#include <optional>
#include <string>
#include <thread>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <app/Awaited.h>
#include <clipworks/filedeck/FileSystem.h>
#include <clipworks/media/base/PrintedText.h>
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
using testing::StartsWith;

constexpr std::chrono::seconds patience{100};
using CompressionError = VideoCompressorUtils::CompressionError;
using AwaitedBatch = app::Awaited<Result<std::vector<URL>, CompressionError>>;
using AwaitedPreview = app::Awaited<Result<URL, CompressionError>>;
using Parameters = VideoCompressorUtils::Parameters;

URL clipOf(int frames) { return URL(BarCodeClip({.width = 160, .height = 90, .frames = frames}).path()); }
URL slowClip() { return URL(BarCodeClip({.width = 640, .height = 360, .frames = 300}).path()); }

void pumpUntil(const std::function<bool()>& isOver, const std::string& wanted) {
  const auto deadline = std::chrono::steady_clock::now() + patience;
  while (!isOver()) {
    ASSERT_LT(std::chrono::steady_clock::now(), deadline) << wanted;
    DispatchQueue::main().runOne(std::chrono::milliseconds(5));
  }
}

/// What came; nothing when the closure was destroyed uncalled.
template <class Value>
std::optional<Value> valueOf(const app::Awaited<Value>& awaited) {
  pumpUntil([&] { return awaited.isOver(); }, "the completion is neither called nor destroyed");
  return awaited.value();
}

std::size_t countIn(const fs::path& directory) {
  return static_cast<std::size_t>(std::distance(fs::directory_iterator(directory), {}));
}

class ProgressLog final : public VideoCompressorDelegate {
 public:
  void videoCompressorDidUpdateProgress(float progress) override {
    EXPECT_EQ(std::this_thread::get_id(), thread_) << "the main queue is pumped by the test's thread";
    texts.push_back("General Progress: " + printedNumber(progress));
  }
  std::vector<std::string> texts;

 private:
  std::thread::id thread_ = std::this_thread::get_id();
};

/// Whether no thread of the queue runs: what was added has been prepared.
bool isQueueResting() {
  for (const auto& thread : fs::directory_iterator("/proc/self/task")) {
    std::ifstream file(thread.path() / "stat");
    std::string stat;
    std::getline(file, stat);
    if (stat.find("(clipworks-queue)") != std::string::npos && stat.find(") S") == std::string::npos) return false;
  }
  return true;
}

class Compressor : public testing::Test {
 protected:
  void SetUp() override { FileSystem::shared().setOutputsURL(URL(outputs_.path())); }

  std::optional<Result<std::vector<URL>, CompressionError>> compress(const std::vector<URL>& videos) const {
    AwaitedBatch awaited;
    compressor_->compress(videos, Parameters(Quality144p()), awaited.closure());
    return valueOf(awaited);
  }

  TemporaryDirectory outputs_;
  PrintedLinesCapture printed_;
  std::shared_ptr<VideoCompressorUtils> compressor_ = VideoCompressorUtils::make();
};

TEST_F(Compressor, GivesFilesInTheOrderOfTheListAndLeavesFailuresOut) {
  const auto outcome = compress({clipOf(20), URL("/nowhere/clip.mp4"), clipOf(5), clipOf(10)});
  ASSERT_TRUE(outcome && *outcome);
  std::vector<std::size_t> frames;
  for (const auto& url : **outcome) {
    EXPECT_THAT(url.path().filename(), testing::ContainsRegex("^[0-9A-F]{8}(-[0-9A-F]{4}){3}-[0-9A-F]{12}\\.mp4$"));
    EXPECT_EQ(MediaJudge(url.path()).stream("video").height, 144);
    frames.push_back(MediaJudge(url.path()).pictures().size());
  }
  EXPECT_THAT(frames, ElementsAre(20, 5, 10));
  EXPECT_EQ(countIn(outputs_.path()), 3U);
}

TEST_F(Compressor, FailsWhenNothingSucceeds) {
  for (const auto& videos : {std::vector<URL>{}, std::vector<URL>{URL("/nowhere/clip.mp4")}}) {
    const auto outcome = compress(videos);
    ASSERT_TRUE(outcome && !*outcome);
    EXPECT_EQ(outcome->error(), CompressionError::generic);
  }
  EXPECT_THAT(printed_.lines(), ElementsAre(StartsWith("ERROR: clip.mp4 cannot be opened"),
                                            testing::MatchesRegex("ERROR2: .*Code=-[0-9]+ .*clip.mp4.*"), "FAILED"));
}

TEST_F(Compressor, CountsTheVideosThatEndedOverItsWholeLife) {
  const auto log = std::make_shared<ProgressLog>();
  compressor_->setDelegate(log);
  ASSERT_TRUE(compress({clipOf(20), URL("/nowhere/clip.mp4"), clipOf(5)}));
  ASSERT_TRUE(compress({clipOf(5)}));
  float ended = 0;
  float count = 3;
  float current = -1;
  std::vector<std::string> general;
  for (const auto& line : printed_.lines()) {
    if (line == "FAILED" || line.starts_with("COMPLETED")) ended += 1;
    if (ended == 3) count = 1;
    if (line.starts_with("Current Progress: ")) current = std::stof(line.substr(18));
    if (!line.starts_with("General Progress: ")) continue;
    EXPECT_EQ(line, "General Progress: " + printedNumber((current + ended) / count));
    general.push_back(line);
  }
  ASSERT_GE(general.size(), 3U);
  EXPECT_EQ(general.back(), "General Progress: 4.0");
  EXPECT_EQ(printed_.lines().back(), "COMPLETED MOTHERFUCKER");
  EXPECT_EQ(log->texts, general);
}

TEST_F(Compressor, PreviewsFiveSecondsAtMost) {
  for (const auto& [video, seconds] : {std::pair(slowClip(), 5.0), std::pair(clipOf(60), 2.0)}) {
    AwaitedPreview awaited;
    compressor_->previewCompression(video, Parameters(Quality144p()), awaited.closure());
    const auto outcome = valueOf(awaited);
    ASSERT_TRUE(outcome && *outcome);
    EXPECT_NEAR(MediaJudge((*outcome)->path()).duration(), seconds, 0.05);
  }
}

TEST_F(Compressor, IsSilentAboutAPreviewThatFails) {
  AwaitedPreview awaited;
  compressor_->previewCompression(slowClip(), Parameters(QualityFullHD()), awaited.closure());
  pumpUntil([] { return !AVAssetExportSession::liveSessions().empty(); }, "the preview does not start");
  for (const auto& session : AVAssetExportSession::liveSessions()) session->cancelExport();
  EXPECT_EQ(valueOf(awaited), std::nullopt) << "destroyed uncalled";
  auto lines = printed_.lines();
  std::erase_if(lines, [](const auto& line) { return line.find("Progress: ") != std::string::npos; });
  EXPECT_THAT(lines, ElementsAre("FAILED")) << "a cancelled export is no error";
  EXPECT_TRUE(fs::is_empty(outputs_.path()));
}

TEST_F(Compressor, DropsWhatHasNotBegunWhenItIsLetGo) {
  const auto isHeldUp = std::make_shared<std::atomic<bool>>(true);
  // Busy threads, as many as the queue runs at once.
  for (unsigned i = 0; i < std::max(4U, std::thread::hardware_concurrency()); ++i) {
    DispatchQueue::global().async([isHeldUp] {
      while (*isHeldUp) continue;
    });
  }
  AwaitedBatch awaited;
  compressor_->compress({clipOf(5), clipOf(5)}, Parameters(Quality144p()), awaited.closure());
  compressor_.reset();
  *isHeldUp = false;
  EXPECT_EQ(valueOf(awaited), std::nullopt) << "destroyed uncalled";
  EXPECT_THAT(printed_.lines(), IsEmpty());
}

TEST_F(Compressor, ASecondBatchLeavesTheWaitingVideosOfTheFirstWaiting) {
  AwaitedBatch first;
  compressor_->compress({slowClip(), slowClip(), slowClip()}, Parameters(Quality144p()), first.closure());
  const auto running = [] { return AVAssetExportSession::liveSessions().size(); };
  int looks = 0;
  pumpUntil([&] { return (looks = running() == 1 && isQueueResting() ? looks + 1 : 0) == 10; },
            "one export, and two that wait for it");
  const auto second = compress({clipOf(10), clipOf(5)});
  ASSERT_TRUE(second && *second);
  EXPECT_EQ((*second)->size(), 2U);
  pumpUntil([&] { return running() == 0; }, "the first export does not end");
  EXPECT_EQ(countIn(outputs_.path()), 3U);
  EXPECT_FALSE(first.isOver());
}

TEST_F(Compressor, HoldsFewFilesAndThreadsOverALongBatch) {
  const auto threads = [] { return countIn("/proc/self/task"); };
  const auto files = [] { return countIn("/proc/self/fd"); };
  const auto exporting = [] {
    const auto live = AVAssetExportSession::liveSessions();
    return std::count_if(live.begin(), live.end(), [](const auto& session) {
      return session->status() == AVAssetExportSessionStatus::exporting;
    });
  };
  const URL clip(BarCodeClip({.width = 32, .height = 24, .frames = 1, .audioCodec = ""}).path());
  ASSERT_TRUE(compress({clip}));
  // The end of that batch may still come, and would let two exports of the next one run at once.
  compressor_ = VideoCompressorUtils::make();
  const std::size_t threadsBefore = threads();
  const std::size_t filesBefore = files();
  std::size_t mostFiles = 0;
  std::ptrdiff_t mostExporting = 0;
  AwaitedBatch awaited;
  compressor_->compress(std::vector<URL>(100, clip), Parameters(Quality144p()), awaited.closure());
  pumpUntil(
      [&] {
        mostFiles = std::max(mostFiles, files());
        mostExporting = std::max(mostExporting, exporting());
        return awaited.isOver();
      },
      "the batch does not end");
  ASSERT_TRUE(awaited.value() && *awaited.value());
  EXPECT_EQ((*awaited.value())->size(), 100U);
  // Each waiting video looks at its file for a moment before its turn, some dozens at once on a slow machine; what was
  // kept would come to one for each.
  EXPECT_LE(mostFiles, filesBefore + 60);
  EXPECT_EQ(mostExporting, 1);
  // The last export is let go by a thread of its own.
  pumpUntil([&] { return threads() <= threadsBefore && files() <= filesBefore; }, "threads or files are left");
}

}  // namespace
}  // namespace clipworks::test
