#include <tests/support/ScriptedCapture.h>

namespace clipworks::test {

engine::CaptureClock::time_point ScriptedCapture::momentOf(engine::CaptureClock::time_point origin, std::int64_t frame,
                                                           int sampleRate) {
  const std::chrono::duration<double> seconds(static_cast<double>(frame) / sampleRate);
  return origin + std::chrono::duration_cast<engine::CaptureClock::duration>(seconds);
}

engine::Expected<engine::CapturedSound> ScriptedCapture::read(std::chrono::milliseconds patience) {
  if (next_ == steps_.size()) {
    std::unique_lock lock(mutex_);
    woken_.wait_for(lock, patience, [this] { return isWoken_; });
    isWoken_ = false;
    return engine::CapturedSound{};
  }
  const Step& step = steps_[next_++];
  if (step.fails) return engine::failed(engine::ErrorKind::deviceLost, "the microphone went away");
  samples_.clear();
  for (std::int64_t frame = step.first; frame < step.first + step.count; ++frame) {
    samples_.insert(samples_.end(), static_cast<std::size_t>(format_.channels), codeOf(frame));
  }
  return engine::CapturedSound{samples_, momentOf(*origin_, step.claimedFirst.value_or(step.first), format_.sampleRate),
                               step.followsGap};
}

void ScriptedCapture::wake() noexcept {
  const std::lock_guard lock(mutex_);
  isWoken_ = true;
  woken_.notify_all();
}

ScriptedMicrophone::ScriptedMicrophone(const std::vector<ScriptedCapture::Step>& steps,
                                       std::optional<engine::CaptureClock::time_point> origin) {
  engine::setSoundCaptureOpener([=](const auto& format) -> engine::Expected<std::unique_ptr<engine::SoundCapture>> {
    return std::make_unique<ScriptedCapture>(steps, format, origin);
  });
}

}  // namespace clipworks::test
