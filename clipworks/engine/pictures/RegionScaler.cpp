#include <clipworks/engine/pictures/RegionScaler.h>

#include <cmath>
#include <cstdlib>
#include <string>
#include <utility>

#include <clipworks/engine/pictures/FramePadding.h>
#include <clipworks/engine/pictures/ZimgPictures.h>

namespace clipworks::engine {
namespace {

// The part as a view of the same buffers, when its edges lie on pixels that chroma shares with no pixel outside.
Frame view(const Frame& picture, const Region& part, const AVPixFmtDescriptor& pixels) {
  const auto isOn = [](double edge, int log2) { return edge == std::floor(edge) && static_cast<int>(edge) % (1 << log2) == 0; };
  if (!isOn(part.left, pixels.log2_chroma_w) || !isOn(part.top, pixels.log2_chroma_h)) return nullptr;
  Frame result = shareFrame(picture);
  const int bytes = pixels.comp[0].depth > 8 ? 2 : 1;
  for (int plane = 0; plane < 3; ++plane) {
    const int x = static_cast<int>(part.left) >> (plane > 0 ? pixels.log2_chroma_w : 0);
    const int y = static_cast<int>(part.top) >> (plane > 0 ? pixels.log2_chroma_h : 0);
    result->data[plane] += static_cast<std::ptrdiff_t>(y) * result->linesize[plane] + static_cast<std::ptrdiff_t>(x) * bytes;
  }
  result->width = static_cast<int>(part.width);
  result->height = static_cast<int>(part.height);
  return result;
}

Expected<Frame> prepared(const Frame& picture, const AVPixFmtDescriptor& pixels) {
  const auto whole = [](int side, int log2) { return ((side - 1) >> log2 << log2) + (1 << log2); };
  const int width = whole(picture->width, pixels.log2_chroma_w);
  const int height = whole(picture->height, pixels.log2_chroma_h);
  if (width == picture->width && height == picture->height && isAlignedForZimg(*picture)) return shareFrame(picture);
  return padFrame(picture, width, height);
}

}  // namespace

struct RegionScaler::Graph {
  struct Key {
    int fromWidth, fromHeight, fromFormat, fromRange, fromLocation, toWidth, toHeight, toFormat;
    Region part;
    bool operator==(const Key&) const = default;
  };
  Key key;
  zimgxx::FilterGraph filter;
  std::unique_ptr<void, decltype(&std::free)> scratch{nullptr, &std::free};
};

RegionScaler::RegionScaler() = default;
RegionScaler::RegionScaler(RegionScaler&&) noexcept = default;
RegionScaler& RegionScaler::operator=(RegionScaler&&) noexcept = default;
RegionScaler::~RegionScaler() = default;

Expected<Frame> RegionScaler::scale(const Frame& picture, const Region& part, int width, int height, AVPixelFormat format) {
  Frame source = shareFrame(picture);
  if (const AVPixelFormat plain = withoutRange(source->format); plain != source->format) {
    source->format = plain;
    source->color_range = AVCOL_RANGE_JPEG;
  }
  const auto from = static_cast<AVPixelFormat>(source->format);
  if (!describeForZimg(from, source->width, source->height, false, AVCHROMA_LOC_LEFT)) {
    const char* name = av_get_pix_fmt_name(from);
    return failed(ErrorKind::unsupported, std::string("pictures of the kind ") + (name ? name : "unknown") + " are not read");
  }
  const AVPixFmtDescriptor& pixels = *av_pix_fmt_desc_get(from);
  if (part.width == width && part.height == height && from == format) {
    if (Frame shown = view(source, part, pixels)) return shown;
  }
  auto input = prepared(source, pixels);
  if (!input) return input;
  auto result = allocateFrame(width, height, format);
  if (!result) return result;
  av_frame_copy_props(result->get(), source.get());
  if (auto ready = prepare(**input, **result, part); !ready) return tl::make_unexpected(ready.error());
  try {
    graph_->filter.process(readByZimg(**input), writtenByZimg(**result), graph_->scratch.get());
  } catch (const zimgxx::zerror& error) {
    return failed(ErrorKind::internal, std::string("a picture cannot be scaled: ") + error.msg);
  }
  return result;
}

Expected<void> RegionScaler::prepare(const AVFrame& from, const AVFrame& to, const Region& part) {
  const Graph::Key key{from.width, from.height, from.format, from.color_range, from.chroma_location,
                       to.width,   to.height,   to.format,   part};
  if (graph_ != nullptr && graph_->key == key) return {};
  const bool fullRange = from.color_range == AVCOL_RANGE_JPEG;
  auto source = describeForZimg(static_cast<AVPixelFormat>(from.format), from.width, from.height, fullRange, from.chroma_location);
  const auto target = describeForZimg(static_cast<AVPixelFormat>(to.format), to.width, to.height, fullRange, from.chroma_location);
  if (!source || !target) return failed(ErrorKind::unsupported, "pictures of this kind are not read");
  source->active_region = {part.left, part.top, part.width, part.height};
  try {
    zimgxx::zfilter_graph_builder_params parameters;
    parameters.resample_filter = ZIMG_RESIZE_BICUBIC;
    parameters.resample_filter_uv = ZIMG_RESIZE_BICUBIC;
    parameters.dither_type = target->depth < source->depth ? ZIMG_DITHER_ERROR_DIFFUSION : ZIMG_DITHER_NONE;
    auto graph = std::make_unique<Graph>();
    graph->key = key;
    graph->filter = zimgxx::FilterGraph::build(*source, *target, &parameters);
    const std::size_t bytes = (graph->filter.get_tmp_size() + zimgAlignment) / zimgAlignment * zimgAlignment;
    graph->scratch.reset(std::aligned_alloc(zimgAlignment, bytes));
    if (graph->scratch == nullptr) return failed(ErrorKind::outOfMemory, "out of memory for a picture");
    graph_ = std::move(graph);
  } catch (const zimgxx::zerror& error) {
    return failed(ErrorKind::unsupported, std::string("pictures cannot be scaled: ") + error.msg);
  }
  return {};
}

}  // namespace clipworks::engine
