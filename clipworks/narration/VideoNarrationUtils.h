#pragma once

#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <string_view>
#include <vector>

#include <clipworks/media/audio/AVAudioRecorder.h>
#include <clipworks/media/audio/AVAudioSession.h>
#include <clipworks/media/base/Export.h>
#include <clipworks/media/base/Result.h>
#include <clipworks/media/base/URL.h>
#include <clipworks/media/composition/AVMutableAudioMix.h>
#include <clipworks/media/composition/AVMutableComposition.h>
#include <clipworks/media/time/CMTime.h>
#include <clipworks/narration/ExportQuality.h>
#include <clipworks/narration/NarrationError.h>
#include <clipworks/narration/NarrationPiece.h>
#include <clipworks/narration/VideoNarrationUtilsDelegate.h>

namespace clipworks {

/// Records pieces of narration with the microphone, lays them over a video, and exports the whole.
///
/// Recording: `startNarration` … `finishNarration`, then the delegate gets the piece. Mixing: `createComposition` puts
/// video and pieces together in memory and keeps the result, `exportComposition` renders what is kept into one MP4 file
/// in the outputs directory. Composing and exporting must not run at once on one object.
class CLIPWORKS_API VideoNarrationUtils : public AVAudioRecorderDelegate,
                                          public std::enable_shared_from_this<VideoNarrationUtils> {
 public:
  /// What narration fails with, by its name within the class.
  using NarrationError = clipworks::NarrationError;
  /// Takes the composition, or the failure.
  using CompositionCompletion = std::function<void(Result<std::shared_ptr<AVMutableComposition>, NarrationError>)>;
  /// Takes the new file's location, or the failure.
  using ExportCompletion = std::function<void(Result<URL, NarrationError>)>;

  /// `init()`. Touches neither microphone nor file.
  [[nodiscard]] static std::shared_ptr<VideoNarrationUtils> make();
  VideoNarrationUtils(const VideoNarrationUtils&) = delete;
  VideoNarrationUtils& operator=(const VideoNarrationUtils&) = delete;

  // Recording.

  /// `requestAuthorization(onComplete:)`. Whether the microphone can be used; the answer comes on a queue of the
  /// platform, not on the main queue.
  void requestAuthorization(std::function<void(bool)> onComplete);

  /// `startNarration(at:delegate:)`. Starts recording what belongs to the moment `at` of the video, into a new file in
  /// the outputs directory: 16-bit stereo linear PCM at 44.1 kHz, under a name that ends in ".m4a". True when the
  /// recorder runs. False when it does not, since the microphone or the file cannot be had or the system allows no more
  /// threads; the delegate is told nothing then. `delegate` (held weakly) and `at` hold for whatever recording finishes
  /// next, even after a failure. While a recording runs, a new one replaces it, even one that then does not start: the
  /// former file is closed and stays, and nobody is told of it.
  bool startNarration(const CMTime& at, const std::weak_ptr<VideoNarrationUtilsDelegate>& delegate);

  /// `finishNarration()`. Ends the recording; the delegate then hears of it. Nothing happens when none runs.
  void finishNarration();

  /// The running recording, for hosts that show its level; null when none runs: before a start, after
  /// `finishNarration`, and once the recording has ended by itself, which the delegate hears of right after.
  [[nodiscard]] std::shared_ptr<AVAudioRecorder> audioRecorder() const;
  /// The moment given to the last `startNarration`; nothing at first.
  [[nodiscard]] std::optional<CMTime> startTime() const;

  /// `audioRecorderDidFinishRecording(_:successfully:)`. The recorder calls it.
  void audioRecorderDidFinishRecording(const std::shared_ptr<AVAudioRecorder>& recorder, bool successfully) override;

  // Mixing.

  /// The last composition; null at first.
  [[nodiscard]] const std::shared_ptr<AVMutableComposition>& currentComposition() const { return currentComposition_; }
  /// The mix that belongs to it.
  [[nodiscard]] const std::shared_ptr<AVMutableAudioMix>& currentAudioMix() const { return currentAudioMix_; }

  /// `createComposition(videoURL:narrations:baseVolume:onComplete:)`. Builds on the calling thread and calls
  /// `onComplete` once before it returns: the composition, which replaces the kept one together with its mix, or
  /// `generic` when the video lacks pictures or sound (a silent video cannot be narrated), which leaves both alone.
  /// Volumes are factors of a level: 1 leaves it as it is. A piece that cannot be read or has no sound is left out
  /// without a word; one that runs past the end of the video makes the sound longer than the pictures.
  void createComposition(const URL& videoURL, const std::vector<NarrationPiece>& narrations, float baseVolume,
                         const CompositionCompletion& onComplete);

  /// `exportComposition(quality:onComplete:)`. Returns at once; the new file's location, or `generic`, comes on
  /// `DispatchQueue::main()`, which the host must run. Without a composition `generic` comes at once, on the calling
  /// thread. **When no export session can be made, `onComplete` is never called**; it is destroyed then.
  /// Prints "Has HEVC support: " with true or false, and "Failed: " with the reason when the export fails.
  void exportComposition(ExportQuality quality, ExportCompletion onComplete);

 private:
  VideoNarrationUtils() = default;
  bool configureSession();
  void forget(const std::shared_ptr<AVAudioRecorder>& recorder);

  AVAudioSession& recordingSession_ = AVAudioSession::sharedInstance();

  mutable std::mutex mutex_;                             // the recorder answers on another thread
  std::shared_ptr<AVAudioRecorder> audioRecorder_;       // guarded by mutex_
  std::optional<CMTime> startTime_;                      // guarded by mutex_
  std::weak_ptr<VideoNarrationUtilsDelegate> delegate_;  // guarded by mutex_

  std::shared_ptr<AVMutableComposition> currentComposition_;
  std::shared_ptr<AVMutableAudioMix> currentAudioMix_;
};

}  // namespace clipworks
