#include <clipworks/narration/VideoNarrationUtils.h>

#include <clipworks/foundation/HEVCSupport.h>
#include <tests/support/OperationTest.h>
#include <tests/support/RunProgram.h>
#include <tests/support/SmallFileSystem.h>

namespace clipworks::test {
namespace {

namespace fs = std::filesystem;
using testing::ElementsAre;
using testing::MatchesRegex;
using testing::SizeIs;
using Created = Result<std::shared_ptr<AVMutableComposition>, NarrationError>;
using Exported = Result<URL, NarrationError>;

class Narration : public OperationTest {
 protected:
  /// A recording of so many seconds: a tone of 3,000 Hz at a tenth of full scale, which no video of these tests has.
  URL tone(double seconds) const {
    const auto path = recordings_.file(std::to_string(seconds) + ".wav");
    const auto source = "aevalsrc=0.1*sin(2*PI*3000*t)|0.1*sin(2*PI*3000*t):s=44100:d=" + std::to_string(seconds);
    const auto result = runProgram({"ffmpeg", "-v", "error", "-y", "-f", "lavfi", "-i", source, path});
    EXPECT_TRUE(result.succeeded()) << result;
    return URL(path);
  }
  Created compose(const URL& video, const std::vector<NarrationPiece>& pieces, float baseVolume = 1) const {
    return atOnce<Created>([&](auto done) { narration_->createComposition(video, pieces, baseVolume, done); });
  }
  Exported exportIt(ExportQuality quality) const {
    return later<Exported>([&](auto done) { narration_->exportComposition(quality, done); });
  }

