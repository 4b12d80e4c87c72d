#include <clipworks/media/samples/CMSampleBuffer.h>

#include <algorithm>
#include <utility>

#include <clipworks/media/time/ExactTime.h>

namespace clipworks {
namespace {

bool isCount(std::size_t entries, std::size_t samples) { return entries <= 1 || entries == samples; }

std::vector<CMSampleTimingInfo> timingOf(const CMSampleBuffer& sampleBuffer) {
  std::size_t count = 0;
  CMSampleBufferGetSampleTimingInfoArray(sampleBuffer, 0, nullptr, &count);
  std::vector<CMSampleTimingInfo> timing(count);
  CMSampleBufferGetSampleTimingInfoArray(sampleBuffer, count, timing.data(), nullptr);
  return timing;
}

}  // namespace

std::shared_ptr<CMSampleBuffer> CMSampleBuffer::picture(std::shared_ptr<const CMFormatDescription> formatDescription,
                                                        const CMSampleTimingInfo& timing, ImageMaker image) {
  std::shared_ptr<CMSampleBuffer> buffer(new CMSampleBuffer());
  buffer->formatDescription_ = std::move(formatDescription);
  buffer->numSamples_ = 1;
  buffer->timing_ = {timing};
  buffer->imageMaker_ = std::move(image);
  return buffer;
}

OSStatus CMSampleBufferCreate(std::shared_ptr<CMBlockBuffer> dataBuffer, bool dataReady,
                              const std::function<void()>& makeDataReadyCallback,
                              std::shared_ptr<const CMFormatDescription> formatDescription, std::size_t numSamples,
                              const std::vector<CMSampleTimingInfo>& sampleTiming,
                              const std::vector<std::size_t>& sampleSizes,
                              std::shared_ptr<CMSampleBuffer>* sampleBufferOut) {
  if (formatDescription == nullptr || sampleBufferOut == nullptr) return kCMSampleBufferError_RequiredParameterMissing;
  if (!isCount(sampleTiming.size(), numSamples) || !isCount(sampleSizes.size(), numSamples)) {
    return kCMSampleBufferError_RequiredParameterMissing;
  }
  if (!dataReady && makeDataReadyCallback) {
    makeDataReadyCallback();
    dataReady = true;
  }
  std::shared_ptr<CMSampleBuffer> buffer(new CMSampleBuffer());
  buffer->dataBuffer_ = std::move(dataBuffer);
  buffer->dataReady_ = dataReady;
  buffer->formatDescription_ = std::move(formatDescription);
  buffer->numSamples_ = numSamples;
  buffer->timing_ = sampleTiming;
  buffer->sampleSizes_ = sampleSizes;
  *sampleBufferOut = std::move(buffer);
  return noErr;
}

CMTime CMSampleBufferGetPresentationTimeStamp(const CMSampleBuffer& sampleBuffer) {
  const auto timing = timingOf(sampleBuffer);
  return timing.empty() ? kCMTimeInvalid : timing.front().presentationTimeStamp;
}

CMTime CMSampleBufferGetDecodeTimeStamp(const CMSampleBuffer& sampleBuffer) {
  const auto timing = timingOf(sampleBuffer);
  return timing.empty() ? kCMTimeInvalid : timing.front().decodeTimeStamp;
}

CMTime CMSampleBufferGetDuration(const CMSampleBuffer& sampleBuffer) {
  const auto timing = timingOf(sampleBuffer);
  if (timing.empty()) return kCMTimeInvalid;
  if (timing.size() == 1) {
    const CMTime& each = timing.front().duration;
    if (!each.isNumeric()) return each;
    const Int128 total =
        static_cast<Int128>(each.value) * static_cast<Int128>(CMSampleBufferGetNumSamples(sampleBuffer));
    return CMTime(saturated(total), each.timescale);
  }
  CMTime total = kCMTimeZero;
  for (const auto& entry : timing) total += entry.duration;
  return total;
}

std::size_t CMSampleBufferGetNumSamples(const CMSampleBuffer& sampleBuffer) { return sampleBuffer.numSamples_; }

std::shared_ptr<const CMFormatDescription> CMSampleBufferGetFormatDescription(const CMSampleBuffer& sampleBuffer) {
  return sampleBuffer.formatDescription_;
}

OSStatus CMSampleBufferGetSampleTimingInfoArray(const CMSampleBuffer& sampleBuffer, std::size_t numSampleTimingEntries,
                                                CMSampleTimingInfo* timingArrayOut,
                                                std::size_t* timingArrayEntriesNeededOut) {
  const auto& timing = sampleBuffer.timing_;
  if (timingArrayEntriesNeededOut != nullptr) *timingArrayEntriesNeededOut = timing.size();
  if (timing.empty()) return kCMSampleBufferError_BufferHasNoSampleTimingInfo;
  if (timingArrayOut == nullptr) return noErr;
  if (numSampleTimingEntries < timing.size()) return kCMSampleBufferError_ArrayTooSmall;
  std::copy(timing.begin(), timing.end(), timingArrayOut);
  return noErr;
}

std::shared_ptr<CMBlockBuffer> CMSampleBufferGetDataBuffer(const CMSampleBuffer& sampleBuffer) {
  return sampleBuffer.dataBuffer_;
}

bool CMSampleBufferDataIsReady(const CMSampleBuffer& sampleBuffer) { return sampleBuffer.dataReady_; }

std::shared_ptr<CVPixelBuffer> CMSampleBufferGetImageBuffer(CMSampleBuffer& sampleBuffer) {
  if (!sampleBuffer.image_) {
    sampleBuffer.image_ = sampleBuffer.imageMaker_ ? sampleBuffer.imageMaker_() : nullptr;
    sampleBuffer.imageMaker_ = nullptr;
  }
  return *sampleBuffer.image_;
}

OSStatus CMSampleBufferGetAudioBufferListWithRetainedBlockBuffer(const CMSampleBuffer& sampleBuffer,
                                                                 std::size_t* bufferListSizeNeededOut,
                                                                 AudioBufferList* bufferListOut,
                                                                 std::size_t bufferListSize, std::uint32_t /*flags*/,
                                                                 std::shared_ptr<CMBlockBuffer>* blockBufferOut) {
  const std::size_t needed = AudioBufferList::sizeInBytes(1);
  if (bufferListSizeNeededOut != nullptr) *bufferListSizeNeededOut = needed;
  const auto format = CMSampleBufferGetFormatDescription(sampleBuffer);
  const auto data = CMSampleBufferGetDataBuffer(sampleBuffer);
  if (format == nullptr || format->streamBasicDescription() == nullptr) {
    return kCMSampleBufferError_InvalidMediaTypeForOperation;
  }
  if (data == nullptr) return kCMSampleBufferError_RequiredParameterMissing;
  if (bufferListOut != nullptr) {
    if (bufferListSize < needed || bufferListOut->mNumberBuffers() < 1) return kCMSampleBufferError_ArrayTooSmall;
    (*bufferListOut)[0] = {format->streamBasicDescription()->mChannelsPerFrame,
                           static_cast<std::uint32_t>(data->dataLength()), data->dataPointer()};
  }
  if (blockBufferOut != nullptr) *blockBufferOut = data;
  return noErr;
}

}  // namespace clipworks
