#pragma once

#include <filesystem>
#include <optional>

namespace clipworks::app {

/// Which codec new pictures get.
enum class CodecChoice {
  /// HEVC when the first input's pictures are HEVC, else H.264: what is already right is then copied.
  automatic,
  h264,
  hevc,
};

/// What holds for every command.
struct Options {
  /// Where results go; must exist.
  std::filesystem::path outputs = ".";
  /// Where intermediate files go; beside the results when not given.
  std::optional<std::filesystem::path> temp;
  /// Standard output holds JSON lines only.
  bool json = false;
  /// The library's own lines are shown.
  bool verbose = false;
  CodecChoice codec = CodecChoice::automatic;
  /// Damaged pictures are a failure.
  bool strict = false;
  /// Results carry no date, place and device of the recording.
  bool stripMetadata = false;
};

}  // namespace clipworks::app
