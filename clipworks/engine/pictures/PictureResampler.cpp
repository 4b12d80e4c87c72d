#include <clipworks/engine/pictures/PictureResampler.h>

#include <zimg++.hpp>

#include <cstdlib>
#include <optional>
#include <string>

#include <clipworks/engine/pictures/FramePadding.h>

namespace clipworks::engine {
namespace {

constexpr std::uintptr_t vectorAlignment = 64;

bool isAligned(const AVFrame& frame) {
  for (int plane = 0; plane < 3; ++plane) {
    if (reinterpret_cast<std::uintptr_t>(frame.data[plane]) % vectorAlignment != 0) return false;
    if (frame.linesize[plane] <= 0 || static_cast<std::uintptr_t>(frame.linesize[plane]) % vectorAlignment != 0)
      return false;
  }
  return true;
}

zimgxx::zimage_format describe(AVPixelFormat format, int width, int height, bool fullRange, AVChromaLocation location) {
  const AVPixFmtDescriptor* pixels = av_pix_fmt_desc_get(format);
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

/// zimg numbers all of these as H.273 does.
void mean(const Colour& colour, zimgxx::zimage_format& image) {
  const bool isHigh = isHighDynamicRange(static_cast<AVColorTransferCharacteristic>(colour.transfer));
  image.matrix_coefficients = static_cast<zimg_matrix_coefficients_e>(colour.matrix);
  image.transfer_characteristics =
      isHigh ? static_cast<zimg_transfer_characteristics_e>(colour.transfer) : ZIMG_TRANSFER_709;
  image.color_primaries = static_cast<zimg_color_primaries_e>(colour.primaries);
  image.pixel_range = colour.fullRange ? ZIMG_RANGE_FULL : ZIMG_RANGE_LIMITED;
}

}  // namespace

struct PictureResampler::Graph {
  /// What the filter was made for.
  struct Kind {
    int fromWidth;
    int fromHeight;
    int fromFormat;
    AVColorRange range;
    AVChromaLocation chroma;
    PictureWindow window;
    int width;
    int height;
    AVPixelFormat format;
    ResamplingFilter filter;
    ColourChange change;
    bool operator==(const Kind&) const = default;
  };

  static Expected<std::unique_ptr<Graph>> build(const Kind& kind);

  Kind kind;
  zimgxx::FilterGraph filter;
  std::unique_ptr<void, decltype(&std::free)> scratch{nullptr, &std::free};
};

Expected<std::unique_ptr<PictureResampler::Graph>> PictureResampler::Graph::build(const Kind& kind) {
  const bool fullRange = kind.range == AVCOL_RANGE_JPEG;
  auto source =
      describe(static_cast<AVPixelFormat>(kind.fromFormat), kind.fromWidth, kind.fromHeight, fullRange, kind.chroma);
  source.active_region = {kind.window.left, kind.window.top, kind.window.width, kind.window.height};
  auto target = describe(kind.format, kind.width, kind.height, fullRange, kind.chroma);
  zimgxx::zfilter_graph_builder_params parameters;
  if (!kind.change.isNone()) {
    mean(kind.change.from, source);
    mean(kind.change.to, target);
    constexpr double whiteInHighRange = 203;  // cd/m²
    parameters.nominal_peak_luminance = whiteInHighRange;
  }
  parameters.resample_filter = kind.filter == ResamplingFilter::lanczos ? ZIMG_RESIZE_LANCZOS : ZIMG_RESIZE_BICUBIC;
  parameters.resample_filter_uv = parameters.resample_filter;
  parameters.dither_type = target.depth < source.depth ? ZIMG_DITHER_ERROR_DIFFUSION : ZIMG_DITHER_NONE;
  try {
    auto graph = std::unique_ptr<Graph>(new Graph{kind, zimgxx::FilterGraph::build(source, target, &parameters)});
    const std::size_t bytes = (graph->filter.get_tmp_size() + vectorAlignment) / vectorAlignment * vectorAlignment;
    graph->scratch.reset(std::aligned_alloc(vectorAlignment, bytes));
    if (graph->scratch == nullptr) return failed(ErrorKind::outOfMemory, "out of memory for a picture");
    return graph;
  } catch (const zimgxx::zerror& error) {
    return failed(ErrorKind::unsupported, std::string("pictures cannot be converted: ") + error.msg);
  }
}

AVPixelFormat plainKind(int format) {
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

Frame withPlainKind(const Frame& picture) {
  Frame plain = shareFrame(picture);
  const AVPixelFormat kind = plainKind(picture->format);
  if (kind != picture->format) {
    plain->format = kind;
    plain->color_range = AVCOL_RANGE_JPEG;
  }
  return plain;
}

bool isResampled(AVPixelFormat format) {
  const AVPixFmtDescriptor* pixels = av_pix_fmt_desc_get(format);
  if (pixels == nullptr || pixels->nb_components < 3 || av_pix_fmt_count_planes(format) < 3) return false;
  constexpr std::uint64_t unfit =
      AV_PIX_FMT_FLAG_RGB | AV_PIX_FMT_FLAG_BE | AV_PIX_FMT_FLAG_FLOAT | AV_PIX_FMT_FLAG_HWACCEL | AV_PIX_FMT_FLAG_PAL;
  return (pixels->flags & unfit) == 0;
}

PictureResampler::PictureResampler(ResamplingFilter filter) : filter_(filter) {}
PictureResampler::PictureResampler(PictureResampler&&) noexcept = default;
PictureResampler& PictureResampler::operator=(PictureResampler&&) noexcept = default;
PictureResampler::~PictureResampler() = default;

Expected<Frame> PictureResampler::resample(const Frame& picture, const PictureWindow& window, int width, int height,
                                           AVPixelFormat format, const ColourChange& change) {
  Frame source = shareFrame(picture);
  if (!isResampled(static_cast<AVPixelFormat>(source->format)) || !isResampled(format)) {
    const char* name = av_get_pix_fmt_name(static_cast<AVPixelFormat>(source->format));
    return failed(ErrorKind::unsupported,
                  std::string("pictures of the kind ") + (name ? name : "unknown") + " are not read");
  }
  if (!isAligned(*source)) {
    auto aligned = padFrame(source, source->width, source->height);
    if (!aligned) return aligned;
    source = std::move(*aligned);
  }
  const Graph::Kind kind{source->width,
                         source->height,
                         source->format,
                         source->color_range,
                         source->chroma_location,
                         window,
                         width,
                         height,
                         format,
                         filter_,
                         change};
  if (graph_ == nullptr || graph_->kind != kind) {
    auto built = Graph::build(kind);
    if (!built) return tl::make_unexpected(built.error());
    graph_ = std::move(*built);
  }
  auto result = allocateFrame(width, height, format);
  if (!result) return result;
  av_frame_copy_props(result->get(), source.get());
  if (!change.isNone()) tag(**result, change.to);
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

}  // namespace clipworks::engine
