#pragma once

#include <clipworks/compressor/VideoCompressorUtils.h>
#include <clipworks/media/asset/AVAsset.h>
#include <clipworks/media/base/SettingsDictionary.h>

namespace clipworks {

/// What an exporter is told about the pictures of `asset`: H.264 High of the preset's height, of the width that keeps
/// the displayed shape (the preset's own without pictures; odd ones stay), at the asked bit rate. Aborts when the width
/// is not finite or beyond 64 bits, or the bit rate is.
[[nodiscard]] SettingsDictionary videoOutputConfiguration(const AVAsset& asset,
                                                          const VideoCompressorUtils::Parameters& parameters);

/// What it is told about the sound: stereo AAC at 44,100 Hz and 128 kb/s.
[[nodiscard]] SettingsDictionary audioOutputConfiguration();

}  // namespace clipworks
