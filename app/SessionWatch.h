#pragma once

#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include <app/Reporter.h>
#include <clipworks/media/export/AVAssetExportSession.h>
#include <clipworks/media/samples/AVAssetWriter.h>

namespace clipworks::app {

/// Sees the export sessions and writers that an operation hides, and the lines that it prints: how far they are, why
/// one failed, and how to stop them. The library's printed lines go to the reporter as long as this lives, and nowhere
/// afterwards. One at a time; thread-safe.
class SessionWatch {
 public:
  explicit SessionWatch(Reporter& reporter);
  ~SessionWatch();
  SessionWatch(const SessionWatch&) = delete;
  SessionWatch& operator=(const SessionWatch&) = delete;

  /// Remembers the sessions and writers that run now. They are only listed while they run, so this is called often.
  void look();
  /// Forgets them, for another operation.
  void startAfresh();
  /// Of the session that was started last; nothing before the first.
  [[nodiscard]] std::optional<double> progress() const;
  /// Asks every running session to stop; false when there is none.
  bool cancel();
  /// The reason of the first failure, as a sentence; empty when none is known.
  [[nodiscard]] std::string reason() const;

 private:
  void takeLine(std::string_view line);

  Reporter& reporter_;
  mutable std::mutex mutex_;
  std::vector<std::shared_ptr<AVAssetExportSession>> sessions_;  // guarded by mutex_
  std::vector<std::shared_ptr<AVAssetWriter>> writers_;          // guarded by mutex_
  std::string failedLine_;  // guarded by mutex_; what was printed behind a mark of failure
};

}  // namespace clipworks::app
