#pragma once

#include <cstdint>
#include <functional>
#include <memory>

#include <clipworks/media/base/Export.h>
#include <clipworks/media/base/Result.h>
#include <clipworks/media/base/URL.h>
#include <clipworks/media/composition/AVMutableComposition.h>

namespace clipworks {

/// What a loop fails with; the cause is printed.
enum class VideoLooperError { generic };

/// Plays a video a given number of times in a row, in two calls: `createLoopComposition` puts the loop together in
/// memory and keeps it, `exportCurrentComposition` renders what is kept into one MP4 file in the outputs directory.
/// The two must not run at once on one object.
class CLIPWORKS_API VideoLooperUtils : public std::enable_shared_from_this<VideoLooperUtils> {
 public:
  /// What a loop fails with, by its name within the class.
  using VideoLooperError = clipworks::VideoLooperError;
  /// Takes the composition, or the failure.
  using CompositionCompletion = std::function<void(Result<std::shared_ptr<AVMutableComposition>, VideoLooperError>)>;
  /// Takes the new file's location, or the failure.
  using ExportCompletion = std::function<void(Result<URL, VideoLooperError>)>;

  /// `init(videoURL:)`. Touches no file.
  [[nodiscard]] static std::shared_ptr<VideoLooperUtils> make(URL videoURL);
  VideoLooperUtils() = delete;
  VideoLooperUtils(const VideoLooperUtils&) = delete;
  VideoLooperUtils& operator=(const VideoLooperUtils&) = delete;

  /// The composition that an export renders; the host may place one of its own here.
  [[nodiscard]] const std::shared_ptr<AVMutableComposition>& composition() const { return composition_; }
  void setComposition(std::shared_ptr<AVMutableComposition> composition) { composition_ = std::move(composition); }

  /// `createLoopComposition(loopCount:onComplete:)`. Builds on the calling thread and calls `onComplete` once before it
  /// returns: the composition, which replaces the kept one, or `generic` when the video lacks pictures or sound (a clip
  /// without sound cannot be looped), which leaves the kept one alone. A count of 0 gives an empty composition; a
  /// negative one aborts. An insertion that fails is skipped without a word, so the loop may come out shorter.
  void createLoopComposition(std::int64_t loopCount, const CompositionCompletion& onComplete);

  /// `exportCurrentComposition(onComplete:)`. Returns at once; the new file's location, or `generic`, comes on
  /// `DispatchQueue::main()`, which the host must run. Without a composition `generic` comes at once, on the calling
  /// thread. **When no export session can be made, `onComplete` is never called**; it is destroyed then.
  /// Prints "Current capacity: " with the bytes left on the home volume, which become the file's limit, and "FAILED: "
  /// with the reason when the export fails.
  void exportCurrentComposition(ExportCompletion onComplete);

 private:
  explicit VideoLooperUtils(URL videoURL) : videoURL_(std::move(videoURL)) {}

  URL videoURL_;
  std::shared_ptr<AVMutableComposition> composition_;
};

}  // namespace clipworks
