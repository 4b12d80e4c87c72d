#pragma once

#include <condition_variable>
#include <cstdint>
#include <memory>
#include <mutex>
#include <optional>
#include <vector>

#include <clipworks/engine/capture/SoundCapture.h>

namespace clipworks::test {

/// A source that gives what a test wrote down, and then nothing more. Each frame tells its place: frame n holds
/// `codeOf(n)` in every channel.
class ScriptedCapture final : public engine::SoundCapture {
 public:
  /// What one read gives: frames `first` to `first + count`, or a failure.
  struct Step {
    std::int64_t first = 0;
    std::int64_t count = 0;
    bool followsGap = false;
    /// The frame whose moment the source claims for the first one; `first` when not given.
    std::optional<std::int64_t> claimedFirst{};
    bool fails = false;
  };

  /// Frame 0 sounds at `origin`, or when the capture starts.
  ScriptedCapture(std::vector<Step> steps, const engine::PcmFormat& format,
                  std::optional<engine::CaptureClock::time_point> origin)
      : steps_(std::move(steps)), format_(format), origin_(origin) {}

  /// Never 0, so that it differs from silence.
  [[nodiscard]] static std::int16_t codeOf(std::int64_t frame) { return static_cast<std::int16_t>(frame % 30'000 + 1); }
  /// When frame n sounds.
  [[nodiscard]] static engine::CaptureClock::time_point momentOf(engine::CaptureClock::time_point origin,
                                                                 std::int64_t frame, int sampleRate);

  [[nodiscard]] engine::Expected<void> start() override {
    if (!origin_) origin_ = engine::CaptureClock::now();
    return {};
  }
  [[nodiscard]] engine::Expected<engine::CapturedSound> read(std::chrono::milliseconds patience) override;
  void wake() noexcept override;

 private:
  std::vector<Step> steps_;
  engine::PcmFormat format_;
  std::optional<engine::CaptureClock::time_point> origin_;
  std::size_t next_ = 0;
  std::vector<std::int16_t> samples_;
  std::mutex mutex_;
  std::condition_variable woken_;
  bool isWoken_ = false;  // guarded by mutex_
};

/// Lets every recording of the process read `steps`, as long as it lives.
class ScriptedMicrophone {
 public:
  explicit ScriptedMicrophone(const std::vector<ScriptedCapture::Step>& steps,
                              std::optional<engine::CaptureClock::time_point> origin = std::nullopt);
  ~ScriptedMicrophone() { engine::setSoundCaptureOpener({}); }
  ScriptedMicrophone(const ScriptedMicrophone&) = delete;
  ScriptedMicrophone& operator=(const ScriptedMicrophone&) = delete;
};

}  // namespace clipworks::test
