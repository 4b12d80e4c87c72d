#pragma once

#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include <clipworks/media/asset/AVMediaTypes.h>
#include <clipworks/media/base/Export.h>
#include <clipworks/media/base/NSError.h>
#include <clipworks/media/base/Result.h>
#include <clipworks/media/base/URL.h>
#include <clipworks/media/samples/AVAssetWriterInput.h>
#include <clipworks/media/samples/AVAssetWriterStatus.h>
#include <clipworks/media/time/CMTime.h>

namespace clipworks {

/// Encodes samples into one file: add inputs, start, start the session, append to the inputs, finish.
///
///     unknown ── startWriting ──> writing ── finishWriting ──> completed
///                    └───────────────┴──────────────────────> failed | cancelled
///
/// The file appears under its name only when it is whole, with its index first; a writer that fails, is cancelled or
/// let go leaves none. One thread sets it up and ends it; `status` and `error` may be asked from any.
class CLIPWORKS_API AVAssetWriter : public std::enable_shared_from_this<AVAssetWriter> {
 public:
  /// `AVAssetWriter(url:fileType:)`, `AVAssetWriter(outputURL:fileType:)`. Fails when the type is none of QuickTime
  /// movie, MPEG-4 and M4A, something of that name is there, or nothing can be written in the directory.
  [[nodiscard]] static Result<std::shared_ptr<AVAssetWriter>, NSError> make(const URL& outputURL, AVFileType fileType);
  ~AVAssetWriter();
  AVAssetWriter(const AVAssetWriter&) = delete;
  AVAssetWriter& operator=(const AVAssetWriter&) = delete;

  /// Where the file will be.
  [[nodiscard]] const URL& outputURL() const { return outputURL_; }
  /// What the file shall say of itself (date, place, device, title), by the container's keys. Before the start.
  void setMetadata(std::map<std::string, std::string> metadata) { metadata_ = std::move(metadata); }

  /// `canAdd(_:)`: whether the writer has not started, writes files with that kind of track (M4A: sound only), and the
  /// input's settings can be written.
  [[nodiscard]] bool canAdd(const AVAssetWriterInput& input) const;
  /// `add(_:)`, before the start. With an input that cannot be added, the start fails.
  void add(std::shared_ptr<AVAssetWriterInput> input);

  /// False, and `error` tells why, when there is no input, an input cannot be written, or it has started before.
  bool startWriting();
  /// `startSession(atSourceTime:)`: where the file's timeline is joined; samples before it are not written. The
  /// samples keep their times: a start after zero leaves the time before it empty (an empty edit). A time that is no
  /// number, or negative, makes the writer fail.
  void startSession(const CMTime& atSourceTime);

  /// `finishWriting(completionHandler:)`. Returns at once. The handler comes on a thread of the writer, after the
  /// inputs were marked as finished and the file is there, or the writer has failed; then it is destroyed. The writer
  /// keeps itself alive until then. Where the system allows no more threads, all this happens on the calling thread,
  /// before this returns.
  void finishWriting(std::function<void()> completionHandler);
  /// Ends it without a file.
  void cancelWriting();

  /// Where it stands; see the diagram above.
  [[nodiscard]] AVAssetWriterStatus status() const;
  /// The reason while `status()` is failed.
  [[nodiscard]] std::optional<NSError> error() const;

 private:
  AVAssetWriter(URL outputURL, AVFileType fileType, std::shared_ptr<engine::SharedMovie> movie);
  [[nodiscard]] std::optional<NSError> whyNotAddable(const AVAssetWriterInput& input) const;
  void finish();

  URL outputURL_;
  AVFileType fileType_;
  std::map<std::string, std::string> metadata_;
  std::shared_ptr<engine::SharedMovie> movie_;
  std::shared_ptr<WritingState> state_;
  std::vector<std::shared_ptr<AVAssetWriterInput>> inputs_;
};

}  // namespace clipworks
