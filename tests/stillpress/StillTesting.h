#pragma once

#include <algorithm>
#include <array>
#include <cmath>

#include <nlohmann/json.hpp>

#include <clipworks/engine/pictures/FramePadding.h>
#include <clipworks/engine/pictures/StillImage.h>
#include <clipworks/media/images/CGImage.h>
#include <clipworks/stillpress/HEICConverter.h>
#include <clipworks/stillpress/JPGConverter.h>
#include <clipworks/stillpress/PNGConverter.h>

#include <tests/support/OperationTest.h>

namespace clipworks::test {

using Still = std::shared_ptr<engine::StillImage>;

/// The converters, by their files' extension.
constexpr std::array<const char*, 3> formats{"jpg", "png", "heic"};

/// How samples of YUV pictures are to be read.
struct YUVTags {
  AVColorSpace matrix = AVCOL_SPC_BT709;
  AVColorRange range = AVCOL_RANGE_MPEG;
  AVColorPrimaries primaries = AVCOL_PRI_BT709;
};

using Color = std::array<double, 3>;  ///< red, green, blue from 0 to 255

/// Y, Cb, Cr as 8-bit numbers (BT.709, 3.2 to 3.5; BT.601, 2.5).
inline std::array<double, 3> yuvOf(const Color& color, const YUVTags& tags) {
  const bool is709 = tags.matrix == AVCOL_SPC_BT709;
  const double kr = is709 ? 0.2126 : 0.299;
  const double kb = is709 ? 0.0722 : 0.114;
  const double luma = (kr * color[0] + (1 - kr - kb) * color[1] + kb * color[2]) / 255;
  const double cb = (color[2] / 255 - luma) / (2 * (1 - kb));
  const double cr = (color[0] / 255 - luma) / (2 * (1 - kr));
  if (tags.range == AVCOL_RANGE_JPEG) return {luma * 255, 128 + cb * 255, 128 + cr * 255};
  return {16 + luma * 219, 128 + cb * 224, 128 + cr * 224};
}

/// A YUV picture whose columns have these colours: each luma sample that of its own pixel, each chroma sample that of
/// the first pixel of its group, by BT.601's or BT.709's own formula.
inline Still stillOf(int width, int height, AVPixelFormat format, const YUVTags& tags,
                     const std::function<Color(int x)>& colorAt) {
  auto still = std::make_shared<engine::StillImage>();
  still->frame = std::move(engine::allocateFrame(width, height, format).value());
  AVFrame& frame = *still->frame;
  frame.colorspace = tags.matrix;
  frame.color_range = tags.range;
  frame.color_primaries = tags.primaries;
  frame.color_trc = AVCOL_TRC_BT709;
  frame.chroma_location = AVCHROMA_LOC_LEFT;
  const AVPixFmtDescriptor& pixels = *av_pix_fmt_desc_get(format);
  for (std::size_t plane = 0; plane < 3; ++plane) {
    const int x = plane == 0 ? 0 : pixels.log2_chroma_w;
    const int y = plane == 0 ? 0 : pixels.log2_chroma_h;
    for (int column = 0; column < AV_CEIL_RSHIFT(width, x); ++column) {
      const double value = std::clamp(std::round(yuvOf(colorAt(column << x), tags)[plane]), 0.0, 255.0);
      for (int row = 0; row < AV_CEIL_RSHIFT(height, y); ++row) {
        frame.data[plane][row * frame.linesize[plane] + column] = static_cast<std::uint8_t>(value);
      }
    }
  }
  return still;
}

inline std::shared_ptr<ImageConverter> converterFor(const std::string& extension) {
  if (extension == "jpg") return JPGConverter::make();
  if (extension == "png") return PNGConverter::make();
  return HEICConverter::make();
}

/// A still as a file.
struct StillFile {
  TemporaryDirectory directory{};
  std::filesystem::path path;

  /// Throws with the converter's words.
  StillFile(const std::string& extension, std::shared_ptr<const engine::StillImage> still, bool keepsMetadata = true)
      : path(directory.file("still." + extension)) {
    const auto converter = converterFor(extension);
    converter->setKeepsRecordingMetadata(keepsMetadata);
    converter->setImage(UIImage(std::make_shared<const CGImage>(std::move(still))));
    std::string failure = "the completion was not called";
    converter->convert([&](const Result<Data, ConverterError>& result) {
      failure = result ? "" : result.error().localizedDescription();
      if (result && !result->write(URL(path))) failure = "it cannot be written";
    });
    if (!failure.empty()) throw std::runtime_error(failure);
  }

  /// The tags as exiftool reads them, by their names alone. Throws with its words.
  [[nodiscard]] nlohmann::json tags() const {
    return nlohmann::json::parse(outputOf({"exiftool", "-json", "-n", path})).at(0);
  }
};

/// What other programs see in a still that was converted: djpeg in JPEG, heif-convert in HEIC, ffmpeg in PNG. Throws
/// with their words.
struct SeenStill {
  int width = 0;
  int height = 0;
  std::string rgb;  ///< rows of red, green, blue

  SeenStill(const std::string& extension, std::shared_ptr<const engine::StillImage> still) {
    const StillFile file(extension, std::move(still));
    const auto raw = file.directory.file(extension == "jpg" ? "still.ppm" : "still.png");
    if (extension == "jpg") outputOf({"djpeg", "-rgb", "-outfile", raw, file.path});
    if (extension == "heic") outputOf({"heif-convert", file.path, raw});
    rgb = outputOf({"ffmpeg", "-v", "error", "-i", raw, "-f", "rawvideo", "-pix_fmt", "rgb24", "-"});
    const ProbedStream facts = MediaJudge(raw).stream("video");
    width = facts.width;
    height = facts.height;
  }

  [[nodiscard]] std::array<int, 3> at(int x, int y) const {
    const auto* pixel = reinterpret_cast<const std::uint8_t*>(rgb.data()) + (y * width + x) * 3;
    return {pixel[0], pixel[1], pixel[2]};
  }
};

}  // namespace clipworks::test
