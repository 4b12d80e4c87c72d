#include <clipworks/engine/pictures/PlanarPictures.h>

#include <zimg++.hpp>

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include <clipworks/engine/pictures/FramePool.h>
#include <clipworks/engine/pictures/PictureResampler.h>

namespace clipworks::engine {
namespace {

constexpr std::size_t vectorAlignment = 64;
constexpr int leastDepth = 8;
constexpr int floatDepth = 16;  // what samples of floating point become

bool has(const AVPixFmtDescriptor& pixels, std::uint64_t flag) { return (pixels.flags & flag) != 0; }

bool isRGB(const AVPixFmtDescriptor& pixels) { return has(pixels, AV_PIX_FMT_FLAG_RGB | AV_PIX_FMT_FLAG_PAL); }

/// Components that are no alpha.
int colourCount(const AVPixFmtDescriptor& pixels) {
  if (has(pixels, AV_PIX_FMT_FLAG_PAL)) return 3;
  return pixels.nb_components - (has(pixels, AV_PIX_FMT_FLAG_ALPHA) ? 1 : 0);
}

/// Bits of the planar samples.
int depthOf(const AVPixFmtDescriptor& pixels) {
  if (has(pixels, AV_PIX_FMT_FLAG_FLOAT)) return floatDepth;
  int depth = leastDepth;
  for (int i = 0; i < colourCount(pixels) && i < pixels.nb_components; ++i)
    depth = std::max(depth, pixels.comp[i].depth);
  return depth;
}

bool isPlanarYUV(AVPixelFormat format) {
  const AVPixFmtDescriptor* pixels = av_pix_fmt_desc_get(format);
  return isResampled(format) && !has(*pixels, AV_PIX_FMT_FLAG_ALPHA);
}

/// The kind of planar YUV, or of planar RGB, without alpha.
AVPixelFormat planarFormat(int depth, int chromaX, int chromaY, bool isRGB) {
  for (const AVPixFmtDescriptor* pixels = nullptr; (pixels = av_pix_fmt_desc_next(pixels)) != nullptr;) {
    const AVPixelFormat format = av_pix_fmt_desc_get_id(pixels);
    const bool isKind = isRGB ? pixels->nb_components == 3 && av_pix_fmt_count_planes(format) == 3 &&
                                    has(*pixels, AV_PIX_FMT_FLAG_RGB) &&
                                    !has(*pixels, AV_PIX_FMT_FLAG_BE | AV_PIX_FMT_FLAG_FLOAT)
                              : isPlanarYUV(format) && plainKind(format) == format;
    if (isKind && pixels->comp[0].depth == depth && pixels->comp[0].shift == 0 && pixels->log2_chroma_w == chromaX &&
        pixels->log2_chroma_h == chromaY) {
      return format;
    }
  }
  return AV_PIX_FMT_NONE;
}

/// One component of a picture in samples of 16 bits, row after row, and how many of them are levels.
struct Samples {
  int width = 0;
  int height = 0;
  int depth = 0;
  std::vector<std::uint16_t> levels;
  [[nodiscard]] std::uint16_t* row(int y) { return levels.data() + static_cast<std::ptrdiff_t>(y) * width; }
};

float floatAt(const std::uint8_t* bytes, bool isBigEndian) {
  std::uint32_t bits = 0;
  std::memcpy(&bits, bytes, sizeof bits);
  if (isBigEndian) bits = __builtin_bswap32(bits);
  float value = 0;
  std::memcpy(&value, &bits, sizeof value);
  return value;
}

void readFloats(const AVFrame& frame, const AVPixFmtDescriptor& pixels, const AVComponentDescriptor& component, int y,
                Samples& samples) {
  const std::uint8_t* from =
      frame.data[component.plane] + static_cast<std::ptrdiff_t>(y) * frame.linesize[component.plane];
  std::uint16_t* const to = samples.row(y);
  for (int x = 0; x < samples.width; ++x) {
    const float value = floatAt(from + component.offset + static_cast<std::ptrdiff_t>(x) * component.step,
                                has(pixels, AV_PIX_FMT_FLAG_BE));
    to[x] =
        static_cast<std::uint16_t>(std::lround(std::clamp(std::isnan(value) ? 0.0F : value, 0.0F, 1.0F) * 65535.0F));
  }
}

/// Component number `index` as it is stored. `width` and `height` are its own.
Samples readComponent(const AVFrame& frame, const AVPixFmtDescriptor& pixels, int index, int width, int height) {
  const AVComponentDescriptor& component = pixels.comp[index];
  Samples samples{width, height, component.depth, std::vector<std::uint16_t>(static_cast<std::size_t>(width) * height)};
  const bool isFloat = has(pixels, AV_PIX_FMT_FLAG_FLOAT);
  const bool isPlainByte = component.depth == 8 && component.shift == 0 && !has(pixels, AV_PIX_FMT_FLAG_BITSTREAM);
  if (isFloat) samples.depth = floatDepth;
  std::array<const std::uint8_t*, 4> data{frame.data[0], frame.data[1], frame.data[2], frame.data[3]};
  for (int y = 0; y < height; ++y) {
    std::uint16_t* const to = samples.row(y);
    if (isFloat) {
      readFloats(frame, pixels, component, y, samples);
    } else if (isPlainByte) {
      const std::uint8_t* from =
          data[component.plane] + static_cast<std::ptrdiff_t>(y) * frame.linesize[component.plane] + component.offset;
      for (int x = 0; x < width; ++x) to[x] = from[static_cast<std::ptrdiff_t>(x) * component.step];
    } else {
      av_read_image_line2(to, data.data(), frame.linesize, &pixels, 0, y, index, width, 0, sizeof(std::uint16_t));
    }
  }
  return samples;
}

/// Red, green, blue and alpha of a picture with a palette: 32 bits for each colour, in the machine's order.
std::array<Samples, 4> readPalette(const AVFrame& frame) {
  std::array<Samples, 4> colours;
  for (auto& one : colours)
    one = {frame.width, frame.height, 8,
           std::vector<std::uint16_t>(static_cast<std::size_t>(frame.width) * frame.height)};
  for (int y = 0; y < frame.height; ++y) {
    const std::uint8_t* from = frame.data[0] + static_cast<std::ptrdiff_t>(y) * frame.linesize[0];
    for (int x = 0; x < frame.width; ++x) {
      std::uint32_t argb = 0;
      std::memcpy(&argb, frame.data[1] + std::ptrdiff_t{from[x]} * 4, sizeof argb);
      for (std::size_t i = 0; i < 4; ++i) {
        constexpr std::array<int, 4> shifts{16, 8, 0, 24};
        colours[i].row(y)[x] = static_cast<std::uint16_t>(argb >> shifts[i] & 255);
      }
    }
  }
  return colours;
}

/// As levels of `depth` bits of full range: ITU-T H.273, 8.3, whatever the bits of each component.
void scaleFull(Samples& samples, int depth) {
  if (samples.depth == depth) return;
  const std::uint32_t from = (1U << samples.depth) - 1;
  const std::uint32_t to = (1U << depth) - 1;
  for (auto& level : samples.levels) level = static_cast<std::uint16_t>((level * std::uint64_t{to} + from / 2) / from);
  samples.depth = depth;
}

/// From full to video range.
void limitGrey(Samples& samples) {
  const double steps = 219.0 * (1 << (samples.depth - 8)) / ((1 << samples.depth) - 1);
  const double black = 16.0 * (1 << (samples.depth - 8));
  for (auto& level : samples.levels) level = static_cast<std::uint16_t>(std::lround(black + level * steps));
}

/// Lays a component whose nothing is `nothing` over it; the alpha of coarser samples is the mean of those they cover.
void layOver(Samples& samples, const Samples& alpha, int chromaX, int chromaY, std::uint32_t nothing) {
  const std::uint64_t opaque = (std::uint64_t{1} << alpha.depth) - 1;
  for (int y = 0; y < samples.height; ++y) {
    for (int x = 0; x < samples.width; ++x) {
      std::uint64_t sum = 0;
      std::uint64_t count = 0;
      for (int ay = y << chromaY; ay < std::min((y + 1) << chromaY, alpha.height); ++ay) {
        for (int ax = x << chromaX; ax < std::min((x + 1) << chromaX, alpha.width); ++ax, ++count) {
          sum += alpha.levels[static_cast<std::size_t>(ay) * alpha.width + ax];
        }
      }
      const std::uint64_t whole = opaque * std::max<std::uint64_t>(count, 1);
      std::uint16_t& level = samples.row(y)[x];
      level = static_cast<std::uint16_t>((level * sum + nothing * (whole - sum) + whole / 2) / whole);
    }
  }
}

void store(const Samples& samples, AVFrame& frame, int plane) {
  for (int y = 0; y < samples.height; ++y) {
    std::uint8_t* to = frame.data[plane] + static_cast<std::ptrdiff_t>(y) * frame.linesize[plane];
    const std::uint16_t* from = samples.levels.data() + static_cast<std::ptrdiff_t>(y) * samples.width;
    if (samples.depth > 8) {
      std::memcpy(to, from, static_cast<std::size_t>(samples.width) * sizeof(std::uint16_t));
    } else {
      std::transform(from, from + samples.width, to,
                     [](std::uint16_t level) { return static_cast<std::uint8_t>(level); });
    }
  }
}

/// Packed, semi-planar or big-endian YUV, or any with alpha.
Expected<Frame> fromYUV(const AVFrame& frame, const AVPixFmtDescriptor& pixels, AVPixelFormat format) {
  auto planar = allocateFrame(frame.width, frame.height, format);
  if (!planar) return planar;
  const bool hasAlpha = has(pixels, AV_PIX_FMT_FLAG_ALPHA);
  const bool isFull = frame.color_range == AVCOL_RANGE_JPEG;
  const Samples alpha = hasAlpha ? readComponent(frame, pixels, 3, frame.width, frame.height) : Samples{};
  for (int i = 0; i < 3; ++i) {
    const int chromaX = i > 0 ? pixels.log2_chroma_w : 0;
    const int chromaY = i > 0 ? pixels.log2_chroma_h : 0;
    Samples samples =
        readComponent(frame, pixels, i, AV_CEIL_RSHIFT(frame.width, chromaX), AV_CEIL_RSHIFT(frame.height, chromaY));
    const std::uint32_t nothing = i > 0 ? 1U << (samples.depth - 1) : isFull ? 0U : 16U << (samples.depth - 8);
    if (hasAlpha) layOver(samples, alpha, chromaX, chromaY, nothing);
    store(samples, **planar, i);
  }
  return planar;
}

Expected<Frame> fromGrey(const AVFrame& frame, const AVPixFmtDescriptor& pixels, AVPixelFormat format, bool isFull) {
  auto planar = allocateFrame(frame.width, frame.height, format);
  if (!planar) return planar;
  Samples grey = readComponent(frame, pixels, 0, frame.width, frame.height);
  const bool isBitMap = grey.depth < leastDepth;
  if (av_pix_fmt_desc_get_id(&pixels) == AV_PIX_FMT_MONOWHITE) {
    for (auto& level : grey.levels) level ^= 1;
  }
  if (isBitMap) scaleFull(grey, leastDepth);
  if (isFull || isBitMap) limitGrey(grey);
  if (has(pixels, AV_PIX_FMT_FLAG_ALPHA)) {
    layOver(grey, readComponent(frame, pixels, 1, frame.width, frame.height), 0, 0, 16U << (grey.depth - 8));
  }
  store(grey, **planar, 0);
  Samples chroma{AV_CEIL_RSHIFT(frame.width, 1), AV_CEIL_RSHIFT(frame.height, 1), grey.depth, {}};
  chroma.levels.assign(static_cast<std::size_t>(chroma.width) * chroma.height,
                       static_cast<std::uint16_t>(1 << (grey.depth - 1)));
  store(chroma, **planar, 1);
  store(chroma, **planar, 2);
  return planar;
}

/// As planar RGB of whole numbers, without alpha, aligned for every vector unit.
Expected<Frame> planarRGB(const AVFrame& frame, const AVPixFmtDescriptor& pixels) {
  const int depth = depthOf(pixels);
  auto planar = allocateFrame(frame.width, frame.height, planarFormat(depth, 0, 0, true));
  if (!planar) return planar;
  std::array<Samples, 4> colours;
  if (has(pixels, AV_PIX_FMT_FLAG_PAL)) {
    colours = readPalette(frame);
  } else {
    for (int i = 0; i < pixels.nb_components; ++i) {
      colours[static_cast<std::size_t>(i)] = readComponent(frame, pixels, i, frame.width, frame.height);
    }
  }
  constexpr std::array<int, 3> planes{2, 0, 1};  // of red, green and blue
  for (std::size_t i = 0; i < planes.size(); ++i) {
    scaleFull(colours[i], depth);
    if (!colours[3].levels.empty()) layOver(colours[i], colours[3], 0, 0, 0);
    store(colours[i], **planar, planes[i]);
  }
  return planar;
}

zimgxx::zimage_format describe(const AVFrame& frame, int depth, int matrix) {
  zimgxx::zimage_format image;
  image.width = static_cast<unsigned>(frame.width);
  image.height = static_cast<unsigned>(frame.height);
  image.depth = static_cast<unsigned>(depth);
  image.pixel_type = depth > 8 ? ZIMG_PIXEL_WORD : ZIMG_PIXEL_BYTE;
  image.color_family = matrix == AVCOL_SPC_RGB ? ZIMG_COLOR_RGB : ZIMG_COLOR_YUV;
  image.pixel_range = matrix == AVCOL_SPC_RGB ? ZIMG_RANGE_FULL : ZIMG_RANGE_LIMITED;
  image.matrix_coefficients = static_cast<zimg_matrix_coefficients_e>(matrix);
  return image;
}

}  // namespace

AVPixelFormat planarKind(AVPixelFormat format) {
  const AVPixFmtDescriptor* pixels = av_pix_fmt_desc_get(format);
  if (pixels == nullptr || has(*pixels, AV_PIX_FMT_FLAG_HWACCEL | AV_PIX_FMT_FLAG_BAYER)) return AV_PIX_FMT_NONE;
  // CIE XYZ, and a packing whose samples are not evenly spaced.
  if (format == AV_PIX_FMT_XYZ12LE || format == AV_PIX_FMT_XYZ12BE || format == AV_PIX_FMT_UYYVYY411)
    return AV_PIX_FMT_NONE;
  if (isPlanarYUV(format)) return format;
  const int depth = depthOf(*pixels);
  if (isRGB(*pixels)) return planarFormat(depth, 0, 0, false);
  if (colourCount(*pixels) < 3) return planarFormat(depth, 1, 1, false);
  return planarFormat(depth, pixels->log2_chroma_w, pixels->log2_chroma_h, false);
}

bool isMadeYUV(AVPixelFormat format) {
  const AVPixFmtDescriptor* pixels = av_pix_fmt_desc_get(format);
  return pixels != nullptr && (isRGB(*pixels) || colourCount(*pixels) < 3);
}

/// The step of zimg from RGB of one size and depth.
struct PlanarPictures::FromRGB {
  struct Kind {
    int width;
    int height;
    int depth;
    int matrix;
    bool operator==(const Kind&) const = default;
  };

