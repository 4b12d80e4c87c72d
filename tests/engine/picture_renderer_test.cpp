#include <clipworks/engine/pictures/PictureRenderer.h>

#include <clipworks/engine/pictures/PictureFitter.h>

#include <tests/engine/EngineTesting.h>

namespace clipworks::engine {
namespace {

constexpr int width = 64;
constexpr int height = 48;
constexpr AVPixelFormat yuv = AV_PIX_FMT_YUV420P;

/// A smooth picture whose every sample tells its place: luma and both chroma planes are waves of their own.
double wave(int plane, double x, double y) {
  const double across[] = {40, 64, 50};
  const double down[] = {50, 44, 70};
  return 128 + 40 * std::sin(2 * std::numbers::pi * x / across[plane]) +
         40 * std::cos(2 * std::numbers::pi * y / down[plane]);
}

/// Where the middle of a sample lies, in pixels; chroma at the left of its four, as video has it.
double column(int plane, int x) { return x * (plane == 0 ? 1 : 2) + 0.5; }
double line(int plane, int y) { return (y + 0.5) * (plane == 0 ? 1 : 2); }

Frame waves() {
  Frame frame = painted(width, height, yuv,
                        [](int plane, int x, int y) { return wave(plane, column(plane, x), line(plane, y)); });
  frame->chroma_location = AVCHROMA_LOC_LEFT;
  return frame;
}

// A map onto a canvas of a width and height, and the most levels that luma and chroma inside may be off.
using Case = std::tuple<const char*, AffineMap, int, int, double, double>;

/// The waves are known between the samples too, so every sample inside can be told; outside it is black.
void expectWaves(const AVFrame& canvas, int canvasWidth, int canvasHeight, const AffineMap& map, double lumaError,
                 double chromaError) {
  ASSERT_EQ(std::pair(canvas.width, canvas.height), std::pair(canvasWidth, canvasHeight));
  const double determinant = map.a * map.d - map.b * map.c;
  forEachSample(canvas, [&](int plane, int x, int y) {
    const double dx = column(plane, x) - map.tx;
    const double dy = line(plane, y) - map.ty;
    const double sx = (map.d * dx - map.c * dy) / determinant;
    const double sy = (map.a * dy - map.b * dx) / determinant;
    const int seen = sampleAt(canvas, plane, x, y);
    constexpr double edge = 4;  // there the wave is repeated, not gone on with
    if (sx > edge && sy > edge && sx < width - edge && sy < height - edge) {
      ASSERT_NEAR(seen, wave(plane, sx, sy), plane == 0 ? lumaError : chromaError) << plane << ": " << x << ", " << y;
    } else if (sx < -edge || sy < -edge || sx > width + edge || sy > height + edge) {
      ASSERT_EQ(seen, plane == 0 ? 16 : 128) << plane << ": " << x << ", " << y;
    }
  });
}

Expected<Frame> rendered(const Frame& picture, const AffineMap& map, int canvasWidth, int canvasHeight) {
  std::vector<PictureLayer> layers;
  layers.push_back({shareFrame(picture), map, 1});
  return PictureRenderer(canvasWidth, canvasHeight, yuv).render(layers);
}

// Half a level is what rounding takes of the waves themselves, and of chroma each time that it is moved along an axis.
TEST(PictureRenderer, ShowsThePictureWhereItsMapSays) {
  const Case cases[] = {{"as it is", {}, width, height, 0.5, 0.5},
                        {"a crop by an even shift", {1, 0, 0, 1, -8, -6}, 32, 32, 0.5, 0.5},
                        {"a quarter turn with its residue", {6.1e-17, 1, -1, 6.1e-17, 48, 0}, 48, 64, 0.5, 1.75},
                        {"a quarter turn the other way", {0, -1, 1, 0, 0, 64}, 48, 64, 0.5, 1.75},
                        {"a half turn", {-1, 0, 0, -1, 64, 48}, width, height, 0.5, 1.5},
                        {"a mirror", {-1, 0, 0, 1, 64, 0}, width, height, 0.5, 1.5},
                        {"an odd shift keeps luma exact", {1, 0, 0, 1, -7, -5}, 40, 40, 0.5, 1.5},
                        {"an odd place on a larger canvas", {1, 0, 0, 1, 7, 9}, 96, 80, 0.5, 1.5},
                        {"a turn at an odd shift", {0, 1, -1, 0, 47, 3}, 64, 80, 0.5, 1.5},
                        {"a shift between pixels", {1, 0, 0, 1, -7.25, 0.5}, 40, 40, 1.5, 1.5},
                        {"twice as large", {2, 0, 0, 2, -20, -10}, 96, 80, 1.5, 1.5},
                        {"a quarter as large", {0.25, 0, 0, 0.25, 8, 8}, 32, 32, 2.5, 3},
                        {"a third of a turn", {0.5, 0.8660254, -0.8660254, 0.5, 40, 0}, 96, 96, 1.5, 1.5},
                        {"smaller and askew", {0.4, 0.3, -0.3, 0.4, 40, 20}, 96, 96, 3, 3}};
  for (const auto& [name, map, w, h, luma, chroma] : cases) {
    SCOPED_TRACE(name);
    expectWaves(*must(rendered(waves(), map, w, h)), w, h, map, luma, chroma);
  }
}

TEST(PictureFitter, ShowsThePictureWhereItsMapSays) {
  const Case cases[] = {{"half as large", {0.5, 0, 0, 0.5, 0, 0}, 32, 24, 1.5, 3},
                        {"turned clockwise", {0, 0.5, -0.5, 0, 24, 0}, 24, 32, 1.5, 3},
                        {"turned round", {-0.5, 0, 0, -0.5, 32, 24}, 32, 24, 1.5, 3},
                        {"turned counterclockwise", {6e-17, -0.5, 0.5, 6e-17, 0, 32}, 24, 32, 1.5, 3},
                        {"mirrored", {-0.5, 0, 0, 0.5, 32, 0}, 32, 24, 1.5, 3},
                        {"upside down", {0.5, 0, 0, -0.5, 0, 24}, 32, 24, 1.5, 3},
                        {"transposed", {0, 0.5, 0.5, 0, 0, 0}, 24, 32, 1.5, 3},
                        {"transposed the other way", {0, -0.5, -0.5, 0, 24, 32}, 24, 32, 1.5, 3},
                        {"cropped at both sides, off the pixels", {0.6, 0, 0, 0.6, -6.2, -0.4}, 26, 28, 1.5, 3},
                        {"turned and cropped", {0, 1.3, -1.3, 0, 61.2, -5}, 60, 70, 1.5, 3},
                        {"stretched", {2, 0, 0, 0.75, 0, 0}, 128, 36, 1.5, 3}};
  for (const auto& [name, map, w, h, luma, chroma] : cases) {
    SCOPED_TRACE(name);
    PictureFitter fitter(w, h);
    const Frame picture = waves();
    EXPECT_TRUE(fitter.covers(*picture, map));
    expectWaves(*must(fitter.fit(picture, map, yuv)), w, h, map, luma, chroma);
  }
}

TEST(PictureFitter, LeavesPicturesAloneThatDoNotCoverTheCanvas) {
  const Frame picture = waves();
  EXPECT_FALSE(PictureFitter(34, 24).covers(*picture, {0.5, 0, 0, 0.5, 0, 0})) << "too narrow";
  EXPECT_FALSE(PictureFitter(32, 24).covers(*picture, {0.5, 0, 0, 0.5, 1, 0})) << "shifted";
  EXPECT_FALSE(PictureFitter(8, 8).covers(*picture, {0.5, 0.1, -0.1, 0.5, 0, -4})) << "turned askew";
}

TEST(PictureRenderer, DrawsLayersOverOneAnotherByTheirOpacity) {
  const Frame white = painted(width, height, yuv, [](int plane, int, int) { return plane == 0 ? 235 : 128; });
  std::vector<PictureLayer> layers;
  layers.push_back({shareFrame(white), {}, 0.5});
  layers.push_back({shareFrame(white), {0.25, 0, 0, 0.25, 8, 8}, 1});
  layers.push_back({shareFrame(white), {}, 0});
  const Frame canvas = must(PictureRenderer(width, height, yuv).render(layers));
  EXPECT_EQ(sampleAt(*canvas, 0, 0, 0), 126) << "half of white over black";
  EXPECT_EQ(sampleAt(*canvas, 0, 12, 12), 235);
  EXPECT_EQ(sampleAt(*white, 0, 0, 0), 235) << "the source stays as it is";
}

TEST(PictureRenderer, SharesWhatOnlyLosesItsEdges) {
  const Frame picture = waves();
  const Frame canvas = must(rendered(picture, {1, 0, 0, 1, -8, -4}, 32, 32));
  EXPECT_EQ(canvas->data[0], picture->data[0] + 4 * picture->linesize[0] + 8);
}

TEST(PictureRenderer, GivesBlackForAMapThatShowsNothing) {
  for (const AffineMap& map : {AffineMap{0, 0, 0, 0, 5, 5}, {1, 0, 0, 1, 1e9, 0}, {1, 0, 0, 1, NAN, 0}})
    EXPECT_EQ(sampleAt(*must(rendered(waves(), map, 32, 32)), 0, 16, 16), 16);
}

}  // namespace
}  // namespace clipworks::engine
