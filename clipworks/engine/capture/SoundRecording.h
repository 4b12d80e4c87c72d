#pragma once

#include <atomic>
#include <chrono>
#include <cstdint>
#include <filesystem>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>

#include <clipworks/engine/Error.h>
#include <clipworks/engine/Thread.h>
#include <clipworks/engine/capture/SoundCapture.h>
#include <clipworks/engine/capture/SoundMeter.h>
#include <clipworks/engine/output/PcmMovieWriter.h>

namespace clipworks::engine {

/// Brings sound from a source into a file, on a thread of its own. The file's first sample is what sounded at the
/// moment of the start, its last what sounded at the moment of the stop: what a source delivered late, or from before,
/// is placed by the moment at which it sounded. Where a source needs time to begin, or loses sound, there is silence.
///
///     prepared ── start ──> recording ── stop, or the source fails ──> ended
///
/// Used by one thread at a time; the thread may change.
class SoundRecording {
 public:
  /// Called once, on the recording's thread, when the file is closed: with success after a `stop`, else with why the
  /// recording ended. Must not destroy the recording.
  using EndHandler = std::function<void(const Expected<void>&)>;

  /// Opens the source and makes the file. Fails with `noDevice` or `unwritable`.
  [[nodiscard]] static Expected<std::unique_ptr<SoundRecording>> prepare(const std::filesystem::path& path,
                                                                         const PcmFormat& format);
  SoundRecording(const SoundRecording&) = delete;
  SoundRecording& operator=(const SoundRecording&) = delete;
  /// Ends what still runs and closes the file with what it has, without a call to the handler. A recording that was
  /// never started leaves no file.
  ~SoundRecording();

  /// Starts recording what sounds from `moment` on. To be called once. Fails with `noThreads`; the handler is not
  /// called then, and no file is left.
  [[nodiscard]] Expected<void> start(CaptureClock::time_point moment, const EndHandler& onEnd);
  /// Ends with what sounds at `moment`. Returns at once; the end comes when that sound has arrived. Only the first call
  /// counts.
  void stop(CaptureClock::time_point moment);

  /// The sound so far.
  [[nodiscard]] double seconds() const { return static_cast<double>(frames_) / format_.sampleRate; }
  /// Levels since the last look.
  [[nodiscard]] SoundMeter& meter() { return meter_; }

 private:
  SoundRecording(std::filesystem::path path, const PcmFormat& format, std::unique_ptr<SoundCapture> capture,
                 std::unique_ptr<PcmMovieWriter> writer);
  void run(CaptureClock::time_point start, const EndHandler& onEnd);
  [[nodiscard]] Expected<void> record(CaptureClock::time_point start);
  [[nodiscard]] Expected<void> take(const CapturedSound& sound, CaptureClock::time_point start);
  [[nodiscard]] Expected<void> place(const CapturedSound& sound, std::int64_t position, std::int64_t limit);
  [[nodiscard]] std::optional<CaptureClock::time_point> stopMoment() const;
  [[nodiscard]] std::int64_t framesBetween(CaptureClock::time_point from, CaptureClock::time_point to) const;

  const std::filesystem::path path_;
  const PcmFormat format_;
  std::unique_ptr<SoundCapture> capture_;   // of the thread, once it runs
  std::unique_ptr<PcmMovieWriter> writer_;  // likewise
  SoundMeter meter_;
  std::atomic<std::int64_t> frames_ = 0;
  std::atomic<bool> isAbandoned_ = false;
  bool isPlaced_ = false;  // of the thread: the first sound has its place
  mutable std::mutex mutex_;
  std::optional<CaptureClock::time_point> stopMoment_;  // guarded by mutex_
  Thread thread_;
};

}  // namespace clipworks::engine