  static Expected<std::unique_ptr<FromRGB>> build(const AVFrame& rgb, const Kind& kind) {
    try {
      auto step = std::unique_ptr<FromRGB>(
          new FromRGB{kind, zimgxx::FilterGraph::build(describe(rgb, kind.depth, AVCOL_SPC_RGB),
                                                       describe(rgb, kind.depth, kind.matrix))});
      const std::size_t bytes = (step->filter.get_tmp_size() + vectorAlignment) / vectorAlignment * vectorAlignment;
      step->scratch.reset(std::aligned_alloc(vectorAlignment, bytes));
      if (step->scratch == nullptr) return failed(ErrorKind::outOfMemory, "out of memory for a picture");
      return step;
    } catch (const zimgxx::zerror& error) {
      return failed(ErrorKind::unsupported, std::string("pictures cannot be converted: ") + error.msg);
    }
  }

  Expected<Frame> convert(const AVFrame& rgb, AVPixelFormat format) {
    auto result = allocateFrame(rgb.width, rgb.height, format);
    if (!result) return result;
    zimgxx::zimage_buffer_const from;
    zimgxx::zimage_buffer to;
    constexpr std::array<int, 3> planes{2, 0, 1};  // of red, green and blue
    for (unsigned i = 0; i < 3; ++i) {
      from.data(i) = rgb.data[planes[i]];
      from.stride(i) = rgb.linesize[planes[i]];
      from.mask(i) = ZIMG_BUFFER_MAX;
      to.data(i) = (*result)->data[i];
      to.stride(i) = (*result)->linesize[i];
      to.mask(i) = ZIMG_BUFFER_MAX;
    }
    try {
      filter.process(from, to, scratch.get());
    } catch (const zimgxx::zerror& error) {
      return failed(ErrorKind::internal, std::string("a picture cannot be converted: ") + error.msg);
    }
    return result;
  }

