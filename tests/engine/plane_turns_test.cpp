#include <clipworks/engine/pictures/PlaneTurns.h>

#include <gtest/gtest.h>

#include <cstdint>
#include <ostream>
#include <string>

#include <clipworks/engine/pictures/FramePadding.h>

namespace clipworks::engine {
namespace {

struct TurnCase {
  const char* name;
  PlaneTurn turn;
  double a, b, c, d;
};
std::ostream& operator<<(std::ostream& out, const TurnCase& turnCase) { return out << turnCase.name; }

struct KindCase {
  const char* name;
  AVPixelFormat format;
  int width, height;
};
std::ostream& operator<<(std::ostream& out, const KindCase& kind) { return out << kind.name; }

int sampleAt(const Frame& frame, int plane, int x, int y) {
  const auto* pixels = av_pix_fmt_desc_get(static_cast<AVPixelFormat>(frame->format));
  const auto* row = frame->data[plane] + static_cast<std::ptrdiff_t>(y) * frame->linesize[plane];
  return pixels->comp[0].depth > 8 ? reinterpret_cast<const std::uint16_t*>(row)[x] : row[x];
}

int widthOf(const Frame& frame, int plane) {
  const auto* pixels = av_pix_fmt_desc_get(static_cast<AVPixelFormat>(frame->format));
  return plane == 0 ? frame->width : AV_CEIL_RSHIFT(frame->width, pixels->log2_chroma_w);
}

int heightOf(const Frame& frame, int plane) {
  const auto* pixels = av_pix_fmt_desc_get(static_cast<AVPixelFormat>(frame->format));
  return plane == 0 ? frame->height : AV_CEIL_RSHIFT(frame->height, pixels->log2_chroma_h);
}

/// Each sample tells its own place.
Frame paint(const KindCase& kind) {
  Frame frame = std::move(*allocateFrame(kind.width, kind.height, kind.format));
  const bool wide = av_pix_fmt_desc_get(kind.format)->comp[0].depth > 8;
  for (int plane = 0; plane < 3; ++plane) {
    for (int y = 0; y < heightOf(frame, plane); ++y) {
      auto* row = frame->data[plane] + static_cast<std::ptrdiff_t>(y) * frame->linesize[plane];
      for (int x = 0; x < widthOf(frame, plane); ++x) {
        const int value = plane * 61 + x * 7 + y * 29;
        if (wide) {
          reinterpret_cast<std::uint16_t*>(row)[x] = static_cast<std::uint16_t>(value & 1023);
        } else {
          row[x] = static_cast<std::uint8_t>(value & 255);
        }
      }
    }
  }
  return frame;
}

class PlaneTurnsTest : public testing::TestWithParam<std::tuple<TurnCase, KindCase>> {};

TEST_P(PlaneTurnsTest, EverySampleMovesToItsPlaceUnchanged) {
  const auto& [how, kind] = GetParam();
  EXPECT_EQ(turnOf(how.a, how.b, how.c, how.d), how.turn);
  EXPECT_EQ(turnOf(how.a * 2 + 6e-17, how.b * 2 - 6e-17, how.c * 3, how.d * 3), how.turn);

  const Frame frame = paint(kind);
  const auto result = turned(frame, how.turn);
  ASSERT_TRUE(result) << result.error().sentence;
  EXPECT_EQ((*result)->width, how.turn.swapsAxes ? kind.height : kind.width);
  for (int plane = 0; plane < 3; ++plane) {
    const int width = widthOf(frame, plane);
    const int height = heightOf(frame, plane);
    ASSERT_EQ(widthOf(*result, plane), how.turn.swapsAxes ? height : width);
    for (int y = 0; y < height; ++y) {
      for (int x = 0; x < width; ++x) {
        // The transform about the plane's middle, in half samples.
        const double fromX = 2 * x - (width - 1);
        const double fromY = 2 * y - (height - 1);
        const auto toX = static_cast<int>(how.a * fromX + how.c * fromY + widthOf(*result, plane) - 1) / 2;
        const auto toY = static_cast<int>(how.b * fromX + how.d * fromY + heightOf(*result, plane) - 1) / 2;
        ASSERT_EQ(sampleAt(*result, plane, toX, toY), sampleAt(frame, plane, x, y)) << plane << ": " << x << ", " << y;
      }
    }
  }
}

INSTANTIATE_TEST_SUITE_P(
    AllEight, PlaneTurnsTest,
    testing::Combine(testing::Values(TurnCase{"not at all", {}, 1, 0, 0, 1},
                                     TurnCase{"clockwise", clockwiseTurn, 0, 1, -1, 0},
                                     TurnCase{"half around", halfTurn, -1, 0, 0, -1},
                                     TurnCase{"counterclockwise", counterclockwiseTurn, 0, -1, 1, 0},
                                     TurnCase{"mirrored left to right", horizontalMirror, -1, 0, 0, 1},
                                     TurnCase{"mirrored top to bottom", verticalMirror, 1, 0, 0, -1},
                                     TurnCase{"transposed", {true, false, false}, 0, 1, 1, 0},
                                     TurnCase{"transposed across", {true, true, true}, 0, -1, -1, 0}),
                     testing::Values(KindCase{"8 bits 4:2:0", AV_PIX_FMT_YUV420P, 98, 38},
                                     KindCase{"10 bits 4:2:0", AV_PIX_FMT_YUV420P10, 98, 38},
                                     KindCase{"8 bits 4:2:2", AV_PIX_FMT_YUV422P, 36, 22},
                                     KindCase{"8 bits 4:4:4 of odd size", AV_PIX_FMT_YUV444P, 17, 9})));

TEST(PlaneTurnsTest, WhatIsMoreThanATurnIsNone) {
  EXPECT_EQ(turnOf(0.7, 0.7, -0.7, 0.7), std::nullopt);
  EXPECT_EQ(turnOf(1, 0, 0, 0), std::nullopt);
  EXPECT_EQ(turnOf(0, 0, 0, 0), std::nullopt);
  EXPECT_EQ(turnOf(NAN, 0, 0, 1), std::nullopt);
}

/// A ramp in chroma along the axis must stay in step with the same ramp in luma.
TEST(PlaneTurnsTest, ChromaOfOddSidesStaysOnItsPixels) {
  Frame frame = std::move(*allocateFrame(33, 21, AV_PIX_FMT_YUV420P));
  for (int y = 0; y < 21; ++y) std::fill_n(frame->data[0] + y * frame->linesize[0], 33, 4 * y + 2);
  for (int y = 0; y < 11; ++y) std::fill_n(frame->data[1] + y * frame->linesize[1], 17, 8 * y + 4);
  for (int y = 0; y < 11; ++y) std::fill_n(frame->data[2] + y * frame->linesize[2], 17, 8 * y + 4);
  const auto half = turned(frame, halfTurn);
  ASSERT_TRUE(half);
  for (int y = 0; y < 10; ++y) {
    const int between = (sampleAt(*half, 0, 5, 2 * y) + sampleAt(*half, 0, 5, 2 * y + 1)) / 2;
    EXPECT_EQ(sampleAt(*half, 1, 3, y), between) << y;
  }
  EXPECT_EQ((*half)->chroma_location, AVCHROMA_LOC_LEFT);
}

TEST(PlaneTurnsTest, TheNameOfTheChromaPlaceFollows) {
  const Frame frame = paint({"", AV_PIX_FMT_YUV420P, 32, 16});
  frame->sample_aspect_ratio = {4, 3};
  const auto clockwise = turned(frame, clockwiseTurn);
  ASSERT_TRUE(clockwise);
  EXPECT_EQ((*clockwise)->chroma_location, AVCHROMA_LOC_TOP);
  EXPECT_EQ((*clockwise)->sample_aspect_ratio.num, 3);
  EXPECT_EQ((*turned(frame, counterclockwiseTurn))->chroma_location, AVCHROMA_LOC_BOTTOM);
  EXPECT_EQ((*turned(frame, horizontalMirror))->chroma_location, AVCHROMA_LOC_CENTER);
  frame->format = AV_PIX_FMT_NV12;
  EXPECT_EQ(turned(frame, halfTurn).error().kind, ErrorKind::unsupported);
}

}  // namespace
}  // namespace clipworks::engine
