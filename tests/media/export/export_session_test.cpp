#include <algorithm>
#include <cerrno>
#include <chrono>
#include <filesystem>
#include <fstream>
#include <functional>
#include <future>
#include <iterator>
#include <memory>
#include <ostream>
#include <string>
#include <thread>
#include <vector>

#include <tests/support/SmallFileSystem.h>

#include "ExportTesting.h"

// How a session starts, ends and fails, whatever it exports.

namespace clipworks::test {
namespace {

namespace fs = std::filesystem;
using testing::Contains;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;
using Status = AVAssetExportSessionStatus;

BarCodeClip smallClip() { return BarCodeClip({.width = 160, .height = 90, .frames = 60, .timescale = 30}); }

/// Takes many seconds to encode as HEVC.
std::shared_ptr<AVAsset> longWork() {
  const BarCodeClip clip({.width = 640, .height = 360, .frames = 600, .preset = "ultrafast"});
  return AVAsset::make(URL(clip.path()));
}

std::shared_ptr<AVAssetExportSession> hevcSession(const std::shared_ptr<AVAsset>& asset, const fs::path& path) {
  auto session = AVAssetExportSession::make(asset, AVAssetExportPresetHEVCHighestQuality);
  session->setOutputURL(URL(path));
  return session;
}

/// Starts the session, lets `meanwhile` happen, and waits for the end.
void run(
    AVAssetExportSession& session, const std::function<void()>& meanwhile = [] {}) {
  Completion completion;
  session.exportAsynchronously(completion.handler());
  meanwhile();
  ASSERT_TRUE(completion.wait()) << "the export did not end";
}

std::string contents(const fs::path& path) {
  std::ifstream in(path, std::ios::binary);
  return {std::istreambuf_iterator<char>(in), {}};
}

TEST(ExportSession, ExistsOnlyForAPresetThatIsKnown) {
  const auto asset = AVAsset::make(URL(smallClip().path()));
  EXPECT_EQ(AVAssetExportSession::make(asset, "AVAssetExportPresetBestQuality"), nullptr);
  EXPECT_EQ(AVAssetExportSession::make(nullptr, AVAssetExportPresetHighestQuality), nullptr);
  const auto session = AVAssetExportSession::make(asset, AVAssetExportPresetLowQuality);
  ASSERT_NE(session, nullptr);
  EXPECT_EQ(session->status(), Status::unknown);
  EXPECT_FALSE(session->error());
}

TEST(ExportSession, LivesUntilItsHandlerIsDestroyedAndIsListedMeanwhile) {
  const TemporaryDirectory directory;
  auto session = hevcSession(AVAsset::make(URL(smallClip().path())), directory.file("out.mp4"));
  const std::weak_ptr<AVAssetExportSession> alive = session;
  std::promise<void> called;
  std::promise<void> destroyed;
  std::shared_ptr<void> captured(nullptr, [&](void*) { destroyed.set_value(); });
  std::vector<std::shared_ptr<AVAssetExportSession>> listed;
  Status status = Status::unknown;
  session->exportAsynchronously([&, held = std::move(captured), raw = session.get()] {
    status = raw->status();
    listed = AVAssetExportSession::liveSessions();
    called.set_value();
  });
  EXPECT_THAT(AVAssetExportSession::liveSessions(), Contains(session)) << "listed from the start on";
  session.reset();
  ASSERT_EQ(called.get_future().wait_for(patience), std::future_status::ready) << "the handler was not called";
  ASSERT_EQ(destroyed.get_future().wait_for(patience), std::future_status::ready) << "the handler was not destroyed";
  EXPECT_EQ(status, Status::completed);
  ASSERT_EQ(listed.size(), 1U);
  EXPECT_EQ(listed.front(), alive.lock());
  listed.clear();
  EXPECT_TRUE(waitUntil([&] { return alive.expired() && AVAssetExportSession::liveSessions().empty(); }))
      << "the session stays";
}

TEST(ExportSession, ReportsProgressThatNeverFallsAndEndsAtOne) {
  const BarCodeClip clip({.width = 320, .height = 180, .frames = 150});
  const TemporaryDirectory directory;
  const auto session = hevcSession(loopOf(clip.path(), 3), directory.file("out.mp4"));
  std::vector<float> seen{0};
  run(*session, [&] {
    EXPECT_TRUE(waitUntil([&] {
      const Status before = session->status();
      const float now = session->progress();
      if (now < seen.back()) ADD_FAILURE() << "fell from " << seen.back() << " to " << now;
      if (now > seen.back()) seen.push_back(now);
      if (now == 1 && session->status() != Status::completed) ADD_FAILURE() << "1 before the end";
      return before != Status::waiting && before != Status::exporting;
    }));
  });
  EXPECT_EQ(session->status(), Status::completed);
  EXPECT_EQ(session->progress(), 1);
  EXPECT_GT(seen.size(), 10U) << "steps between the start and the end";
}

TEST(ExportSession, TakesTheCompositionAsItIsAtTheStart) {
  const auto composition = loopOf(smallClip().path(), 2);
  const TemporaryDirectory directory;
  const auto session = hevcSession(composition, directory.file("out.mp4"));
  run(*session, [&] {
    for (const auto& track : composition->compositionTracks()) track->removeTimeRange({kCMTimeZero, CMTime(3, 1)});
  });
  ASSERT_EQ(session->status(), Status::completed);
  EXPECT_NEAR(MediaJudge(directory.file("out.mp4")).duration(), 4, 0.03);
}

TEST(ExportSession, SeveralAtATimeDoNotMix) {
  const auto composition = loopOf(smallClip().path(), 2);
  const TemporaryDirectory directory;
  std::vector<std::jthread> threads;
  for (int i = 0; i < 4; ++i) {
    threads.emplace_back([&, i] {
      const auto preset = i % 2 == 0 ? AVAssetExportPresetHighestQuality : AVAssetExportPresetHEVCHighestQuality;
      EXPECT_EQ(exportAsset(composition, preset, directory.file(std::to_string(i) + ".mp4")).failure(), "");
    });
  }
  threads.clear();
  EXPECT_EQ(contents(directory.file("0.mp4")), contents(directory.file("2.mp4")))
      << "the same work gives the same bytes";
  EXPECT_NEAR(MediaJudge(directory.file("1.mp4")).duration(), 4, 0.03);
  EXPECT_NEAR(MediaJudge(directory.file("3.mp4")).duration(), 4, 0.03);
}

TEST(ExportSessionDeathTest, ASecondStartAborts) {
  testing::FLAGS_gtest_death_test_style = "threadsafe";
  const TemporaryDirectory directory;
  const auto session = hevcSession(AVMutableComposition::make(), directory.file("out.mp4"));
  run(*session);
  EXPECT_DEATH(session->exportAsynchronously([] {}), "one session exports once");
}

TEST(CancelledExport, EndsSoonAndLeavesNoFile) {
  const TemporaryDirectory directory;
  const auto session = hevcSession(longWork(), directory.file("out.mp4"));
  std::chrono::steady_clock::time_point asked;
  run(*session, [&] {
    EXPECT_TRUE(waitUntil([&] { return session->progress() > 0 || session->status() > Status::exporting; }));
    EXPECT_EQ(session->status(), Status::exporting) << "the work was too short";
    asked = std::chrono::steady_clock::now();
    session->cancelExport();
  });
  EXPECT_LT(std::chrono::steady_clock::now() - asked, std::chrono::seconds(5));
  EXPECT_EQ(session->status(), Status::cancelled);
  ASSERT_TRUE(session->error());
  EXPECT_EQ(session->error()->code(), static_cast<int>(AVError::operationCancelled));
  EXPECT_LT(session->progress(), 1);
  EXPECT_THAT(filesIn(directory.path()), IsEmpty());
}

TEST(CancelledExport, NeverRunsBeforeAndStaysCompletedAfter) {
  const TemporaryDirectory directory;
  const auto early = hevcSession(longWork(), directory.file("early.mp4"));
  early->cancelExport();
  run(*early);
  EXPECT_EQ(early->status(), Status::cancelled);
  const auto late = hevcSession(loopOf(smallClip().path(), 1), directory.file("late.mp4"));
  run(*late);
  late->cancelExport();
  EXPECT_EQ(late->status(), Status::completed);
  EXPECT_FALSE(late->error());
  EXPECT_THAT(filesIn(directory.path()), ElementsAre("late.mp4"));
}

TEST(CancelledExport, EndsOnceAtWhateverMomentItIsCancelled) {
  const auto composition = loopOf(smallClip().path(), 2);
  const TemporaryDirectory directory;
  for (int spins = 1; spins < 200'000; spins *= 3) {
    SCOPED_TRACE(std::to_string(spins) + " yields after the start");
    const auto session = hevcSession(composition, directory.file("out.mp4"));
    run(*session, [&] {
      for (int i = 0; i < spins && session->status() < Status::completed; ++i) std::this_thread::yield();
      session->cancelExport();
    });
    const bool completed = session->status() == Status::completed;
    EXPECT_TRUE(completed || session->status() == Status::cancelled);
    EXPECT_EQ(fs::exists(directory.file("out.mp4")), completed) << "a file exactly when it completed";
    fs::remove(directory.file("out.mp4"));
  }
}

struct Failure {
  const char* sentence;
  AVError code;
  const char* words;
  std::function<std::shared_ptr<AVAsset>(const fs::path& scratch)> asset;
  std::function<void(AVAssetExportSession& session, const fs::path& directory)> configure = {};
};
void PrintTo(const Failure& c, std::ostream* out) { *out << c.sentence; }

std::shared_ptr<AVAsset> smallLoop(const fs::path&) { return loopOf(smallClip().path(), 3); }

/// Of a clip whose index comes first and whose samples end half-way.
std::shared_ptr<AVAsset> loopOfCutFile(const fs::path& scratch) {
  const BarCodeClip clip({.width = 160, .height = 90, .outputArguments = {"-movflags", "+faststart"}});
  fs::copy_file(clip.path(), scratch / "cut.mp4");
  fs::resize_file(scratch / "cut.mp4", fs::file_size(clip.path()) / 2);
  return loopOf(scratch / "cut.mp4", 3);
}

class FailedExport : public testing::TestWithParam<Failure> {};

TEST_P(FailedExport, SaysWhyAndLeavesNoFile) {
  const auto& c = GetParam();
  const TemporaryDirectory scratch;
  const TemporaryDirectory directory;
  const auto asset = c.asset(scratch.path());
  const auto exported = exportAsset(asset, AVAssetExportPresetHighestQuality, directory.file("out.mp4"),
                                    [&](AVAssetExportSession& session) {
                                      if (c.configure) c.configure(session, directory.path());
                                    });
  EXPECT_EQ(exported.status, Status::failed);
  ASSERT_TRUE(exported.error);
  EXPECT_EQ(exported.error->domain(), AVFoundationErrorDomain);
  EXPECT_EQ(exported.error->code(), static_cast<int>(c.code)) << exported.error->description();
  EXPECT_THAT(exported.error->localizedDescription(), HasSubstr(c.words));
  EXPECT_THAT(exported.error->description(), Not(HasSubstr("\n")));
  EXPECT_TRUE(exported.tracks.empty());
  EXPECT_THAT(filesIn(directory.path()), IsEmpty());
}

INSTANTIATE_TEST_SUITE_P(
    Causes, FailedExport,
    testing::Values(Failure{"nothing to export", AVError::invalidSourceMedia, "nothing to export",
                            [](const fs::path&) { return AVMutableComposition::make(); }},
                    Failure{"a source that is no video", AVError::invalidSourceMedia, "nothing to export",
                            [](const fs::path& scratch) { return AVAsset::make(URL(scratch / "missing.mp4")); }},
                    Failure{"no place for the file", AVError::exportFailed, "nothing can be written to", smallLoop,
                            [](AVAssetExportSession& session, const fs::path& directory) {
                              session.setOutputURL(URL(directory / "missing" / "out.mp4"));
                            }},
                    Failure{"an unknown type", AVError::exportFailed, "public.mpeg-2-video", smallLoop,
                            [](auto& session, const fs::path&) { session.setOutputFileType("public.mpeg-2-video"); }},
                    Failure{"a file that would grow longer than its limit", AVError::maximumFileSizeReached, "out.mp4",
                            smallLoop, [](auto& session, const fs::path&) { session.setFileLengthLimit(20'000); }},
                    Failure{"samples that end early", AVError::invalidSourceMedia, "cut.mp4", loopOfCutFile}));

TEST(FailingExport, ALimitCountsEveryByte) {
  const auto loop = loopOf(smallClip().path(), 2);
  const TemporaryDirectory directory;
  ASSERT_EQ(exportAsset(loop, AVAssetExportPresetHighestQuality, directory.file("free.mp4")).failure(), "");
  const auto length = static_cast<std::int64_t>(fs::file_size(directory.file("free.mp4")));
  const auto limited = [&](std::int64_t limit, const std::string& name) {
    return exportAsset(loop, AVAssetExportPresetHighestQuality, directory.file(name),
                       [&](AVAssetExportSession& session) { session.setFileLengthLimit(limit); });
  };
  EXPECT_EQ(limited(length, "exact.mp4").failure(), "") << "a file of the limit's length";
  EXPECT_EQ(limited(length - 1, "short.mp4").status, Status::failed) << "one byte too long";
  EXPECT_FALSE(fs::exists(directory.file("short.mp4")));
}

TEST(FailingExport, LeavesAFileOfThatNameAlone) {
  const TemporaryDirectory directory;
  std::ofstream(directory.file("out.mp4")) << "mine";
  const auto exported =
      exportAsset(loopOf(smallClip().path(), 2), AVAssetExportPresetHighestQuality, directory.file("out.mp4"));
  EXPECT_EQ(exported.status, Status::failed);
  ASSERT_TRUE(exported.error);
  EXPECT_EQ(exported.error->code(), static_cast<int>(AVError::fileAlreadyExists)) << exported.error->description();
  EXPECT_EQ(contents(directory.file("out.mp4")), "mine");
  EXPECT_THAT(filesIn(directory.path()), ElementsAre("out.mp4"));
}

TEST(FailingExport, SaysThatTheDiskIsFull) {
  const BarCodeClip clip({.width = 320, .height = 180, .frames = 60});
  const SmallFileSystem small(128);
  if (!small.isMounted()) GTEST_SKIP() << small.whyNot();
  const auto exported =
      exportAsset(loopOf(clip.path(), 20), AVAssetExportPresetHighestQuality, small.path() / "out.mp4");
  EXPECT_EQ(exported.status, Status::failed);
  ASSERT_TRUE(exported.error);
  EXPECT_EQ(exported.error->code(), static_cast<int>(AVError::diskFull)) << exported.error->description();
  ASSERT_NE(exported.error->underlyingError(), nullptr);
  EXPECT_EQ(exported.error->underlyingError()->code(), ENOSPC);
  EXPECT_THAT(filesIn(small.path()), IsEmpty());
}

TEST(DamagedPictures, DoNotMoveTheOthers) {
  const BarCodeClip clip(
      {.width = 160, .height = 90, .frames = 60, .timescale = 30, .bFrames = 0, .gop = 10, .audioCodec = ""});
  const TemporaryDirectory directory;
  std::string bytes = contents(clip.path());
  // The samples lie in front of the index, in decoding order: this is somewhere in the middle of the pictures.
  const std::size_t from = bytes.find("mdat") + 4;
  const std::size_t middle = from + (bytes.find("moov") - from) / 2;
  std::fill_n(bytes.begin() + static_cast<std::ptrdiff_t>(middle), 400, '\xFF');
  std::ofstream(directory.file("scratched.mp4"), std::ios::binary) << bytes;
  const auto exported = exportAsset(loopOf(directory.file("scratched.mp4"), 2), AVAssetExportPresetHEVCHighestQuality,
                                    directory.file("out.mp4"));
  ASSERT_EQ(exported.failure(), "");
  const MediaJudge output(directory.file("out.mp4"));
  const auto pictures = output.pictures();
  EXPECT_EQ(pictures.size(), 120U) << "every place keeps a picture";
  EXPECT_EQ(numberAt(pictures, 0.51), 15);
  EXPECT_EQ(numberAt(pictures, 1.91), 57);
  EXPECT_EQ(output.warnings(), "");
}

TEST(RecordingMetadata, StaysUnlessTheHostSaysOtherwise) {
  ClipOptions options{.width = 160, .height = 90, .frames = 30};
  options.outputArguments = {"-metadata", "creation_time=2024-05-06T07:08:09Z", "-metadata",
                             "location=+48.2082+016.3738/"};
  const auto loop = loopOf(BarCodeClip(options).path(), 2);
  const TemporaryDirectory directory;
  for (const bool keeps : {true, false}) {
    const auto path = directory.file(keeps ? "kept.mp4" : "left.mp4");
    const auto exported = exportAsset(loop, AVAssetExportPresetHighestQuality, path,
                                      [&](AVAssetExportSession& session) { session.setKeepsRecordingMetadata(keeps); });
    ASSERT_EQ(exported.failure(), "");
    const auto tags = runProgram({"ffprobe", "-v", "error", "-show_entries", "format_tags", path}).standardOutput;
    EXPECT_EQ(tags.find("2024-05-06T07:08:09") != std::string::npos, keeps);
    EXPECT_EQ(tags.find("+48.2082+016.3738") != std::string::npos, keeps);
    EXPECT_TRUE(keeps || contents(path).find("48.2082") == std::string::npos) << "somewhere else in the file";
  }
}

}  // namespace
}  // namespace clipworks::test
