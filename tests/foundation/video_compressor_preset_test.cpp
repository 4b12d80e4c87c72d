#include <clipworks/foundation/VideoCompressorPreset.h>

#include <memory>
#include <ostream>
#include <string>

#include <gtest/gtest.h>

namespace clipworks::test {
namespace {

struct PresetCase {
  std::shared_ptr<const VideoCompressorPreset> preset;
  const char* name;
  const char* estimatedSize;
  int height;
  int width;
  int bitRate;
  double conversionRate;
};
void PrintTo(const PresetCase& c, std::ostream* out) { *out << c.name; }

class VideoCompressorPresets : public testing::TestWithParam<PresetCase> {};

TEST_P(VideoCompressorPresets, HoldTheValuesThatHostsRelyOn) {
  const auto& c = GetParam();
  EXPECT_EQ(c.preset->name(), c.name);
  EXPECT_EQ(c.preset->estimatedSize(), c.estimatedSize);
  EXPECT_EQ(c.preset->height(), c.height);
  EXPECT_EQ(c.preset->width(), c.width);
  EXPECT_EQ(c.preset->bitRate(), c.bitRate);
  EXPECT_EQ(c.preset->conversionRate(), c.conversionRate);
}

template <class Preset>
std::shared_ptr<const VideoCompressorPreset> make() {
  return std::make_shared<const Preset>();
}

INSTANTIATE_TEST_SUITE_P(
    Table, VideoCompressorPresets,
    testing::Values(PresetCase{make<Quality144p>(), "144p", "~ 1.1 MB/min", 144, 256, 100, 0.2901},
                    PresetCase{make<Quality360p>(), "360p", "~ 3.6 MB/min", 360, 480, 500, 0.1611},
                    PresetCase{make<Quality480p>(), "480p", "~ 7.2 MB/min", 480, 640, 1000, 0.1438},
                    PresetCase{make<Quality540p>(), "540p", "~ 10.7 MB/min", 540, 960, 1500, 0.1446},
                    PresetCase{make<QualityHD>(), "HD (720p)", "~ 17.9 MB/min", 720, 1280, 2500, 0.1344},
                    PresetCase{make<QualityFullHD>(), "Full HD (1080p)", "~ 28.6 MB/min", 1080, 1920, 4000, 0.1368}));

}  // namespace
}  // namespace clipworks::test
