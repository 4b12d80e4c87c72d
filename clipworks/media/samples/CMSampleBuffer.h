#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <vector>

#include <clipworks/media/base/Export.h>
#include <clipworks/media/samples/AudioBufferList.h>
#include <clipworks/media/samples/CMBlockBuffer.h>
#include <clipworks/media/samples/CMFormatDescription.h>
#include <clipworks/media/samples/CVPixelBuffer.h>
#include <clipworks/media/time/CMTime.h>

namespace clipworks {

/// The times of a sample; all invalid at first.
struct CMSampleTimingInfo {
  CMTime duration;
  CMTime presentationTimeStamp;
  CMTime decodeTimeStamp;
};

/// What the functions on sample buffers fail with.
inline constexpr OSStatus kCMSampleBufferError_RequiredParameterMissing = -12731;
inline constexpr OSStatus kCMSampleBufferError_BufferHasNoSampleTimingInfo = -12732;
inline constexpr OSStatus kCMSampleBufferError_ArrayTooSmall = -12737;
inline constexpr OSStatus kCMSampleBufferError_InvalidMediaTypeForOperation = -12741;

/// Some samples of sound, or one picture, with their times. Not thread-safe; its bytes are shared by those that were
/// made of them.
class CLIPWORKS_API CMSampleBuffer {
 public:
  /// Decodes the picture; null when it cannot be decoded.
  using ImageMaker = std::function<std::shared_ptr<CVPixelBuffer>()>;

  /// One picture, made when someone asks for it. What readers make.
  [[nodiscard]] static std::shared_ptr<CMSampleBuffer> picture(
      std::shared_ptr<const CMFormatDescription> formatDescription, const CMSampleTimingInfo& timing, ImageMaker image);
  CMSampleBuffer(const CMSampleBuffer&) = delete;
  CMSampleBuffer& operator=(const CMSampleBuffer&) = delete;

 private:
  CMSampleBuffer() = default;

  std::shared_ptr<const CMFormatDescription> formatDescription_;
  std::shared_ptr<CMBlockBuffer> dataBuffer_;
  bool dataReady_ = true;
  std::size_t numSamples_ = 0;
  std::vector<CMSampleTimingInfo> timing_;
  std::vector<std::size_t> sampleSizes_;
  ImageMaker imageMaker_;
  std::optional<std::shared_ptr<CVPixelBuffer>> image_;  // once asked for

  friend OSStatus CMSampleBufferCreate(std::shared_ptr<CMBlockBuffer>, bool, const std::function<void()>&,
                                       std::shared_ptr<const CMFormatDescription>, std::size_t,
                                       const std::vector<CMSampleTimingInfo>&, const std::vector<std::size_t>&,
                                       std::shared_ptr<CMSampleBuffer>*);
  friend std::size_t CMSampleBufferGetNumSamples(const CMSampleBuffer&);
  friend std::shared_ptr<const CMFormatDescription> CMSampleBufferGetFormatDescription(const CMSampleBuffer&);
  friend OSStatus CMSampleBufferGetSampleTimingInfoArray(const CMSampleBuffer&, std::size_t, CMSampleTimingInfo*,
                                                         std::size_t*);
  friend std::shared_ptr<CMBlockBuffer> CMSampleBufferGetDataBuffer(const CMSampleBuffer&);
  friend bool CMSampleBufferDataIsReady(const CMSampleBuffer&);
  friend std::shared_ptr<CVPixelBuffer> CMSampleBufferGetImageBuffer(CMSampleBuffer&);
};

/// Makes a buffer of `numSamples` samples in `dataBuffer` (for PCM, a sample is one value of every channel).
/// `sampleTiming` holds no entry, one for all samples (its duration is that of each), or one for each; `sampleSizes`
/// likewise. `makeDataReadyCallback` is called at once when the data is not ready and it is given. Fails without a
/// format, and for another number of entries.
[[nodiscard]] CLIPWORKS_API OSStatus CMSampleBufferCreate(std::shared_ptr<CMBlockBuffer> dataBuffer, bool dataReady,
                                                          const std::function<void()>& makeDataReadyCallback,
                                                          std::shared_ptr<const CMFormatDescription> formatDescription,
                                                          std::size_t numSamples,
                                                          const std::vector<CMSampleTimingInfo>& sampleTiming,
                                                          const std::vector<std::size_t>& sampleSizes,
                                                          std::shared_ptr<CMSampleBuffer>* sampleBufferOut);

/// When the first sample is presented; invalid when that is not known.
[[nodiscard]] CLIPWORKS_API CMTime CMSampleBufferGetPresentationTimeStamp(const CMSampleBuffer& sampleBuffer);
/// When the first sample is decoded; invalid where that is not told.
[[nodiscard]] CLIPWORKS_API CMTime CMSampleBufferGetDecodeTimeStamp(const CMSampleBuffer& sampleBuffer);
/// How long all samples last; invalid when that is not known.
[[nodiscard]] CLIPWORKS_API CMTime CMSampleBufferGetDuration(const CMSampleBuffer& sampleBuffer);
/// Of PCM the number of values of each channel; 1 for a picture.
[[nodiscard]] CLIPWORKS_API std::size_t CMSampleBufferGetNumSamples(const CMSampleBuffer& sampleBuffer);
/// What the samples are.
[[nodiscard]] CLIPWORKS_API std::shared_ptr<const CMFormatDescription> CMSampleBufferGetFormatDescription(
    const CMSampleBuffer& sampleBuffer);
/// Copies the timing entries to `timingArrayOut`, which has room for `numSampleTimingEntries`, and tells how many are
/// needed in `timingArrayEntriesNeededOut`; both may be null. Fails with `kCMSampleBufferError_ArrayTooSmall`, and
/// copies nothing, when there is not room for all.
CLIPWORKS_API OSStatus CMSampleBufferGetSampleTimingInfoArray(const CMSampleBuffer& sampleBuffer,
                                                              std::size_t numSampleTimingEntries,
                                                              CMSampleTimingInfo* timingArrayOut,
                                                              std::size_t* timingArrayEntriesNeededOut);
/// The bytes of the samples; null for a picture.
[[nodiscard]] CLIPWORKS_API std::shared_ptr<CMBlockBuffer> CMSampleBufferGetDataBuffer(
    const CMSampleBuffer& sampleBuffer);
/// Whether the bytes are there.
[[nodiscard]] CLIPWORKS_API bool CMSampleBufferDataIsReady(const CMSampleBuffer& sampleBuffer);
/// The picture, decoded now when nobody has asked before. Null for sound, and when it cannot be decoded.
[[nodiscard]] CLIPWORKS_API std::shared_ptr<CVPixelBuffer> CMSampleBufferGetImageBuffer(CMSampleBuffer& sampleBuffer);

/// Asks for buffers aligned to 16 bytes; they always are.
inline constexpr std::uint32_t kCMSampleBufferFlag_AudioBufferList_Assure16ByteAlignment = 1;

/// Points the first entry of `bufferListOut` at the samples, and hands out the block buffer that holds them. The size
/// that a list needs is told in `bufferListSizeNeededOut`; each of the three may be null. Fails for pictures, for a
/// buffer without data, and when `bufferListSize` is less than a list of one buffer needs.
CLIPWORKS_API OSStatus CMSampleBufferGetAudioBufferListWithRetainedBlockBuffer(
    const CMSampleBuffer& sampleBuffer, std::size_t* bufferListSizeNeededOut, AudioBufferList* bufferListOut,
    std::size_t bufferListSize, std::uint32_t flags, std::shared_ptr<CMBlockBuffer>* blockBufferOut);

}  // namespace clipworks
