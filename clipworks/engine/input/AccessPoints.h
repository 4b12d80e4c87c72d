#pragma once

#include <cstdint>

#include <clipworks/engine/FFmpeg.h>

namespace clipworks::engine {

/// Whether a coded access point in the file's own form (lengths before its units) lets nothing after it refer to what
/// comes before: an IDR picture of H.264 or HEVC (ITU-T H.264, 7.4.1.2.4; H.265, 7.4.2.2). Of other codecs every access
/// point does.
[[nodiscard]] bool isClosedAccessPoint(const AVPacket& packet, const AVCodecParameters& parameters);

}  // namespace clipworks::engine
