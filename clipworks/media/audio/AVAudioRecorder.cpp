#include <clipworks/media/audio/AVAudioRecorder.h>

#include <unistd.h>

#include <cerrno>
#include <cstdint>
#include <filesystem>
#include <optional>
#include <string>
#include <string_view>
#include <utility>

#include <clipworks/media/audio/MicrophoneRecorder.h>
#include <clipworks/media/base/SettingsKeys.h>

namespace clipworks {
namespace {

constexpr int leastRate = 8'000;
constexpr int mostRate = 192'000;

auto refused(const std::string& what) {
  return failure(makeError(AVError::operationNotSupportedForAsset, "a recording cannot have " + what));
}

std::optional<std::int64_t> integerOf(const SettingsDictionary& settings, std::string_view key,
                                      std::int64_t otherwise) {
  const SettingsValue* value = settings.find(key);
  return value == nullptr ? otherwise : value->integer();
}

/// The form of the sound that the settings ask for, or why it cannot be recorded.
Result<engine::PcmFormat, NSError> formatOf(const SettingsDictionary& settings) {
  if (integerOf(settings, AVFormatIDKey, kAudioFormatLinearPCM) != kAudioFormatLinearPCM) {
    return refused("another coding than linear PCM");
  }
  if (integerOf(settings, AVLinearPCMBitDepthKey, 16) != 16) return refused("another bit depth than 16");
  for (const char* key : {AVLinearPCMIsBigEndianKey, AVLinearPCMIsFloatKey}) {
    if (integerOf(settings, key, 0) != 0) return refused(std::string(key) + " set");
  }
  const auto rate = integerOf(settings, AVSampleRateKey, 44'100);
  if (!rate || *rate < leastRate || *rate > mostRate) return refused("that sample rate");
  const auto channels = integerOf(settings, AVNumberOfChannelsKey, 2);
  if (!channels || *channels < 1 || *channels > 2) return refused("that count of channels");
  return engine::PcmFormat{static_cast<int>(*rate), static_cast<int>(*channels)};
}

}  // namespace

Result<std::shared_ptr<AVAudioRecorder>, NSError> AVAudioRecorder::make(URL url, SettingsDictionary settings) {
  const auto format = formatOf(settings);
  if (!format) return failure(format.error());
  const auto& path = url.path();
  const std::filesystem::path directory = path.has_parent_path() ? path.parent_path() : std::filesystem::path(".");
  std::error_code unknown;
  if (!std::filesystem::is_directory(directory, unknown)) {
    return failure(makePosixError(ENOTDIR, "nothing can be recorded to " + directory.string()));
  }
  if (::access(directory.c_str(), W_OK | X_OK) != 0) {
    return failure(makePosixError(errno, "nothing can be recorded to " + directory.string()));
  }
  return std::make_shared<MicrophoneRecorder>(std::move(url), std::move(settings), *format);
}

}  // namespace clipworks
