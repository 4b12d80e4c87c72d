#include <clipworks/rotate/VideoRotateUtils.h>

#include <cmath>
#include <limits>

#include <tests/support/OperationTest.h>

namespace clipworks::test {
namespace {

namespace fs = std::filesystem;

constexpr int width = 64;
constexpr int height = 48;
using Outcome = Result<URL, VideoRotateUtils::RotateError>;

/// Of the source: red and lime above, blue and white below, black around.
std::array<int, 3> colourAt(double x, double y) {
  if (x < 0 || y < 0 || x > width || y > height) return {0, 0, 0};
  const bool isLeft = x < width / 2.0;
  if (y < height / 2.0) return {isLeft ? 255 : 0, isLeft ? 0 : 255, 0};
  return {isLeft ? 0 : 255, isLeft ? 0 : 255, 255};
}

/// Fails the test for each place of the first picture that does not show what `drawn` maps there from the source.
void expectDrawn(const URL& output, const CGAffineTransform& drawn, int outputWidth, int outputHeight) {
  const std::string rgb = outputOf(
      {"ffmpeg", "-v", "error", "-i", output.path(), "-frames:v", "1", "-pix_fmt", "rgb24", "-f", "rawvideo", "-"});
  ASSERT_EQ(rgb.size(), static_cast<std::size_t>(outputWidth * outputHeight * 3));
  const double determinant = drawn.a * drawn.d - drawn.b * drawn.c;
  for (int y = 4; y < outputHeight; y += 8) {
    for (int x = 4; x < outputWidth; x += 8) {
      const double dx = x + 0.5 - drawn.tx;
      const double dy = y + 0.5 - drawn.ty;
      const double sourceX = (drawn.d * dx - drawn.c * dy) / determinant;
      const double sourceY = (drawn.a * dy - drawn.b * dx) / determinant;
      // Between quarters, chroma of both mixes: it lies on whole pixels of every other one.
      if (std::abs(std::remainder(sourceX, width / 2)) < 2 || std::abs(std::remainder(sourceY, height / 2)) < 2)
        continue;
      const auto wanted = colourAt(sourceX, sourceY);
      for (std::size_t i = 0; i < 3; ++i) {
        const auto at = static_cast<std::size_t>(y * outputWidth + x) * 3 + i;
        EXPECT_NEAR(static_cast<std::uint8_t>(rgb[at]), wanted[i], 23) << "at " << x << ", " << y;
      }
    }
  }
}

class Rotate : public OperationTest {
 protected:
  static Outcome rotated(const URL& url) {
    return later<Outcome>([&](auto done) { VideoRotateUtils::make()->rotateVideo(url, done); });
  }
  static Outcome cropped(const URL& url, const CGRect& rect) {
    return later<Outcome>([&](auto done) { VideoRotateUtils::make()->cropVideo(url, rect, done); });
  }
  /// Four quarters of different colours, for a third of a second.
  URL fourQuarters(const CGAffineTransform& matrix) const {
    const fs::path path = outputs_.file("quarters.mp4");
    outputOf({"ffmpeg", "-v", "error", "-y", "-f", "lavfi", "-i",
              "color=red:s=64x48:r=30:d=0.34,drawbox=32:0:32:24:lime:fill,drawbox=0:24:32:24:blue:fill,"
              "drawbox=32:24:32:24:white:fill,format=yuv420p",
              "-c:v", "libx264", "-crf", "8", path});
    const auto& m = matrix;
    setMatrix(path, {m.a, m.b, m.c, m.d, m.tx, m.ty});
    return URL(path);
  }
};

struct Case {
  const char* name;
  CGAffineTransform preferred;
  CGAffineTransform rotated;  // how a rotation draws the coded picture
  CGAffineTransform cropped;  // how a crop of half the height or width draws it, a twelfth or so from the edge
};

TEST_F(Rotate, TurnsAndCropsUnderEveryMatrix) {
  for (const auto& matrix : {
           Case{"Upright", {1, 0, 0, 1, 0, 0}, {0, -1, 1, 0, 0, 64}, {1, 0, 0, 1, -8, 0}},
           Case{"Clockwise", {0, 1, -1, 0, 48, 0}, {-1, 0, 0, -1, 64, 48}, {0, 1, -1, 0, 48, -12}},
           Case{"ClockwiseWithoutItsShift", {0, 1, -1, 0, 0, 0}, {-1, 0, 0, -1, 64, 48}, {0, 1, -1, 0, 48, -12}},
           Case{"UpsideDown", {-1, 0, 0, -1, 64, 48}, {0, 1, -1, 0, 48, 0}, {-1, 0, 0, -1, 56, 48}},
           Case{"Counterclockwise", {0, -1, 1, 0, 0, 64}, {-1, 0, 0, -1, 64, 48}, {0, -1, 1, 0, 0, 52}},
           // Kept: mirrored pictures are not turned as one would wish, and partly leave the screen.
           Case{"MirroredSideways", {-1, 0, 0, 1, 64, 0}, {0, -1, -1, 0, 48, 48}, {-1, 0, 0, -1, 56, 48}},
           Case{"MirroredUpsideDown", {1, 0, 0, -1, 0, 48}, {0, 1, 1, 0, 0, -16}, {1, 0, 0, 1, -8, 0}},
           Case{"Transposed", {0, 1, 1, 0, 0, 0}, {-1, 0, 0, 1, 48, 0}, {0, 1, -1, 0, 0, -12}},
           Case{"TransposedTheOtherWay", {0, -1, -1, 0, 48, 64}, {1, 0, 0, -1, -16, 48}, {0, -1, 1, 0, 0, 52}},
       }) {
    SCOPED_TRACE(matrix.name);
    const URL clip = fourQuarters(matrix.preferred);
    const bool isPortrait = matrix.preferred.a == 0;
    const URL turned = rotated(clip).value();
    expectDrawn(turned, matrix.rotated, isPortrait ? width : height, isPortrait ? height : width);
    EXPECT_FALSE(MediaJudge(turned.path()).stream("video").matrix) << "the output is upright";
    const URL part = cropped(clip, isPortrait ? CGRect(0, 6, 24, 16) : CGRect(4, 0, 16, 24)).value();
    expectDrawn(part, matrix.cropped, isPortrait ? height : width / 2, isPortrait ? width / 2 : height);
  }
}

TEST_F(Rotate, PrintsWhatItReckonsToTheLastDigit) {
  const URL clip = fourQuarters({0, 1, -1, 0, 48, 0});
  EXPECT_TRUE(rotated(clip));
  EXPECT_TRUE(cropped(clip, CGRect(0, 6.25, 24, 16)));
  EXPECT_THAT(printed_.lines(),
              testing::ElementsAre(
                  "Dimensions: -48.0 x 64.0", "track size (64.0, 48.0)",
                  "preferred Transform = CGAffineTransform(a: 0.0, b: 1.0, c: -1.0, d: 0.0, tx: 48.0, ty: 0.0)",
                  "rotation angle 1.5707963267948966", "rotation offset (48.0, 0.0)",
                  "actual Transform = CGAffineTransform(a: 6.123233995736766e-17, b: 1.0, c: -1.0, d: "
                  "6.123233995736766e-17, tx: 48.0, ty: -12.5)"));
}

TEST_F(Rotate, KeepsPicturesAtTheirTimesAtTheRateWithoutItsFraction) {
  const URL clip = urlOf({.width = 320, .height = 180, .frames = 60, .rate = {30'000, 1001}, .rotation = 90});
  const MediaJudge judge(rotated(clip).value().path());
  const auto pictures = judge.pictures();
  ASSERT_EQ(pictures.size(), 59U) << "2.002 seconds at 29 a second";
  for (std::size_t i = 0; i < pictures.size(); ++i) {
    EXPECT_NEAR(pictures[i].seconds, static_cast<double>(i) / 29, 1e-5);
    // The muxer's edit tells the clip's length to a millisecond, so a time on the edge may be either.
    EXPECT_EQ(pictures[i].number, static_cast<int>(pictures[i].seconds * 30'000 / 1001 + 1e-6)) << i;
  }
  EXPECT_NEAR(judge.sound().seconds(), 2.002, 0.03);
  EXPECT_EQ(judge.warnings(), "");
}

TEST_F(Rotate, AClipWithoutSoundOrOfOddSizeIsTurnedAllTheSame) {
  const MediaJudge judge(
      rotated(urlOf({.height = 181, .frames = 12, .pixelFormat = "yuv444p", .audioCodec = ""})).value().path());
  ASSERT_EQ(judge.streams().size(), 1U);
  EXPECT_EQ(std::pair(judge.stream("video").width, judge.stream("video").height), std::pair(182, 320));
  EXPECT_EQ(numbersOf(judge.pictures()).back(), 11);
}

TEST_F(Rotate, WhatCannotBeDoneFailsAndLeavesNoFile) {
  const URL clip = urlOf({.width = 160, .height = 90, .frames = 10, .audioCodec = ""});
  constexpr double nan = std::numeric_limits<double>::quiet_NaN();
  for (const CGRect& rect : {CGRect(0, 0, 100, 0), CGRect(0, 0, nan, nan), CGRect(0, 0, 100'000, 90)}) {
    EXPECT_FALSE(cropped(clip, rect)) << rect.size.width << " × " << rect.size.height;
  }
  EXPECT_FALSE(rotated(urlOf({.frameTimes = {0, 1, 2, 3}, .timescale = 90'000, .audioCodec = ""}))) << "90000 a second";
  EXPECT_FALSE(
      atOnce<Outcome>([](auto done) { VideoRotateUtils::make()->rotateVideo(URL("/nowhere/clip.mp4"), done); }));
  EXPECT_TRUE(fs::is_empty(outputs_.path()));
}

TEST_F(Rotate, ACropBeyondThePictureIsBlackThere) {
  expectDrawn(cropped(fourQuarters({}), CGRect(-3, -2, -24, 12)).value(), {1, 0, 0, 1, 12, 8}, 96, 48);
}

}  // namespace
}  // namespace clipworks::test
