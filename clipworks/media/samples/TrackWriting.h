#pragma once

#include <memory>

#include <clipworks/engine/pipeline/SharedMovie.h>
#include <clipworks/media/base/NSError.h>
#include <clipworks/media/base/Result.h>
#include <clipworks/media/samples/CMSampleBuffer.h>
#include <clipworks/media/samples/WriterSettings.h>
#include <clipworks/media/samples/WritingState.h>
#include <clipworks/media/time/CMTime.h>

namespace clipworks {

/// What an input does with its samples once its writer has started: converts them on the appending thread and hands
/// them to an encoder on a thread of its own.
class TrackWriting {
 public:
  virtual ~TrackWriting() = default;

  /// Where the track's timeline begins: what lies before is not written.
  virtual void setStart(const CMTime& start) = 0;
  [[nodiscard]] virtual bool hasRoom() const = 0;
  /// False when the encoder has ended; its own failure is noted in the writer's state.
  [[nodiscard]] virtual Result<bool, NSError> append(CMSampleBuffer& sampleBuffer) = 0;
  [[nodiscard]] virtual Result<bool, NSError> append(const CVPixelBuffer& pixelBuffer, const CMTime& time) = 0;
  /// No more samples will come.
  virtual void finish() = 0;
  /// Waits until all is encoded.
  virtual void join() = 0;
};

/// Both fail when the encoder does not open, or gets no thread.
[[nodiscard]] Result<std::unique_ptr<TrackWriting>, NSError> beginPictures(
    const engine::PictureEncodingSettings& settings, std::shared_ptr<engine::SharedMovie> movie,
    std::shared_ptr<WritingState> state);
[[nodiscard]] Result<std::unique_ptr<TrackWriting>, NSError> beginSound(const engine::SoundEncoderSettings& settings,
                                                                        std::shared_ptr<engine::SharedMovie> movie,
                                                                        std::shared_ptr<WritingState> state);

}  // namespace clipworks
