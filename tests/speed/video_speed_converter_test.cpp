#include <clipworks/speed/VideoSpeedConverter.h>

#include <tests/support/OperationTest.h>

namespace clipworks::test {
namespace {

using testing::MatchesRegex;
using testing::SizeIs;
using Quality = VideoSpeedConverter::ConversionQuality;
using Exported = Result<URL, VideoSpeedConverter::ConversionError>;
using Created = Result<std::shared_ptr<AVMutableComposition>, VideoSpeedConverter::ConversionError>;

class SpeedConverter : public OperationTest {
 protected:
  static Created compose(VideoSpeedConverter& converter, double ratio) {
    return atOnce<Created>([&](auto done) { converter.createComposition(2, 4, ratio, done); });
  }
  Exported apply(double ratio, Quality quality, std::optional<std::string> name, const Action& meanwhile = {}) const {
    return later<Exported>([&](auto done) { converter_->applySpeedChange(2, 4, ratio, name, quality, done); },
                           meanwhile);
  }

  // Ten seconds.
  const URL clip_ = urlIn600ths({.width = 96, .height = 64, .rate = {6, 1}, .timescale = 600, .rotation = 90});
  const std::shared_ptr<VideoSpeedConverter> converter_ = VideoSpeedConverter::make(clip_);
};

TEST_F(SpeedConverter, ScalesTheStretchInBothTracks) {
  for (const auto& [ratio, length] : {std::pair{2.0, 12.0}, std::pair{0.25, 8.5}}) {
    const auto composition = compose(*converter_, ratio).value();
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
  const auto first = apply(2, Quality::low, "clip").value().path();
  EXPECT_EQ(first, outputs_.file("clip.mp4"));
  EXPECT_EQ(MediaJudge(first).stream("video").codec, "h264");
  EXPECT_NEAR(MediaJudge(first).duration(), 12, 0.03);
  // Kept: another change on the same object is the first one again, and replaces the file of its name.
  EXPECT_NEAR(MediaJudge(apply(0.5, Quality::low, "clip").value().path()).duration(), 12, 0.03);
  // A new composition is another matter.
  ASSERT_TRUE(compose(*converter_, 0.5));
  const auto third = apply(7, Quality::high, std::nullopt).value().path();
  EXPECT_EQ(MediaJudge(third).stream("video").codec, "hevc");
  EXPECT_NEAR(MediaJudge(third).duration(), 9, 0.03);
  EXPECT_THAT(third.filename(), MatchesRegex(identifier + "\\.mp4"));
  EXPECT_EQ(apply(7, Quality::low, "").value().path(), outputs_.file(".mp4")) << "a name is used as given";
  EXPECT_THAT(printed_.lines(), testing::AllOf(SizeIs(4), testing::Each("Supports HEVC: true")));
  EXPECT_EQ(std::distance(std::filesystem::directory_iterator(outputs_.path()), {}), 3);
}

TEST_F(SpeedConverter, AVideoThatLacksATrackFailsAtOnceOnTheCallingThread) {
  for (const auto& video : incompleteVideos()) {
    const auto converter = VideoSpeedConverter::make(video);
    EXPECT_FALSE(compose(*converter, 2)) << video.path();
    EXPECT_FALSE(atOnce<Exported>([&](auto done) { converter->applySpeedChange(0, 1, 2, "x", Quality::high, done); }));
  }
  EXPECT_THAT(printed_.lines(), testing::IsEmpty());
}

TEST_F(SpeedConverter, SaysWhyAnExportFailedButNotThatItWasCancelled) {
  EXPECT_FALSE(apply(30, Quality::low, "x", cancelExports));
  EXPECT_FALSE(apply(2, Quality::low, "no/such/folder"));
  EXPECT_THAT(printed_.lines(), testing::ElementsAre("Supports HEVC: true", "Supports HEVC: true",
                                                     MatchesRegex("FAILED: Optional\\(.+\\)")));
}

}  // namespace
}  // namespace clipworks::test
