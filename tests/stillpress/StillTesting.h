#pragma once

#include <array>
#include <cstdint>
#include <filesystem>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include <nlohmann/json_fwd.hpp>

#include <clipworks/engine/pictures/StillImage.h>
#include <clipworks/media/images/CGImage.h>
#include <clipworks/stillpress/ImageConverter.h>

namespace clipworks::test {

/// How samples of YUV pictures are to be read.
struct YUVTags {
  AVColorSpace matrix = AVCOL_SPC_BT709;
  AVColorRange range = AVCOL_RANGE_MPEG;
  AVColorPrimaries primaries = AVCOL_PRI_BT709;
};

using Color = std::array<double, 3>;  ///< red, green, blue from 0 to 255

/// A YUV picture whose pixels have these colours: each luma sample that of its own pixel, each chroma sample that of
/// the first pixel of its group, by BT.601's or BT.709's own formula.
[[nodiscard]] std::shared_ptr<engine::StillImage> stillOf(int width, int height, AVPixelFormat format,
                                                          const YUVTags& tags,
                                                          const std::function<Color(int x, int y)>& colorAt);

/// Rows of red, green, blue.
struct SeenStill {
  int width = 0;
  int height = 0;
  std::vector<std::uint8_t> rgb;

  [[nodiscard]] std::array<int, 3> at(int x, int y) const;
};

/// A converter by its files' extension: "jpg", "png", "heic".
[[nodiscard]] std::shared_ptr<ImageConverter> converterFor(const std::string& extension);

/// What other programs see in a still: djpeg in JPEG, heif-convert in HEIC, ffmpeg in PNG. Throws with their words.
[[nodiscard]] SeenStill seenBy(const std::filesystem::path& path);

/// A picture of a video as the ffmpeg program decodes it, precisely, to RGB (`rgb24`) or to its own planes (`yuv420p`).
[[nodiscard]] std::string rawPicture(const std::filesystem::path& video, int number, const std::string& pixelFormat);

/// Writes what `converter` makes of `still` and looks at it. Throws with the converter's words.
[[nodiscard]] std::filesystem::path converted(ImageConverter& converter,
                                              std::shared_ptr<const engine::StillImage> still,
                                              const std::filesystem::path& directory);

/// The file's tags as exiftool reads them, by their names alone. Throws with its words.
[[nodiscard]] nlohmann::json tagsOf(const std::filesystem::path& path);

/// Peak signal-to-noise ratio over all samples, in dB; 99 for equal ones.
[[nodiscard]] double psnr(const std::vector<std::uint8_t>& a, const std::vector<std::uint8_t>& b);

}  // namespace clipworks::test
