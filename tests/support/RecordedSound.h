#pragma once

#include <cstdint>
#include <filesystem>
#include <vector>

namespace clipworks::test {

/// The first channel of a recording's 16-bit samples, read by the `ffmpeg` program. Throws with its words when it
/// cannot.
[[nodiscard]] std::vector<std::int16_t> recordedSamples(const std::filesystem::path& file);

/// Where a sound begins after silence of a tenth of a second or more, or at the start: frames.
[[nodiscard]] std::vector<std::int64_t> onsetsIn(const std::vector<std::int16_t>& samples, int sampleRate);

}  // namespace clipworks::test
