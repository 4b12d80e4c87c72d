#include <clipworks/media/audio/MicrophoneRecorder.h>

#include <algorithm>
#include <cmath>
#include <utility>

#include <clipworks/media/asset/EngineErrors.h>
#include <clipworks/media/audio/AudioQueue.h>

namespace clipworks {
namespace {

constexpr double silenceDecibels = -160;

float decibels(double share) {
  return static_cast<float>(share > 0 ? std::clamp(20 * std::log10(share), silenceDecibels, 0.0) : silenceDecibels);
}

}  // namespace

void MicrophoneRecorder::setDelegate(std::weak_ptr<AVAudioRecorderDelegate> delegate) {
  const std::lock_guard lock(mutex_);
  delegate_ = std::move(delegate);
}

bool MicrophoneRecorder::prepareToRecord() {
  const std::lock_guard lock(mutex_);
  return prepare();
}

bool MicrophoneRecorder::prepare() {
  if (state_ == State::prepared) return true;
  if (state_ != State::idle) return false;
  recording_.reset();  // the former one, which has ended
  auto prepared = engine::SoundRecording::prepare(url_.path(), format_);
  if (!prepared) {
    error_ = errorFromEngine(prepared.error());
    return false;
  }
  recording_ = std::move(*prepared);
  error_.reset();
  state_ = State::prepared;
  return true;
}

bool MicrophoneRecorder::record() {
  const auto moment = engine::CaptureClock::now();
  const std::lock_guard lock(mutex_);
  return state_ != State::recording && state_ != State::closing && prepare() && start(moment);
}

bool MicrophoneRecorder::start(engine::CaptureClock::time_point moment) {
  const auto started = recording_->start(moment, [weak = weak_from_this()](const engine::Expected<void>& outcome) {
    // Moved on to the queue, so that it is never released here, on the thread that it would wait for.
    if (auto self = weak.lock()) {
      audioQueue().async(
          [self = std::move(self), outcome] { static_cast<MicrophoneRecorder&>(*self).takeEnd(outcome); });
    }
  });
  state_ = started ? State::recording : State::idle;
  if (started) return true;
  recording_.reset();
  error_ = errorFromEngine(started.error());
  return false;
}

void MicrophoneRecorder::stop() {
  const auto moment = engine::CaptureClock::now();
  const std::lock_guard lock(mutex_);
  if (state_ != State::recording) return;
  state_ = State::closing;
  keptAlive_ = shared_from_this();
  recording_->stop(moment);
}

// On the queue.
void MicrophoneRecorder::takeEnd(const engine::Expected<void>& outcome) {
  std::shared_ptr<AVAudioRecorder> released;
  {
    const std::lock_guard lock(mutex_);
    state_ = State::idle;
    if (!outcome) error_ = errorFromEngine(outcome.error());
    released = std::move(keptAlive_);
  }
  tellDelegate(outcome.has_value());
}

void MicrophoneRecorder::tellDelegate(bool successfully) {
  std::shared_ptr<AVAudioRecorderDelegate> delegate;
  {
    const std::lock_guard lock(mutex_);
    delegate = delegate_.lock();
  }
  if (delegate != nullptr) delegate->audioRecorderDidFinishRecording(shared_from_this(), successfully);
}

bool MicrophoneRecorder::isRecording() const {
  const std::lock_guard lock(mutex_);
  return state_ == State::recording;
}

double MicrophoneRecorder::currentTime() const {
  const std::lock_guard lock(mutex_);
  return state_ == State::recording || state_ == State::closing ? recording_->seconds() : 0;
}

std::optional<NSError> MicrophoneRecorder::error() const {
  const std::lock_guard lock(mutex_);
  return error_;
}

void MicrophoneRecorder::updateMeters() {
  const std::lock_guard lock(mutex_);
  if (recording_ == nullptr) return;
  auto levels = recording_->meter().take();
  if (!levels.empty()) levels_ = std::move(levels);
}

engine::SoundLevel MicrophoneRecorder::level(int channel) const {
  const std::lock_guard lock(mutex_);
  const bool isKnown = channel >= 0 && static_cast<std::size_t>(channel) < levels_.size();
  return isKnown ? levels_[static_cast<std::size_t>(channel)] : engine::SoundLevel{};
}

float MicrophoneRecorder::averagePower(int forChannel) const { return decibels(level(forChannel).rootMeanSquare); }

float MicrophoneRecorder::peakPower(int forChannel) const { return decibels(level(forChannel).peak); }

}  // namespace clipworks
