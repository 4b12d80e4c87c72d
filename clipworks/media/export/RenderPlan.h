#pragma once

#include <vector>

#include <clipworks/engine/pipeline/ExportJob.h>
#include <clipworks/media/asset/MediaTrack.h>
#include <clipworks/media/base/NSError.h>
#include <clipworks/media/base/Result.h>
#include <clipworks/media/composition/AVMutableVideoComposition.h>
#include <clipworks/media/export/ExportPlan.h>
#include <clipworks/media/export/ExportPreset.h>

namespace clipworks {

/// From the decoded picture of `media` to a canvas: what is shown of it to its natural size first, then as `layer`,
/// which maps points of the natural size, says.
[[nodiscard]] engine::AffineMap mapToCanvas(const MediaTrack& media, const CGAffineTransform& layer);

/// Lays out what `videoComposition` draws, picture by picture, until `end`: which picture each layer shows, where it
/// lies, and how all of it is coded. `tracks` are those of pictures; one of them at least has a picture.
[[nodiscard]] Result<engine::PictureJob, NSError> planRendering(const std::vector<const ExportTrack*>& tracks,
                                                                const AVMutableVideoComposition& videoComposition,
                                                                const CMTime& end, const ExportPreset& preset);

}  // namespace clipworks
