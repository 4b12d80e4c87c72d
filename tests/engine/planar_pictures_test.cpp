#include <clipworks/engine/pictures/BGRAFromPlanar.h>
#include <clipworks/engine/pictures/FramePool.h>
#include <clipworks/engine/pictures/PictureResampler.h>
#include <clipworks/engine/pictures/PlanarFromBGRA.h>
#include <clipworks/engine/pictures/PlanarPictures.h>
#include <clipworks/engine/pictures/PlaneTurns.h>

#include <tests/engine/EngineTesting.h>

namespace clipworks::engine {
namespace {

/// Each sample tells its own place.
Frame placesOf(int width, int height, AVPixelFormat format) {
  return painted(width, height, format, [](int plane, int x, int y) { return (plane * 61 + x * 7 + y * 29) % 256; });
}

TEST(PlaneTurns, MoveEverySampleToItsPlaceUnchanged) {
  const std::tuple<const char*, PlaneTurn, double, double, double, double> turns[] = {
      {"not at all", PlaneTurn{}, 1, 0, 0, 1},
      {"clockwise", clockwiseTurn, 0, 1, -1, 0},
      {"half around", halfTurn, -1, 0, 0, -1},
      {"counterclockwise", counterclockwiseTurn, 0, -1, 1, 0},
      {"mirrored left to right", horizontalMirror, -1, 0, 0, 1},
      {"mirrored top to bottom", verticalMirror, 1, 0, 0, -1},
      {"transposed", {true, false, false}, 0, 1, 1, 0},
      {"transposed across", {true, true, true}, 0, -1, -1, 0}};
  const Frame frames[] = {placesOf(98, 38, AV_PIX_FMT_YUV420P), placesOf(98, 38, AV_PIX_FMT_YUV420P10),
                          placesOf(36, 22, AV_PIX_FMT_YUV422P), placesOf(17, 9, AV_PIX_FMT_YUV444P)};
  for (const auto& [name, turn, a, b, c, d] : turns) {
    EXPECT_EQ(turnOf(a, b, c, d), turn) << name;
    EXPECT_EQ(turnOf(a * 2 + 6e-17, b * 2 - 6e-17, c * 3, d * 3), turn) << name;
    for (const Frame& frame : frames) {
      SCOPED_TRACE(std::string(name) + ' ' + pixelsOf(*frame).name);
      const Frame result = must(turned(frame, turn));
      EXPECT_EQ(result->width, turn.swapsAxes ? frame->height : frame->width);
      forEachSample(*frame, [&, a = a, b = b, c = c, d = d](int plane, int x, int y) {
        // The transform about the plane's middle, in half samples.
        const double fromX = 2 * x - (columnsOf(*frame, plane) - 1);
        const double fromY = 2 * y - (rowsOf(*frame, plane) - 1);
        const auto toX = static_cast<int>(a * fromX + c * fromY + columnsOf(*result, plane) - 1) / 2;
        const auto toY = static_cast<int>(b * fromX + d * fromY + rowsOf(*result, plane) - 1) / 2;
        ASSERT_EQ(sampleAt(*result, plane, toX, toY), sampleAt(*frame, plane, x, y)) << plane << ": " << x << ", " << y;
      });
    }
  }
}

TEST(PlaneTurns, AreNoneWhereThereIsMoreThanATurn) {
  EXPECT_EQ(turnOf(0.7, 0.7, -0.7, 0.7), std::nullopt);
  EXPECT_EQ(turnOf(1, 0, 0, 0), std::nullopt);
  EXPECT_EQ(turnOf(0, 0, 0, 0), std::nullopt);
  EXPECT_EQ(turnOf(NAN, 0, 0, 1), std::nullopt);
}

/// A ramp in chroma along the axis must stay in step with the same ramp in luma.
TEST(PlaneTurns, KeepChromaOfOddSidesOnItsPixels) {
  const auto ramp = [](int plane, int, int y) { return plane == 0 ? 4 * y + 2 : 8 * y + 4; };
  const Frame half = must(turned(painted(33, 21, AV_PIX_FMT_YUV420P, ramp), halfTurn));
  for (int y = 0; y < 10; ++y)
    EXPECT_EQ(sampleAt(*half, 1, 3, y), (sampleAt(*half, 0, 5, 2 * y) + sampleAt(*half, 0, 5, 2 * y + 1)) / 2) << y;
  EXPECT_EQ(half->chroma_location, AVCHROMA_LOC_LEFT);
}

TEST(PlaneTurns, NameThePlaceOfChroma) {
  const Frame frame = placesOf(32, 16, AV_PIX_FMT_YUV420P);
  frame->sample_aspect_ratio = {4, 3};
  const Frame clockwise = must(turned(frame, clockwiseTurn));
  EXPECT_EQ(clockwise->chroma_location, AVCHROMA_LOC_TOP);
  EXPECT_EQ(clockwise->sample_aspect_ratio.num, 3);
  EXPECT_EQ(must(turned(frame, counterclockwiseTurn))->chroma_location, AVCHROMA_LOC_BOTTOM);
  EXPECT_EQ(must(turned(frame, horizontalMirror))->chroma_location, AVCHROMA_LOC_CENTER);
  frame->format = AV_PIX_FMT_NV12;
  EXPECT_EQ(turned(frame, halfTurn).error().kind, ErrorKind::unsupported);
}

using Triple = std::array<double, 3>;

struct Matrix {
  Colour colour;
  double red;  // their shares in luma
  double blue;

