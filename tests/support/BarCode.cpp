#include <tests/support/BarCode.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <string_view>
#include <utility>

namespace clipworks::test {

namespace {

constexpr std::string_view firstRow = "##.#...#";
constexpr std::string_view lastRow = ".#.###..";
/// Least difference of white and black, of 255, that counts as a code.
constexpr double leastContrast = 24;
/// How near to black or white a cell must be, as a share of their difference. A blend of two pictures is at a half.
constexpr double tolerance = 0.3;

constexpr std::size_t cellCount = std::size_t{BarCode::columns} * BarCode::rows;
/// What each cell shows, row by row.
using Cells = std::array<double, cellCount>;

std::uint32_t crc8(std::uint32_t number) {
  std::uint32_t crc = 0xA5;  // not 0, so that number 0 is not all black
  for (const std::uint32_t byte : {number >> 8, number & 0xFF}) {
    crc ^= byte;
    for (int bit = 0; bit < 8; ++bit) crc = (crc & 0x80) != 0 ? ((crc << 1) ^ 0x07) & 0xFF : crc << 1;
  }
  return crc;
}

/// Where the point (u, v) of the upright picture is seen; all in 0 … 1.
std::pair<double, double> seenAt(double u, double v, const Orientation& orientation) {
  if (orientation.mirrored) u = 1 - u;
  for (int i = 0; i < orientation.quarterTurns; ++i) {
    u = std::exchange(v, u);  // (u, v) becomes (1 - v, u)
    u = 1 - u;
  }
  return {u, v};
}

/// Mean of the inner half of a cell, at as many points however large it is: its edges are smeared by scaling and by the
/// codec.
double meanOfCell(const GreyPicture& picture, int column, int row, const Orientation& orientation) {
  constexpr int points = 5;  // each way
  const auto place = [](int cell, int point, int cells) {
    return BarCode::panelStart + BarCode::panelLength * (cell + 0.25 + 0.5 * (point + 0.5) / points) / cells;
  };
  double sum = 0;
  for (int i = 0; i < points * points; ++i) {
    const auto [x, y] =
        seenAt(place(column, i % points, BarCode::columns), place(row, i / points, BarCode::rows), orientation);
    sum += picture.at(static_cast<int>(x * picture.width), static_cast<int>(y * picture.height));
  }
  return sum / (points * points);
}

std::optional<int> numberOf(const Cells& cells) {
  const auto isWhite = [](int number, std::size_t cell) {
    return BarCode::isWhite(number, static_cast<int>(cell) % BarCode::columns,
                            static_cast<int>(cell) / BarCode::columns);
  };
  // The first and last rows show the levels, the rows between the number and its check.
  constexpr std::size_t first = BarCode::columns;
  constexpr std::size_t last = cellCount - BarCode::columns;
  std::array<double, 2> sums{};
  std::array<int, 2> counts{};
  std::uint32_t bits = 0;
  for (std::size_t i = 0; i < cells.size(); ++i) {
    if (i >= first && i < last) continue;
    sums.at(isWhite(0, i)) += cells.at(i);
    ++counts.at(isWhite(0, i));
  }
  const double black = sums[0] / counts[0];
  const double contrast = sums[1] / counts[1] - black;
  if (contrast < leastContrast) return std::nullopt;
  for (std::size_t i = first; i < last; ++i) bits = bits << 1 | (cells.at(i) > black + contrast / 2 ? 1U : 0U);
  const int number = static_cast<int>(bits >> 8);
  for (std::size_t i = 0; i < cells.size(); ++i) {
    const double level = (cells.at(i) - black) / contrast;
    if ((isWhite(number, i) ? 1 - level : level) > tolerance) return std::nullopt;
  }
  return number;
}

}  // namespace

bool BarCode::isWhite(int number, int column, int row) {
  if (row == 0 || row == rows - 1) return (row == 0 ? firstRow : lastRow)[static_cast<std::size_t>(column)] == '#';
  const auto value = static_cast<std::uint32_t>(number);
  const std::uint32_t bits = value << 8 | crc8(value);
  return (bits >> (3 * columns - 1 - ((row - 1) * columns + column)) & 1) != 0;
}

std::optional<BarCode> BarCode::read(const GreyPicture& picture) {
  for (const bool mirrored : {false, true}) {
    for (int turns = 0; turns < 4; ++turns) {
      const Orientation orientation{mirrored, turns};
      Cells cells{};
      for (int i = 0; i < columns * rows; ++i) {
        cells.at(static_cast<std::size_t>(i)) = meanOfCell(picture, i % columns, i / columns, orientation);
      }
      if (const std::optional<int> number = numberOf(cells)) return BarCode{*number, orientation};
    }
  }
  return std::nullopt;
}

}  // namespace clipworks::test
