#pragma once

#include <chrono>
#include <cstdint>
#include <functional>
#include <memory>
#include <span>

#include <clipworks/engine/Error.h>
#include <clipworks/engine/output/PcmMovieWriter.h>

namespace clipworks::engine {

/// The clock that says when something sounded.
using CaptureClock = std::chrono::steady_clock;

/// What came from a source in one go.
struct CapturedSound {
  /// Whole frames, interleaved; empty when nothing came. Valid until the next call.
  std::span<const std::int16_t> samples;
  /// When the first of them sounded at the source: the moment it arrived here, less the latency that the server or
  /// driver reports for it.
  CaptureClock::time_point begin{};
  /// Sound before it was lost, so that it does not follow what came last.
  bool followsGap = false;
};

/// A microphone, or what stands in for one: 16-bit sound in the asked rate and channels. One thread at a time, except
/// for `wake()`. A source that disappears makes `read` fail with `deviceLost`.
class SoundCapture {
 public:
  virtual ~SoundCapture() = default;
  SoundCapture(const SoundCapture&) = delete;
  SoundCapture& operator=(const SoundCapture&) = delete;

  /// Lets the sound flow; until then the source is open and idle.
  [[nodiscard]] virtual Expected<void> start() = 0;
  /// The next sound; waits for it up to `patience`, or until `wake()`.
  [[nodiscard]] virtual Expected<CapturedSound> read(std::chrono::milliseconds patience) = 0;
  /// Makes a `read` that waits, or else the next one, return soon. From any thread.
  virtual void wake() noexcept = 0;

 protected:
  SoundCapture() = default;
};

/// Opens the source that the system has chosen for recording: through a PulseAudio or PipeWire server when one answers,
/// else ALSA's default device. Takes milliseconds; gives up after a few seconds. Fails with `noDevice`.
[[nodiscard]] Expected<std::unique_ptr<SoundCapture>> openSoundCapture(const PcmFormat& format);

using SoundCaptureOpener = std::function<Expected<std::unique_ptr<SoundCapture>>(const PcmFormat&)>;

/// Makes `openSoundCapture` use `opener` from now on, for tests that feed the sound themselves; an empty one restores
/// the machine's sources. Any thread.
void setSoundCaptureOpener(SoundCaptureOpener opener);

}  // namespace clipworks::engine
