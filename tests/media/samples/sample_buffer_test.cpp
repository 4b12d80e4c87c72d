#include <clipworks/media/samples/CMSampleBuffer.h>

#include <array>
#include <cstdint>
#include <cstring>
#include <memory>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <clipworks/media/base/SettingsDictionary.h>

namespace clipworks::test {
namespace {

using testing::ElementsAre;

std::shared_ptr<CMSampleBuffer> soundBuffer(const std::vector<std::int16_t>& values, std::uint32_t channels,
                                            const std::vector<CMSampleTimingInfo>& timing) {
  std::shared_ptr<CMSampleBuffer> buffer;
  const auto status = CMSampleBufferCreate(CMBlockBuffer::make(values.data(), values.size() * sizeof(std::int16_t)),
                                           true, {}, CMFormatDescription::pcm(44'100, channels, 16),
                                           values.size() / channels, timing, {}, &buffer);
  EXPECT_EQ(status, noErr);
  return buffer;
}

TEST(SampleBuffer, TellsWhenItsSamplesPlay) {
  const auto timed = soundBuffer({1, 2, 3, 4, 5, 6}, 2, {{CMTime(1, 44'100), CMTime(5, 10), kCMTimeInvalid}});
  EXPECT_EQ(CMSampleBufferGetNumSamples(*timed), 3U);
  EXPECT_TRUE(CMSampleBufferGetDuration(*timed).isIdenticalTo(CMTime(3, 44'100)));
  EXPECT_TRUE(CMSampleBufferGetPresentationTimeStamp(*timed).isIdenticalTo(CMTime(5, 10)));
  EXPECT_FALSE(CMSampleBufferGetDecodeTimeStamp(*timed).isValid());
  const auto untimed = soundBuffer({1, 2}, 1, {});
  EXPECT_FALSE(CMSampleBufferGetPresentationTimeStamp(*untimed).isValid());
  EXPECT_FALSE(CMSampleBufferGetDuration(*untimed).isValid());
}

TEST(SampleBuffer, CopiesTimingOnlyWhereThereIsRoom) {
  const auto buffer = soundBuffer({1, 2}, 1, {{CMTime(1, 44'100), CMTime(7, 1), kCMTimeInvalid}});
  CMSampleTimingInfo record;
  std::size_t needed = 0;
  EXPECT_EQ(CMSampleBufferGetSampleTimingInfoArray(*buffer, 0, &record, &needed), kCMSampleBufferError_ArrayTooSmall);
  EXPECT_EQ(needed, 1U);
  EXPECT_FALSE(record.presentationTimeStamp.isValid());
  EXPECT_EQ(CMSampleBufferGetSampleTimingInfoArray(*buffer, 1, &record, nullptr), noErr);
  EXPECT_EQ(record.presentationTimeStamp, CMTime(7, 1));
}

TEST(SampleBuffer, SharesItsBytesWithAudioBufferLists) {
  const auto buffer = soundBuffer({10, 20, 30, 40}, 2, {});
  auto list = AudioBufferList::allocate(1);
  std::shared_ptr<CMBlockBuffer> block;
  std::size_t needed = 0;
  ASSERT_EQ(CMSampleBufferGetAudioBufferListWithRetainedBlockBuffer(
                *buffer, &needed, &list, AudioBufferList::sizeInBytes(1),
                kCMSampleBufferFlag_AudioBufferList_Assure16ByteAlignment, &block),
            noErr);
  EXPECT_EQ(needed, AudioBufferList::sizeInBytes(1));
  EXPECT_EQ(list[0].mNumberChannels, 2U);
  EXPECT_EQ(list[0].mDataByteSize, 8U);
  EXPECT_EQ(reinterpret_cast<std::uintptr_t>(list[0].mData) % 16, 0U);

  const std::array<std::int16_t, 2> other{-1, -2};
  EXPECT_EQ(CMBlockBufferReplaceDataBytes(other.data(), *block, 2, 4), noErr);
  EXPECT_EQ(CMBlockBufferReplaceDataBytes(other.data(), *block, 6, 4), kCMBlockBufferBadLengthParameterErr);
  EXPECT_EQ(CMBlockBufferReplaceDataBytes(other.data(), *block, 9, 0), kCMBlockBufferBadOffsetParameterErr);
  std::array<std::int16_t, 4> values{};
  std::memcpy(values.data(), list[0].mData, sizeof values);
  EXPECT_THAT(values, ElementsAre(10, -1, -2, 40));

  EXPECT_EQ(CMSampleBufferGetAudioBufferListWithRetainedBlockBuffer(*buffer, nullptr, &list, 1, 0, nullptr),
            kCMSampleBufferError_ArrayTooSmall);
}

TEST(SampleBuffer, NeedsAFormatAndFittingEntries) {
  std::shared_ptr<CMSampleBuffer> buffer;
  EXPECT_NE(CMSampleBufferCreate(nullptr, true, {}, nullptr, 1, {}, {}, &buffer), noErr);
  const std::vector<CMSampleTimingInfo> two(2);
  EXPECT_NE(CMSampleBufferCreate(nullptr, true, {}, CMFormatDescription::pcm(8000, 1, 16), 3, two, {}, &buffer), noErr);
  EXPECT_EQ(buffer, nullptr);
}

TEST(PixelBuffer, IsReleasedWithItsLastOwner) {
  std::vector<std::uint8_t> bytes(4 * 8 * 2);
  const void* released = nullptr;
  auto buffer = CVPixelBufferCreateWithBytes(8, 2, kCVPixelFormatType_32BGRA, bytes.data(), 32,
                                             [&released](const void* address) { released = address; }, {});
  ASSERT_NE(buffer, nullptr);
  EXPECT_EQ(buffer->planes().front().baseAddress, bytes.data());
  EXPECT_EQ(released, nullptr);
  buffer.reset();
  EXPECT_EQ(released, bytes.data());

  EXPECT_EQ(CVPixelBufferCreateWithBytes(8, 2, kCVPixelFormatType_32BGRA, bytes.data(), 31, {}, {}), nullptr);
  EXPECT_EQ(CVPixelBufferCreateWithBytes(0, 2, kCVPixelFormatType_32BGRA, bytes.data(), 32, {}, {}), nullptr);
  EXPECT_EQ(
      CVPixelBufferCreateWithBytes(8, 2, kCVPixelFormatType_420YpCbCr8BiPlanarFullRange, bytes.data(), 32, {}, {}),
      nullptr);
}

TEST(SettingsDictionary, TakesNumbersOfAnyKind) {
  const SettingsDictionary settings{{"integer", 0x61616320U},
                                    {"single", 44100.0F},
                                    {"truth", true},
                                    {"text", "avc1"},
                                    {"data", SettingsValue::Data()},
                                    {"nested", SettingsDictionary{{"inner", 7}}},
                                    {"huge", 1e300}};
  EXPECT_EQ(settings.integer("integer"), 0x61616320);
  EXPECT_EQ(settings.number("single"), 44100.0);
  EXPECT_EQ(settings.integer("truth"), 1);
  EXPECT_EQ(settings.text("text"), "avc1");
  EXPECT_EQ(settings.integer("huge"), std::nullopt);
  EXPECT_EQ(settings.number("text"), std::nullopt);
  EXPECT_EQ(settings.number("missing"), std::nullopt);
  ASSERT_NE(settings.find("nested")->dictionary(), nullptr);
  EXPECT_EQ(settings.find("nested")->dictionary()->integer("inner"), 7);
  EXPECT_TRUE(settings.find("data")->data()->empty());
}

}  // namespace
}  // namespace clipworks::test
