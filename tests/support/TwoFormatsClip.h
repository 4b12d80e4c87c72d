#pragma once

#include <filesystem>

namespace clipworks::test {

/// An MP4 file whose one track of H.264 has two sample descriptions: 12 pictures of 256 × 128 from a white clip, then
/// 12 of 128 × 128 from a red one, 25 a second, an access point every 6. Made once a process. Throws with ffmpeg's
/// words.
[[nodiscard]] std::filesystem::path twoFormatsClip();

}  // namespace clipworks::test
