#include <atomic>
#include <sstream>
#include <thread>

#include <gtest/gtest.h>

#include <clipworks/foundation/HEVCSupport.h>
#include <clipworks/foundation/VideoCompressorPreset.h>
#include <clipworks/media/export/EncoderAvailability.h>

namespace clipworks::test {
namespace {

TEST(HEVCSupport, IsAskedOnceAndRememberedForEveryThread) {
  std::atomic<int> yes = 0;
  std::vector<std::jthread> threads;
  for (int i = 0; i < 16; ++i) threads.emplace_back([&] { yes += HEVCSupport::hasHEVCHardwareEncoder() ? 1 : 0; });
  threads.clear();
  EXPECT_EQ(yes, 16);
  EncoderAvailability::withhold(VideoCodecKind::hevc);
  EXPECT_TRUE(HEVCSupport::hasHEVCHardwareEncoder()) << "the first answer stays";
}

TEST(EncoderAvailability, KnowsNoOtherCodec) {
  EXPECT_NE(VTCopySupportedPropertyDictionaryForEncoder(1920, 1080, 0x6a706567), 0) << "'jpeg'";
  EXPECT_NE(VTCopySupportedPropertyDictionaryForEncoder(0, 0, 0x61766331), 0) << "no encoder takes no pixels";
}

TEST(VideoCompressorPresets, HoldTheValuesThatHostsRelyOn) {
  std::ostringstream table;
  const auto print = [&](const VideoCompressorPreset& preset) {
    table << preset.name() << ' ' << preset.estimatedSize() << ' ' << preset.width() << ' ' << preset.height() << ' '
          << preset.bitRate() << ' ' << preset.conversionRate() << '\n';
  };
  print(Quality144p()), print(Quality360p()), print(Quality480p());
  print(Quality540p()), print(QualityHD()), print(QualityFullHD());
  EXPECT_EQ(table.str(),
            "144p ~ 1.1 MB/min 256 144 100 0.2901\n"
            "360p ~ 3.6 MB/min 480 360 500 0.1611\n"
            "480p ~ 7.2 MB/min 640 480 1000 0.1438\n"
            "540p ~ 10.7 MB/min 960 540 1500 0.1446\n"
            "HD (720p) ~ 17.9 MB/min 1280 720 2500 0.1344\n"
            "Full HD (1080p) ~ 28.6 MB/min 1920 1080 4000 0.1368\n");
}

}  // namespace
}  // namespace clipworks::test
