#include <clipworks/compressor/CompressionSettings.h>

#include <cstdint>
#include <limits>
#include <optional>
#include <ostream>
#include <string>

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

struct SettingsCase {
  std::string name;
  std::optional<CGAffineTransform> transform;  // nothing: no pictures
  Parameters parameters;
  std::int64_t width;
  std::int64_t height;
  std::int64_t bitRate;
  friend std::ostream& operator<<(std::ostream& out, const SettingsCase& c) { return out << c.name; }
};

class CompressionSettings : public testing::TestWithParam<SettingsCase> {};

TEST_P(CompressionSettings, Are) {
  const auto& c = GetParam();
  const auto video =
      videoOutputConfiguration(c.transform ? *fullHD(*c.transform) : *AVMutableComposition::make(), c.parameters);
  EXPECT_EQ(video.integer(AVVideoWidthKey), c.width);
  EXPECT_EQ(video.integer(AVVideoHeightKey), c.height);
  EXPECT_EQ(video.text(AVVideoCodecKey), AVVideoCodecTypeH264);
  EXPECT_EQ(video.text(AVVideoScalingModeKey), AVVideoScalingModeResizeAspectFill);
  EXPECT_EQ(video.entries().size(), 5U);
  const auto* properties = video.find(AVVideoCompressionPropertiesKey)->dictionary();
  EXPECT_EQ(properties->integer(AVVideoAverageBitRateKey), c.bitRate);
  EXPECT_EQ(properties->text(AVVideoProfileLevelKey), AVVideoProfileLevelH264HighAutoLevel);
  EXPECT_EQ(properties->entries().size(), 2U);
}

INSTANTIATE_TEST_SUITE_P(Of, CompressionSettings,
                         testing::Values(SettingsCase{"a_portrait_recording", CGAffineTransform{0, 1, -1, 0, 1080, 0},
                                                      Parameters(Quality480p()), 270, 480, 1'000'000},
                                         SettingsCase{"an_odd_width_cut_towards_zero", CGAffineTransform{},
                                                      Parameters(Quality480p()), 853, 480, 1'000'000},
                                         SettingsCase{"a_mirrored_recording", CGAffineTransform{-1, 0, 0, 1, 1920, 0},
                                                      Parameters(Quality144p()), 256, 144, 100'000},
                                         SettingsCase{"no_pictures", std::nullopt, Parameters(Quality360p(), 77), 480,
                                                      360, 77'000},
                                         SettingsCase{"a_bit_rate_of_zero", CGAffineTransform{},
                                                      Parameters(QualityFullHD(), 0), 1920, 1080, 0}),
                         [](const auto& testCase) { return testCase.param.name; });

/// A host's own, whose figures change and need 64 bits.
class ChangingPreset final : public VideoCompressorPreset {
 public:
  std::string name() const override { return ""; }
  std::string estimatedSize() const override { return ""; }
  std::int64_t height() const override { return lines; }
  std::int64_t width() const override { return lines; }
  std::int64_t bitRate() const override { return lines; }
  double conversionRate() const override { return 0; }
  std::int64_t lines = 5'000'000'000;
};

TEST(CompressionParameters, HoldTheirPresetByValue) {
  ChangingPreset preset;
  const Parameters parameters(preset);
  preset.lines = 0;
  const auto video = videoOutputConfiguration(*AVMutableComposition::make(), parameters);
  EXPECT_EQ(video.integer(AVVideoWidthKey), 5'000'000'000);
  EXPECT_EQ(video.integer(AVVideoHeightKey), 5'000'000'000);
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
