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

}  // namespace
}  // namespace clipworks::engine
