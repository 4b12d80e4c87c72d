#include <clipworks/media/audio/AVAudioSession.h>

#include <algorithm>
#include <array>
#include <utility>

#include <clipworks/engine/capture/SoundCapture.h>
#include <clipworks/media/asset/EngineErrors.h>
#include <clipworks/media/audio/AudioQueue.h>

namespace clipworks {
namespace {

constexpr std::array categories{AVAudioSessionCategoryPlayAndRecord, AVAudioSessionCategoryRecord,
                                AVAudioSessionCategoryPlayback};
constexpr std::array modes{AVAudioSessionModeDefault, AVAudioSessionModeSpokenAudio};

Result<void, NSError> tryMicrophone() {
  const auto capture = engine::openSoundCapture({});
  if (!capture) return failure(errorFromEngine(capture.error()));
  return {};
}

}  // namespace

AVAudioSession& AVAudioSession::sharedInstance() {
  static auto& instance = *new AVAudioSession;  // never destroyed: recorders may ask it until the end of the process
  return instance;
}

void AVAudioSession::requestRecordPermission(std::function<void(bool granted)> response) {
  // Opening may wait for a server, so it is done beside the queue, which only brings the answer.
  DispatchQueue::global().async([response = std::move(response)]() mutable {
    const bool granted = tryMicrophone().has_value();
    audioQueue().async([response = std::move(response), granted] { response(granted); });
  });
}

Result<void, NSError> AVAudioSession::setCategory(std::string_view category, std::string_view mode,
                                                  AVAudioSessionRouteSharingPolicy /*routeSharingPolicy*/,
                                                  AVAudioSessionCategoryOptions options) {
  if (std::find(categories.begin(), categories.end(), category) == categories.end()) {
    return failure(makeError(AVError::unknown, "there is no audio session category " + std::string(category)));
  }
  if (std::find(modes.begin(), modes.end(), mode) == modes.end()) {
    return failure(makeError(AVError::unknown, "there is no audio session mode " + std::string(mode)));
  }
  const std::lock_guard lock(mutex_);
  category_ = category;
  mode_ = mode;
  options_ = options;
  return {};
}

Result<void, NSError> AVAudioSession::setActive(bool active, std::uint64_t /*options*/) {
  if (!active || category() == AVAudioSessionCategoryPlayback) return {};
  return tryMicrophone();
}

std::string AVAudioSession::category() const {
  const std::lock_guard lock(mutex_);
  return category_;
}

std::string AVAudioSession::mode() const {
  const std::lock_guard lock(mutex_);
  return mode_;
}

AVAudioSessionCategoryOptions AVAudioSession::categoryOptions() const {
  const std::lock_guard lock(mutex_);
  return options_;
}

}  // namespace clipworks
