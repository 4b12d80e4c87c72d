#include <clipworks/engine/capture/AlsaCapture.h>

#include <algorithm>
#include <mutex>
#include <string>
#include <utility>

namespace clipworks::engine {
namespace {

constexpr const char* deviceName = "default";
// What may lie unread before sound is lost; a quarter of it is a period.
constexpr unsigned bufferMicroseconds = 200'000;
constexpr int framesPerRead = 2048;
constexpr std::chrono::milliseconds waitSlice{20};

void dropMessage(const char*, int, const char*, int, const char*, ...) {}

// ALSA prints its reasons to standard error on its own.
void quietAlsa() {
  static std::once_flag once;
  std::call_once(once, [] { snd_lib_error_set_handler(dropMessage); });
}

tl::unexpected<Error> alsaFailure(ErrorKind kind, const std::string& what, int code) {
  return failed(kind, what + ": " + snd_strerror(code), -code);
}

}  // namespace

Expected<std::unique_ptr<SoundCapture>> AlsaCapture::open(const PcmFormat& format) {
  quietAlsa();
  std::unique_ptr<AlsaCapture> capture(new AlsaCapture(format));
  int code = snd_pcm_open(&capture->device_, deviceName, SND_PCM_STREAM_CAPTURE, SND_PCM_NONBLOCK);
  if (code < 0) return alsaFailure(ErrorKind::noDevice, "ALSA has no microphone", code);
  constexpr int convertRate = 1;
  code = snd_pcm_set_params(capture->device_, SND_PCM_FORMAT_S16_LE, SND_PCM_ACCESS_RW_INTERLEAVED,
                            static_cast<unsigned>(format.channels), static_cast<unsigned>(format.sampleRate),
                            convertRate, bufferMicroseconds);
  if (code < 0) return alsaFailure(ErrorKind::noDevice, "ALSA's microphone cannot be set up", code);
  capture->samples_.resize(static_cast<std::size_t>(framesPerRead) * static_cast<std::size_t>(format.channels));
  return capture;
}

AlsaCapture::~AlsaCapture() {
  if (device_ != nullptr) snd_pcm_close(device_);
}

Expected<void> AlsaCapture::start() {
  const int code = snd_pcm_start(device_);
  if (code < 0) return alsaFailure(ErrorKind::deviceLost, "the microphone cannot be started", code);
  return {};
}

int AlsaCapture::waitForSound(std::chrono::milliseconds patience) {
  const auto end = CaptureClock::now() + patience;
  for (;;) {
    const int code = snd_pcm_wait(device_, static_cast<int>(std::min(patience, waitSlice).count()));
    if (code != 0 || isWoken_.exchange(false) || CaptureClock::now() >= end) return code;
  }
}

Expected<CapturedSound> AlsaCapture::read(std::chrono::milliseconds patience) {
  const int ready = waitForSound(patience);
  if (ready == 0) return CapturedSound{};
  if (ready < 0) return recover(ready);
  snd_pcm_sframes_t age = 0;  // in frames, of the one that is read next
  const auto now = CaptureClock::now();
  if (const int code = snd_pcm_delay(device_, &age); code < 0) return recover(code);
  const snd_pcm_sframes_t count = snd_pcm_readi(device_, samples_.data(), framesPerRead);
  if (count == -EAGAIN || count == 0) return CapturedSound{};
  if (count < 0) return recover(static_cast<int>(count));
  const std::chrono::duration<double> seconds(static_cast<double>(std::max<snd_pcm_sframes_t>(age, 0)) /
                                              format_.sampleRate);
  return CapturedSound{.samples = std::span(samples_).first(static_cast<std::size_t>(count) *
                                                            static_cast<std::size_t>(format_.channels)),
                       .begin = now - std::chrono::duration_cast<CaptureClock::duration>(seconds),
                       .followsGap = std::exchange(lostSound_, false)};
}

// An overrun loses sound and no more; everything else means that the device is gone.
Expected<CapturedSound> AlsaCapture::recover(int code) {
  constexpr int silently = 1;
  if (code == -EPIPE && snd_pcm_recover(device_, code, silently) >= 0 && snd_pcm_start(device_) >= 0) {
    lostSound_ = true;
    return CapturedSound{};
  }
  return alsaFailure(ErrorKind::deviceLost, "the microphone went away", code);
}

}  // namespace clipworks::engine
