#include <clipworks/compressor/VideoCompressorUtils.h>

#include <algorithm>
#include <atomic>
#include <fstream>

#include <clipworks/media/base/PrintedText.h>
#include <tests/support/OperationTest.h>

namespace clipworks::test {
namespace {

namespace fs = std::filesystem;
using testing::ElementsAre;
using Batch = Result<std::vector<URL>, VideoCompressorUtils::CompressionError>;
using Preview = Result<URL, VideoCompressorUtils::CompressionError>;
using Parameters = VideoCompressorUtils::Parameters;

std::size_t countIn(const fs::path& directory) { return namesIn(directory).size(); }

struct ProgressLog final : public VideoCompressorDelegate {
  void videoCompressorDidUpdateProgress(float progress) override {
    EXPECT_EQ(std::this_thread::get_id(), thread) << "the main queue is pumped by the test's thread";
    texts.push_back("General Progress: " + printedNumber(progress));
  }
  std::vector<std::string> texts;
  std::thread::id thread = std::this_thread::get_id();
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

class Compressor : public OperationTest {
 protected:
  static URL clipOf(int frames) { return urlOf({.width = 160, .height = 90, .frames = frames}); }
  static URL slowClip() { return urlOf({.width = 640, .height = 360, .frames = 300}); }

  std::optional<Batch> compress(const std::vector<URL>& videos, const Action& watch = {}) const {
    return eventually<Batch>([&](auto done) { compressor_->compress(videos, small_, done); }, watch);
  }

  std::optional<Preview> preview(const URL& video, const Parameters& parameters, const Action& watch = {}) const {
    return eventually<Preview>([&](auto done) { compressor_->previewCompression(video, parameters, done); }, watch);
  }

  const Parameters small_{Quality144p()};
  std::shared_ptr<VideoCompressorUtils> compressor_ = VideoCompressorUtils::make();
};

TEST_F(Compressor, GivesFilesInTheOrderOfTheListAndLeavesFailuresOut) {
  const auto outcome = compress({clipOf(20), URL("/nowhere/clip.mp4"), clipOf(5), clipOf(10)});
  std::vector<std::size_t> frames;
  for (const auto& url : outcome.value().value()) {
    EXPECT_THAT(url.path(), testing::MatchesRegex(outputs_.file(identifier).string() + "\\.mp4"));
    EXPECT_EQ(MediaJudge(url.path()).stream("video").height, 144);
    frames.push_back(MediaJudge(url.path()).pictures().size());
  }
  EXPECT_THAT(frames, ElementsAre(20, 5, 10));
  EXPECT_EQ(countIn(outputs_.path()), 3U);
}

TEST_F(Compressor, FailsWhenNothingSucceeds) {
  EXPECT_FALSE(compress({}).value());
  EXPECT_FALSE(compress({URL("/nowhere/clip.mp4")}).value());
  EXPECT_THAT(printed_.lines(), ElementsAre(testing::StartsWith("ERROR: clip.mp4 cannot be opened"),
                                            testing::MatchesRegex("ERROR2: .*Code=-[0-9]+ .*clip.mp4.*"), "FAILED"));
}

TEST_F(Compressor, CountsTheVideosThatEndedOverItsWholeLife) {
  const auto log = std::make_shared<ProgressLog>();
  compressor_->setDelegate(log);
  ASSERT_TRUE(compress({clipOf(20), URL("/nowhere/clip.mp4"), clipOf(5)}));
  ASSERT_TRUE(compress({clipOf(5)}));
  float ended = 0;
  float current = -1;
  std::vector<std::string> general;
  for (const auto& line : printed_.lines()) {
    if (line == "FAILED" || line.starts_with("COMPLETED")) ended += 1;
    if (line.starts_with("Current Progress: ")) current = std::stof(line.substr(18));
    if (!line.starts_with("General Progress: ")) continue;
    EXPECT_EQ(line, "General Progress: " + printedNumber((current + ended) / (ended < 3 ? 3 : 1)));
    general.push_back(line);
  }
  ASSERT_GE(general.size(), 3U);
  EXPECT_EQ(general.back(), "General Progress: 4.0");
  EXPECT_EQ(printed_.lines().back(), "COMPLETED MOTHERFUCKER");
  EXPECT_EQ(log->texts, general);
}

TEST_F(Compressor, PreviewsFiveSecondsAtMost) {
  for (const auto& [video, seconds] : {std::pair(slowClip(), 5.0), std::pair(clipOf(60), 2.0)}) {
    EXPECT_NEAR(MediaJudge(preview(video, small_).value().value().path()).duration(), seconds, 0.05);
  }
}

TEST_F(Compressor, IsSilentAboutAPreviewThatFails) {
  EXPECT_FALSE(preview(slowClip(), Parameters(QualityFullHD()), cancelExports)) << "destroyed uncalled";
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
  const auto outcome = eventually<Batch>([&](auto done) {
    std::exchange(compressor_, nullptr)->compress({clipOf(5), clipOf(5)}, small_, done);
    *isHeldUp = false;
  });
  EXPECT_FALSE(outcome) << "destroyed uncalled";
  EXPECT_THAT(printed_.lines(), testing::IsEmpty());
}

TEST_F(Compressor, ASecondBatchLeavesTheWaitingVideosOfTheFirstWaiting) {
  const auto held = std::make_shared<int>();
  compressor_->compress({slowClip(), slowClip(), slowClip()}, small_,
                        [held](const Batch&) { ADD_FAILURE() << "the first batch ends"; });
  const auto running = [] { return AVAssetExportSession::liveSessions().size(); };
  int looks = 0;
  pumpUntil([&] { return (looks = running() == 1 && isQueueResting() ? looks + 1 : 0) == 10; },
            "no single export that two wait for");
  EXPECT_EQ(compress({clipOf(10), clipOf(5)}).value().value().size(), 2U);
  pumpUntil([&] { return running() == 0; }, "the first export does not end");
  EXPECT_EQ(countIn(outputs_.path()), 3U);
  EXPECT_GT(held.use_count(), 1) << "the first batch is let go";
}

TEST_F(Compressor, HoldsFewFilesAndThreadsOverALongBatch) {
  const auto threads = [] { return countIn("/proc/self/task"); };
  const auto files = [] { return countIn("/proc/self/fd"); };
  const URL clip = urlOf({.width = 32, .height = 24, .frames = 1, .audioCodec = ""});
  ASSERT_TRUE(compress({clip}));
  // The end of that batch may still come, and would let two exports of the next one run at once.
  compressor_ = VideoCompressorUtils::make();
  const std::size_t threadsBefore = threads();
  const std::size_t filesBefore = files();
  std::size_t mostFiles = 0;
  std::ptrdiff_t mostExporting = 0;
  const auto watch = [&] {
    mostFiles = std::max(mostFiles, files());
    const auto live = AVAssetExportSession::liveSessions();
    mostExporting = std::max(mostExporting, std::count_if(live.begin(), live.end(), [](const auto& session) {
                               return session->status() == AVAssetExportSessionStatus::exporting;
                             }));
  };
  EXPECT_EQ(compress(std::vector<URL>(100, clip), watch).value().value().size(), 100U);
  // Each waiting video looks at its file for a moment before its turn, some dozens at once on a slow machine; what was
  // kept would come to one for each.
  EXPECT_LE(mostFiles, filesBefore + 60);
  EXPECT_EQ(mostExporting, 1);
  // The last export is let go by a thread of its own.
  pumpUntil([&] { return threads() <= threadsBefore && files() <= filesBefore; }, "threads or files are left");
}

}  // namespace
}  // namespace clipworks::test
