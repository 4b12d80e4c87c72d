#include <clipworks/media/images/CGImage.h>

#include <algorithm>
#include <cmath>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include <clipworks/engine/pictures/FramePadding.h>
#include <clipworks/engine/pictures/StillImage.h>
#include <clipworks/media/images/UIImage.h>

namespace clipworks::test {
namespace {

struct LayoutCase {
  std::string name;
  AVPixelFormat format;
  AVColorSpace matrix;
  AVColorRange range;
  double kr;  ///< of H.273, table 4
  double kb;

  friend std::ostream& operator<<(std::ostream& out, const LayoutCase& c) { return out << c.name; }
};

class ImageData : public testing::TestWithParam<LayoutCase> {};

/// Every pixel of a picture with all luma values and a wide set of chroma, against H.273's formula.
TEST_P(ImageData, IsWithinOneLevelOfTheExactValue) {
  const LayoutCase& c = GetParam();
  constexpr int width = 255;
  constexpr int height = 129;
  auto still = std::make_shared<engine::StillImage>();
  still->frame = std::move(engine::allocateFrame(width, height, c.format).value());
  AVFrame& frame = *still->frame;
  frame.colorspace = c.matrix;
  frame.color_range = c.range;
  const AVPixFmtDescriptor& pixels = *av_pix_fmt_desc_get(c.format);
  for (int plane = 0; plane < 3; ++plane) {
    const int w = plane == 0 ? width : AV_CEIL_RSHIFT(width, pixels.log2_chroma_w);
    const int h = plane == 0 ? height : AV_CEIL_RSHIFT(height, pixels.log2_chroma_h);
    for (int y = 0; y < h; ++y) {
      for (int x = 0; x < w; ++x) {
        const int value = plane == 0 ? x * 3 + y : plane == 1 ? x * 5 + y : y * 7 + x;
        frame.data[plane][y * frame.linesize[plane] + x] = static_cast<std::uint8_t>(value % 224 + 16);
      }
    }
  }
  const CGImage image(still);
  ASSERT_EQ(image.bytesPerRow(), 4U * width);
  const auto data = image.copyData();
  ASSERT_EQ(data.size(), 4U * width * height);
  const bool isFull = c.range == AVCOL_RANGE_JPEG;
  double worst = 0;
  for (int y = 0; y < height; ++y) {
    for (int x = 0; x < width; ++x) {
      const auto sample = [&](int plane) {
        const int row = plane == 0 ? y : y >> pixels.log2_chroma_h;
        return static_cast<double>(
            frame.data[plane][row * frame.linesize[plane] + (plane == 0 ? x : x >> pixels.log2_chroma_w)]);
      };
      const double luma = isFull ? sample(0) / 255 : (sample(0) - 16) / 219;
      const double cb = (sample(1) - 128) / (isFull ? 255 : 224);
      const double cr = (sample(2) - 128) / (isFull ? 255 : 224);
      const double red = luma + 2 * (1 - c.kr) * cr;
      const double blue = luma + 2 * (1 - c.kb) * cb;
      const double green = (luma - c.kr * red - c.kb * blue) / (1 - c.kr - c.kb);
      const auto* pixel = data.data() + (static_cast<std::size_t>(y) * width + static_cast<std::size_t>(x)) * 4;
      const double expected[] = {blue, green, red};
      for (int i = 0; i < 3; ++i)
        worst = std::max(worst, std::abs(std::clamp(expected[i] * 255, 0.0, 255.0) - pixel[i]));
      ASSERT_EQ(pixel[3], 255);
    }
  }
  EXPECT_LE(worst, 1);
}

INSTANTIATE_TEST_SUITE_P(
    Table, ImageData,
    testing::Values(
        LayoutCase{"BT709", AV_PIX_FMT_YUV420P, AVCOL_SPC_BT709, AVCOL_RANGE_MPEG, 0.2126, 0.0722},
        LayoutCase{"BT709_full", AV_PIX_FMT_YUV420P, AVCOL_SPC_BT709, AVCOL_RANGE_JPEG, 0.2126, 0.0722},
        LayoutCase{"BT601", AV_PIX_FMT_YUV420P, AVCOL_SPC_SMPTE170M, AVCOL_RANGE_MPEG, 0.299, 0.114},
        LayoutCase{"BT601_full", AV_PIX_FMT_YUV420P, AVCOL_SPC_BT470BG, AVCOL_RANGE_JPEG, 0.299, 0.114},
        LayoutCase{"BT2020", AV_PIX_FMT_YUV420P, AVCOL_SPC_BT2020_NCL, AVCOL_RANGE_MPEG, 0.2627, 0.0593},
        LayoutCase{"BT2020_full", AV_PIX_FMT_YUV420P, AVCOL_SPC_BT2020_NCL, AVCOL_RANGE_JPEG, 0.2627, 0.0593},
        LayoutCase{"half_the_chroma", AV_PIX_FMT_YUV422P, AVCOL_SPC_BT709, AVCOL_RANGE_MPEG, 0.2126, 0.0722},
        LayoutCase{"all_of_the_chroma", AV_PIX_FMT_YUV444P, AVCOL_SPC_BT709, AVCOL_RANGE_MPEG, 0.2126, 0.0722},
        LayoutCase{"a_rare_matrix", AV_PIX_FMT_YUV444P, AVCOL_SPC_SMPTE240M, AVCOL_RANGE_MPEG, 0.212, 0.087}),
    [](const auto& testCase) { return testCase.param.name; });

TEST(Image, OfBytesKeepsThem) {
  std::vector<std::uint8_t> rows(3 * 20);
  for (std::size_t i = 0; i < rows.size(); ++i) rows[i] = static_cast<std::uint8_t>(i);
  const auto image = CGImage::make(4, 3, rows.data(), 20);
  std::fill(rows.begin(), rows.end(), std::uint8_t{0});
  ASSERT_NE(image, nullptr);
  EXPECT_EQ(UIImage(image).size(), (CGSize{4, 3}));
  const auto data = image->copyData();
  ASSERT_EQ(data.size(), 48U);
  EXPECT_EQ(std::vector(data.begin() + 16, data.begin() + 24),
            (std::vector<std::uint8_t>{20, 21, 22, 255, 24, 25, 26, 255}));
}

TEST(Image, OfImpossibleSizesIsNone) {
  const std::uint8_t pixel[4] = {};
  EXPECT_EQ(CGImage::make(0, 1, pixel, 4), nullptr);
  EXPECT_EQ(CGImage::make(1, 0, pixel, 4), nullptr);
  EXPECT_EQ(CGImage::make(16385, 1, pixel, 4), nullptr);
}

}  // namespace
}  // namespace clipworks::test
