#pragma once

#include <clipworks/media/asset/AVAssetTrack.h>
#include <clipworks/media/base/URL.h>
#include <clipworks/media/geometry/CGAffineTransform.h>
#include <clipworks/media/geometry/CGRect.h>
#include <clipworks/media/geometry/CGSize.h>

namespace clipworks {

/// The track's natural size under its preferred transform, with its signs: a quarter turn makes one side negative.
[[nodiscard]] CGSize displayedSize(const AVAssetTrack& track);

/// `isPortrait(video:)`: whether the video, as it is shown, is higher than wide; a square is not. Opens the file anew.
/// Aborts for a file without pictures.
[[nodiscard]] bool isPortrait(const URL& video);

/// `getCropTransform(for:rect:scale:)`: turns the track upright and moves the corner of `rect`, in units of `scale`
/// pixels, to the corner of the output. The rectangle's size does not count. Prints five lines about it.
[[nodiscard]] CGAffineTransform getCropTransform(const AVAssetTrack& track, const CGRect& rect, double scale);

}  // namespace clipworks
