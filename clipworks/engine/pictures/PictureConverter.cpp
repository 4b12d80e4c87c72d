#include <clipworks/engine/pictures/PictureConverter.h>

#include <zimg++.hpp>

#include <algorithm>
#include <cstdlib>
#include <optional>

#include <clipworks/engine/pictures/FramePadding.h>

namespace clipworks::engine {
namespace {

constexpr std::uintptr_t vectorAlignment = 64;

// The "J" formats say their range by their name; here the range is a field.
AVPixelFormat withoutRange(int format) {
  switch (format) {
    case AV_PIX_FMT_YUVJ420P:
      return AV_PIX_FMT_YUV420P;
    case AV_PIX_FMT_YUVJ422P:
      return AV_PIX_FMT_YUV422P;
    case AV_PIX_FMT_YUVJ444P:
      return AV_PIX_FMT_YUV444P;
    case AV_PIX_FMT_YUVJ440P:
      return AV_PIX_FMT_YUV440P;
    default:
      return static_cast<AVPixelFormat>(format);
  }
}

bool isAligned(const AVFrame& frame) {
  for (int plane = 0; plane < 3; ++plane) {
    if (reinterpret_cast<std::uintptr_t>(frame.data[plane]) % vectorAlignment != 0) return false;
    if (frame.linesize[plane] <= 0 || static_cast<std::uintptr_t>(frame.linesize[plane]) % vectorAlignment != 0) return false;
  }
  return true;
}

// Nothing for pixels that are not planar YUV of 8 to 16 bits.
std::optional<zimgxx::zimage_format> describe(AVPixelFormat format, int width, int height, bool fullRange,
                                              AVChromaLocation location) {
  const AVPixFmtDescriptor* pixels = av_pix_fmt_desc_get(format);
  if (pixels == nullptr || pixels->nb_components < 3 || av_pix_fmt_count_planes(format) < 3) return std::nullopt;
  constexpr std::uint64_t unfit =
      AV_PIX_FMT_FLAG_RGB | AV_PIX_FMT_FLAG_BE | AV_PIX_FMT_FLAG_FLOAT | AV_PIX_FMT_FLAG_HWACCEL | AV_PIX_FMT_FLAG_PAL;
  if ((pixels->flags & unfit) != 0) return std::nullopt;
  zimgxx::zimage_format image;
  image.width = static_cast<unsigned>(width);
  image.height = static_cast<unsigned>(height);
  image.depth = static_cast<unsigned>(pixels->comp[0].depth);
  image.pixel_type = image.depth > 8 ? ZIMG_PIXEL_WORD : ZIMG_PIXEL_BYTE;
  image.subsample_w = static_cast<unsigned>(pixels->log2_chroma_w);
  image.subsample_h = static_cast<unsigned>(pixels->log2_chroma_h);
  image.color_family = ZIMG_COLOR_YUV;
  image.pixel_range = fullRange ? ZIMG_RANGE_FULL : ZIMG_RANGE_LIMITED;
  const bool known = location >= AVCHROMA_LOC_LEFT && location <= AVCHROMA_LOC_BOTTOM;
  image.chroma_location = known ? static_cast<zimg_chroma_location_e>(location - 1) : ZIMG_CHROMA_LEFT;
  return image;
}

}  // namespace

struct PictureConverter::Graph {
  zimgxx::FilterGraph filter;
  std::unique_ptr<void, decltype(&std::free)> scratch{nullptr, &std::free};
  int fromWidth = 0;
  int fromHeight = 0;
  int fromFormat = AV_PIX_FMT_NONE;
  int fromRange = AVCOL_RANGE_UNSPECIFIED;
};

PictureConverter::PictureConverter(int width, int height, AVPixelFormat format, Fit fit)
    : width_(width), height_(height), format_(format), fit_(fit) {}
PictureConverter::PictureConverter(PictureConverter&&) noexcept = default;
PictureConverter& PictureConverter::operator=(PictureConverter&&) noexcept = default;
PictureConverter::~PictureConverter() = default;

Expected<Frame> PictureConverter::convert(const Frame& picture) {
  Frame source = shareFrame(picture);
  const AVPixelFormat format = withoutRange(source->format);
  if (format != source->format) {
    source->format = format;
    source->color_range = AVCOL_RANGE_JPEG;
  }
  if (!describe(format, source->width, source->height, false, AVCHROMA_LOC_LEFT)) {
    const char* name = av_get_pix_fmt_name(format);
    return failed(ErrorKind::unsupported, std::string("pictures of the kind ") + (name ? name : "unknown") + " are not read");
  }
  const bool smaller = source->width < width_ || source->height < height_;
  const int roomWidth = fit_ == Fit::pad && smaller ? std::max(width_, source->width) : source->width + source->width % 2;
  const int roomHeight = fit_ == Fit::pad && smaller ? std::max(height_, source->height) : source->height + source->height % 2;
  if (roomWidth != source->width || roomHeight != source->height) {
    auto padded = padFrame(source, roomWidth, roomHeight);
    if (!padded) return padded;
    source = std::move(*padded);
  }
  if (source->width == width_ && source->height == height_ && format == format_) return source;

  if (!isAligned(*source)) {
    auto aligned = padFrame(source, source->width, source->height);
    if (!aligned) return aligned;
    source = std::move(*aligned);
  }
  if (auto ready = prepare(*source); !ready) return tl::make_unexpected(ready.error());
  auto result = allocateFrame(width_, height_, format_);
  if (!result) return result;
  av_frame_copy_props(result->get(), source.get());
  zimgxx::zimage_buffer_const from;
  zimgxx::zimage_buffer to;
  for (int plane = 0; plane < 3; ++plane) {
    const auto p = static_cast<unsigned>(plane);
    from.data(p) = source->data[plane];
    from.stride(p) = source->linesize[plane];
    from.mask(p) = ZIMG_BUFFER_MAX;
    to.data(p) = (*result)->data[plane];
    to.stride(p) = (*result)->linesize[plane];
    to.mask(p) = ZIMG_BUFFER_MAX;
  }
  try {
    graph_->filter.process(from, to, graph_->scratch.get());
  } catch (const zimgxx::zerror& error) {
    return failed(ErrorKind::internal, std::string("a picture cannot be converted: ") + error.msg);
  }
  return result;
}

Expected<void> PictureConverter::prepare(const AVFrame& from) {
  if (graph_ != nullptr && graph_->fromWidth == from.width && graph_->fromHeight == from.height &&
      graph_->fromFormat == from.format && graph_->fromRange == from.color_range) {
    return {};
  }
  const bool fullRange = from.color_range == AVCOL_RANGE_JPEG;
  const auto source = describe(static_cast<AVPixelFormat>(from.format), from.width, from.height, fullRange, from.chroma_location);
  const auto target = describe(format_, width_, height_, fullRange, from.chroma_location);
  if (!source || !target) return failed(ErrorKind::unsupported, "pictures of this kind are not read");
  try {
    zimgxx::zfilter_graph_builder_params parameters;
    parameters.resample_filter = ZIMG_RESIZE_BICUBIC;
    parameters.resample_filter_uv = ZIMG_RESIZE_BICUBIC;
    parameters.dither_type = target->depth < source->depth ? ZIMG_DITHER_ERROR_DIFFUSION : ZIMG_DITHER_NONE;
    auto graph = std::make_unique<Graph>();
    graph->filter = zimgxx::FilterGraph::build(*source, *target, &parameters);
    const std::size_t bytes = (graph->filter.get_tmp_size() + vectorAlignment) / vectorAlignment * vectorAlignment;
    graph->scratch.reset(std::aligned_alloc(vectorAlignment, bytes));
    if (graph->scratch == nullptr) return failed(ErrorKind::outOfMemory, "out of memory for a picture");
    graph->fromWidth = from.width;
    graph->fromHeight = from.height;
    graph->fromFormat = from.format;
    graph->fromRange = from.color_range;
    graph_ = std::move(graph);
  } catch (const zimgxx::zerror& error) {
    return failed(ErrorKind::unsupported, std::string("pictures cannot be converted: ") + error.msg);
  }
  return {};
}

}  // namespace clipworks::engine
