#include <clipworks/narration/VideoNarrationUtils.h>

#include <chrono>
#include <cmath>
#include <filesystem>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <clipworks/filedeck/FileSystem.h>
#include <clipworks/foundation/HEVCSupport.h>
#include <clipworks/media/dispatch/DispatchQueue.h>
#include <clipworks/media/export/AVAssetExportSession.h>

#include <tests/support/BarCodeClip.h>
#include <tests/support/MediaJudge.h>
#include <tests/support/PrintedLinesCapture.h>
#include <tests/support/RunProgram.h>
#include <tests/support/SmallFileSystem.h>
#include <tests/support/TemporaryDirectory.h>

namespace clipworks::test {
namespace {

namespace fs = std::filesystem;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::MatchesRegex;
using testing::SizeIs;

constexpr std::chrono::seconds patience{100};
// The ffmpeg program folds two equal channels of AAC into one that is 3 dB louder.
const double foldGain = std::sqrt(2);
using CompositionResult = Result<std::shared_ptr<AVMutableComposition>, NarrationError>;
using ExportResult = Result<URL, NarrationError>;

class Narration : public testing::Test {
 protected:
  void SetUp() override { FileSystem::shared().setOutputsURL(URL(outputs_.path())); }

  /// 4 seconds, with a movie header that counts in 600ths.
  static BarCodeClip clip() {
    return BarCodeClip({.width = 160,
                        .height = 90,
                        .frames = 120,
                        .timescale = 30,
                        .rotation = 90,
                        .outputArguments = {"-movie_timescale", "600"}});
  }

  /// A recording of so many seconds: a tone of 3,000 Hz at a tenth of full scale, which no video of these tests has.
  fs::path tone(double seconds, const std::string& name = "piece.wav") const {
    const auto path = recordings_.file(name);
    const auto source = "aevalsrc=0.1*sin(2*PI*3000*t)|0.1*sin(2*PI*3000*t):s=44100:d=" + std::to_string(seconds);
    const auto result = runProgram({"ffmpeg", "-v", "error", "-y", "-f", "lavfi", "-i", source, path});
    EXPECT_TRUE(result.succeeded()) << result;
    return path;
  }

  std::shared_ptr<AVMutableComposition> compose(const fs::path& video, const std::vector<NarrationPiece>& pieces,
                                                float baseVolume = 1) const {
    std::vector<CompositionResult> results;
    narration_->createComposition(URL(video), pieces, baseVolume,
                                  [&](const CompositionResult& result) { results.push_back(result); });
    EXPECT_THAT(results, SizeIs(1)) << "called once, before the call returns";
    return results.empty() || !results.front() ? nullptr : *results.front();
  }

  std::optional<ExportResult> exportIt(ExportQuality quality) const {
    std::optional<ExportResult> got;
    narration_->exportComposition(quality, [&](const ExportResult& result) { got = result; });
    EXPECT_FALSE(got) << "not before the call returns";
    EXPECT_TRUE(DispatchQueue::main().runOne(patience)) << "no result came to the main queue";
    return got;
  }

  TemporaryDirectory outputs_;
  TemporaryDirectory recordings_;
  std::shared_ptr<VideoNarrationUtils> narration_ = VideoNarrationUtils::make();
};

TEST_F(Narration, GivesEachPieceATrackAndAVolumeOfItsOwn) {
  const auto composition = compose(clip().path(),
                                   {NarrationPiece{CMTime(1, 1), URL(tone(3, "long.wav")), 0.5F},
                                    NarrationPiece{CMTime(1, 1), URL(clip().path()), 2.0F},
                                    NarrationPiece{CMTime(3, 2), URL("/nowhere/piece.m4a"), 1.0F},
                                    NarrationPiece{CMTime(2, 1), URL(tone(3, "long.wav")), 1.0F}},
                                   0.25F);
  ASSERT_NE(composition, nullptr);
  EXPECT_EQ(narration_->currentComposition(), composition);
  const auto tracks = composition->compositionTracks();
  ASSERT_EQ(tracks.size(), 5U) << "the piece without sound is left out";
  EXPECT_EQ(tracks[0]->mediaType(), AVMediaType::video);
  EXPECT_EQ(tracks[0]->preferredTransform(), (CGAffineTransform{0, 1, -1, 0, 90, 0}));
  EXPECT_EQ(tracks[1]->compositionSegments().front().target, CMTimeRange(kCMTimeZero, CMTime(2400, 600)));

  const auto& piece = tracks[2]->compositionSegments().back();
  EXPECT_EQ(piece.target.start, CMTime(600, 600));
  EXPECT_EQ(piece.target.duration.timescale, 600) << "a piece is measured in the video's time scale";
  EXPECT_EQ(piece.target.duration.value, 1800);
  EXPECT_EQ(tracks[3]->compositionSegments().back().target.start, CMTime(600, 600)) << "the same start is no conflict";
  EXPECT_EQ(composition->duration(), CMTime(3000, 600)) << "a piece is not cut at the end of the video";
  EXPECT_EQ(tracks[0]->timeRange().duration, CMTime(2400, 600));

  const auto& parameters = narration_->currentAudioMix()->inputParameters();
  ASSERT_EQ(parameters.size(), 4U);
  const std::vector<float> volumes{0.25F, 0.5F, 2.0F, 1.0F};
  for (std::size_t i = 0; i < 4; ++i) {
    EXPECT_EQ(parameters[i]->trackID(), tracks[i + 1]->trackID());
    EXPECT_EQ(parameters[i]->volume(), volumes[i]);
    EXPECT_EQ(parameters[i]->volumeTime(), kCMTimeZero);
  }
}

TEST_F(Narration, OfAVideoThatLacksPicturesOrSoundLeavesTheEarlierOneAlone) {
  const auto earlier = compose(clip().path(), {});
  ASSERT_NE(earlier, nullptr);
  const auto mix = narration_->currentAudioMix();
  EXPECT_THAT(mix->inputParameters(), SizeIs(1));
  const BarCodeClip silent({.width = 160, .height = 90, .frames = 10, .audioCodec = ""});
  for (const auto& video : {silent.path(), tone(1), fs::path("/nowhere/clip.mp4")}) {
    EXPECT_EQ(compose(video, {}), nullptr) << video;
    EXPECT_EQ(narration_->currentComposition(), earlier);
    EXPECT_EQ(narration_->currentAudioMix(), mix);
  }
}

struct QualityCase {
  ExportQuality quality;
  std::string text;
  std::string codec;

