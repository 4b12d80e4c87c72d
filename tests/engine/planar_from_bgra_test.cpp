#include <clipworks/engine/pictures/PlanarFromBGRA.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdint>
#include <ostream>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include <clipworks/engine/pictures/BGRAFromPlanar.h>
#include <clipworks/engine/pictures/FramePadding.h>

namespace clipworks::engine {
namespace {

struct MatrixCase {
  std::string name;
  Colour colour;
  double red;  // their shares in luma
  double blue;
  friend std::ostream& operator<<(std::ostream& out, const MatrixCase& c) { return out << c.name; }
};

class PlanarFromBGRA : public testing::TestWithParam<MatrixCase> {};

/// Luma and both chromas of ITU-T H.273, 8.3, not rounded.
std::array<double, 3> exact(const MatrixCase& c, double red, double green, double blue) {
  const double luma = c.red * red + (1 - c.red - c.blue) * green + c.blue * blue;
  const double lumaSteps = c.colour.fullRange ? 1 : 219.0 / 255;
  const double chromaSteps = c.colour.fullRange ? 1 : 224.0 / 255;
  return {luma * lumaSteps + (c.colour.fullRange ? 0 : 16), (blue - luma) / (2 * (1 - c.blue)) * chromaSteps + 128,
          (red - luma) / (2 * (1 - c.red)) * chromaSteps + 128};
}

TEST_P(PlanarFromBGRA, IsWithinAFractionOfALevel) {
  constexpr std::array<int, 6> levels{0, 1, 63, 128, 200, 255};
  for (const int red : levels) {
    for (const int green : levels) {
      for (const int blue : levels) {
        // Three by three pixels, the sides odd.
        std::vector<std::uint8_t> pixels;
        for (int i = 0; i < 9; ++i) {
          for (const int level : {blue, green, red, 77}) pixels.push_back(static_cast<std::uint8_t>(level));
        }
        const auto frame = planarFromBGRA(pixels.data(), 12, 3, 3, GetParam().colour);
        ASSERT_TRUE(frame);
        ASSERT_EQ((*frame)->width, 4);
        const auto wanted = exact(GetParam(), red, green, blue);
        for (std::size_t plane = 0; plane < 3; ++plane) {
          const int side = plane == 0 ? 4 : 2;
          for (int y = 0; y < side; ++y) {
            for (int x = 0; x < side; ++x) {
              ASSERT_NEAR((*frame)->data[plane][y * (*frame)->linesize[plane] + x], std::min(wanted.at(plane), 255.0),
                          0.53)
                  << "plane " << plane << " of " << red << ' ' << green << ' ' << blue;
            }
          }
        }
      }
    }
  }
}

INSTANTIATE_TEST_SUITE_P(Matrices, PlanarFromBGRA,
                         testing::Values(MatrixCase{"BT709", {1, 1, 1, false}, 0.2126, 0.0722},
                                         MatrixCase{"BT709_in_full_range", {1, 1, 1, true}, 0.2126, 0.0722},
                                         MatrixCase{"BT601", {6, 6, 6, false}, 0.299, 0.114},
                                         MatrixCase{"BT2020", {9, 14, 9, false}, 0.2627, 0.0593}),
                         [](const auto& testCase) { return testCase.param.name; });

TEST_P(PlanarFromBGRA, AndBackIsWithinALevel) {
  constexpr std::array<int, 7> levels{0, 16, 60, 128, 180, 235, 255};
  const MatrixCase& c = GetParam();
  const double lumaScale = c.colour.fullRange ? 1 : 255.0 / 219;
  const double chromaScale = c.colour.fullRange ? 1 : 255.0 / 224;
  auto frame = allocateFrame(5, 3, AV_PIX_FMT_YUV420P).value();
  for (const int y : levels) {
    for (const int u : levels) {
      for (const int v : levels) {
        for (std::size_t plane = 0; plane < 3; ++plane) {
          const int level = plane == 0 ? y : plane == 1 ? u : v;
          for (int row = 0; row < (plane == 0 ? 3 : 2); ++row) {
            std::fill_n(frame->data[plane] + row * frame->linesize[plane], plane == 0 ? 5 : 3,
                        static_cast<std::uint8_t>(level));
          }
        }
        std::vector<std::uint8_t> pixels(4 * 5 * 3);
        fillBGRA(*frame, c.colour.matrix, c.colour.fullRange, pixels.data(), 20);
        const double luma = (y - (c.colour.fullRange ? 0 : 16)) * lumaScale;
        const double red = luma + 2 * (1 - c.red) * (v - 128) * chromaScale;
        const double blue = luma + 2 * (1 - c.blue) * (u - 128) * chromaScale;
        const double green = (luma - c.red * red - c.blue * blue) / (1 - c.red - c.blue);
        for (std::size_t pixel = 0; pixel < 15; ++pixel) {
          const std::array<double, 4> wanted{blue, green, red, 255};
          for (std::size_t i = 0; i < 4; ++i) {
            ASSERT_NEAR(pixels[4 * pixel + i], std::clamp(wanted.at(i), 0.0, 255.0), 0.7)
                << i << " of " << y << ' ' << u << ' ' << v;
          }
        }
        const bool isColour = std::min({red, green, blue}) >= 0 && std::max({red, green, blue}) <= 255;
        if (!isColour) continue;
        const auto again = planarFromBGRA(pixels.data(), 20, 5, 3, c.colour);
        ASSERT_TRUE(again);
        EXPECT_NEAR((*again)->data[0][0], y, 1);
        EXPECT_NEAR((*again)->data[1][1], u, 1);
        EXPECT_NEAR((*again)->data[2][1], v, 1);
      }
    }
  }
}

TEST(PlanarFromBGRAChroma, IsThatOfTheMeanOfFourPixels) {
  // Rows of red and black, one column each; the mean is half of red.
  const std::vector<std::uint8_t> pixels{0, 0, 255, 0, 0, 0, 0, 0, 0, 0, 255, 0, 0, 0, 0, 0};
  const auto frame = planarFromBGRA(pixels.data(), 8, 2, 2, Colour{1, 1, 1, true});
  ASSERT_TRUE(frame);
  EXPECT_NEAR((*frame)->data[2][0], 128 + 127.5 / 2, 0.53);
  EXPECT_EQ((*frame)->data[0][1], 0);
}

}  // namespace
}  // namespace clipworks::engine