  [[nodiscard]] double black() const { return colour.fullRange ? 0 : 16; }
  [[nodiscard]] double lumaSteps() const { return colour.fullRange ? 1 : 219.0 / 255; }
  [[nodiscard]] double chromaSteps() const { return colour.fullRange ? 1 : 224.0 / 255; }
};
constexpr Matrix matrices[] = {{{1, 1, 1, false}, 0.2126, 0.0722},                                    // BT.709
                               {{1, 1, 1, true}, 0.2126, 0.0722},  {{6, 6, 6, false}, 0.299, 0.114},  // BT.601
                               {{5, 6, 5, true}, 0.299, 0.114},       // the same, of 625 lines
                               {{7, 7, 7, false}, 0.212, 0.087},      // SMPTE 240M
                               {{9, 14, 9, false}, 0.2627, 0.0593}};  // BT.2020

// By ITU-T H.273, 8.3, not rounded.
TEST(PlanarFromBGRA, IsWithinAFractionOfALevel) {
  constexpr std::array levels{0, 1, 63, 128, 200, 255};
  for (std::size_t i = 0; i < std::size(matrices) * 216; ++i) {
    const Matrix& m = matrices[i / 216];
    const int red = levels.at(i / 36 % 6), green = levels.at(i / 6 % 6), blue = levels.at(i % 6);
    // Three by three pixels, the sides odd.
    std::vector<std::uint8_t> pixels;
    for (int pixel = 0; pixel < 9; ++pixel)
      for (const int level : {blue, green, red, 77}) pixels.push_back(static_cast<std::uint8_t>(level));
    const Frame frame = must(planarFromBGRA(pixels.data(), 12, 3, 3, m.colour));
    ASSERT_EQ(frame->width, 4);
    const double luma = m.red * red + (1 - m.red - m.blue) * green + m.blue * blue;
    const Triple wanted{luma * m.lumaSteps() + m.black(), (blue - luma) / (2 * (1 - m.blue)) * m.chromaSteps() + 128,
                        (red - luma) / (2 * (1 - m.red)) * m.chromaSteps() + 128};
    forEachSample(*frame, [&](int plane, int x, int y) {
      ASSERT_NEAR(sampleAt(*frame, plane, x, y), std::min(wanted.at(static_cast<std::size_t>(plane)), 255.0), 0.53)
          << "case " << i << ", plane " << plane;
    });
  }
}

// All levels of luma, each with many of chroma.
TEST(BGRAFromPlanar, IsWithinAFractionOfALevel) {
  for (const Matrix& m : matrices) {
    for (const auto format : {AV_PIX_FMT_YUV420P, AV_PIX_FMT_YUV422P, AV_PIX_FMT_YUV444P}) {
      SCOPED_TRACE(testing::PrintToString(std::tuple(m.colour.matrix, m.colour.fullRange, format)));
      const Frame frame = painted(255, 129, format, [](int plane, int x, int y) {
        return (plane == 0 ? x * 3 + y : plane == 1 ? x * 5 + y : y * 7 + x) % 256;
      });
      std::vector<std::uint8_t> pixels(std::size_t{4} * 255 * 129);
      fillBGRA(*frame, m.colour.matrix, m.colour.fullRange, pixels.data(), 4 * 255);
      for (std::size_t i = 0; i < pixels.size(); ++i) {
        const auto [x, y] = std::pair(static_cast<int>(i / 4) % 255, static_cast<int>(i / 4) / 255);
        const int cx = x >> pixelsOf(*frame).log2_chroma_w;
        const int cy = y >> pixelsOf(*frame).log2_chroma_h;
        const double luma = (sampleAt(*frame, 0, x, y) - m.black()) / m.lumaSteps();
        const double red = luma + 2 * (1 - m.red) * (sampleAt(*frame, 2, cx, cy) - 128) / m.chromaSteps();
        const double blue = luma + 2 * (1 - m.blue) * (sampleAt(*frame, 1, cx, cy) - 128) / m.chromaSteps();
        const double green = (luma - m.red * red - m.blue * blue) / (1 - m.red - m.blue);
        const std::array<double, 4> wanted{blue, green, red, 255};
        ASSERT_NEAR(pixels[i], std::clamp(wanted.at(i % 4), 0.0, 255.0), 0.7) << x << ", " << y << ": " << i % 4;
      }
    }
  }
}

TEST(PlanarFromBGRA, HasTheChromaOfTheMeanOfFourPixels) {
  // Rows of red and black, one column each; the mean is half of red.
  const std::uint8_t pixels[] = {0, 0, 255, 0, 0, 0, 0, 0, 0, 0, 255, 0, 0, 0, 0, 0};
  const Frame frame = must(planarFromBGRA(pixels, 8, 2, 2, Colour{1, 1, 1, true}));
  EXPECT_NEAR(sampleAt(*frame, 2, 0, 0), 128 + 127.5 / 2, 0.53);
  EXPECT_EQ(sampleAt(*frame, 0, 1, 0), 0);
}

// From 0 to 1: red, green, blue; or luma, and chroma from a half on.
constexpr Triple rgb{0.8, 0.4, 0.2};
// Of it by ITU-T H.273, 8.3, by the weights of BT.709, in video range as parts of the whole range.
constexpr double lumaOfRGB = 0.2126 * rgb[0] + 0.7152 * rgb[1] + 0.0722 * rgb[2];
constexpr Triple yuv{(16 + 219 * lumaOfRGB) / 256, (128 + 224 * (rgb[2] - lumaOfRGB) / 1.8556) / 256,
                     (128 + 224 * (rgb[0] - lumaOfRGB) / 1.5748) / 256};

void fill(AVFrame& frame, int component, double level) {
  const auto& pixels = pixelsOf(frame);
  const bool isShare =
      (pixels.flags & AV_PIX_FMT_FLAG_RGB) != 0 || component == 3 || (pixels.nb_components == 2 && component == 1);
  const double most = (1 << pixels.comp[component].depth) - (isShare ? 1 : 0);  // of RGB and alpha; of YUV
  const int plane = isShare ? 0 : component;
  const std::vector<std::uint16_t> row(static_cast<std::size_t>(columnsOf(frame, plane)),
                                       static_cast<std::uint16_t>(std::lround(level * most)));
  for (int y = 0; y < rowsOf(frame, plane); ++y)
    av_write_image_line2(row.data(), frame.data, frame.linesize, &pixels, 0, y, component, columnsOf(frame, plane), 2);
}

/// Every kind there is, but for those that are refused and those whose samples are no whole numbers.
TEST(PlanarPictures, MakesTheRightColoursOfEveryKind) {
  PlanarPictures planar;
  int kinds = 0;
  for (const AVPixFmtDescriptor* pixels = nullptr; (pixels = av_pix_fmt_desc_next(pixels)) != nullptr;) {
    const AVPixelFormat kind = av_pix_fmt_desc_get_id(pixels);
    constexpr std::uint64_t special = AV_PIX_FMT_FLAG_PAL | AV_PIX_FMT_FLAG_FLOAT;
    if ((pixels->flags & special) != 0 || planarKind(kind) == AV_PIX_FMT_NONE) continue;
    SCOPED_TRACE(pixels->name);
    ++kinds;
    const bool isRGB = (pixels->flags & AV_PIX_FMT_FLAG_RGB) != 0;
    const bool hasAlpha = (pixels->flags & AV_PIX_FMT_FLAG_ALPHA) != 0;
    const int colours = pixels->nb_components - (hasAlpha ? 1 : 0);
    const Frame frame = emptyPicture(16, 8, kind);
    Triple expected = colours < 3 ? Triple{yuv[0], 0.5, 0.5} : yuv;
    for (int i = 0; i < colours; ++i) fill(*frame, i, (isRGB ? rgb : yuv).at(static_cast<std::size_t>(i)));
    if (hasAlpha) {
      fill(*frame, colours, 0.5);
      const Triple black{16.0 / 256, 0.5, 0.5};
      for (std::size_t i = 0; i < 3; ++i) expected[i] = (expected[i] + black[i]) / 2;
    }
    const Frame made = must(planar.convert(frame, AVCOL_SPC_BT709, false));
    EXPECT_TRUE(isResampled(static_cast<AVPixelFormat>(made->format)));
    const int depth = pixelsOf(*made).comp[0].depth;
    const int second = pixels->comp[std::min(1, colours - 1)].depth;
    EXPECT_EQ(depth, std::max(8, second));
    if (colours < 3 && pixels->comp[0].depth == 1) continue;  // black or white
    // A level of what is read, and half of one of what was written.
    const int fewest = std::min({pixels->comp[0].depth, second, pixels->comp[colours - 1].depth});
    const double tolerance =
        1.01 / (1 << depth) + (isRGB && fewest < 8 ? 0.5 / ((1 << fewest) - 1) : 1.5 / (1 << std::min(fewest, depth)));
    for (int plane = 0; plane < 3; ++plane)
      EXPECT_NEAR(sampleAt(*made, plane, 0, 0) / std::pow(2, depth), expected.at(static_cast<std::size_t>(plane)),
                  tolerance)
          << plane;
  }
  EXPECT_GT(kinds, 150);
}

TEST(PlanarPictures, RefusesWhatItCannotRead) {
  for (const AVPixelFormat kind : {AV_PIX_FMT_VAAPI, AV_PIX_FMT_BAYER_RGGB8, AV_PIX_FMT_XYZ12LE, AV_PIX_FMT_NONE})
    EXPECT_EQ(planarKind(kind), AV_PIX_FMT_NONE);
}

}  // namespace
}  // namespace clipworks::engine
