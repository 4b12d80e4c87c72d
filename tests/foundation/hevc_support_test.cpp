#include <clipworks/foundation/HEVCSupport.h>

#include <atomic>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include <clipworks/media/export/EncoderAvailability.h>

namespace clipworks::test {
namespace {

TEST(HEVCSupport, IsAskedOnceAndRememberedForEveryThread) {
  std::atomic<int> yes = 0;
  std::vector<std::jthread> threads;
  for (int i = 0; i < 16; ++i) {
    threads.emplace_back([&] { yes += HEVCSupport::hasHEVCHardwareEncoder() ? 1 : 0; });
  }
  threads.clear();
  EXPECT_EQ(yes, 16);
  EncoderAvailability::withhold(VideoCodecKind::hevc);
  EXPECT_TRUE(HEVCSupport::hasHEVCHardwareEncoder()) << "the first answer stays";
}

TEST(EncoderAvailability, KnowsNoOtherCodec) {
  EXPECT_NE(VTCopySupportedPropertyDictionaryForEncoder(1920, 1080, 0x6a706567), 0) << "'jpeg'";
  EXPECT_NE(VTCopySupportedPropertyDictionaryForEncoder(0, 0, 0x61766331), 0) << "no encoder takes no pixels";
}

}  // namespace
}  // namespace clipworks::test
