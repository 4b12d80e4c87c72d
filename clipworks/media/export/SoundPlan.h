#pragma once

#include <optional>
#include <string>
#include <vector>

#include <clipworks/engine/pipeline/ExportJob.h>
#include <clipworks/media/base/NSError.h>
#include <clipworks/media/base/Result.h>
#include <clipworks/media/export/ExportPlan.h>
#include <clipworks/media/export/ExportPreset.h>

namespace clipworks {

/// Notes in `track`, which has the identifier `trackID` in its asset, how loud `audioMix` wants it.
void applyAudioMix(const AVMutableAudioMix& audioMix, CMPersistentTrackID trackID, ExportTrack& track);

/// Lays the sound of all tracks out as one track of the file: what plays when, to the sample, at which rate, and
/// whether it can stay coded as it is. Nothing for tracks without sound.
[[nodiscard]] Result<std::optional<engine::SoundJob>, NSError> planSound(const std::vector<const ExportTrack*>& tracks,
                                                                         const ExportPreset& preset);

}  // namespace clipworks
