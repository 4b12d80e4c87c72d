#include <clipworks/compressor/CompressionSettings.h>

#include <limits>

#include <gtest/gtest.h>

#include <clipworks/media/base/SettingsKeys.h>
#include <clipworks/media/composition/AVMutableComposition.h>

#include <tests/support/BarCodeClip.h>

namespace clipworks::test {
namespace {

using Parameters = VideoCompressorUtils::Parameters;

/// A picture of 1920 × 1080 under a transform.
std::shared_ptr<AVAsset> fullHD(const CGAffineTransform& transform) {
  const BarCodeClip clip({.width = 1920, .height = 1080, .frames = 1, .audioCodec = ""});
  const auto asset = AVMutableComposition::make();
  const auto track = asset->addMutableTrack(AVMediaTypeVideo, kCMPersistentTrackID_Invalid);
  EXPECT_TRUE(track->insertTimeRange({kCMTimeZero, CMTime(1, 30)}, AVAsset::make(URL(clip.path()))->tracks().front(),
                                     kCMTimeZero));
  track->setPreferredTransform(transform);
  return asset;
}

/// A host's own, whose figures change and need 64 bits.
struct ChangingPreset final : public VideoCompressorPreset {
  std::string name() const override { return ""; }
  std::string estimatedSize() const override { return ""; }
  std::int64_t height() const override { return lines; }
  std::int64_t width() const override { return lines; }
  std::int64_t bitRate() const override { return lines; }
  double conversionRate() const override { return 0; }
  std::int64_t lines = 5'000'000'000;
};

TEST(CompressionSettings, FollowThePresetAndTheVideo) {
  const std::shared_ptr<AVAsset> noPictures = AVMutableComposition::make();
  ChangingPreset preset;
  const Parameters parameters(preset);
  preset.lines = 0;
  using Figures = std::array<std::int64_t, 3>;  // width, height, bits a second
  const std::vector<std::tuple<const char*, std::shared_ptr<AVAsset>, Parameters, Figures>> cases{
      {"a portrait recording", fullHD({0, 1, -1, 0, 1080, 0}), Parameters(Quality480p()), {270, 480, 1'000'000}},
      {"an odd width, cut towards zero", fullHD({}), Parameters(Quality480p()), {853, 480, 1'000'000}},
      {"a mirrored recording", fullHD({-1, 0, 0, 1, 1920, 0}), Parameters(Quality144p()), {256, 144, 100'000}},
      {"no pictures", noPictures, Parameters(Quality360p(), 77), {480, 360, 77'000}},
      {"a bit rate of zero", fullHD({}), Parameters(QualityFullHD(), 0), {1920, 1080, 0}},
      {"a preset held by value", noPictures, parameters, {5'000'000'000, 5'000'000'000, 5'000'000'000'000}},
  };
  for (const auto& [name, asset, wanted, figures] : cases) {
    SCOPED_TRACE(name);
    const auto video = videoOutputConfiguration(*asset, wanted);
    const auto& properties = *video.find(AVVideoCompressionPropertiesKey)->dictionary();
    EXPECT_EQ((Figures{video.integer(AVVideoWidthKey).value(), video.integer(AVVideoHeightKey).value(),
                       properties.integer(AVVideoAverageBitRateKey).value()}),
              figures);
    EXPECT_EQ(video.text(AVVideoCodecKey), AVVideoCodecTypeH264);
    EXPECT_EQ(video.text(AVVideoScalingModeKey), AVVideoScalingModeResizeAspectFill);
    EXPECT_EQ(properties.text(AVVideoProfileLevelKey), AVVideoProfileLevelH264HighAutoLevel);
    EXPECT_EQ(std::pair(video.entries().size(), properties.entries().size()), std::pair(5UL, 2UL));
  }
}

TEST(CompressionSettingsDeathTest, WhatDoesNotFitAborts) {
  testing::FLAGS_gtest_death_test_style = "threadsafe";
  const Parameters plain{Quality144p()};
  EXPECT_DEATH((void)videoOutputConfiguration(*fullHD({1, 0, 0, 0, 0, 0}), plain), "width that fits 64 bits");
  EXPECT_DEATH((void)videoOutputConfiguration(*fullHD({1e17, 0, 0, 1, 0, 0}), plain), "width that fits 64 bits");
  const Parameters tooFast(Quality144p(), std::numeric_limits<std::int64_t>::max() / 1000 + 1);
  EXPECT_DEATH((void)videoOutputConfiguration(*AVMutableComposition::make(), tooFast), "bit rate must fit 64 bits");
}

}  // namespace
}  // namespace clipworks::test
