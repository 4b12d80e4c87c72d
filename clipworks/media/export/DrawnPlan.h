#pragma once

#include <optional>

#include <clipworks/engine/pipeline/ExportJob.h>
#include <clipworks/media/base/NSError.h>
#include <clipworks/media/base/Result.h>
#include <clipworks/media/export/ExportPlan.h>
#include <clipworks/media/export/ExportPreset.h>
#include <clipworks/media/geometry/CGRect.h>

namespace clipworks {

/// Where a picture of `natural` size lies once `turn` has been applied to it.
[[nodiscard]] CGRect boxOf(const CGSize& natural, const CGAffineTransform& turn);

[[nodiscard]] CGSize naturalSizeOf(const MediaTrack& media);

/// From the natural size of a track to what is seen of it under `transform`, with its corner at zero.
[[nodiscard]] CGAffineTransform seenOf(const MediaTrack& media, const CGAffineTransform& transform);

/// Whether pictures that are drawn fill their canvas just as `transform`, the one of their file, shows them.
[[nodiscard]] bool isShownAsRecorded(const MediaSegment& segment, const CGAffineTransform& transform,
                                     const CGSize& canvas);

/// `track` with its pictures upright on a canvas of `size`.
[[nodiscard]] ExportTrack fitted(const ExportTrack& track, const ExportPreset::FixedSize& size);

/// Lays out the pictures of a track that has a canvas for `preset`, which names a codec: each at its own time, drawn as
/// its segment's place says, or copied where that would leave it as it is, but for a turn that the header can have, and
/// `chooseCopies` can. Nothing for a track without a picture.
[[nodiscard]] Result<std::optional<engine::PictureJob>, NSError> planDrawn(const ExportTrack& track,
                                                                           const ExportPreset& preset);

}  // namespace clipworks
