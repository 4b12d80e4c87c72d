#pragma once

#include <cstdint>
#include <cstring>
#include <filesystem>
#include <stdexcept>
#include <vector>

#include <tests/support/RunProgram.h>

namespace clipworks::test {

/// The first channel of a recording's 16-bit samples, read by the `ffmpeg` program. Throws with its words when it
/// cannot.
[[nodiscard]] inline std::vector<std::int16_t> recordedSamples(const std::filesystem::path& file) {
  const auto result = runProgram({"ffmpeg", "-v", "error", "-i", file, "-af", "pan=mono|c0=c0", "-f", "s16le", "-"});
  if (!result.succeeded()) throw std::runtime_error(result.standardError);
  std::vector<std::int16_t> samples(result.standardOutput.size() / sizeof(std::int16_t));
  std::memcpy(samples.data(), result.standardOutput.data(), samples.size() * sizeof(std::int16_t));
  return samples;
}

/// Where a sound begins after silence of a tenth of a second or more, or at the start: frames.
[[nodiscard]] inline std::vector<std::int64_t> onsetsIn(const std::vector<std::int16_t>& samples, int sampleRate) {
  std::vector<std::int64_t> onsets;
  std::int64_t lastSound = -sampleRate;
  for (std::int64_t frame = 0; frame < std::ssize(samples); ++frame) {
    if (samples[static_cast<std::size_t>(frame)] == 0) continue;
    if (frame - lastSound > sampleRate / 10) onsets.push_back(frame);
    lastSound = frame;
  }
  return onsets;
}

}  // namespace clipworks::test
