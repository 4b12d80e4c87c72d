#pragma once

#include <cstddef>
#include <mutex>
#include <optional>

#include <clipworks/media/base/NSError.h>
#include <clipworks/media/samples/AVAssetReaderStatus.h>

namespace clipworks {

/// What a reader and its outputs have in common. Any thread.
class ReadingState {
 public:
  [[nodiscard]] AVAssetReaderStatus status() const {
    const std::lock_guard lock(mutex_);
    return status_;
  }
  [[nodiscard]] std::optional<NSError> error() const {
    const std::lock_guard lock(mutex_);
    return error_;
  }
  [[nodiscard]] bool isReading() const { return status() == AVAssetReaderStatus::reading; }

  /// The outputs that are to be read to their end.
  void start(std::size_t outputs) {
    const std::lock_guard lock(mutex_);
    outputsLeft_ = outputs;
    status_ = outputs == 0 ? AVAssetReaderStatus::completed : AVAssetReaderStatus::reading;
  }
  /// One of them is at its end.
  void outputEnded() {
    const std::lock_guard lock(mutex_);
    if (--outputsLeft_ == 0 && status_ == AVAssetReaderStatus::reading) status_ = AVAssetReaderStatus::completed;
  }
  void fail(NSError error) {
    const std::lock_guard lock(mutex_);
    if (status_ > AVAssetReaderStatus::reading) return;
    status_ = AVAssetReaderStatus::failed;
    error_ = std::move(error);
  }
  void cancel() {
    const std::lock_guard lock(mutex_);
    if (status_ == AVAssetReaderStatus::reading) status_ = AVAssetReaderStatus::cancelled;
  }

 private:
  mutable std::mutex mutex_;
  AVAssetReaderStatus status_ = AVAssetReaderStatus::unknown;  // guarded by mutex_
  std::optional<NSError> error_;                               // guarded by mutex_
  std::size_t outputsLeft_ = 0;                                // guarded by mutex_
};

}  // namespace clipworks
