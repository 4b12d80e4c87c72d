#pragma once

#include <cstdint>
#include <map>
#include <utility>
#include <vector>

#include <clipworks/engine/FFmpeg.h>

namespace clipworks::engine {

/// What the description of a track says of the light of its pictures, by FFmpeg's kinds and in its structures.
using HDRMetadata = std::map<AVPacketSideDataType, std::vector<std::uint8_t>>;

/// Those that hold for every picture, and hold on when it is encoded anew: what a track calls them, and a picture.
inline constexpr std::pair<AVPacketSideDataType, AVFrameSideDataType> masteringKinds[] = {
    {AV_PKT_DATA_MASTERING_DISPLAY_METADATA, AV_FRAME_DATA_MASTERING_DISPLAY_METADATA},
    {AV_PKT_DATA_CONTENT_LIGHT_LEVEL, AV_FRAME_DATA_CONTENT_LIGHT_LEVEL}};

}  // namespace clipworks::engine
