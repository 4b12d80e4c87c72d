#pragma once

#include <vector>

#include <clipworks/engine/pipeline/ExportJob.h>
#include <clipworks/media/base/NSError.h>
#include <clipworks/media/base/Result.h>
#include <clipworks/media/composition/AVMutableVideoComposition.h>
#include <clipworks/media/export/ExportPlan.h>
#include <clipworks/media/export/ExportPreset.h>

namespace clipworks {

/// Lays out what `videoComposition` draws, picture by picture, until `end`: which picture each layer shows, where it
/// lies, and how all of it is coded. `tracks` are those of pictures; one of them at least has a picture.
[[nodiscard]] Result<engine::PictureJob, NSError> planRendering(const std::vector<const ExportTrack*>& tracks,
                                                                const AVMutableVideoComposition& videoComposition,
                                                                const CMTime& end, const ExportPreset& preset);

}  // namespace clipworks
