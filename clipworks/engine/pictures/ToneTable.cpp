#include <clipworks/engine/pictures/ToneTable.h>

#include <zimg++.hpp>

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <memory>
#include <string>

#include <clipworks/engine/pictures/FramePadding.h>
#include <clipworks/engine/pictures/ToneCurve.h>

namespace clipworks::engine {
namespace {

using Colour = std::array<double, 3>;

constexpr int gridRows = ToneTable::chromaPoints * ToneTable::chromaPoints;

float* rowOf(const Frame& grid, int plane, int row) {
  return reinterpret_cast<float*>(grid->data[plane] + static_cast<std::ptrdiff_t>(row) * grid->linesize[plane]);
}

// The grid's points as a picture of Y'CbCr in numbers: luma from 0 to 1, chroma around 0; Cr and Cb rise with the row.
Expected<Frame> gridPicture(const ToneSource& source) {
  auto grid = allocateFrame(ToneTable::lumaPoints, gridRows, AV_PIX_FMT_GBRPF32);
  if (!grid) return grid;
  // H.273, 8.3: video range as steps of 8 bits, full range up to the largest sample.
  const double largest = static_cast<double>(((1 << source.depth) - 1) << (16 - source.depth));
  const double black = source.fullRange ? 0 : 16 * 256;
  const double lumaSpan = source.fullRange ? largest : 219 * 256;
  const double chromaSpan = source.fullRange ? largest : 224 * 256;
  const auto chromaAt = [&](int point) {
    return static_cast<float>(((point << ToneTable::chromaShift) - 32768) / chromaSpan);
  };
  for (int row = 0; row < gridRows; ++row) {
    for (int point = 0; point < ToneTable::lumaPoints; ++point) {
      rowOf(*grid, 0, row)[point] = static_cast<float>(((point << ToneTable::lumaShift) - black) / lumaSpan);
      rowOf(*grid, 1, row)[point] = chromaAt(row % ToneTable::chromaPoints);
      rowOf(*grid, 2, row)[point] = chromaAt(row / ToneTable::chromaPoints);
    }
  }
  return grid;
}

zimgxx::zimage_format gridFormat(zimg_color_family_e family, int matrix, int transfer, int primaries) {
  zimgxx::zimage_format format;
  format.width = ToneTable::lumaPoints;
  format.height = gridRows;
  format.pixel_type = ZIMG_PIXEL_FLOAT;
  format.color_family = family;
  format.matrix_coefficients = static_cast<zimg_matrix_coefficients_e>(matrix);  // all three as H.273 numbers them
  format.transfer_characteristics = static_cast<zimg_transfer_characteristics_e>(transfer);
  format.color_primaries = static_cast<zimg_color_primaries_e>(primaries);
  return format;
}

// Light of the display the picture was made for (HLG: a nominal one of 1000 cd/m², BT.2100-2 table 5), in channels of
// BT.709 that may be negative; 1 is reference white.
Expected<Frame> lightOf(const Frame& grid, const ToneSource& source) {
  auto light = allocateFrame(grid->width, grid->height, AV_PIX_FMT_GBRPF32);
  if (!light) return light;
  zimgxx::zimage_buffer_const from;
  zimgxx::zimage_buffer to;
  for (unsigned plane = 0; plane < 3; ++plane) {
    from.data(plane) = grid->data[plane];
    from.stride(plane) = grid->linesize[plane];
    from.mask(plane) = ZIMG_BUFFER_MAX;
    to.data(plane) = (*light)->data[plane];
    to.stride(plane) = (*light)->linesize[plane];
    to.mask(plane) = ZIMG_BUFFER_MAX;
  }
  try {
    zimgxx::zfilter_graph_builder_params parameters;
    parameters.nominal_peak_luminance = referenceWhite;
    const auto graph = zimgxx::FilterGraph::build(
        gridFormat(ZIMG_COLOR_YUV, source.matrix, source.transfer, source.primaries),
        gridFormat(ZIMG_COLOR_RGB, ZIMG_MATRIX_RGB, ZIMG_TRANSFER_LINEAR, ZIMG_PRIMARIES_709), &parameters);
    constexpr std::size_t alignment = 64;
    const std::unique_ptr<void, decltype(&std::free)> scratch(
        std::aligned_alloc(alignment, (graph.get_tmp_size() / alignment + 1) * alignment), &std::free);
    if (scratch == nullptr) return failed(ErrorKind::outOfMemory, "out of memory for a tone table");
    graph.process(from, to, scratch.get());
  } catch (const zimgxx::zerror& error) {
    return failed(ErrorKind::unsupported, std::string("colours of this kind are not read: ") + error.msg);
  }
  return light;
}

double luminance(const Colour& rgb) { return 0.2126 * rgb[0] + 0.7152 * rgb[1] + 0.0722 * rgb[2]; }

// One factor for all channels, found for the brightest: their ratios, and so the hue, stay, and none exceeds white.
Colour toned(Colour rgb, const ToneCurve& curve) {
  const double brightest = std::max({rgb[0], rgb[1], rgb[2]});
  if (!std::isfinite(brightest)) return {1, 1, 1};  // far beyond what can be written: only next to the grid's corners
  if (brightest <= 0) return {0, 0, 0};
  const double factor = curve(brightest * referenceWhite) / (brightest * referenceWhite);
  for (double& channel : rgb) channel *= factor;
  return rgb;
}

// Oklab (B. Ottosson, 2020), from light of BT.709: what the three kinds of cones answer is the cube root of these sums.
constexpr std::array<Colour, 3> conesOf709{{{0.4122214708, 0.5363325363, 0.0514459929},
                                            {0.2119034982, 0.6806995451, 0.1073969566},
                                            {0.0883024619, 0.2817188376, 0.6299787005}}};
constexpr std::array<Colour, 3> lightOfCones{{{4.0767416621, -3.3077115913, 0.2309699292},
                                              {-1.2684380046, 2.6097574011, -0.3413193965},
                                              {-0.0041960863, -0.7034186147, 1.7076147010}}};
constexpr Colour lightnessOfAnswers{0.2104542553, 0.7936177850, -0.0040720468};

double sumOf(const Colour& factors, const Colour& values) {
  return factors[0] * values[0] + factors[1] * values[1] + factors[2] * values[2];
}

bool isInside(const Colour& rgb) {
  return std::min({rgb[0], rgb[1], rgb[2]}) >= 0 && std::max({rgb[0], rgb[1], rgb[2]}) <= 1;
}

/// The straight way in Oklab from a grey (0) to a colour (1). The three answers to a grey are its lightness, so every
/// colour on it has the hue of its end; each channel is a polynomial of the third degree.
class WayFromGrey {
 public:
  WayFromGrey(double grey, const Colour& answers) {
    Colour rise{};
    std::transform(answers.begin(), answers.end(), rise.begin(), [grey](double answer) { return answer - grey; });
    const Colour squares{rise[0] * rise[0], rise[1] * rise[1], rise[2] * rise[2]};
    const Colour cubes{squares[0] * rise[0], squares[1] * rise[1], squares[2] * rise[2]};
    for (std::size_t i = 0; i < 3; ++i) {
      const Colour& factors = lightOfCones[i];
      channels_[i] = {grey * grey * grey, 3 * grey * grey * sumOf(factors, rise), 3 * grey * sumOf(factors, squares),
                      sumOf(factors, cubes)};
    }
  }

