#pragma once

#include <functional>
#include <memory>
#include <optional>
#include <string>

#include <clipworks/media/base/Export.h>
#include <clipworks/media/base/Result.h>
#include <clipworks/media/base/URL.h>
#include <clipworks/media/composition/AVMutableComposition.h>

namespace clipworks {

/// Slows down or speeds up one stretch of a video, pictures and sound together; the rest stays as it is. The sound
/// keeps its pitch. `createComposition` puts the result together in memory and keeps it, `applySpeedChange` renders it
/// into one MP4 file in the outputs directory. The two must not run at once on one object.
class CLIPWORKS_API VideoSpeedConverter : public std::enable_shared_from_this<VideoSpeedConverter> {
 public:
  /// What a speed change fails with; the cause is printed.
  enum class ConversionError { generic };
  /// How good the pictures of the file are.
  enum class ConversionQuality { low, high };

  /// Takes the composition, or the failure.
  using CompositionCompletion = std::function<void(Result<std::shared_ptr<AVMutableComposition>, ConversionError>)>;
  /// Takes the new file's location, or the failure.
  using ExportCompletion = std::function<void(Result<URL, ConversionError>)>;

  /// `init(videoURL:)`. Touches no file.
  [[nodiscard]] static std::shared_ptr<VideoSpeedConverter> make(URL videoURL);
  VideoSpeedConverter() = delete;
  VideoSpeedConverter(const VideoSpeedConverter&) = delete;
  VideoSpeedConverter& operator=(const VideoSpeedConverter&) = delete;

  /// The video that is converted.
  [[nodiscard]] const URL& videoURL() const { return videoURL_; }

  /// `createComposition(startTime:endTime:ratio:onComplete:)`. The stretch from `startTime` to `endTime`, in seconds,
  /// lasts `ratio` times as long: 2 is half the speed, 0.5 double the speed. Builds on the calling thread and calls
  /// `onComplete` once before it returns: the composition, which replaces the kept one, or `generic` when the video
  /// lacks pictures or sound (a clip without sound cannot be re-timed), which leaves the kept one alone. The values are
  /// not checked: what `AVMutableCompositionTrack::scaleTimeRange` makes of them is the result.
  void createComposition(double startTime, double endTime, double ratio, const CompositionCompletion& onComplete);

  /// `applySpeedChange(startTime:endTime:ratio:fileName:quality:onComplete:)`. Builds the composition when none is
  /// kept; a failure to do so comes at once, on the calling thread. **When one is kept, it is exported as it is, and
  /// `startTime`, `endTime` and `ratio` are ignored**: another change needs another object. Returns at once; the
  /// location of the file, `fileName` (a new UUID when not given) with ".mp4" behind it, or `generic`, comes on
  /// `DispatchQueue::main()`, which the host must run. A file of that name is deleted first. **When no export session
  /// can be made, `onComplete` is never called**; it is destroyed then. Prints "Supports HEVC: " with whether there is
  /// an encoder for it, which `high` then uses; `low` is always H.264. Prints "FAILED: " with the reason when the
  /// export fails.
  void applySpeedChange(double startTime, double endTime, double ratio, const std::optional<std::string>& fileName,
                        ConversionQuality quality, ExportCompletion onComplete);

 private:
  explicit VideoSpeedConverter(URL videoURL) : videoURL_(std::move(videoURL)) {}

  URL videoURL_;
  std::shared_ptr<AVMutableComposition> composition_;
};

}  // namespace clipworks
