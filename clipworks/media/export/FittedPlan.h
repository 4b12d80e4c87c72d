#pragma once

#include <optional>

#include <clipworks/engine/pipeline/ExportJob.h>
#include <clipworks/media/base/NSError.h>
#include <clipworks/media/base/Result.h>
#include <clipworks/media/export/ExportPlan.h>
#include <clipworks/media/export/ExportPreset.h>

namespace clipworks {

/// Lays out the pictures of a track for `preset`, which names a codec and a fixed size: each at its own time, drawn
/// upright onto one of that size. Nothing for a track without a picture.
[[nodiscard]] Result<std::optional<engine::PictureJob>, NSError> planFitted(const ExportTrack& track,
                                                                            const ExportPreset& preset);

}  // namespace clipworks
