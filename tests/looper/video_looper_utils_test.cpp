#include <clipworks/looper/VideoLooperUtils.h>

#include <tests/support/OperationTest.h>

namespace clipworks::test {
namespace {

namespace fs = std::filesystem;
using testing::ElementsAre;
using testing::MatchesRegex;
using testing::SizeIs;
using testing::StartsWith;
using Exported = Result<URL, VideoLooperError>;
using Created = Result<std::shared_ptr<AVMutableComposition>, VideoLooperError>;

class Looper : public OperationTest {
 protected:
  static URL clip(int rotation = 0) {
    return urlIn600ths({.width = 160, .height = 90, .frames = 75, .timescale = 30, .rotation = rotation});
  }
  static Created createLoop(VideoLooperUtils& looper, int count) {
    return atOnce<Created>([&](auto done) { looper.createLoopComposition(count, done); });
  }
  static Exported exportLoop(VideoLooperUtils& looper, const Action& meanwhile = {}) {
    return later<Exported>([&](auto done) { looper.exportCurrentComposition(done); }, meanwhile);
  }
};

TEST_F(Looper, PlacesTheCopiesAtMultiplesOfTheLength) {
  const auto looper = VideoLooperUtils::make(clip(90));
  EXPECT_EQ(looper->composition(), nullptr);
  const auto composition = createLoop(*looper, 3).value();
  EXPECT_EQ(looper->composition(), composition);
  ASSERT_THAT(composition->compositionTracks(), SizeIs(2));
  EXPECT_EQ(composition->compositionTracks()[1]->mediaType(), AVMediaType::audio);
  EXPECT_EQ(composition->compositionTracks()[0]->preferredTransform(), (CGAffineTransform{0, 1, -1, 0, 90, 0}));
  EXPECT_EQ(composition->duration(), CMTime(4500, 600));
  for (const auto& track : composition->compositionTracks()) {
    ASSERT_THAT(track->compositionSegments(), SizeIs(3));
    for (std::int64_t start = 0; const auto& segment : track->compositionSegments()) {
      EXPECT_EQ(segment.source, CMTimeRange(kCMTimeZero, CMTime(1500, 600)));
      EXPECT_EQ(segment.target, CMTimeRange(CMTime(start, 600), CMTime(1500, 600)));
      start += 1500;
    }
  }
}

TEST_F(Looper, ExportsTwiceToTwoFilesOfNewNames) {
  const auto looper = VideoLooperUtils::make(clip(90));
  ASSERT_TRUE(createLoop(*looper, 3));
  for (int i = 1; i <= 2; ++i) {
    const fs::path path = exportLoop(*looper).value().path();
    EXPECT_THAT(printed_.lines(), SizeIs(i)) << "one line for each export";
    EXPECT_THAT(printed_.lines().back(), MatchesRegex("Current capacity: [1-9][0-9]*"));
    EXPECT_THAT(path, MatchesRegex(outputs_.file(identifier).string() + "\\.mp4"));
    EXPECT_EQ(std::distance(fs::directory_iterator(outputs_.path()), {}), i);
    const MediaJudge output(path);
    EXPECT_EQ(output.stream("video").codec, "hevc");
    EXPECT_EQ(output.stream("video").rotation, 90);
    const auto pictures = output.pictures();
    EXPECT_THAT(pictures, SizeIs(225));
    EXPECT_EQ(numberAt(pictures, 5.02), 0) << "the third copy's first picture";
    EXPECT_EQ(numberAt(pictures, 7.48), 74);
    EXPECT_NEAR(output.duration(), 7.5, 0.03);
  }
}

TEST_F(Looper, ACountOfZeroGivesAnEmptyCompositionThatDoesNotExport) {
  const auto looper = VideoLooperUtils::make(clip());
  const auto composition = createLoop(*looper, 0).value();
  EXPECT_EQ(composition->duration(), kCMTimeZero);
  EXPECT_THAT(composition->tracks(), SizeIs(2));
  EXPECT_FALSE(exportLoop(*looper));
  EXPECT_THAT(printed_.lines(),
              ElementsAre(StartsWith("Current capacity: "), MatchesRegex("FAILED: Optional\\(.*Code=-[0-9]+ .*\\)")));
  EXPECT_TRUE(fs::is_empty(outputs_.path()));
}

TEST_F(Looper, AVideoThatCannotBeLoopedLeavesTheEarlierCompositionAlone) {
  for (const auto& video : incompleteVideos()) {
    const auto looper = VideoLooperUtils::make(video);
    EXPECT_FALSE(atOnce<Exported>([&](auto done) { looper->exportCurrentComposition(done); }));
    const auto earlier = AVMutableComposition::make();
    looper->setComposition(earlier);
    EXPECT_FALSE(createLoop(*looper, 3)) << video.path();
    EXPECT_EQ(looper->composition(), earlier);
  }
  EXPECT_THAT(printed_.lines(), testing::IsEmpty());
}

TEST_F(Looper, ACancelledExportFailsWithoutALine) {
  const auto looper = VideoLooperUtils::make(clip());
  ASSERT_TRUE(createLoop(*looper, 200));
  EXPECT_FALSE(exportLoop(*looper, cancelExports));
  EXPECT_THAT(printed_.lines(), ElementsAre(StartsWith("Current capacity: ")));
  EXPECT_TRUE(fs::is_empty(outputs_.path()));
}

TEST_F(Looper, ExportsWhatTheHostPlacesThereAndNeedsNotLiveOn) {
  auto looper = VideoLooperUtils::make(URL("/nowhere/clip.mp4"));
  looper->setComposition(createLoop(*VideoLooperUtils::make(clip()), 2).value());
  const auto url = exportLoop(*looper, [&] { looper.reset(); }).value();
  EXPECT_NEAR(MediaJudge(url.path()).duration(), 5, 0.03);
}

TEST_F(Looper, ANegativeCountAborts) {
  testing::FLAGS_gtest_death_test_style = "threadsafe";
  const auto looper = VideoLooperUtils::make(clip());
  EXPECT_DEATH(looper->createLoopComposition(-1, [](const Created&) {}), "must not be negative");
}

}  // namespace
}  // namespace clipworks::test