  [[nodiscard]] Colour at(double part) const {
    Colour rgb{};
    std::transform(channels_.begin(), channels_.end(), rgb.begin(),
                   [part](const auto& c) { return ((c[3] * part + c[2]) * part + c[1]) * part + c[0]; });
    return rgb;
  }

 private:
  std::array<std::array<double, 4>, 3> channels_{};
};

// A colour outside BT.709 has a channel below 0 or above 1; it goes the way to a grey until it is inside. A grey of its
// own lightness would leave the blue of BT.2020 very dark: part of the way to the grey of its brightest channel is what
// the eye, which takes colourful light for brighter than it is, loses with the colour.
Colour insideGamut(const Colour& rgb) {
  constexpr double lift = 0.4;
  constexpr double precision = 1.0 / 4096;
  if (isInside(rgb)) return rgb;
  Colour answers{};
  for (std::size_t i = 0; i < 3; ++i) answers[i] = std::cbrt(sumOf(conesOf709[i], rgb));
  const double lightness = sumOf(lightnessOfAnswers, answers);
  const double brightest = std::cbrt(std::max({rgb[0], rgb[1], rgb[2]}));
  const WayFromGrey way(std::clamp(lightness + lift * (brightest - lightness), 0.0, 1.0), answers);
  double part = 0;
  for (double step = 0.5; step >= precision; step /= 2) {
    if (isInside(way.at(part + step))) part += step;
  }
  Colour result = way.at(part);
  for (double& channel : result) channel = std::clamp(channel, 0.0, 1.0);
  return result;
}

// Y'CbCr of 8 bits and video range, BT.709-6, 3 and 4; the display's curve is BT.1886 with a black of 0.
Colour coded(const Colour& rgb) {
  Colour signal{};
  std::transform(rgb.begin(), rgb.end(), signal.begin(), [](double light) { return std::pow(light, 1 / 2.4); });
  const double luma = luminance(signal);
  return {16 + 219 * luma, 128 + 224 * (signal[2] - luma) / 1.8556, 128 + 224 * (signal[0] - luma) / 1.5748};
}

ToneCurve curveFor(const ToneSource& source) {
  if (source.transfer == AVCOL_TRC_SMPTE2084) return {source.peakLight, 10000, 0.010};
  return {1000, 1808, 0.0025};  // sample 1019 of 10 bits (109 %) is 1808 cd/m² after the OOTF
}

}  // namespace

Expected<ToneTable> ToneTable::make(const ToneSource& source) {
  const auto grid = gridPicture(source);
  if (!grid) return tl::make_unexpected(grid.error());
  const auto light = lightOf(*grid, source);
  if (!light) return tl::make_unexpected(light.error());
  const ToneCurve curve = curveFor(source);
  ToneTable table;
  for (auto& plane : table.values) plane.reserve(static_cast<std::size_t>(gridRows) * lumaPoints);
  for (int row = 0; row < gridRows; ++row) {
    for (int point = 0; point < lumaPoints; ++point) {
      const Colour rgb{rowOf(*light, 0, row)[point], rowOf(*light, 1, row)[point], rowOf(*light, 2, row)[point]};
      const Colour code = coded(insideGamut(toned(rgb, curve)));
      for (std::size_t plane = 0; plane < 3; ++plane) {
        table.values[plane].push_back(static_cast<std::int16_t>(std::lround(code[plane] * (1 << fractionBits))));
      }
    }
  }
  return table;
}

}  // namespace clipworks::engine
