#include <clipworks/engine/pictures/PlanarFromBGRA.h>

#include <libyuv/planar_functions.h>

#include <cmath>
#include <vector>

#include <clipworks/engine/pictures/FramePadding.h>
#include <clipworks/engine/pictures/LumaWeights.h>

namespace clipworks::engine {
namespace {

// All arithmetic is in 16 bits without sign, 8 of them behind the point: compilers turn the loops into vector code for
// every processor of the family.
constexpr double one = 65536.0;
constexpr int fractionBits = 8;

std::uint16_t fixed(double share) { return static_cast<std::uint16_t>(std::lround(share * one)); }

// `share` of `value`, an 8-bit level with 8 bits behind the point.
inline std::uint16_t part(std::uint16_t value, std::uint16_t share) {
  return static_cast<std::uint16_t>((static_cast<std::uint32_t>(value) * share) >> 16);
}

/// Shares of red, green and blue in luma, and in the two differences: ITU-T H.273, 8.3, equations 38 to 43.
struct Shares {
  std::uint16_t redY, greenY, blueY;
  std::uint16_t redU, greenU;   // taken off
  std::uint16_t greenV, blueV;  // taken off
  std::uint16_t own;            // of blue in U, of red in V
  std::uint16_t black;          // of luma, with the half level that rounds
};

Shares sharesOf(const Colour& colour) {
  const auto [red, blue] = lumaWeights(colour.matrix);
  const double green = 1 - red - blue;
  const double luma = colour.fullRange ? 1.0 : 219.0 / 255;
  const double chroma = (colour.fullRange ? 1.0 : 224.0 / 255) / 2;
  Shares s{};
  s.redY = fixed(red * luma);
  s.greenY = fixed(green * luma);
  s.blueY = fixed(blue * luma);
  s.redU = fixed(chroma * red / (1 - blue));
  s.greenU = fixed(chroma * green / (1 - blue));
  s.greenV = fixed(chroma * green / (1 - red));
  s.blueV = fixed(chroma * blue / (1 - red));
  s.own = fixed(chroma);
  s.black = static_cast<std::uint16_t>(((colour.fullRange ? 0 : 16) << fractionBits) + (1 << (fractionBits - 1)));
  return s;
}

/// Two rows of each colour, side by side in memory.
struct RowPair {
  explicit RowPair(int width) : stride(width), red(size()), green(size()), blue(size()) {}
  [[nodiscard]] std::size_t size() const { return 2 * static_cast<std::size_t>(stride); }

  int stride;
  std::vector<std::uint8_t> red, green, blue;
};

void lumaRow(const std::uint8_t* __restrict red, const std::uint8_t* __restrict green,
             const std::uint8_t* __restrict blue, std::uint8_t* __restrict luma, int width, const Shares& s) {
  for (int x = 0; x < width; ++x) {
    const auto r = static_cast<std::uint16_t>(red[x] << fractionBits);
    const auto g = static_cast<std::uint16_t>(green[x] << fractionBits);
    const auto b = static_cast<std::uint16_t>(blue[x] << fractionBits);
    const auto y = static_cast<std::uint16_t>(part(r, s.redY) + part(g, s.greenY) + part(b, s.blueY) + s.black);
    luma[x] = static_cast<std::uint8_t>(y >> fractionBits);
  }
}

/// The mean of two by two pixels, 8 bits behind the point.
inline std::uint16_t mean(const std::uint8_t* upper, const std::uint8_t* lower, int x) {
  const int sum = upper[2 * x] + upper[2 * x + 1] + lower[2 * x] + lower[2 * x + 1];
  return static_cast<std::uint16_t>(sum << (fractionBits - 2));
}

void chromaRow(const RowPair& rows, std::uint8_t* __restrict u, std::uint8_t* __restrict v, int width,
               const Shares& s) {
  // One 256th less than half a level: the largest difference must not run over.
  constexpr std::uint16_t middle = (128 << fractionBits) + (1 << (fractionBits - 1)) - 1;
  const std::uint8_t* red = rows.red.data();
  const std::uint8_t* green = rows.green.data();
  const std::uint8_t* blue = rows.blue.data();
  for (int x = 0; x < width; ++x) {
    const std::uint16_t r = mean(red, red + rows.stride, x);
    const std::uint16_t g = mean(green, green + rows.stride, x);
    const std::uint16_t b = mean(blue, blue + rows.stride, x);
    const auto first = static_cast<std::uint16_t>(middle + part(b, s.own) - part(r, s.redU) - part(g, s.greenU));
    const auto second = static_cast<std::uint16_t>(middle + part(r, s.own) - part(g, s.greenV) - part(b, s.blueV));
    u[x] = static_cast<std::uint8_t>(first >> fractionBits);
    v[x] = static_cast<std::uint8_t>(second >> fractionBits);
  }
}

void repeatLastColumn(RowPair& rows, int width) {
  if (width == rows.stride) return;
  for (auto* colour : {&rows.red, &rows.green, &rows.blue}) {
    for (int row = 0; row < 2; ++row) {
      const std::size_t last = static_cast<std::size_t>(row * rows.stride + width - 1);
      (*colour)[last + 1] = (*colour)[last];
    }
  }
}

}  // namespace

Expected<Frame> planarFromBGRA(const std::uint8_t* bgra, std::ptrdiff_t bytesPerRow, int width, int height,
                               const Colour& colour) {
  const int evenWidth = width + width % 2;
  const int evenHeight = height + height % 2;
  auto frame = allocateFrame(evenWidth, evenHeight, AV_PIX_FMT_YUV420P);
  if (!frame) return frame;
  const Shares shares = sharesOf(colour);
  RowPair rows(evenWidth);
  for (int y = 0; y < evenHeight; y += 2) {
    const std::ptrdiff_t toLower = y + 1 < height ? bytesPerRow : 0;
    libyuv::SplitARGBPlane(bgra + y * bytesPerRow, static_cast<int>(toLower), rows.red.data(), rows.stride,
                           rows.green.data(), rows.stride, rows.blue.data(), rows.stride, nullptr, 0, width, 2);
    repeatLastColumn(rows, width);
    for (int row = 0; row < 2; ++row) {
      const std::ptrdiff_t at = row * rows.stride;
      lumaRow(rows.red.data() + at, rows.green.data() + at, rows.blue.data() + at,
              (*frame)->data[0] + static_cast<std::ptrdiff_t>(y + row) * (*frame)->linesize[0], evenWidth, shares);
    }
    chromaRow(rows, (*frame)->data[1] + static_cast<std::ptrdiff_t>(y / 2) * (*frame)->linesize[1],
              (*frame)->data[2] + static_cast<std::ptrdiff_t>(y / 2) * (*frame)->linesize[2], evenWidth / 2, shares);
  }
  tag(**frame, colour);
  return frame;
}

}  // namespace clipworks::engine
