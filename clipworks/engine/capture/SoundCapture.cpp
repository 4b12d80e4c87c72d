#include <clipworks/engine/capture/SoundCapture.h>

#include <mutex>
#include <string>
#include <utility>

#include <clipworks/engine/capture/AlsaCapture.h>
#include <clipworks/engine/capture/PulseCapture.h>

namespace clipworks::engine {
namespace {

struct ChosenOpener {
  std::mutex mutex;
  SoundCaptureOpener opener;  // guarded by mutex
};

ChosenOpener& chosen() {
  static auto& instance = *new ChosenOpener;  // never destroyed: threads may ask it until the end of the process
  return instance;
}

Expected<std::unique_ptr<SoundCapture>> openMachineSource(const PcmFormat& format) {
  auto pulse = PulseCapture::open(format);
  // A server that answers owns the devices: what it does not give, ALSA would only fight it for.
  if (pulse || pulse.error().kind == ErrorKind::noDevice) return pulse;
  auto alsa = AlsaCapture::open(format);
  if (alsa) return alsa;
  return failed(ErrorKind::noDevice,
                "no microphone can be opened: " + pulse.error().sentence + "; " + alsa.error().sentence);
}

}  // namespace

Expected<std::unique_ptr<SoundCapture>> openSoundCapture(const PcmFormat& format) {
  SoundCaptureOpener opener;
  {
    const std::lock_guard lock(chosen().mutex);
    opener = chosen().opener;
  }
  return opener ? opener(format) : openMachineSource(format);
}

void setSoundCaptureOpener(SoundCaptureOpener opener) {
  const std::lock_guard lock(chosen().mutex);
  chosen().opener = std::move(opener);
}

}  // namespace clipworks::engine
