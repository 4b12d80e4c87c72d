#pragma once

#include <map>
#include <string>

#include <clipworks/engine/Handles.h>

namespace clipworks::engine {

/// A picture taken out of its video: upright, whole, of standard dynamic range. Planar 8-bit YUV of any chroma layout,
/// or packed BGRA where it was made from such bytes. The frame carries its colour tags (primaries, transfer, matrix,
/// range, chroma position); unknown ones are filled in as for video of its size. Immutable once shared.
struct StillImage {
  Frame frame;
  /// What the recording says of itself (date, place, device), by the container's own keys; may be empty.
  std::map<std::string, std::string> metadata{};
  /// Its tones lie between its levels, mixed of two of them: what it is coded with has to keep the finest pattern.
  bool isDithered = false;
};

}  // namespace clipworks::engine
