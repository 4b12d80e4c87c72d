#pragma once

#include <algorithm>
#include <cmath>
#include <filesystem>
#include <future>
#include <limits>
#include <sstream>
#include <thread>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <clipworks/media/asset/AVAsset.h>
#include <clipworks/media/base/NSError.h>
#include <clipworks/media/base/Result.h>

#include <tests/support/BarCodeClip.h>
#include <tests/support/MediaJudge.h>
#include <tests/support/RunProgram.h>
#include <tests/support/TemporaryDirectory.h>

// What tests of the platform share, and the headers that most of them need.

namespace clipworks::test {

namespace fs = std::filesystem;

/// The longest that a test waits for anything; far more than is needed, for slow machines and sanitizers.
inline constexpr std::chrono::seconds patience{100};

/// Gives the processor away until `happened`; false when it has not in time.
[[nodiscard]] inline bool waitUntil(const std::function<bool()>& happened) {
  const auto end = std::chrono::steady_clock::now() + patience;
  while (!happened()) {
    if (std::chrono::steady_clock::now() > end) return false;
    std::this_thread::yield();
  }
  return true;
}

/// The names in a directory.
inline std::vector<std::string> filesIn(const fs::path& directory) {
  std::vector<std::string> names;
  for (const auto& entry : fs::directory_iterator(directory)) names.push_back(entry.path().filename());
  return names;
}
/// Writes a number over four bytes, the highest first, as boxes have them.
inline void putNumber(std::string& bytes, std::size_t at, std::uint32_t number) {
  for (const unsigned shift : {24U, 16U, 8U, 0U}) bytes.at(at++) = static_cast<char>(number >> shift & 0xFFU);
}

inline std::shared_ptr<AVAsset> assetAt(const fs::path& path, const InputLimits& limits = {}) {
  return AVAsset::make(URL(path), limits);
}
inline std::shared_ptr<AVAsset> assetOf(const ClipOptions& clip) { return assetAt(BarCodeClip(clip).path()); }

/// Runs a command; no word of it holds a space.
inline ProgramResult run(const std::string& command) {
  std::istringstream words(command);
  const ProgramResult result = runProgram({std::istream_iterator<std::string>(words), {}});
  EXPECT_TRUE(result.succeeded()) << result;
  return result;
}

/// The error in one line; empty where there is none.
inline std::string failureOf(const std::optional<NSError>& error) { return error ? error->description() : ""; }
template <class Value>
std::string failureOf(const Result<Value, NSError>& result) {
  return result ? "" : result.error().description();
}
/// Such a line of an error with this code.
inline auto hasCode(AVError code) {
  return testing::StartsWith("Error Domain=AVFoundationErrorDomain Code=" + std::to_string(static_cast<int>(code)) +
                             " ");
}

/// By how many milliseconds `got` is later; far too many where it is another sound.
inline double lagOf(const Sound& reference, const Sound& got, double reach = 60) {
  return lagMilliseconds(reference, got, reach).value_or(1e9);
}

/// The picture whose luma begins at `row`.
inline GreyPicture greyOf(const std::uint8_t* row, std::size_t width, std::size_t height, std::size_t bytesPerRow) {
  GreyPicture grey{static_cast<int>(width), static_cast<int>(height), {}};
  for (std::size_t y = 0; y < height; ++y, row += bytesPerRow) {
    grey.pixels.insert(grey.pixels.end(), row, row + width);
  }
  return grey;
}

}  // namespace clipworks::test
