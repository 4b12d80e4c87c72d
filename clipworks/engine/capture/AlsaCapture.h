#pragma once

#include <atomic>
#include <chrono>
#include <memory>
#include <vector>

#include <alsa/asoundlib.h>

#include <clipworks/engine/capture/SoundCapture.h>

namespace clipworks::engine {

/// ALSA's device "default", for machines without a sound server.
class AlsaCapture final : public SoundCapture {
 public:
  /// Fails with `noDevice`.
  [[nodiscard]] static Expected<std::unique_ptr<SoundCapture>> open(const PcmFormat& format);
  ~AlsaCapture() override;

  [[nodiscard]] Expected<void> start() override;
  [[nodiscard]] Expected<CapturedSound> read(std::chrono::milliseconds patience) override;
  /// A waiting `read` notices within 20 ms.
  void wake() noexcept override { isWoken_ = true; }

 private:
  explicit AlsaCapture(const PcmFormat& format) : format_(format) {}
  /// 1 when there is something to read, 0 when not, else ALSA's negative code.
  int waitForSound(std::chrono::milliseconds patience);
  Expected<CapturedSound> recover(int code);

  PcmFormat format_;
  snd_pcm_t* device_ = nullptr;
  std::vector<std::int16_t> samples_;
  bool lostSound_ = false;  // since the last read
  std::atomic<bool> isWoken_ = false;
};

}  // namespace clipworks::engine
