#include <clipworks/engine/pictures/PlanarPictures.h>

#include <clipworks/engine/pictures/FramePool.h>
#include <clipworks/engine/pictures/PictureResampler.h>

#include <tests/engine/EngineTesting.h>

namespace clipworks::engine {
namespace {

/// From 0 to 1: red, green, blue; or luma, and chroma from a half on.
using Levels = std::array<double, 3>;

constexpr Levels rgb{0.8, 0.4, 0.2};
// Of it by ITU-T H.273, 8.3, by the weights of BT.709, in video range as parts of the whole range.
constexpr double luma = 0.2126 * rgb[0] + 0.7152 * rgb[1] + 0.0722 * rgb[2];
constexpr Levels yuv{(16 + 219 * luma) / 256, (128 + 224 * (rgb[2] - luma) / 1.8556) / 256,
                     (128 + 224 * (rgb[0] - luma) / 1.5748) / 256};

void fill(AVFrame& frame, int component, double level) {
  const auto& pixels = pixelsOf(frame);
  const bool isShare =
      (pixels.flags & AV_PIX_FMT_FLAG_RGB) != 0 || component == 3 || (pixels.nb_components == 2 && component == 1);
  const double most = (1 << pixels.comp[component].depth) - (isShare ? 1 : 0);  // of RGB and alpha; of YUV
  const int plane = isShare ? 0 : component;
  const std::vector<std::uint16_t> row(static_cast<std::size_t>(columnsOf(frame, plane)),
                                       static_cast<std::uint16_t>(std::lround(level * most)));
  for (int y = 0; y < rowsOf(frame, plane); ++y)
    av_write_image_line2(row.data(), frame.data, frame.linesize, &pixels, 0, y, component, columnsOf(frame, plane), 2);
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
    const Frame frame = must(allocateFrame(16, 8, kind));
    for (auto* const buffer : frame->buf) {
      if (buffer != nullptr) std::fill_n(buffer->data, buffer->size, std::uint8_t{0});
    }
    Levels expected = colours < 3 ? Levels{yuv[0], 0.5, 0.5} : yuv;
    for (int i = 0; i < colours; ++i) fill(*frame, i, (isRGB ? rgb : yuv).at(static_cast<std::size_t>(i)));
    if (hasAlpha) {
      fill(*frame, colours, 0.5);
      const Levels black{16.0 / 256, 0.5, 0.5};
      for (std::size_t i = 0; i < 3; ++i) expected[i] = (expected[i] + black[i]) / 2;
    }
    const Frame made = must(planar.convert(frame, AVCOL_SPC_BT709, false));
    EXPECT_TRUE(isResampled(static_cast<AVPixelFormat>(made->format)));
    const int depth = pixelsOf(*made).comp[0].depth;
    const int second = pixels->comp[std::min(1, colours - 1)].depth;
    EXPECT_EQ(depth, std::max(8, second));
    if (colours < 3 && pixels->comp[0].depth == 1) continue;  // black or white
    // A level of what is read, and half of one of what was written.
    const int fewest = std::min({pixels->comp[0].depth, second, pixels->comp[colours - 1].depth});
    const double tolerance =
        1.01 / (1 << depth) + (isRGB && fewest < 8 ? 0.5 / ((1 << fewest) - 1) : 1.5 / (1 << std::min(fewest, depth)));
    for (int plane = 0; plane < 3; ++plane)
      EXPECT_NEAR(sampleAt(*made, plane, 0, 0) / std::pow(2, depth), expected.at(static_cast<std::size_t>(plane)),
                  tolerance)
          << plane;
  }
  EXPECT_GT(kinds, 150);
}

TEST(PlanarPictures, RefusesWhatItCannotRead) {
  for (const AVPixelFormat kind : {AV_PIX_FMT_VAAPI, AV_PIX_FMT_BAYER_RGGB8, AV_PIX_FMT_XYZ12LE, AV_PIX_FMT_NONE})
    EXPECT_EQ(planarKind(kind), AV_PIX_FMT_NONE);
}

}  // namespace
}  // namespace clipworks::engine
