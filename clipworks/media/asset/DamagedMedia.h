#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include <clipworks/media/base/Export.h>

namespace clipworks {

namespace engine {
class DamagedPictures;
}

/// A file some of whose pictures could not be decoded whole; they were shown as far as they could, or the one before
/// them in their place.
struct CLIPWORKS_API DamagedMedia {
  std::string fileName;       ///< without its folder
  std::int64_t pictures = 0;  ///< how many different ones of those that were shown

  /// "3 pictures of clip.mp4 are damaged".
  [[nodiscard]] std::string sentence() const;
};

/// The same for a count of the engine's. Within the platform only.
[[nodiscard]] std::vector<DamagedMedia> damagedMediaIn(const engine::DamagedPictures& counted);

}  // namespace clipworks
