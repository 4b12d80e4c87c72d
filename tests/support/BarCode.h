#pragma once

#include <cstdint>
#include <optional>
#include <vector>

namespace clipworks::test {

/// A picture in shades of grey, rows from the top.
struct GreyPicture {
  int width = 0;
  int height = 0;
  std::vector<std::uint8_t> pixels;

  [[nodiscard]] std::uint8_t at(int x, int y) const {
    return pixels[static_cast<std::size_t>(y) * static_cast<std::size_t>(width) + static_cast<std::size_t>(x)];
  }
};

/// How a picture is seen: mirrored left to right or not, then turned clockwise.
struct Orientation {
  bool mirrored = false;
  int quarterTurns = 0;

  friend bool operator==(const Orientation&, const Orientation&) = default;
};

/// The number of a picture, painted on it: a panel over the middle 80 % of the picture, 8 cells wide and 5 high, black
/// and white. The first and last rows are the same in every picture and unlike each other both ways round, so they tell
/// black, white and the orientation; the rows between hold the number (16 bits) and a check (CRC-8).
struct BarCode {
  static constexpr int columns = 8;
  static constexpr int rows = 5;
  static constexpr int numbers = 65'536;
  static constexpr double panelStart = 0.1;
  static constexpr double panelLength = 0.8;

  int number = 0;
  Orientation orientation;

  /// Whether cell (`column`, `row`) of the code for `number` is white.
  [[nodiscard]] static bool isWhite(int number, int column, int row);

  /// The code on a picture of any size and shape, in any of the eight orientations; nothing when there is none, when
  /// two pictures are blended, or when a part is missing.
  [[nodiscard]] static std::optional<BarCode> read(const GreyPicture& picture);
};

}  // namespace clipworks::test
