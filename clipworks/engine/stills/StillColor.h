#pragma once

#include <cstdint>
#include <vector>

#include <clipworks/engine/Error.h>
#include <clipworks/engine/Handles.h>

namespace clipworks::engine {

/// Whose red, green and blue a still's pixels mean.
///
/// All stills are read as sRGB would be. The curve of video (BT.709's) is not converted to that of sRGB: players show
/// video that way, and a still shall look like its video. Where a video tells that its primaries are BT.601's, the
/// still has been given BT.709's by `StillMaker`; where they are unspecified, they count as BT.709's. Wider primaries
/// keep their numbers and get a profile, so that nothing is clipped and every colour is right.
enum class StillGamut { sRGB, displayP3, bt2020 };

[[nodiscard]] StillGamut gamutOf(const AVFrame& frame);

/// The ICC profile (version 4) that a still's file needs: the picture's gamut with sRGB's curve, the same bytes every
/// time. Empty for sRGB.
[[nodiscard]] Expected<std::vector<std::uint8_t>> profileFor(const AVFrame& frame);

/// What the samples of a YUV picture mean, with nothing left open.
struct YUVMeaning {
  /// As in ITU-T H.273; one that this engine converts.
  AVColorSpace matrix = AVCOL_SPC_BT709;
  bool isFullRange = false;
  AVChromaLocation chromaLocation = AVCHROMA_LOC_LEFT;
};

/// Untagged pictures count as BT.709 from 720 lines on and as BT.601 below, in video range.
[[nodiscard]] YUVMeaning meaningOf(const AVFrame& frame);

}  // namespace clipworks::engine
