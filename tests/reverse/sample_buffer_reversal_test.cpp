#include <clipworks/reverse/SampleBufferReversal.h>

#include <cstdint>
#include <cstring>
#include <memory>
#include <ostream>
#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace clipworks::test {
namespace {

using Bytes = std::vector<std::uint8_t>;

std::shared_ptr<CMSampleBuffer> bufferOf(const Bytes& bytes, std::size_t samples) {
  std::shared_ptr<CMSampleBuffer> buffer;
  EXPECT_EQ(CMSampleBufferCreate(CMBlockBuffer::make(bytes.data(), bytes.size()), true, {},
                                 CMFormatDescription::pcm(48'000, 2, 16), samples,
                                 {{CMTime(1, 48'000), CMTime(3, 1), kCMTimeInvalid}}, {}, &buffer),
            noErr);
  return buffer;
}

Bytes bytesOf(const CMSampleBuffer& buffer) {
  const auto data = CMSampleBufferGetDataBuffer(buffer);
  Bytes bytes(data->dataLength());
  if (!bytes.empty()) std::memcpy(bytes.data(), data->dataPointer(), bytes.size());
  return bytes;
}

struct BytesCase {
  std::string name;
  Bytes given;
  Bytes reversed;
  friend std::ostream& operator<<(std::ostream& out, const BytesCase& c) { return out << c.name; }
};

class ReversedBuffer : public testing::TestWithParam<BytesCase> {};

TEST_P(ReversedBuffer, HasItsValuesInReverseOrder) {
  const auto buffer = bufferOf(GetParam().given, GetParam().given.size() / 4);
  const auto reversed = reverse(buffer, {{kCMTimeInvalid, CMTime(9, 1), kCMTimeInvalid}});
  ASSERT_NE(reversed, nullptr);
  EXPECT_EQ(bytesOf(*reversed), GetParam().reversed);
  EXPECT_EQ(CMSampleBufferGetNumSamples(*reversed), GetParam().given.size() / 4);
  EXPECT_EQ(CMSampleBufferGetFormatDescription(*reversed), CMSampleBufferGetFormatDescription(*buffer));
  EXPECT_EQ(CMSampleBufferGetPresentationTimeStamp(*reversed), CMTime(9, 1));
  EXPECT_EQ(CMSampleBufferGetDataBuffer(*reversed), CMSampleBufferGetDataBuffer(*buffer)) << "in its own memory";
}

INSTANTIATE_TEST_SUITE_P(Of, ReversedBuffer,
                         testing::Values(BytesCase{"two_stereo_samples_swaps_the_channels",
                                                   {1, 2, 3, 4, 5, 6, 7, 8},
                                                   {7, 8, 5, 6, 3, 4, 1, 2}},
                                         BytesCase{"an_odd_size_keeps_its_last_byte", {1, 2, 3, 4, 5}, {3, 4, 1, 2, 5}},
                                         BytesCase{"a_single_byte_stays", {7}, {7}},
                                         BytesCase{"an_empty_one_stays", {}, {}}),
                         [](const auto& testCase) { return testCase.param.name; });

TEST(ReversedBufferTiming, WithoutPlaceForItLeavesTheGivenBuffer) {
  const auto buffer = bufferOf({1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12}, 3);
  const std::vector<CMSampleTimingInfo> twoForThree(2);
  EXPECT_EQ(reverse(buffer, twoForThree), buffer);
}

TEST(ReversedBufferDeathTest, NeedsData) {
  std::shared_ptr<CMSampleBuffer> empty;
  ASSERT_EQ(CMSampleBufferCreate(nullptr, true, {}, CMFormatDescription::pcm(48'000, 2, 16), 0, {}, {}, &empty), noErr);
  EXPECT_DEATH((void)reverse(empty, {}), "has no data");
}

}  // namespace
}  // namespace clipworks::test
