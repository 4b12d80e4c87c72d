#pragma once

#include <memory>
#include <mutex>
#include <optional>
#include <vector>

#include <clipworks/engine/capture/SoundRecording.h>
#include <clipworks/media/audio/AVAudioRecorder.h>

namespace clipworks {

/// The recorder behind `AVAudioRecorder`.
class MicrophoneRecorder final : public AVAudioRecorder {
 public:
  MicrophoneRecorder(URL url, SettingsDictionary settings, const engine::PcmFormat& format)
      : url_(std::move(url)), settings_(std::move(settings)), format_(format) {}

  void setDelegate(std::weak_ptr<AVAudioRecorderDelegate> delegate) override;
  bool prepareToRecord() override;
  bool record() override;
  void stop() override;
  [[nodiscard]] bool isRecording() const override;
  [[nodiscard]] double currentTime() const override;
  [[nodiscard]] const URL& url() const override { return url_; }
  [[nodiscard]] const SettingsDictionary& settings() const override { return settings_; }
  [[nodiscard]] std::optional<NSError> error() const override;
  void updateMeters() override;
  [[nodiscard]] float averagePower(int forChannel) const override;
  [[nodiscard]] float peakPower(int forChannel) const override;

 private:
  enum class State { idle, prepared, recording, closing };

  // Both with mutex_ held.
  bool prepare();
  bool start(engine::CaptureClock::time_point moment);
  void takeEnd(const engine::Expected<void>& outcome);
  void tellDelegate(bool successfully);
  [[nodiscard]] engine::SoundLevel level(int channel) const;

  const URL url_;
  const SettingsDictionary settings_;
  const engine::PcmFormat format_;

  mutable std::mutex mutex_;
  State state_ = State::idle;                        // guarded by mutex_
  std::weak_ptr<AVAudioRecorderDelegate> delegate_;  // guarded by mutex_
  std::optional<NSError> error_;                     // guarded by mutex_
  std::vector<engine::SoundLevel> levels_;           // guarded by mutex_
  std::shared_ptr<AVAudioRecorder> keptAlive_;       // guarded by mutex_; this, while closing
  // Guarded by mutex_. The last member: its thread ends before anything that it uses goes.
  std::unique_ptr<engine::SoundRecording> recording_;
};

}  // namespace clipworks
