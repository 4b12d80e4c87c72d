#include <clipworks/engine/pictures/PictureConverter.h>

#include <algorithm>
#include <cstdlib>

#include <clipworks/engine/pictures/FramePadding.h>
#include <clipworks/engine/pictures/ZimgPictures.h>

namespace clipworks::engine {
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
  if (!describeForZimg(format, source->width, source->height, false, AVCHROMA_LOC_LEFT)) {
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

  if (!isAlignedForZimg(*source)) {
    auto aligned = padFrame(source, source->width, source->height);
    if (!aligned) return aligned;
    source = std::move(*aligned);
  }
  if (auto ready = prepare(*source); !ready) return tl::make_unexpected(ready.error());
  auto result = allocateFrame(width_, height_, format_);
  if (!result) return result;
  av_frame_copy_props(result->get(), source.get());
  try {
    graph_->filter.process(readByZimg(*source), writtenByZimg(**result), graph_->scratch.get());
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
  const auto source = describeForZimg(static_cast<AVPixelFormat>(from.format), from.width, from.height, fullRange, from.chroma_location);
  const auto target = describeForZimg(format_, width_, height_, fullRange, from.chroma_location);
  if (!source || !target) return failed(ErrorKind::unsupported, "pictures of this kind are not read");
  try {
    zimgxx::zfilter_graph_builder_params parameters;
    parameters.resample_filter = ZIMG_RESIZE_BICUBIC;
    parameters.resample_filter_uv = ZIMG_RESIZE_BICUBIC;
    parameters.dither_type = target->depth < source->depth ? ZIMG_DITHER_ERROR_DIFFUSION : ZIMG_DITHER_NONE;
    auto graph = std::make_unique<Graph>();
    graph->filter = zimgxx::FilterGraph::build(*source, *target, &parameters);
    const std::size_t bytes = (graph->filter.get_tmp_size() + zimgAlignment) / zimgAlignment * zimgAlignment;
    graph->scratch.reset(std::aligned_alloc(zimgAlignment, bytes));
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