  Kind kind;
  zimgxx::FilterGraph filter;
  std::unique_ptr<void, decltype(&std::free)> scratch{nullptr, &std::free};
};

PlanarPictures::PlanarPictures() = default;
PlanarPictures::PlanarPictures(PlanarPictures&&) noexcept = default;
PlanarPictures& PlanarPictures::operator=(PlanarPictures&&) noexcept = default;
PlanarPictures::~PlanarPictures() = default;

Expected<Frame> PlanarPictures::convert(const Frame& picture, int matrix, bool isGreyFull) {
  const auto kind = static_cast<AVPixelFormat>(picture->format);
  const AVPixelFormat format = planarKind(kind);
  if (format == kind) return shareFrame(picture);
  if (format == AV_PIX_FMT_NONE) {
    const char* name = av_get_pix_fmt_name(kind);
    return failed(ErrorKind::unsupported,
                  std::string("pictures of the kind ") + (name ? name : "unknown") + " are not read");
  }
  const AVPixFmtDescriptor& pixels = *av_pix_fmt_desc_get(kind);
  Expected<Frame> planar;
  if (isRGB(pixels)) {
    auto rgb = planarRGB(*picture, pixels);
    if (!rgb) return rgb;
    const FromRGB::Kind wanted{picture->width, picture->height, depthOf(pixels), matrix};
    if (fromRGB_ == nullptr || fromRGB_->kind != wanted) {
      auto built = FromRGB::build(**rgb, wanted);
      if (!built) return tl::make_unexpected(built.error());
      fromRGB_ = std::move(*built);
    }
    planar = fromRGB_->convert(**rgb, format);
  } else if (isMadeYUV(kind)) {
    planar = fromGrey(*picture, pixels, format, isGreyFull);
  } else {
    planar = fromYUV(*picture, pixels, format);
  }
  if (!planar) return planar;
  av_frame_copy_props(planar->get(), picture.get());
  if (isMadeYUV(kind)) {
    (*planar)->color_range = AVCOL_RANGE_MPEG;
    (*planar)->colorspace = static_cast<AVColorSpace>(matrix);
  }
  return planar;
}

}  // namespace clipworks::engine
