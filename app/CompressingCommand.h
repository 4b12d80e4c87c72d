#pragma once

#include <cstdint>
#include <filesystem>
#include <memory>
#include <optional>
#include <string>

#include <app/EditingCommand.h>
#include <clipworks/compressor/VideoCompressorUtils.h>

namespace clipworks::app {

/// A command that compresses to a preset.
class CompressingCommand : public EditingCommand {
 protected:
  /// Adds --preset and --bitrate.
  void addSettings(CLI::App& parser);
  /// Finds wrong use of them; before the two below.
  [[nodiscard]] Outcome parseSettings();
  [[nodiscard]] VideoCompressorUtils::Parameters parameters() const {
    return VideoCompressorUtils::Parameters(*preset_, bitRate_);
  }
  /// Fails in words when `file` cannot be read, has no pictures, or has a shape that the preset's height has no width
  /// for, which the library does not survive.
  [[nodiscard]] Outcome checkVideo(const std::filesystem::path& file) const;

 private:
  std::string presetName_;
  std::optional<std::string> bitRateText_;
  std::shared_ptr<const VideoCompressorPreset> preset_;
  std::optional<std::int64_t> bitRate_;
};

}  // namespace clipworks::app