  const URL clip_ =  // four seconds
      urlIn600ths({.width = 160, .height = 90, .frames = 120, .timescale = 30, .rotation = 90});
  TemporaryDirectory recordings_;
  std::shared_ptr<VideoNarrationUtils> narration_ = VideoNarrationUtils::make();
};

TEST_F(Narration, GivesEachPieceATrackAndAVolumeOfItsOwn) {
  const auto composition = compose(clip_,
                                   {{CMTime(1, 1), tone(3), 0.5F},
                                    {CMTime(1, 1), clip_, 2.0F},
                                    {CMTime(3, 2), URL("/nowhere/piece.m4a"), 1.0F},
                                    {CMTime(2, 1), tone(3), 1.0F}},
                                   0.25F)
                               .value();
  EXPECT_EQ(narration_->currentComposition(), composition);
  const auto tracks = composition->compositionTracks();
  ASSERT_EQ(tracks.size(), 5U) << "the piece without sound is left out";
  EXPECT_EQ(tracks[0]->mediaType(), AVMediaType::video);
  EXPECT_EQ(tracks[0]->preferredTransform(), (CGAffineTransform{0, 1, -1, 0, 90, 0}));
  EXPECT_EQ(tracks[1]->compositionSegments().front().target, CMTimeRange(kCMTimeZero, CMTime(2400, 600)));

  const auto& piece = tracks[2]->compositionSegments().back();
  EXPECT_EQ(piece.target, CMTimeRange(CMTime(600, 600), CMTime(1800, 600)));
  EXPECT_EQ(piece.target.duration.timescale, 600) << "a piece is measured in the video's time scale";
  EXPECT_EQ(tracks[3]->compositionSegments().back().target.start, CMTime(600, 600)) << "the same start is no conflict";
  EXPECT_EQ(composition->duration(), CMTime(3000, 600)) << "a piece is not cut at the end of the video";
  EXPECT_EQ(tracks[0]->timeRange().duration, CMTime(2400, 600));

  const auto& parameters = narration_->currentAudioMix()->inputParameters();
  ASSERT_THAT(parameters, SizeIs(4));
  for (std::size_t i = 0; i < 4; ++i) {
    EXPECT_EQ(parameters[i]->trackID(), tracks[i + 1]->trackID());
    EXPECT_EQ(parameters[i]->volume(), (std::vector{0.25F, 0.5F, 2.0F, 1.0F}[i]));
    EXPECT_EQ(parameters[i]->volumeTime(), kCMTimeZero);
  }
}

TEST_F(Narration, OfAVideoThatLacksPicturesOrSoundLeavesTheEarlierOneAlone) {
  const auto earlier = compose(clip_, {}).value();
  const auto mix = narration_->currentAudioMix();
  EXPECT_THAT(mix->inputParameters(), SizeIs(1));
  for (const auto& video : incompleteVideos()) {
    EXPECT_FALSE(compose(video, {})) << video.path();
    EXPECT_EQ(narration_->currentComposition(), earlier);
    EXPECT_EQ(narration_->currentAudioMix(), mix);
  }
}

TEST_F(Narration, PlacesThePieceOverTheVideoInEveryQuality) {
  ASSERT_TRUE(compose(clip_, {{CMTime(1500, 1000), tone(1), 0.5F}}, 0));
  for (const auto& [quality, text, codec] : {std::tuple(ExportQuality::low, "low", "h264"),
                                             std::tuple(ExportQuality::highCompressed, "highCompressed", "hevc"),
                                             std::tuple(ExportQuality::highLossless, "highLossless", "h264")}) {
    SCOPED_TRACE(text);
    EXPECT_EQ(rawValue(quality), text);
    EXPECT_EQ(exportQuality(text), quality);
    const fs::path path = exportIt(quality).value().path();
    EXPECT_THAT(path, MatchesRegex(outputs_.file(identifier).string() + "\\.mp4"));
    const MediaJudge output(path);
    EXPECT_EQ(output.stream("video").codec, codec);
    EXPECT_EQ(output.stream("video").rotation, 90);
    EXPECT_THAT(output.pictures(), SizeIs(120));
    const Sound heard = output.sound(44'100);
    EXPECT_LT(heard.part(0, 1.48).level(), 0.001) << "the video's own sound has volume 0";
    // Half of a sine's level of 0.1 / √2; the ffmpeg program folds two equal channels of AAC into one that is 3 dB
    // louder.
    EXPECT_NEAR(heard.part(1.6, 2.4).level(), 0.05, 0.003);
    EXPECT_LT(heard.part(2.52, 4).level(), 0.001);
    const Sound piece = MediaJudge(tone(1).path()).sound(44'100);
    const auto lag = lagMilliseconds(piece.part(0, 0.9), heard.part(1.5, 2.4), 0.15);  // less than a period of the tone
    EXPECT_NEAR(lag.value(), 0, 0.1);
  }
  EXPECT_EQ(exportQuality("High"), std::nullopt);
  EXPECT_EQ(std::distance(fs::directory_iterator(outputs_.path()), {}), 3) << "each export has a name of its own";
  const auto line = std::string("Has HEVC support: ") + (HEVCSupport::hasHEVCHardwareEncoder() ? "true" : "false");
  EXPECT_THAT(printed_.lines(), ElementsAre(line, line, line));
}

TEST_F(Narration, WithoutACompositionFailsAtOnceOnTheCallingThread) {
  EXPECT_FALSE(atOnce<Exported>([&](auto done) { narration_->exportComposition(ExportQuality::low, done); }));
  EXPECT_THAT(printed_.lines(), testing::IsEmpty());
}

TEST_F(Narration, AnExportThatFailsSaysWhy) {
  const SmallFileSystem small(16);
  if (!small.isMounted()) GTEST_SKIP() << small.whyNot();
  ASSERT_TRUE(compose(clip_, {}));
  FileSystem::shared().setOutputsURL(URL(small.path()));
  EXPECT_FALSE(exportIt(ExportQuality::highLossless));
  EXPECT_THAT(printed_.lines(), ElementsAre(MatchesRegex("Has HEVC support: (true|false)"),
                                            MatchesRegex("Failed: Optional\\(.*Code=-11807 .*\\)")));
}

}  // namespace
}  // namespace clipworks::test
