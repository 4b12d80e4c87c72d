#include <tests/stillpress/StillTesting.h>

#include <algorithm>
#include <cmath>
#include <sstream>
#include <stdexcept>

#include <nlohmann/json.hpp>

#include <clipworks/engine/pictures/FramePadding.h>
#include <clipworks/stillpress/HEICConverter.h>
#include <clipworks/stillpress/JPGConverter.h>
#include <clipworks/stillpress/PNGConverter.h>

#include <tests/support/RunProgram.h>

namespace clipworks::test {
namespace {

std::string outputOf(const std::vector<std::string>& command) {
  const auto result = runProgram(command);
  if (!result.succeeded()) {
    std::ostringstream words;
    words << command.front() << ": " << result;
    throw std::runtime_error(words.str());
  }
  return result.standardOutput;
}

/// Y, Cb, Cr as 8-bit numbers (BT.709, 3.2 to 3.5; BT.601, 2.5).
std::array<double, 3> yuvOf(const Color& color, const YUVTags& tags) {
  const bool is709 = tags.matrix == AVCOL_SPC_BT709;
  const double kr = is709 ? 0.2126 : 0.299;
  const double kb = is709 ? 0.0722 : 0.114;
  const double luma = (kr * color[0] + (1 - kr - kb) * color[1] + kb * color[2]) / 255;
  const double cb = (color[2] / 255 - luma) / (2 * (1 - kb));
  const double cr = (color[0] / 255 - luma) / (2 * (1 - kr));
  if (tags.range == AVCOL_RANGE_JPEG) return {luma * 255, 128 + cb * 255, 128 + cr * 255};
  return {16 + luma * 219, 128 + cb * 224, 128 + cr * 224};
}

SeenStill parsePPM(const std::string& bytes) {
  std::istringstream text(bytes);
  std::string magic;
  int most = 0;
  SeenStill still;
  text >> magic >> still.width >> still.height >> most;
  text.get();
  if (magic != "P6" || most != 255 || !text) throw std::runtime_error("not a PPM file of 8 bits");
  still.rgb.assign(bytes.begin() + static_cast<std::ptrdiff_t>(text.tellg()), bytes.end());
  if (still.rgb.size() != static_cast<std::size_t>(still.width) * static_cast<std::size_t>(still.height) * 3) {
    throw std::runtime_error("a PPM file of the wrong length");
  }
  return still;
}

}  // namespace

std::shared_ptr<engine::StillImage> stillOf(int width, int height, AVPixelFormat format, const YUVTags& tags,
                                            const std::function<Color(int x, int y)>& colorAt) {
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
    const int groupWidth = plane == 0 ? 1 : 1 << pixels.log2_chroma_w;
    const int groupHeight = plane == 0 ? 1 : 1 << pixels.log2_chroma_h;
    for (int y = 0; y < height; y += groupHeight) {
      for (int x = 0; x < width; x += groupWidth) {
        const double value = std::clamp(std::round(yuvOf(colorAt(x, y), tags)[plane]), 0.0, 255.0);
        frame.data[plane][y / groupHeight * frame.linesize[plane] + x / groupWidth] = static_cast<std::uint8_t>(value);
      }
    }
  }
  return still;
}

std::array<int, 3> SeenStill::at(int x, int y) const {
  const auto* pixel =
      rgb.data() + (static_cast<std::size_t>(y) * static_cast<std::size_t>(width) + static_cast<std::size_t>(x)) * 3;
  return {pixel[0], pixel[1], pixel[2]};
}

std::shared_ptr<ImageConverter> converterFor(const std::string& extension) {
  if (extension == "jpg") return JPGConverter::make();
  if (extension == "png") return PNGConverter::make();
  return HEICConverter::make();
}

SeenStill seenBy(const std::filesystem::path& path) {
  std::filesystem::path readable = path;
  if (path.extension() == ".jpg") return parsePPM(outputOf({"djpeg", "-rgb", path}));
  if (path.extension() == ".heic") {
    readable += ".png";
    outputOf({"heif-convert", path, readable});
  }
  return parsePPM(
      outputOf({"ffmpeg", "-v", "error", "-i", readable, "-f", "image2pipe", "-c:v", "ppm", "-pix_fmt", "rgb24", "-"}));
}

std::string rawPicture(const std::filesystem::path& video, int number, const std::string& pixelFormat) {
  return outputOf({"ffmpeg", "-v", "error", "-noautorotate", "-i", video, "-vf",
                   "select=eq(n\\," + std::to_string(number) + "),scale=flags=bicubic+accurate_rnd+full_chroma_int",
                   "-frames:v", "1", "-f", "rawvideo", "-pix_fmt", pixelFormat, "-"});
}

std::filesystem::path converted(ImageConverter& converter, std::shared_ptr<const engine::StillImage> still,
                                const std::filesystem::path& directory) {
  converter.setImage(UIImage(std::make_shared<const CGImage>(std::move(still))));
  const std::filesystem::path path = directory / ("still." + converter.fileExtension());
  std::string failure = "the completion was not called";
  converter.convert([&](const Result<Data, ConverterError>& result) {
    failure = result ? "" : result.error().localizedDescription();
    if (!result) return;
    if (const auto written = result->write(URL(path)); !written) failure = written.error().localizedDescription();
  });
  if (!failure.empty()) throw std::runtime_error(failure);
  return path;
}

nlohmann::json tagsOf(const std::filesystem::path& path) {
  return nlohmann::json::parse(outputOf({"exiftool", "-json", "-n", path})).at(0);
}

double psnr(const std::vector<std::uint8_t>& a, const std::vector<std::uint8_t>& b) {
  if (a.size() != b.size() || a.empty()) throw std::runtime_error("pictures of different sizes");
  double sum = 0;
  for (std::size_t i = 0; i < a.size(); ++i) sum += (a[i] - b[i]) * (a[i] - b[i]);
  return sum == 0 ? 99 : 10 * std::log10(255.0 * 255.0 * static_cast<double>(a.size()) / sum);
}

}  // namespace clipworks::test
