#pragma once

#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <utility>

#include <clipworks/media/base/Export.h>
#include <clipworks/media/base/Result.h>
#include <clipworks/media/base/URL.h>
#include <clipworks/media/time/CMTime.h>

namespace clipworks {

/// Takes one picture out of a video, upright and at full size, and writes it as a still image file into the outputs
/// directory. Keeps no state between calls; calls may come from any thread and run beside each other.
class CLIPWORKS_API VideoToPhotoUtils {
 public:
  /// The format of the still.
  enum class ExportFormat { jpg, png, heic };
  /// What a capture fails with; the cause is not told.
  enum class ExportError { generic };
  /// Takes the still's location, or the failure.
  using Completion = std::function<void(Result<URL, ExportError>)>;

  /// `init(videoURL:)`. Touches no file.
  [[nodiscard]] static std::shared_ptr<VideoToPhotoUtils> make(URL videoURL);
  VideoToPhotoUtils() = delete;
  VideoToPhotoUtils(const VideoToPhotoUtils&) = delete;
  VideoToPhotoUtils& operator=(const VideoToPhotoUtils&) = delete;

  /// The video that pictures are taken from.
  [[nodiscard]] const URL& videoURL() const { return videoURL_; }

  /// `getFrameAt(time:fileName:exportFormat:onComplete:)`: the picture on screen at `time`, exactly. The file is called
  /// `fileName` as given, else by a new UUID, with a dot and the format's extension behind it; an old file of that name
  /// is deleted once the picture is there.
  ///
  /// Returns at once, and does the work on the global queue; the object need not live meanwhile. `onComplete` comes
  /// once, on `DispatchQueue::main()`, which the host must run, with the file's location, or with `generic` when the
  /// time has no picture or it cannot be encoded. Only when the video has no pictures at all, `generic` comes on the
  /// calling thread, before the call returns.
  /// **Success is reported even when the file could not be written**; who needs to know looks whether it is there.
  void getFrameAt(const CMTime& time, std::optional<std::string> fileName, ExportFormat exportFormat,
                  Completion onComplete) const;

 private:
  explicit VideoToPhotoUtils(URL videoURL) : videoURL_(std::move(videoURL)) {}

  URL videoURL_;
};

}  // namespace clipworks
