#include <clipworks/engine/pictures/PlanarFromBGRA.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdint>
#include <ostream>
#include <string>
#include <vector>

#include <gtest/gtest.h>

namespace clipworks::engine {
namespace {

struct MatrixCase {
  std::string name;
  Colour colour;
  double red;   // their shares in luma
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
              ASSERT_NEAR((*frame)->data[plane][y * (*frame)->linesize[plane] + x], std::min(wanted.at(plane), 255.0), 0.53)
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
