#pragma once

#include <memory>
#include <optional>

#include <clipworks/media/asset/AVMediaTypes.h>
#include <clipworks/media/base/Export.h>
#include <clipworks/media/base/NSError.h>
#include <clipworks/media/base/Result.h>
#include <clipworks/media/base/SettingsDictionary.h>
#include <clipworks/media/geometry/CGAffineTransform.h>
#include <clipworks/media/samples/CMSampleBuffer.h>

namespace clipworks {

namespace engine {
class SharedMovie;
}
class AVAssetWriter;
class AVAssetWriterInputPixelBufferAdaptor;
class TrackWriting;
class WritingState;

/// One track of a file that is being written. Configure it before its writer starts. One thread appends; the other
/// functions are for any. Each input has an encoder on a thread of its own, with a short queue before it: ask
/// `isReadyForMoreMediaData` before an append, or the append waits for room.
///
/// Pictures: H.264 or HEVC of the size that the settings name (odd sides are rounded up, the edge repeated), at the
/// asked average bit rate, or at constant, visually transparent quality when it is 0 or not given. Buffers are BGRA or
/// bi-planar 4:2:0; BGRA becomes video by the matrix and range of the buffer's attachments, else by BT.709 for high
/// definition and BT.601 below, in video range. Times have to rise. Sound: AAC; buffers are 16-bit PCM of any one rate
/// and layout, which is converted as a whole, to the sample. A buffer without a valid time follows the one before it,
/// the first one begins where the session does; one that comes later is preceded by silence, one that overlaps loses
/// its beginning.
class CLIPWORKS_API AVAssetWriterInput {
 public:
  /// `AVAssetWriterInput(mediaType:outputSettings:sourceFormatHint:)`. What settings cannot be written, `canAdd` of the
  /// writer refuses. The hint stands in for a rate or channel count that the settings do not name.
  [[nodiscard]] static std::shared_ptr<AVAssetWriterInput> make(
      AVMediaType mediaType, SettingsDictionary outputSettings,
      std::shared_ptr<const CMFormatDescription> sourceFormatHint = nullptr);
  ~AVAssetWriterInput();
  AVAssetWriterInput(const AVAssetWriterInput&) = delete;
  AVAssetWriterInput& operator=(const AVAssetWriterInput&) = delete;

  /// Pictures or sound.
  [[nodiscard]] AVMediaType mediaType() const { return mediaType_; }

  /// Whether samples come as they are recorded; off at first. Kept for callers: the queue is the same for both.
  void setExpectsMediaDataInRealTime(bool expectsMediaDataInRealTime) { isRealTime_ = expectsMediaDataInRealTime; }
  [[nodiscard]] bool expectsMediaDataInRealTime() const { return isRealTime_; }
  /// Turns the pictures upright when they are played: the track's matrix.
  void setTransform(const CGAffineTransform& transform) { transform_ = transform; }
  [[nodiscard]] const CGAffineTransform& transform() const { return transform_; }

  /// Whether an append would return at once. True after the writer has ended or failed: appends then return false, so
  /// that nobody waits for ever. False before it starts.
  [[nodiscard]] bool isReadyForMoreMediaData() const;

  /// `append(_:)`: takes the samples; their bytes are not looked at any more when it returns. False when the writer
  /// does not write (any more), or the samples are not what the input takes, which makes the writer fail.
  bool append(const std::shared_ptr<CMSampleBuffer>& sampleBuffer);

  /// No more samples will come. Appends return false from then on.
  void markAsFinished();

 private:
  AVAssetWriterInput(AVMediaType mediaType, SettingsDictionary outputSettings,
                     std::shared_ptr<const CMFormatDescription> sourceFormatHint);
  friend class AVAssetWriter;
  friend class AVAssetWriterInputPixelBufferAdaptor;

  /// Nothing, or why the settings cannot be written.
  [[nodiscard]] std::optional<NSError> whyNotWritable() const;
  Result<void, NSError> begin(std::shared_ptr<engine::SharedMovie> movie, std::shared_ptr<WritingState> state);
  void startSession(const CMTime& start);
  bool append(const CVPixelBuffer& pixelBuffer, const CMTime& withPresentationTime);
  [[nodiscard]] bool takesSamples();
  bool noted(const Result<bool, NSError>& appended);
  void join();

  AVMediaType mediaType_;
  SettingsDictionary outputSettings_;
  std::shared_ptr<const CMFormatDescription> sourceFormatHint_;
  bool isRealTime_ = false;
  CGAffineTransform transform_;
  std::shared_ptr<WritingState> state_;  // null before the writer starts, as the next
  std::unique_ptr<TrackWriting> writing_;
  bool hasSession_ = false;
  bool isFinished_ = false;
};

}  // namespace clipworks
