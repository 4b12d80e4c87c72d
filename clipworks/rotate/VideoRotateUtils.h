#pragma once

#include <functional>
#include <memory>

#include <clipworks/media/base/Export.h>
#include <clipworks/media/base/Result.h>
#include <clipworks/media/base/URL.h>
#include <clipworks/media/geometry/CGRect.h>
#include <clipworks/media/images/CIContext.h>

namespace clipworks {

/// Turns a video by a quarter turn, or cuts a rectangle out of it, into a new MP4 file in the outputs directory, named
/// by a new UUID. The output is upright, at a constant rate: the video's own, its fraction dropped. Calls share nothing
/// and may run at once; the object may go while they run.
class CLIPWORKS_API VideoRotateUtils {
 public:
  /// What a rotation or a crop fails with.
  enum class RotateError { generic };
  /// Takes the new file's location, or the failure.
  using Completion = std::function<void(Result<URL, RotateError>)>;

  /// `init()`.
  [[nodiscard]] static std::shared_ptr<VideoRotateUtils> make();
  VideoRotateUtils(const VideoRotateUtils&) = delete;
  VideoRotateUtils& operator=(const VideoRotateUtils&) = delete;

  /// `rotateVideo(_:onComplete:)`. Turns what is shown by a quarter turn: counterclockwise, but clockwise for a video
  /// whose preferred transform has c = −1. Prints "Dimensions: " with the shown width and height, signed. The outcome
  /// comes on `DispatchQueue::main()`, which the host must run; without pictures `generic` comes at once, on the
  /// calling thread. **When no export session can be made, `onComplete` is never called**; it is destroyed then. Aborts
  /// for a frame rate beyond 32 bits.
  void rotateVideo(const URL& url, Completion onComplete);

  /// `cropVideo(_:toRect:onComplete:)`. The rectangle's origin and size count in units of the host: its width stands
  /// for the whole shown width of a portrait video, its height for the whole shown height of any other, so one side of
  /// the output is the video's own. Nothing is clamped; beyond the picture it is black. Prints five lines about the
  /// transform. The outcome comes as `rotateVideo` says; an output size that cannot be rendered ends as `generic`.
  void cropVideo(const URL& url, const CGRect& toRect, Completion onComplete);

  /// Held for hosts; no operation uses it.
  [[nodiscard]] const std::shared_ptr<CIContext>& context() const { return context_; }

 private:
  VideoRotateUtils() = default;

  std::shared_ptr<CIContext> context_ = CIContext::make();
};

}  // namespace clipworks
