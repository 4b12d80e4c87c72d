#include <clipworks/reverse/SampleBufferReversal.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstring>

#include <clipworks/media/base/PrintedLines.h>

namespace clipworks {
namespace {

/// The buffer's bytes with its 16-bit values in reverse order.
std::vector<std::byte> reversedValues(const AudioBuffer& buffer) {
  std::vector<std::byte> bytes(buffer.mDataByteSize);
  if (!bytes.empty()) std::memcpy(bytes.data(), buffer.mData, bytes.size());
  std::vector<std::int16_t> values(bytes.size() / sizeof(std::int16_t));
  const std::size_t wholeValues = values.size() * sizeof(std::int16_t);
  if (values.empty()) return bytes;
  std::memcpy(values.data(), bytes.data(), wholeValues);
  std::reverse(values.begin(), values.end());
  std::memcpy(bytes.data(), values.data(), wholeValues);
  return bytes;
}

}  // namespace

std::shared_ptr<CMSampleBuffer> reverse(const std::shared_ptr<CMSampleBuffer>& sampleBuffer,
                                        const std::vector<CMSampleTimingInfo>& timingInfo) {
  auto bufferList = AudioBufferList::allocate(1);
  std::shared_ptr<CMBlockBuffer> blockBuffer;
  CMSampleBufferGetAudioBufferListWithRetainedBlockBuffer(
      *sampleBuffer, nullptr, &bufferList, AudioBufferList::sizeInBytes(1),
      kCMSampleBufferFlag_AudioBufferList_Assure16ByteAlignment, &blockBuffer);
  // A block of no bytes need not lie anywhere, and stays as it is.
  if (blockBuffer == nullptr) fatalError("VideoReverseConverter: a buffer of sound has no data");
  const std::vector<std::byte> reversed = reversedValues(bufferList[0]);
  if (CMBlockBufferReplaceDataBytes(reversed.data(), *blockBuffer, 0, bufferList[0].mDataByteSize) != noErr)
    return nullptr;

  std::shared_ptr<CMSampleBuffer> made;
  const OSStatus status =
      CMSampleBufferCreate(blockBuffer, true, nullptr, CMSampleBufferGetFormatDescription(*sampleBuffer),
                           CMSampleBufferGetNumSamples(*sampleBuffer), timingInfo, {}, &made);
  return status == noErr ? made : sampleBuffer;
}

}  // namespace clipworks
