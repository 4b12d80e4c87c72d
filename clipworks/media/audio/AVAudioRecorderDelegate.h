#pragma once

#include <memory>

#include <clipworks/media/base/Export.h>

namespace clipworks {

class AVAudioRecorder;

/// Hears of what becomes of a recording. A recorder holds its delegate weakly.
class CLIPWORKS_API AVAudioRecorderDelegate {
 public:
  virtual ~AVAudioRecorderDelegate() = default;

  /// `audioRecorderDidFinishRecording(_:successfully:)`. Called once for each recording, when its file is closed, on a
  /// queue of the platform (not the main queue). `successfully` is false when the recording ended otherwise than by
  /// `stop()`: the source went away, or the file could not be written; `recorder->error()` says why, and the file holds
  /// what came before.
  virtual void audioRecorderDidFinishRecording(const std::shared_ptr<AVAudioRecorder>& recorder, bool successfully) = 0;
};

}  // namespace clipworks
