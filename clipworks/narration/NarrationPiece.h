#pragma once

#include <utility>

#include <clipworks/media/base/Export.h>
#include <clipworks/media/base/URL.h>
#include <clipworks/media/time/CMTime.h>

namespace clipworks {

/// One recording that is laid over a video. A value.
class CLIPWORKS_API NarrationPiece {
 public:
  /// The moment of the video at which it begins, where its file lies, and how loud it is.
  NarrationPiece(const CMTime& startTime, URL audioURL, float volume)
      : startTime_(startTime), audioURL_(std::move(audioURL)), volume_(volume) {}

  /// When the piece begins within the video.
  [[nodiscard]] const CMTime& startTime() const { return startTime_; }
  /// The recording.
  [[nodiscard]] const URL& audioURL() const { return audioURL_; }
  /// The factor of its level: 1 leaves it as it is, 0 is silence.
  [[nodiscard]] float volume() const { return volume_; }
  void setVolume(float volume) { volume_ = volume; }

 private:
  CMTime startTime_;
  URL audioURL_;
  float volume_;
};

}  // namespace clipworks
