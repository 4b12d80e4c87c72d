#include <atomic>

#include <tests/support/SmallFileSystem.h>

#include "ExportTesting.h"

// How a session starts, ends and fails, whatever it exports.

namespace clipworks::test {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

const ClipOptions smallClip = small({.frames = 60, .timescale = 30});

std::shared_ptr<AVMutableComposition> smallLoop(int count = 2) { return loopOf(BarCodeClip(smallClip).path(), count); }

/// Takes many seconds to encode as HEVC.
std::shared_ptr<AVAsset> longWork() {
  return assetOf({.width = 640, .height = 360, .frames = 600, .preset = "ultrafast"});
}

/// A session that encodes as HEVC, into a directory of its own.
struct ToHEVC {
  explicit ToHEVC(const std::shared_ptr<AVAsset>& asset) : session(Session::make(asset, toHEVC)) {
    session->setOutputURL(URL(directory.file("out.mp4")));
  }
  [[nodiscard]] bool hasFile() const { return !fs::is_empty(directory.path()); }

  TemporaryDirectory directory;
  std::shared_ptr<Session> session;
};

TEST(ExportSession, ExistsOnlyForAPresetThatIsKnown) {
  const auto asset = assetOf(smallClip);
  EXPECT_EQ(Session::make(asset, "AVAssetExportPresetBestQuality"), nullptr);
  EXPECT_EQ(Session::make(nullptr, toH264), nullptr);
  EXPECT_EQ(Session::make(asset, toLow)->status(), Status::unknown);
  EXPECT_FALSE(Session::make(asset, toLow)->error());
}

TEST(ExportSession, LivesUntilItsEndAndIsListedMeanwhile) {
  ToHEVC work(assetOf(smallClip));
  const std::weak_ptr<Session> alive = work.session;
  std::atomic<Status> status = Status::unknown;
  work.session->exportAsynchronously([&status, raw = work.session.get()] { status = raw->status(); });
  EXPECT_THAT(Session::liveSessions(), ElementsAre(work.session)) << "from the start on";
  work.session.reset();
  EXPECT_TRUE(waitUntil([&] { return alive.expired() && Session::liveSessions().empty(); })) << "the session stays";
  EXPECT_EQ(status, Status::completed) << "when the handler was called";
}

TEST(ExportSession, ReportsProgressThatNeverFallsAndEndsAtOne) {
  const ToHEVC work(loopOf(BarCodeClip({.frames = 150}).path(), 3));
  Session* const session = work.session.get();
  std::vector<float> seen{0};
  run(*session, [&] {
    EXPECT_TRUE(waitUntil([&] {
      const Status before = session->status();
      const float now = session->progress();
      EXPECT_GE(now, seen.back());
      if (now > seen.back()) seen.push_back(now);
      EXPECT_TRUE(now < 1 || session->status() == Status::completed) << "1 before the end";
      return before != Status::waiting && before != Status::exporting;
    }));
  });
  EXPECT_EQ(session->progress(), 1);
  EXPECT_GT(seen.size(), 10U) << "steps between the start and the end";
}

TEST(ExportSession, TakesTheCompositionAsItIsAtTheStart) {
  const auto composition = smallLoop();
  const ToHEVC work(composition);
  run(*work.session, [&] {
    for (const auto& track : composition->compositionTracks()) track->removeTimeRange({kCMTimeZero, CMTime(3, 1)});
  });
  EXPECT_EQ(failureOf(work.session->error()), "");
  EXPECT_NEAR(MediaJudge(work.directory.file("out.mp4")).duration(), 4, 0.03);
}

TEST(ExportSessionDeathTest, ASecondStartAborts) {
  testing::FLAGS_gtest_death_test_style = "threadsafe";
  const ToHEVC work(AVMutableComposition::make());
  run(*work.session);
  EXPECT_DEATH(work.session->exportAsynchronously([] {}), "one session exports once");
}

TEST(CancelledExport, NeverRunsBeforeAndStaysCompletedAfter) {
  const ToHEVC early(longWork());
  early.session->cancelExport();
  run(*early.session);
  EXPECT_EQ(early.session->status(), Status::cancelled);
  EXPECT_FALSE(early.hasFile());
  const ToHEVC late(smallLoop(1));
  run(*late.session);
  late.session->cancelExport();
  EXPECT_EQ(late.session->status(), Status::completed);
  EXPECT_FALSE(late.session->error());
  EXPECT_TRUE(late.hasFile());
}

TEST(CancelledExport, EndsOnceAtWhateverMomentItIsCancelled) {
  const auto composition = smallLoop();
  for (int spins = 1; spins < 200'000; spins *= 3) {
    SCOPED_TRACE(std::to_string(spins) + " yields after the start");
    const ToHEVC work(composition);
    Session* const session = work.session.get();
    run(*session, [&] {
      for (int i = 0; i < spins && session->status() < Status::completed; ++i) std::this_thread::yield();
      session->cancelExport();
    });
    EXPECT_EQ(work.hasFile(), session->status() == Status::completed) << "a file exactly when it completed";
    if (session->status() == Status::completed) continue;
    EXPECT_EQ(session->status(), Status::cancelled);
    EXPECT_THAT(failureOf(session->error()), hasCode(AVError::operationCancelled));
    EXPECT_LT(session->progress(), 1);
  }
}

TEST(FailedExport, SaysWhyAndLeavesNoFile) {
  const TemporaryDirectory scratch;
  // A clip whose index comes first and whose samples end half-way.
  const BarCodeClip clip(small({.outputArguments = {"-movflags", "+faststart"}}));
  const std::string bytes = fileBytes(clip.path());
  const auto cut = loopOf(writeTo(scratch.file("cut.mp4"), bytes.substr(0, bytes.size() / 2)), 3);
  const Part inside{BarCodeClip(smallClip).path(), 500, 1500};
  const auto loop = smallLoop(3);
  struct {
    AVError code;
    const char* words;
    std::shared_ptr<AVAsset> asset;
    std::function<void(Session&)> configure = [](Session&) {};
    std::string_view preset = toH264;
  } const cases[] = {
      {AVError::invalidSourceMedia, "nothing to export", AVMutableComposition::make()},
      {AVError::invalidSourceMedia, "nothing to export", assetAt(scratch.file("missing.mp4"))},
      {AVError::invalidSourceMedia, "cut.mp4", cut},
      {AVError::exportFailed, "nothing can be written to", loop,
       [&](Session& session) { session.setOutputURL(URL(scratch.file("missing") / "out.mp4")); }},
      {AVError::exportFailed, "public.mpeg-2-video", loop,
       [](Session& session) { session.setOutputFileType("public.mpeg-2-video"); }},
      {AVError::maximumFileSizeReached, "out.mp4", loop, [](Session& session) { session.setFileLengthLimit(20'000); }},
      {AVError::operationNotSupportedForAsset, "starts inside a group", cutOf({inside, inside}), [](Session&) {},
       passedThrough},
  };
  for (const auto& [code, words, asset, configure, preset] : cases) {
    const auto exported = tryToExport(asset, preset, configure);
    EXPECT_EQ(exported.status, Status::failed) << words;
    EXPECT_THAT(exported.failure, testing::AllOf(hasCode(code), HasSubstr(words), testing::Not(HasSubstr("\n"))));
    EXPECT_TRUE(exported.tracks.empty()) << words;
    EXPECT_THAT(filesIn(exported.directory->path()), IsEmpty()) << words;
  }
}

TEST(FailedExport, ALimitCountsEveryByte) {
  const auto limited = [loop = smallLoop()](std::int64_t limit) {
    return tryToExport(loop, toH264, [&](Session& session) { session.setFileLengthLimit(limit); });
  };
  const auto free = exportAsset(smallLoop());
  const auto length = static_cast<std::int64_t>(fs::file_size(free.path));
  EXPECT_EQ(limited(length).failure, "") << "a file of the limit's length";
  const auto tooLong = limited(length - 1);
  EXPECT_EQ(tooLong.status, Status::failed) << "one byte too long";
  EXPECT_FALSE(fs::exists(tooLong.path));
}

TEST(FailedExport, LeavesAFileOfThatNameAlone) {
  const auto exported =
      tryToExport(smallLoop(), toH264, [](Session& session) { writeTo(session.outputURL()->path(), "mine"); });
  EXPECT_THAT(exported.failure, hasCode(AVError::fileAlreadyExists));
  EXPECT_EQ(fileBytes(exported.path), "mine");
  EXPECT_THAT(filesIn(exported.directory->path()), ElementsAre("out.mp4"));
}

TEST(FailedExport, SaysThatTheDiskIsFull) {
  const SmallFileSystem disk(128);
  if (!disk.isMounted()) GTEST_SKIP() << disk.whyNot();
  const auto exported = tryToExport(loopOf(BarCodeClip().path(), 20), toH264,
                                    [&](Session& session) { session.setOutputURL(URL(disk.path() / "out.mp4")); });
  EXPECT_THAT(exported.failure, hasCode(AVError::diskFull));
  EXPECT_THAT(exported.failure, HasSubstr("caused by: Error Domain=NSPOSIXErrorDomain Code=28 "));  // ENOSPC
  EXPECT_THAT(filesIn(disk.path()), IsEmpty());
}

TEST(DamagedPictures, DoNotMoveTheOthers) {
  std::string bytes =
      fileBytes(BarCodeClip(small({.frames = 60, .timescale = 30, .bFrames = 0, .gop = 10, .audioCodec = ""})).path());
  // The samples lie in front of the index, in decoding order: this is somewhere in the middle of the pictures.
  const std::size_t from = bytes.find("mdat") + 4;
  bytes.replace(from + (bytes.find("moov") - from) / 2, 400, std::string(400, '\xFF'));
  const TemporaryDirectory directory;
  const auto exported = exportAsset(loopOf(writeTo(directory.file("scratched.mp4"), bytes), 2), toHEVC);
  const auto pictures = exported.output.pictures();
  EXPECT_EQ(pictures.size(), 120U) << "every place keeps a picture";
  EXPECT_EQ(numberAt(pictures, 0.51), 15);
  EXPECT_EQ(numberAt(pictures, 1.91), 57);
  EXPECT_EQ(exported.output.warnings(), "");
}

TEST(RecordingMetadata, StaysUnlessTheHostSaysOtherwise) {
  ClipOptions options = small({.frames = 30});
  options.outputArguments = {"-metadata", "creation_time=2024-05-06T07:08:09Z", "-metadata",
                             "location=+48.2082+016.3738/"};
  const auto loop = loopOf(BarCodeClip(options).path(), 2);
  for (const bool keeps : {true, false}) {
    const auto exported =
        exportAsset(loop, toH264, [&](Session& session) { session.setKeepsRecordingMetadata(keeps); });
    const auto tags = run("ffprobe -v error -show_entries format_tags " + exported.path.string()).standardOutput;
    EXPECT_EQ(tags.find("2024-05-06T07:08:09") != std::string::npos, keeps);
    EXPECT_EQ(tags.find("+48.2082+016.3738") != std::string::npos, keeps);
    EXPECT_TRUE(keeps || fileBytes(exported.path).find("48.2082") == std::string::npos) << "elsewhere in the file";
  }
}

}  // namespace
}  // namespace clipworks::test
