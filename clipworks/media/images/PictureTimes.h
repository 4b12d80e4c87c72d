#pragma once

#include <memory>
#include <vector>

#include <clipworks/media/asset/AVAsset.h>
#include <clipworks/media/base/Export.h>
#include <clipworks/media/base/NSError.h>
#include <clipworks/media/base/Result.h>
#include <clipworks/media/time/CMTime.h>

namespace clipworks {

/// When each picture of the asset's first track of pictures comes on screen, exactly and in order: asked for one of
/// these times, `AVAssetImageGenerator` gives that very picture, also where the rate varies. Nothing is decoded.
/// Fails when the asset has no pictures, or they cannot be listed. Any thread.
[[nodiscard]] CLIPWORKS_API Result<std::vector<CMTime>, NSError> pictureTimes(const AVAsset& asset);

}  // namespace clipworks
