#include <clipworks/engine/pictures/PlanarFromBGRA.h>

#include <clipworks/engine/pictures/BGRAFromPlanar.h>

#include <tests/engine/EngineTesting.h>

namespace clipworks::engine {
namespace {

using Triple = std::array<double, 3>;

struct Matrix {
  Colour colour;
  double red;  // their shares in luma
  double blue;

  [[nodiscard]] double black() const { return colour.fullRange ? 0 : 16; }
  [[nodiscard]] double lumaSteps() const { return colour.fullRange ? 1 : 219.0 / 255; }
  [[nodiscard]] double chromaSteps() const { return colour.fullRange ? 1 : 224.0 / 255; }
};
constexpr Matrix matrices[] = {{{1, 1, 1, false}, 0.2126, 0.0722},  // BT.709
                               {{1, 1, 1, true}, 0.2126, 0.0722},
                               {{6, 6, 6, false}, 0.299, 0.114},      // BT.601
                               {{9, 14, 9, false}, 0.2627, 0.0593}};  // BT.2020

/// All triples of some levels, with every matrix.
void forEachTriple(const std::vector<int>& levels, const std::function<void(const Matrix&, int, int, int)>& look) {
  for (const auto& matrix : matrices) {
    for (const int first : levels) {
      for (const int second : levels) {
        for (const int third : levels) {
          SCOPED_TRACE(
              testing::PrintToString(std::tuple(matrix.colour.matrix, matrix.colour.fullRange, first, second, third)));
          look(matrix, first, second, third);
        }
      }
    }
  }
}

// By ITU-T H.273, 8.3, not rounded.
TEST(PlanarFromBGRA, IsWithinAFractionOfALevel) {
  forEachTriple({0, 1, 63, 128, 200, 255}, [](const Matrix& m, int red, int green, int blue) {
    // Three by three pixels, the sides odd.
    std::vector<std::uint8_t> pixels;
    for (int i = 0; i < 9; ++i)
      for (const int level : {blue, green, red, 77}) pixels.push_back(static_cast<std::uint8_t>(level));
    const Frame frame = must(planarFromBGRA(pixels.data(), 12, 3, 3, m.colour));
    ASSERT_EQ(frame->width, 4);
    const double luma = m.red * red + (1 - m.red - m.blue) * green + m.blue * blue;
    const Triple wanted{luma * m.lumaSteps() + m.black(), (blue - luma) / (2 * (1 - m.blue)) * m.chromaSteps() + 128,
                        (red - luma) / (2 * (1 - m.red)) * m.chromaSteps() + 128};
    forEachSample(*frame, [&](int plane, int x, int y) {
      ASSERT_NEAR(sampleAt(*frame, plane, x, y), std::min(wanted.at(static_cast<std::size_t>(plane)), 255.0), 0.53)
          << plane;
    });
  });
}

TEST(BGRAFromPlanar, IsWithinAFractionOfALevel) {
  forEachTriple({0, 16, 60, 128, 180, 235, 255}, [](const Matrix& m, int y, int u, int v) {
    const Frame frame = painted(5, 3, AV_PIX_FMT_YUV420P, [&](int plane, int, int) {
      return plane == 0 ? y : plane == 1 ? u : v;
    });
    std::vector<std::uint8_t> pixels(std::size_t{4} * 5 * 3);
    fillBGRA(*frame, m.colour.matrix, m.colour.fullRange, pixels.data(), 20);
    const double luma = (y - m.black()) / m.lumaSteps();
    const double red = luma + 2 * (1 - m.red) * (v - 128) / m.chromaSteps();
    const double blue = luma + 2 * (1 - m.blue) * (u - 128) / m.chromaSteps();
    const double green = (luma - m.red * red - m.blue * blue) / (1 - m.red - m.blue);
    const std::array<double, 4> wanted{blue, green, red, 255};
    for (std::size_t i = 0; i < pixels.size(); ++i)
      ASSERT_NEAR(pixels[i], std::clamp(wanted.at(i % 4), 0.0, 255.0), 0.7) << i;
  });
}

TEST(PlanarFromBGRA, HasTheChromaOfTheMeanOfFourPixels) {
  // Rows of red and black, one column each; the mean is half of red.
  const std::uint8_t pixels[] = {0, 0, 255, 0, 0, 0, 0, 0, 0, 0, 255, 0, 0, 0, 0, 0};
  const Frame frame = must(planarFromBGRA(pixels, 8, 2, 2, Colour{1, 1, 1, true}));
  EXPECT_NEAR(sampleAt(*frame, 2, 0, 0), 128 + 127.5 / 2, 0.53);
  EXPECT_EQ(sampleAt(*frame, 0, 1, 0), 0);
}

}  // namespace
}  // namespace clipworks::engine
