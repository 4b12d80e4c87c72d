#pragma once

#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <string>

#include <clipworks/media/base/Export.h>
#include <clipworks/media/base/Result.h>
#include <clipworks/media/base/URL.h>
#include <clipworks/reverse/VideoReverseDelegate.h>

namespace clipworks {

/// Makes a copy of a video that plays backwards, pictures and sound. Keep the converter until the completion has been
/// called: **when it is let go earlier, the work stops silently, and the completion is never called**. Completions and
/// progress come on background threads, never on the main queue. Reversals that run at the same time, of whatever
/// converters, use the same names in the documents directory and overwrite each other's files.
class CLIPWORKS_API VideoReverseConverter : public std::enable_shared_from_this<VideoReverseConverter> {
 public:
  /// What a reversal fails with; some causes are printed.
  enum class ConversionError { generic };
  /// Takes the new file's location, or the failure.
  using Completion = std::function<void(Result<URL, ConversionError>)>;

  /// `init(videoURL:)`. Touches no file.
  [[nodiscard]] static std::shared_ptr<VideoReverseConverter> make(URL videoURL);
  VideoReverseConverter() = delete;
  VideoReverseConverter(const VideoReverseConverter&) = delete;
  VideoReverseConverter& operator=(const VideoReverseConverter&) = delete;

  /// The video that is played backwards.
  [[nodiscard]] const URL& videoURL() const { return videoURL_; }
  /// Who hears of the progress; nobody at first. It may be changed while a reversal runs.
  [[nodiscard]] std::weak_ptr<VideoReverseDelegate> delegate() const;
  void setDelegate(std::weak_ptr<VideoReverseDelegate> delegate);

  /// `reverse(fileName:onComplete:)`. Returns at once. Reverses pictures and sound at the same time, then joins them in
  /// the temporary directory of the file-location service, in a file named `fileName`, or a new UUID, with ".mp4"
  /// behind it; one of that name is deleted. Fails when a half does: a video without sound cannot be reversed as a
  /// whole. A half's file stays in the documents directory then. **When no export session can be made, the completion
  /// is never called**; it is destroyed then.
  void reverse(std::optional<std::string> fileName, Completion onComplete);

  /// `reverseVideoOnly(onComplete:)`. Returns at once. Writes the pictures backwards, at the source's own picture
  /// times, to "reversed_video.mov" in the documents directory; one of that name is deleted. H.264 at the source's data
  /// rate, coded as the source is and turned by its matrix. Prints "Starting video
  /// reversing", "Reading samples to get timestamps", "Finishing first read", "Got image" and "Append image at " for
  /// each picture, and "Finished video reversing"; or why not: "could not initialize reader.", "could not retrieve the
  /// video track.", "Failed: ". A failure to write a picture is not noticed: success is reported all the same, without
  /// a file.
  void reverseVideoOnly(Completion onComplete);

  /// `reverseAudioOnly(onComplete:)`. Returns at once. Writes the sound backwards, sample by sample, to
  /// "reversed_audio.m4a" in the documents directory; one of that name is deleted. AAC of 44,100 Hz and two channels at
  /// 128 kb/s, whatever the source has; left and right change places. All samples are in memory meanwhile.
  /// Prints "Start reverse audio!", "Audio writing finished!" and "Ended reverse audio!", or "reverse audio: error - ".
  void reverseAudioOnly(Completion onComplete);

 private:
  explicit VideoReverseConverter(URL videoURL) : videoURL_(std::move(videoURL)) {}
  void mergeVideoAndAudio(const std::optional<std::string>& fileName, const URL& videoURL, const URL& audioURL,
                          Completion onComplete);

  const URL videoURL_;
  mutable std::mutex mutex_;
  std::weak_ptr<VideoReverseDelegate> delegate_;  // guarded by mutex_
};

}  // namespace clipworks
