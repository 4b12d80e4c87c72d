#pragma once

#include <filesystem>
#include <optional>
#include <string>
#include <string_view>

namespace clipworks::app {

/// A piece of narration as it stands on the command line: `AUDIO@S[:VOLUME]`.
struct PieceArgument {
  std::filesystem::path audio;
  /// When it starts in the video.
  double seconds = 0;
  /// The factor of its level.
  double volume = 1;

  /// Nothing when the text has another form, a number is none, or one is not finite. The last "@" counts, so that a
  /// path may hold some.
  [[nodiscard]] static std::optional<PieceArgument> parse(std::string_view text);
};

/// `text` as one word for a shell, quoted where it must be.
[[nodiscard]] std::string shellWord(std::string_view text);

}  // namespace clipworks::app
