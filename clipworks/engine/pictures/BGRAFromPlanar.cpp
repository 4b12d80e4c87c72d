#include <clipworks/engine/pictures/BGRAFromPlanar.h>

#include <libyuv/planar_functions.h>

#include <algorithm>
#include <cmath>
#include <vector>

#include <clipworks/engine/pictures/LumaWeights.h>

namespace clipworks::engine {
namespace {

// All arithmetic is in 16 bits, 5 of them behind the point: compilers turn the loops into vector code for every
// processor of the family, and the sum of the largest luma and the largest difference still fits.
constexpr int fractionBits = 5;
constexpr std::int16_t half = 1 << (fractionBits - 1);

/// Factors of luma and of the two differences (ITU-T H.273, 8.3, solved for red, green and blue), scaled for `product`.
struct Factors {
  std::int16_t luma;
  std::int16_t redV;
  std::int16_t greenU, greenV;  // taken off
  std::int16_t blueU;
  std::int16_t black;
};

// The higher half of the product.
inline std::int16_t product(std::int16_t a, std::int16_t b) {
  return static_cast<std::int16_t>((static_cast<std::int32_t>(a) * b) >> 16);
}

constexpr int lumaShift = 7;    // keeps 255 levels within 15 bits
constexpr int chromaShift = 8;  // and 128 each way within 16 with sign

Factors factorsOf(int matrix, bool fullRange) {
  const auto [red, blue] = lumaWeights(matrix);
  const double green = 1 - red - blue;
  const double luma = fullRange ? 1.0 : 255.0 / 219;
  const double chroma = (fullRange ? 1.0 : 255.0 / 224) * 2;
  const auto scaled = [](double factor, int shift) {
    return static_cast<std::int16_t>(std::lround(factor * (1 << (16 + fractionBits - shift))));
  };
  Factors f{};
  f.luma = scaled(luma, lumaShift);
  f.redV = scaled(chroma * (1 - red), chromaShift);
  f.greenU = scaled(chroma * (1 - blue) * blue / green, chromaShift);
  f.greenV = scaled(chroma * (1 - red) * red / green, chromaShift);
  f.blueU = scaled(chroma * (1 - blue), chromaShift);
  f.black = fullRange ? 0 : 16;
  return f;
}

/// What the chroma of a row adds to its luma, at the chroma's own spacing and then at the luma's.
struct Differences {
  explicit Differences(int width) : red(size(width)), green(size(width)), blue(size(width)) {}
  static std::size_t size(int width) { return static_cast<std::size_t>(width) + 1; }
  std::vector<std::int16_t> red, green, blue;
};

void differencesOf(const std::uint8_t* __restrict u, const std::uint8_t* __restrict v, int width, const Factors& f,
                   std::int16_t* __restrict red, std::int16_t* __restrict green, std::int16_t* __restrict blue) {
  for (int x = 0; x < width; ++x) {
    const auto first = static_cast<std::int16_t>((u[x] - 128) * (1 << chromaShift));
    const auto second = static_cast<std::int16_t>((v[x] - 128) * (1 << chromaShift));
    red[x] = product(second, f.redV);
    green[x] = static_cast<std::int16_t>(-product(first, f.greenU) - product(second, f.greenV));
    blue[x] = product(first, f.blueU);
  }
}

void repeated(const std::int16_t* __restrict from, std::int16_t* __restrict to, int width) {
  for (int x = 0; x < width; ++x) {
    to[2 * x] = from[x];
    to[2 * x + 1] = from[x];
  }
}

void addLuma(const std::uint8_t* __restrict luma, const std::int16_t* __restrict difference,
             std::uint8_t* __restrict level, int width, const Factors& f) {
  for (int x = 0; x < width; ++x) {
    const auto y = static_cast<std::int16_t>((luma[x] - f.black) * (1 << lumaShift));
    const auto sum = static_cast<std::int16_t>(product(y, f.luma) + difference[x] + half);
    level[x] = static_cast<std::uint8_t>(std::clamp(sum >> fractionBits, 0, 255));
  }
}

}  // namespace

bool canFillBGRA(AVPixelFormat format) {
  const AVPixFmtDescriptor* pixels = av_pix_fmt_desc_get(format);
  return pixels != nullptr && pixels->nb_components == 3 && av_pix_fmt_count_planes(format) == 3 &&
         pixels->comp[0].depth == 8 && (pixels->flags & AV_PIX_FMT_FLAG_RGB) == 0 && pixels->log2_chroma_w <= 1 &&
         pixels->log2_chroma_h <= 1;
}

void fillBGRA(const AVFrame& picture, int matrix, bool fullRange, std::uint8_t* bgra, std::ptrdiff_t bytesPerRow) {
  const AVPixFmtDescriptor* pixels = av_pix_fmt_desc_get(static_cast<AVPixelFormat>(picture.format));
  const Factors factors = factorsOf(matrix, fullRange);
  const int width = picture.width;
  const int chromaWidth = AV_CEIL_RSHIFT(width, pixels->log2_chroma_w);
  Differences coarse(chromaWidth);
  Differences fine(2 * chromaWidth);
  const Differences& used = pixels->log2_chroma_w == 0 ? coarse : fine;
  std::vector<std::uint8_t> levels(3 * static_cast<std::size_t>(width));
  std::uint8_t* const red = levels.data();
  std::uint8_t* const green = red + width;
  std::uint8_t* const blue = green + width;
  for (int y = 0; y < picture.height; ++y) {
    const int chromaRow = y >> pixels->log2_chroma_h;
    if (y == chromaRow << pixels->log2_chroma_h) {
      differencesOf(picture.data[1] + static_cast<std::ptrdiff_t>(chromaRow) * picture.linesize[1],
                    picture.data[2] + static_cast<std::ptrdiff_t>(chromaRow) * picture.linesize[2], chromaWidth,
                    factors, coarse.red.data(), coarse.green.data(), coarse.blue.data());
      if (&used == &fine) {
        repeated(coarse.red.data(), fine.red.data(), chromaWidth);
        repeated(coarse.green.data(), fine.green.data(), chromaWidth);
        repeated(coarse.blue.data(), fine.blue.data(), chromaWidth);
      }
    }
    const std::uint8_t* luma = picture.data[0] + static_cast<std::ptrdiff_t>(y) * picture.linesize[0];
    addLuma(luma, used.red.data(), red, width, factors);
    addLuma(luma, used.green.data(), green, width, factors);
    addLuma(luma, used.blue.data(), blue, width, factors);
    libyuv::MergeARGBPlane(red, 0, green, 0, blue, 0, nullptr, 0, bgra + y * bytesPerRow, 0, width, 1);
  }
}

}  // namespace clipworks::engine