  friend std::ostream& operator<<(std::ostream& out, const QualityCase& c) { return out << c.text; }
};

class NarrationQuality : public Narration, public testing::WithParamInterface<QualityCase> {};

TEST_P(NarrationQuality, PlacesThePieceOverTheVideo) {
  EXPECT_EQ(rawValue(GetParam().quality), GetParam().text);
  EXPECT_EQ(exportQuality(GetParam().text), GetParam().quality);
  const PrintedLinesCapture printed;
  ASSERT_NE(compose(clip().path(), {NarrationPiece{CMTime(1500, 1000), URL(tone(1)), 0.5F}}, 0), nullptr);
  std::vector<fs::path> paths;
  for (int i = 0; i < 2; ++i) {
    const auto result = exportIt(GetParam().quality);
    ASSERT_TRUE(result && *result) << testing::PrintToString(printed.lines());
    paths.push_back((*result)->path());
  }
  EXPECT_NE(paths[0], paths[1]) << "each export has a name of its own";
  EXPECT_THAT(paths[0].filename().string(), MatchesRegex("[0-9A-F]{8}(-[0-9A-F]{4}){3}-[0-9A-F]{12}\\.mp4"));
  const std::string line =
      std::string("Has HEVC support: ") + (HEVCSupport::hasHEVCHardwareEncoder() ? "true" : "false");
  EXPECT_THAT(printed.lines(), ElementsAre(line, line));

  const MediaJudge output(paths[0]);
  EXPECT_EQ(output.stream("video").codec, GetParam().codec);
  EXPECT_EQ(output.stream("video").rotation, 90);
  EXPECT_EQ(output.pictures().size(), 120U);
  const Sound heard = output.sound(44'100);
  EXPECT_LT(heard.part(0, 1.48).level(), 0.001) << "the video's own sound has volume 0";
  EXPECT_NEAR(heard.part(1.6, 2.4).level(), foldGain * 0.05 / std::sqrt(2), 0.003) << "the piece has half its level";
  EXPECT_LT(heard.part(2.52, 4).level(), 0.001);
  const Sound piece = MediaJudge(tone(1)).sound(44'100);
  const auto lag = lagMilliseconds(piece.part(0, 0.9), heard.part(1.5, 2.4), 0.15);  // less than a period of the tone
  ASSERT_TRUE(lag);
  EXPECT_NEAR(*lag, 0, 0.1);
}

INSTANTIATE_TEST_SUITE_P(Qualities, NarrationQuality,
                         testing::Values(QualityCase{ExportQuality::low, "low", "h264"},
                                         QualityCase{ExportQuality::highCompressed, "highCompressed", "hevc"},
                                         QualityCase{ExportQuality::highLossless, "highLossless", "h264"}),
                         [](const auto& testCase) { return testCase.param.text; });

TEST(ExportQualityText, IsOneOfThree) { EXPECT_EQ(exportQuality("High"), std::nullopt); }

TEST_F(Narration, WithoutACompositionFailsAtOnceOnTheCallingThread) {
  const PrintedLinesCapture printed;
  std::vector<ExportResult> results;
  narration_->exportComposition(ExportQuality::low, [&](const ExportResult& result) { results.push_back(result); });
  ASSERT_THAT(results, SizeIs(1));
  EXPECT_FALSE(results.front());
  EXPECT_THAT(printed.lines(), IsEmpty());
}

TEST_F(Narration, AnExportThatFailsSaysWhy) {
  const SmallFileSystem small(16);
  if (!small.isMounted()) GTEST_SKIP() << small.whyNot();
  ASSERT_NE(compose(clip().path(), {}), nullptr);
  FileSystem::shared().setOutputsURL(URL(small.path()));
  const PrintedLinesCapture printed;
  const auto result = exportIt(ExportQuality::highLossless);
  ASSERT_TRUE(result);
  EXPECT_FALSE(*result);
  EXPECT_THAT(printed.lines(), ElementsAre(MatchesRegex("Has HEVC support: (true|false)"),
                                           MatchesRegex("Failed: Optional\\(.*Code=-11807 .*\\)")));
}

}  // namespace
}  // namespace clipworks::test
