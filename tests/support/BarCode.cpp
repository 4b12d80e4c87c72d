#include <tests/support/BarCode.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <ostream>
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

using Cells = std::array<std::array<double, BarCode::columns>, BarCode::rows>;

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

/// Mean of the inner half of a cell: its edges are smeared by scaling and by the codec.
double meanOfCell(const GreyPicture& picture, int column, int row, const Orientation& orientation) {
  const auto point = [&](double inset) {
    return seenAt(BarCode::panelStart + BarCode::panelLength * (column + inset) / BarCode::columns,
                  BarCode::panelStart + BarCode::panelLength * (row + inset) / BarCode::rows, orientation);
  };
  auto [x0, y0] = point(0.25);
  auto [x1, y1] = point(0.75);
  const auto range = [](double a, double b, int size) {
    const int from = static_cast<int>(std::lround(std::min(a, b) * size));
    const int to = static_cast<int>(std::lround(std::max(a, b) * size));
    return std::pair{std::min(from, size - 1), std::min(std::max(to, from + 1), size)};
  };
  const auto [left, right] = range(x0, x1, picture.width);
  const auto [top, bottom] = range(y0, y1, picture.height);
  double sum = 0;
  for (int y = top; y < bottom; ++y) {
    for (int x = left; x < right; ++x) sum += picture.at(x, y);
  }
  return sum / ((right - left) * (bottom - top));
}

/// Scales the cells so that black is 0 and white is 1; false when the first and last rows show no such levels.
bool level(Cells& cells) {
  double white = 0;
  double black = 0;
  int whites = 0;
  for (const int row : {0, BarCode::rows - 1}) {
    for (std::size_t column = 0; column < BarCode::columns; ++column) {
      const bool isWhite = BarCode::isWhite(0, static_cast<int>(column), row);
      (isWhite ? white : black) += cells[static_cast<std::size_t>(row)][column];
      whites += isWhite ? 1 : 0;
    }
  }
  white /= whites;
  black /= 2 * BarCode::columns - whites;
  if (white - black < leastContrast) return false;
  for (auto& row : cells) {
    for (double& cell : row) cell = (cell - black) / (white - black);
  }
  return true;
}

std::optional<int> numberOf(const Cells& cells) {
  std::uint32_t bits = 0;
  for (std::size_t row = 1; row + 1 < BarCode::rows; ++row) {
    for (const double cell : cells[row]) bits = bits << 1 | (cell > 0.5 ? 1U : 0U);
  }
  const std::uint32_t number = bits >> 8;
  for (std::size_t row = 0; row < BarCode::rows; ++row) {
    for (std::size_t column = 0; column < BarCode::columns; ++column) {
      const bool white = BarCode::isWhite(static_cast<int>(number), static_cast<int>(column), static_cast<int>(row));
      const double distance = white ? 1 - cells[row][column] : cells[row][column];
      if (distance > tolerance) return std::nullopt;
    }
  }
  return static_cast<int>(number);
}

}  // namespace

std::ostream& operator<<(std::ostream& out, const Orientation& orientation) {
  return out << (orientation.mirrored ? "mirrored, " : "") << "turned " << 90 * orientation.quarterTurns << " degrees";
}

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
      for (std::size_t row = 0; row < rows; ++row) {
        for (std::size_t column = 0; column < columns; ++column) {
          cells[row][column] = meanOfCell(picture, static_cast<int>(column), static_cast<int>(row), orientation);
        }
      }
      if (!level(cells)) continue;
      if (const std::optional<int> number = numberOf(cells)) return BarCode{*number, orientation};
    }
  }
  return std::nullopt;
}

}  // namespace clipworks::test
