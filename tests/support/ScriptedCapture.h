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
                                                                 std::int64_t frame, int sampleRate) {
    const std::chrono::duration<double> seconds(static_cast<double>(frame) / sampleRate);
    return origin + std::chrono::duration_cast<engine::CaptureClock::duration>(seconds);
  }

  [[nodiscard]] engine::Expected<void> start() override {
    if (!origin_) origin_ = engine::CaptureClock::now();
    return {};
  }
  [[nodiscard]] engine::Expected<engine::CapturedSound> read(std::chrono::milliseconds limit) override {
    if (next_ == steps_.size()) {
      std::unique_lock lock(mutex_);
      woken_.wait_for(lock, limit, [this] { return isWoken_; });
      isWoken_ = false;
      return engine::CapturedSound{};
    }
    const Step& step = steps_[next_++];
    if (step.fails) return engine::failed(engine::ErrorKind::deviceLost, "the microphone went away");
    samples_.clear();
    for (std::int64_t frame = step.first; frame < step.first + step.count; ++frame) {
      samples_.insert(samples_.end(), static_cast<std::size_t>(format_.channels), codeOf(frame));
    }
    const auto moment = momentOf(*origin_, step.claimedFirst.value_or(step.first), format_.sampleRate);
    return engine::CapturedSound{samples_, moment, step.followsGap};
  }
  void wake() noexcept override {
    const std::lock_guard lock(mutex_);
    isWoken_ = true;
    woken_.notify_all();
  }

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
                              std::optional<engine::CaptureClock::time_point> origin = std::nullopt) {
    engine::setSoundCaptureOpener([=](const auto& format) -> engine::Expected<std::unique_ptr<engine::SoundCapture>> {
      return std::make_unique<ScriptedCapture>(steps, format, origin);
    });
  }
  ~ScriptedMicrophone() { engine::setSoundCaptureOpener({}); }
  ScriptedMicrophone(const ScriptedMicrophone&) = delete;
  ScriptedMicrophone& operator=(const ScriptedMicrophone&) = delete;
};

}  // namespace clipworks::test
