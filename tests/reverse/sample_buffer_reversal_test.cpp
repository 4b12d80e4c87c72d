#include <clipworks/reverse/SampleBufferReversal.h>

#include <gtest/gtest.h>

namespace clipworks::test {
namespace {

using Bytes = std::vector<std::uint8_t>;

std::shared_ptr<CMSampleBuffer> bufferOf(const std::shared_ptr<CMBlockBuffer>& data, std::size_t samples) {
  std::shared_ptr<CMSampleBuffer> buffer;
  EXPECT_EQ(CMSampleBufferCreate(data, true, {}, CMFormatDescription::pcm(48'000, 2, 16), samples,
                                 {{CMTime(1, 48'000), CMTime(3, 1), kCMTimeInvalid}}, {}, &buffer),
            noErr);
  return buffer;
}

TEST(ReversedBuffer, HasItsValuesInReverseOrder) {
  const std::vector<std::pair<Bytes, Bytes>> cases{
      {{1, 2, 3, 4, 5, 6, 7, 8}, {7, 8, 5, 6, 3, 4, 1, 2}},  // two stereo samples: the channels are swapped
      {{1, 2, 3, 4, 5}, {3, 4, 1, 2, 5}},                    // an odd size keeps its last byte
      {{7}, {7}},
      {{}, {}},
  };
  for (const auto& [given, wanted] : cases) {
    const auto buffer = bufferOf(CMBlockBuffer::make(given.data(), given.size()), given.size() / 4);
    const auto reversed = reverse(buffer, {{kCMTimeInvalid, CMTime(9, 1), kCMTimeInvalid}});
    ASSERT_NE(reversed, nullptr);
    const auto data = CMSampleBufferGetDataBuffer(*reversed);
    const auto* bytes = reinterpret_cast<const std::uint8_t*>(data->dataPointer());
    EXPECT_EQ(Bytes(bytes, bytes + data->dataLength()), wanted);
    EXPECT_EQ(data, CMSampleBufferGetDataBuffer(*buffer)) << "in its own memory";
    EXPECT_EQ(CMSampleBufferGetNumSamples(*reversed), given.size() / 4);
    EXPECT_EQ(CMSampleBufferGetFormatDescription(*reversed), CMSampleBufferGetFormatDescription(*buffer));
    EXPECT_EQ(CMSampleBufferGetPresentationTimeStamp(*reversed), CMTime(9, 1));
  }
}

TEST(ReversedBuffer, WithoutPlaceForTheTimingIsTheGivenOne) {
  const Bytes bytes(12);
  const auto buffer = bufferOf(CMBlockBuffer::make(bytes.data(), bytes.size()), 3);
  const std::vector<CMSampleTimingInfo> twoForThree(2);
  EXPECT_EQ(reverse(buffer, twoForThree), buffer);
}

TEST(ReversedBufferDeathTest, NeedsData) { EXPECT_DEATH((void)reverse(bufferOf(nullptr, 0), {}), "has no data"); }

}  // namespace
}  // namespace clipworks::test
