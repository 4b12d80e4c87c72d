#include <clipworks/media/export/ExportPreset.h>

#include <clipworks/media/export/AVAssetExportSession.h>

namespace clipworks {

std::optional<ExportPreset> exportPreset(std::string_view presetName) {
  ExportPreset preset;
  if (presetName == AVAssetExportPresetHighestQuality) {
    preset.videoCodec = engine::VideoCodec::h264;
    preset.quality = 18;
    preset.speed = "veryfast";
    return preset;
  }
  if (presetName == AVAssetExportPresetHEVCHighestQuality) {
    preset.videoCodec = engine::VideoCodec::hevc;
    preset.quality = 20;
    preset.speed = "veryfast";
    return preset;
  }
  if (presetName == AVAssetExportPresetLowQuality) {
    preset.videoCodec = engine::VideoCodec::h264;
    preset.keepsCodedPictures = false;
    preset.largestSide = 480;
    preset.videoBitRate = 400'000;
    preset.speed = "medium";
    preset.soundBitRatePerChannel = 64'000;
    return preset;
  }
  if (presetName == AVAssetExportPresetPassthrough) return preset;
  return std::nullopt;
}

}  // namespace clipworks
