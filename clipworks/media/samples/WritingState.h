#pragma once

#include <mutex>
#include <optional>

#include <clipworks/media/base/NSError.h>
#include <clipworks/media/samples/AVAssetWriterStatus.h>

namespace clipworks {

/// What a writer and its inputs have in common. Any thread.
class WritingState {
 public:
  [[nodiscard]] AVAssetWriterStatus status() const {
    const std::lock_guard lock(mutex_);
    return status_;
  }
  [[nodiscard]] std::optional<NSError> error() const {
    const std::lock_guard lock(mutex_);
    return error_;
  }
  [[nodiscard]] bool isWriting() const { return status() == AVAssetWriterStatus::writing; }

  /// False when it has started, or ended, before.
  bool start() {
    const std::lock_guard lock(mutex_);
    if (status_ != AVAssetWriterStatus::unknown) return false;
    status_ = AVAssetWriterStatus::writing;
    return true;
  }
  /// These three count only while nothing else has ended it.
  void complete() { end(AVAssetWriterStatus::completed, std::nullopt); }
  void fail(NSError error) { end(AVAssetWriterStatus::failed, std::move(error)); }
  void cancel() { end(AVAssetWriterStatus::cancelled, std::nullopt); }

 private:
  void end(AVAssetWriterStatus status, std::optional<NSError> error) {
    const std::lock_guard lock(mutex_);
    if (status_ > AVAssetWriterStatus::writing) return;
    status_ = status;
    error_ = std::move(error);
  }

  mutable std::mutex mutex_;
  AVAssetWriterStatus status_ = AVAssetWriterStatus::unknown;  // guarded by mutex_
  std::optional<NSError> error_;                               // guarded by mutex_
};

}  // namespace clipworks
