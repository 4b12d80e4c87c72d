#pragma once

#include <cstdint>
#include <string>

namespace clipworks::app {

/// "3 pictures of clip.mp4 are damaged".
[[nodiscard]] inline std::string damageSentence(const std::string& fileName, std::int64_t pictures) {
  return std::to_string(pictures) + (pictures == 1 ? " picture of " : " pictures of ") + fileName +
         (pictures == 1 ? " is damaged" : " are damaged");
}

}  // namespace clipworks::app
