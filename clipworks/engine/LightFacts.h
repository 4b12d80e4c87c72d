#pragma once

#include <cstdint>
#include <map>
#include <vector>

#include <clipworks/engine/FFmpeg.h>

namespace clipworks::engine {

/// What the description of a track says of the light of its pictures, by FFmpeg's kinds and in its structures.
using LightFacts = std::map<AVPacketSideDataType, std::vector<std::uint8_t>>;

}  // namespace clipworks::engine
