#pragma once

#include <chrono>
#include <memory>
#include <string>
#include <vector>

#include <pulse/pulseaudio.h>

#include <clipworks/engine/capture/SoundCapture.h>

namespace clipworks::engine {

/// The default source of a PulseAudio server, or of PipeWire in its place. No thread of its own: the loop runs within
/// the calls. The stream stays with its device; when that is unplugged, capture ends instead of going on elsewhere.
class PulseCapture final : public SoundCapture {
 public:
  /// Fails with `noDevice` when a server answers and has no source, with `unreadable` when none answers.
  [[nodiscard]] static Expected<std::unique_ptr<SoundCapture>> open(const PcmFormat& format);
  ~PulseCapture() override;

  [[nodiscard]] Expected<void> start() override;
  [[nodiscard]] Expected<CapturedSound> read(std::chrono::milliseconds patience) override;
  void wake() noexcept override;

 private:
  enum class Turn { worked, quiet, lost };

  explicit PulseCapture(const PcmFormat& format) : format_(format) {}
  [[nodiscard]] Expected<void> connect();
  [[nodiscard]] Expected<void> openStream();
  /// Runs the loop once, waiting up to `patience`.
  Turn turn(std::chrono::milliseconds patience);
  /// Runs the loop until `isOver`. False when it took too long or the server went.
  template <class Condition>
  bool turnUntil(Condition isOver);
  bool finish(pa_operation* operation);
  [[nodiscard]] bool isLost() const;
  [[nodiscard]] std::string reason() const;
  void dropFragment();
  Expected<CapturedSound> takeFragment();
  [[nodiscard]] CaptureClock::time_point timeOfNextSample(std::size_t bytes);

  PcmFormat format_;
  pa_mainloop* loop_ = nullptr;
  pa_context* context_ = nullptr;
  pa_stream* stream_ = nullptr;
  bool isHolding_ = false;          // a fragment that was handed out
  bool isTimed_ = false;            // the server has told its latency since the start
  bool lostSound_ = false;          // since the last fragment
  std::vector<std::int16_t> hole_;  // silence for a fragment without content
};

}  // namespace clipworks::engine
