#pragma once

#include <clipworks/engine/output/SoundEncoder.h>
#include <clipworks/engine/pipeline/PictureEncoding.h>
#include <clipworks/media/base/NSError.h>
#include <clipworks/media/base/Result.h>
#include <clipworks/media/base/SettingsDictionary.h>
#include <clipworks/media/samples/CMFormatDescription.h>

namespace clipworks {

/// What an input's settings ask of the encoder; a sentence when that is not written here.
[[nodiscard]] Result<engine::PictureEncodingSettings, NSError> pictureSettings(const SettingsDictionary& settings);

/// The same for sound. Rate and channels that the settings do not name are those of `hint`, which may be null.
[[nodiscard]] Result<engine::SoundEncoderSettings, NSError> soundSettings(const SettingsDictionary& settings,
                                                                          const CMFormatDescription* hint);

}  // namespace clipworks
