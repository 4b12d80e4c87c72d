#pragma once

#include <compare>
#include <cstdint>

#include <clipworks/engine/Limits.h>

namespace clipworks::engine {

/// What of a file the engine lets in. Beyond `limits::maxPixels` it lets in nothing, whatever is said here.
struct InputLimits {
  std::int64_t mostPixels = limits::maxPixels;  ///< coded width × height of a track's pictures
  bool takesAnyCodec = false;                   ///< decodes what is not in the table of KnownFormats.cpp, too

  auto operator<=>(const InputLimits&) const = default;
};

}  // namespace clipworks::engine
