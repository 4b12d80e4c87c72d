#include <clipworks/engine/pictures/PictureRenderer.h>

#include <cmath>
#include <cstdint>
#include <functional>
#include <numbers>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include <clipworks/engine/pictures/FramePadding.h>
#include <clipworks/engine/pictures/PictureFitter.h>

namespace clipworks::engine {
namespace {

constexpr int width = 64;
constexpr int height = 48;

/// A smooth picture whose every sample tells its place: luma and both chroma planes are waves of their own.
double wave(int plane, double x, double y) {
  const double across[] = {40, 64, 50};
  const double down[] = {50, 44, 70};
  return 128 + 40 * std::sin(2 * std::numbers::pi * x / across[plane]) +
         40 * std::cos(2 * std::numbers::pi * y / down[plane]);
}

/// Where the middle of a sample lies, in pixels; chroma at the left of its four, as video has it.
double column(int sample, int step) { return sample * step + 0.5; }
double line(int sample, int step) { return (sample + 0.5) * step; }

Frame waves(int w = width, int h = height) {
  Frame frame = *allocateFrame(w, h, AV_PIX_FMT_YUV420P);
  frame->chroma_location = AVCHROMA_LOC_LEFT;
  for (int plane = 0; plane < 3; ++plane) {
    const int step = plane == 0 ? 1 : 2;
    for (int y = 0; y < (h + step - 1) / step; ++y) {
      for (int x = 0; x < (w + step - 1) / step; ++x) {
        frame->data[plane][y * frame->linesize[plane] + x] =
            static_cast<std::uint8_t>(std::lround(wave(plane, column(x, step), line(y, step))));
      }
    }
  }
  return frame;
}

struct Case {
  const char* sentence;
  AffineMap map;
  int canvasWidth;
  int canvasHeight;
  double lumaError;  // the most levels that a sample inside may be off
  double chromaError;
};
void PrintTo(const Case& c, std::ostream* out) { *out << c.sentence; }

class Rendered : public testing::TestWithParam<Case> {};

/// The waves are known between the samples too, so every sample inside can be told; outside it is black.
void expectWaves(const AVFrame& canvas, const Case& c) {
  ASSERT_EQ(canvas.width, c.canvasWidth);
  ASSERT_EQ(canvas.height, c.canvasHeight);
  const double determinant = c.map.a * c.map.d - c.map.b * c.map.c;
  for (int plane = 0; plane < 3; ++plane) {
    const int step = plane == 0 ? 1 : 2;
    for (int y = 0; y < c.canvasHeight / step; ++y) {
      for (int x = 0; x < c.canvasWidth / step; ++x) {
        const double dx = column(x, step) - c.map.tx;
        const double dy = line(y, step) - c.map.ty;
        const double sx = (c.map.d * dx - c.map.c * dy) / determinant;
        const double sy = (c.map.a * dy - c.map.b * dx) / determinant;
        const int seen = canvas.data[plane][y * canvas.linesize[plane] + x];
        constexpr double edge = 4;  // there the wave is repeated, not gone on with
        if (sx > edge && sy > edge && sx < width - edge && sy < height - edge) {
          ASSERT_NEAR(seen, wave(plane, sx, sy), plane == 0 ? c.lumaError : c.chromaError)
              << plane << ": " << x << ", " << y;
        } else if (sx < -edge || sy < -edge || sx > width + edge || sy > height + edge) {
          ASSERT_EQ(seen, plane == 0 ? 16 : 128) << plane << ": " << x << ", " << y;
        }
      }
    }
  }
}

TEST_P(Rendered, ShowsThePictureWhereItsMapSays) {
  const auto& c = GetParam();
  std::vector<PictureLayer> layers;
  layers.push_back({waves(), c.map, 1});
  PictureRenderer renderer(c.canvasWidth, c.canvasHeight, AV_PIX_FMT_YUV420P);
  const auto canvas = renderer.render(layers);
  ASSERT_TRUE(canvas);
  expectWaves(**canvas, c);
}

class Fitted : public testing::TestWithParam<Case> {};

TEST_P(Fitted, ShowsThePictureWhereItsMapSays) {
  const auto& c = GetParam();
  PictureFitter fitter(c.canvasWidth, c.canvasHeight);
  const Frame picture = waves();
  ASSERT_TRUE(fitter.covers(*picture, c.map));
  const auto canvas = fitter.fit(picture, c.map, AV_PIX_FMT_YUV420P);
  ASSERT_TRUE(canvas);
  expectWaves(**canvas, c);
}

INSTANTIATE_TEST_SUITE_P(
    Maps, Fitted,
    testing::Values(Case{"half as large", {0.5, 0, 0, 0.5, 0, 0}, 32, 24, 1.5, 3},
                    Case{"turned clockwise", {0, 0.5, -0.5, 0, 24, 0}, 24, 32, 1.5, 3},
                    Case{"turned round", {-0.5, 0, 0, -0.5, 32, 24}, 32, 24, 1.5, 3},
                    Case{"turned counterclockwise", {6e-17, -0.5, 0.5, 6e-17, 0, 32}, 24, 32, 1.5, 3},
                    Case{"mirrored", {-0.5, 0, 0, 0.5, 32, 0}, 32, 24, 1.5, 3},
                    Case{"upside down", {0.5, 0, 0, -0.5, 0, 24}, 32, 24, 1.5, 3},
                    Case{"transposed", {0, 0.5, 0.5, 0, 0, 0}, 24, 32, 1.5, 3},
                    Case{"transposed the other way", {0, -0.5, -0.5, 0, 24, 32}, 24, 32, 1.5, 3},
                    Case{"cropped at both sides, off the pixels", {0.6, 0, 0, 0.6, -6.2, -0.4}, 26, 28, 1.5, 3},
                    Case{"turned and cropped", {0, 1.3, -1.3, 0, 61.2, -5}, 60, 70, 1.5, 3},
                    Case{"stretched", {2, 0, 0, 0.75, 0, 0}, 128, 36, 1.5, 3}));

TEST(PictureFitter, LeavesPicturesAloneThatDoNotCoverTheCanvas) {
  const Frame picture = waves();
  EXPECT_FALSE(PictureFitter(34, 24).covers(*picture, {0.5, 0, 0, 0.5, 0, 0})) << "too narrow";
  EXPECT_FALSE(PictureFitter(32, 24).covers(*picture, {0.5, 0, 0, 0.5, 1, 0})) << "shifted";
  EXPECT_FALSE(PictureFitter(8, 8).covers(*picture, {0.5, 0.1, -0.1, 0.5, 0, -4})) << "turned askew";
}

// Half a level is what rounding takes of the waves themselves, and of chroma each time that it is moved along an axis.
INSTANTIATE_TEST_SUITE_P(
    Maps, Rendered,
    testing::Values(Case{"AsItIs", {}, width, height, 0.5, 0.5},
                    Case{"ACropByAnEvenShift", {1, 0, 0, 1, -8, -6}, 32, 32, 0.5, 0.5},
                    Case{"AQuarterTurnWithItsResidue", {6.1e-17, 1, -1, 6.1e-17, 48, 0}, 48, 64, 0.5, 1.75},
                    Case{"AQuarterTurnTheOtherWay", {0, -1, 1, 0, 0, 64}, 48, 64, 0.5, 1.75},
                    Case{"AHalfTurn", {-1, 0, 0, -1, 64, 48}, width, height, 0.5, 1.5},
                    Case{"AMirror", {-1, 0, 0, 1, 64, 0}, width, height, 0.5, 1.5},
                    Case{"AnOddShiftKeepsLumaExact", {1, 0, 0, 1, -7, -5}, 40, 40, 0.5, 1.5},
                    Case{"AnOddPlaceOnALargerCanvas", {1, 0, 0, 1, 7, 9}, 96, 80, 0.5, 1.5},
                    Case{"ATurnAtAnOddShift", {0, 1, -1, 0, 47, 3}, 64, 80, 0.5, 1.5},
                    Case{"AShiftBetweenPixels", {1, 0, 0, 1, -7.25, 0.5}, 40, 40, 1.5, 1.5},
                    Case{"TwiceAsLarge", {2, 0, 0, 2, -20, -10}, 96, 80, 1.5, 1.5},
                    Case{"AQuarterAsLarge", {0.25, 0, 0, 0.25, 8, 8}, 32, 32, 2.5, 3},
                    Case{"AThirdOfATurn", {0.5, 0.8660254, -0.8660254, 0.5, 40, 0}, 96, 96, 1.5, 1.5},
                    Case{"SmallerAndAskew", {0.4, 0.3, -0.3, 0.4, 40, 20}, 96, 96, 3, 3}),
    [](const auto& one) { return std::string(one.param.sentence); });

int lumaAt(const Frame& frame, int x, int y) { return frame->data[0][y * frame->linesize[0] + x]; }

TEST(PictureRenderer, DrawsLayersOverOneAnotherByTheirOpacity) {
  Frame white = *blackFrame(width, height, AV_PIX_FMT_YUV420P, false);
  for (int i = 0; i < height * white->linesize[0]; ++i) white->data[0][i] = 235;
  std::vector<PictureLayer> layers;
  layers.push_back({shareFrame(white), {}, 0.5});
  layers.push_back({shareFrame(white), {0.25, 0, 0, 0.25, 8, 8}, 1});
  layers.push_back({shareFrame(white), {}, 0});
  PictureRenderer renderer(width, height, AV_PIX_FMT_YUV420P);
  const auto canvas = renderer.render(layers);
  ASSERT_TRUE(canvas);
  EXPECT_EQ(lumaAt(*canvas, 0, 0), 126) << "half of white over black";
  EXPECT_EQ(lumaAt(*canvas, 12, 12), 235);
  EXPECT_EQ(lumaAt(white, 0, 0), 235) << "the source stays as it is";
}

TEST(PictureRenderer, SharesWhatOnlyLosesItsEdges) {
  const Frame picture = waves();
  std::vector<PictureLayer> layers;
  layers.push_back({shareFrame(picture), {1, 0, 0, 1, -8, -4}, 1});
  PictureRenderer renderer(32, 32, AV_PIX_FMT_YUV420P);
  const auto canvas = renderer.render(layers);
  ASSERT_TRUE(canvas);
  EXPECT_EQ((*canvas)->data[0], picture->data[0] + 4 * picture->linesize[0] + 8);
}

TEST(PictureRenderer, AMapThatShowsNothingGivesBlack) {
  for (const AffineMap& map :
       {AffineMap{0, 0, 0, 0, 5, 5}, AffineMap{1, 0, 0, 1, 1e9, 0}, AffineMap{1, 0, 0, 1, std::nan(""), 0}}) {
    std::vector<PictureLayer> layers;
    layers.push_back({waves(), map, 1});
    PictureRenderer renderer(32, 32, AV_PIX_FMT_YUV420P);
    const auto canvas = renderer.render(layers);
    ASSERT_TRUE(canvas);
    EXPECT_EQ(lumaAt(*canvas, 16, 16), 16);
  }
}

}  // namespace
}  // namespace clipworks::engine
