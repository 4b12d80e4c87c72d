#include <clipworks/engine/pictures/PlanarPictures.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <cstring>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include <clipworks/engine/pictures/FramePool.h>
#include <clipworks/engine/pictures/PictureResampler.h>

namespace clipworks::engine {
namespace {

constexpr int width = 16;
constexpr int height = 8;

/// From 0 to 1: red, green, blue; or luma, and chroma from a half on.
using Levels = std::array<double, 3>;

constexpr Levels rgb{0.8, 0.4, 0.2};

/// ITU-T H.273, 8.3, by the weights of BT.709, as parts of the whole range.
Levels videoRange(const Levels& c) {
  const double luma = 0.2126 * c[0] + 0.7152 * c[1] + 0.0722 * c[2];
  return {(16 + 219 * luma) / 256, (128 + 224 * (c[2] - luma) / 1.8556) / 256,
          (128 + 224 * (c[0] - luma) / 1.5748) / 256};
}

void fill(AVFrame& frame, const AVPixFmtDescriptor& pixels, int component, double level, bool isShare) {
  const int depth = pixels.comp[component].depth;
  const double most = isShare ? (1 << depth) - 1 : 1 << depth;  // of RGB and alpha; of YUV
  const bool isChroma =
      (component == 1 || component == 2) && pixels.nb_components >= 3 && (pixels.flags & AV_PIX_FMT_FLAG_RGB) == 0;
  const int across = isChroma ? AV_CEIL_RSHIFT(width, pixels.log2_chroma_w) : width;
  const int down = isChroma ? AV_CEIL_RSHIFT(height, pixels.log2_chroma_h) : height;
  const std::vector<std::uint16_t> row(static_cast<std::size_t>(across),
                                       static_cast<std::uint16_t>(std::lround(level * most)));
  for (int y = 0; y < down; ++y)
    av_write_image_line2(row.data(), frame.data, frame.linesize, &pixels, 0, y, component, across, 2);
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
    auto frame = allocateFrame(width, height, kind);
    ASSERT_TRUE(frame);
    for (auto* const buffer : (*frame)->buf) {
      if (buffer != nullptr) std::memset(buffer->data, 0, buffer->size);
    }
    const Levels yuv = videoRange(rgb);
    Levels expected = colours < 3 ? Levels{yuv[0], 0.5, 0.5} : yuv;
    for (int i = 0; i < colours; ++i)
      fill(**frame, *pixels, i, (isRGB ? rgb : yuv)[static_cast<std::size_t>(i)], isRGB);
    if (hasAlpha) {
      fill(**frame, *pixels, pixels->nb_components - 1, 0.5, true);
      const Levels black{16.0 / 256, 0.5, 0.5};
      for (std::size_t i = 0; i < 3; ++i) expected[i] = (expected[i] + black[i]) / 2;
    }
    const auto made = planar.convert(*frame, AVCOL_SPC_BT709, false);
    ASSERT_TRUE(made) << made.error().sentence;
    EXPECT_TRUE(isResampled(static_cast<AVPixelFormat>((*made)->format)));
    const int depth = av_pix_fmt_desc_get(static_cast<AVPixelFormat>((*made)->format))->comp[0].depth;
    EXPECT_EQ(depth, std::max(8, pixels->comp[std::min(1, colours - 1)].depth));
    // A level of what is read, and half of one of what was written.
    const bool isBitMap = colours < 3 && pixels->comp[0].depth == 1;
    const int fewest = std::min(
        {pixels->comp[0].depth, pixels->comp[std::min(1, colours - 1)].depth, pixels->comp[colours - 1].depth});
    const double tolerance =
        1.01 / (1 << depth) + (isRGB && fewest < 8 ? 0.5 / ((1 << fewest) - 1) : 1.5 / (1 << std::min(fewest, depth)));
    for (int plane = 0; plane < 3 && !isBitMap; ++plane) {
      const std::uint8_t* data = (*made)->data[plane];
      const int level = depth > 8 ? *reinterpret_cast<const std::uint16_t*>(data) : *data;
      EXPECT_NEAR(level / std::pow(2, depth), expected[static_cast<std::size_t>(plane)], tolerance)
          << "plane " << plane;
    }
  }
  EXPECT_GT(kinds, 150);
}

TEST(PlanarPictures, RefusesWhatItCannotRead) {
  for (const AVPixelFormat kind : {AV_PIX_FMT_VAAPI, AV_PIX_FMT_BAYER_RGGB8, AV_PIX_FMT_XYZ12LE, AV_PIX_FMT_NONE}) {
    EXPECT_EQ(planarKind(kind), AV_PIX_FMT_NONE);
  }
}

}  // namespace
}  // namespace clipworks::engine
