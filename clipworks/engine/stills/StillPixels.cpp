#include <clipworks/engine/stills/StillPixels.h>

#include <libyuv.h>
#include <zimg++.hpp>

#include <cstdlib>
#include <string>

#include <clipworks/engine/Limits.h>
#include <clipworks/engine/pictures/FramePadding.h>
#include <clipworks/engine/pictures/PictureResampler.h>

namespace clipworks::engine {
namespace {

constexpr std::uintptr_t vectorAlignment = 64;

bool isPackedBGRA(int format) { return format == AV_PIX_FMT_BGRA || format == AV_PIX_FMT_BGR0; }

bool isPlanar8BitYUV(AVPixelFormat format) {
  const AVPixFmtDescriptor* pixels = av_pix_fmt_desc_get(format);
  constexpr std::uint64_t unfit = AV_PIX_FMT_FLAG_RGB | AV_PIX_FMT_FLAG_HWACCEL | AV_PIX_FMT_FLAG_PAL;
  return pixels != nullptr && (pixels->flags & unfit) == 0 && pixels->nb_components >= 3 &&
         pixels->comp[0].depth == 8 && av_pix_fmt_count_planes(format) >= 3;
}

bool isAligned(const AVFrame& frame) {
  for (int plane = 0; plane < 3; ++plane) {
    if (reinterpret_cast<std::uintptr_t>(frame.data[plane]) % vectorAlignment != 0) return false;
    if (frame.linesize[plane] <= 0) return false;
    if (static_cast<std::uintptr_t>(frame.linesize[plane]) % vectorAlignment != 0) return false;
  }
  return true;
}

zimgxx::zimage_format describe(const AVFrame& frame, const YUVMeaning& meaning) {
  const AVPixFmtDescriptor* pixels = av_pix_fmt_desc_get(static_cast<AVPixelFormat>(frame.format));
  zimgxx::zimage_format image;
  image.width = static_cast<unsigned>(frame.width);
  image.height = static_cast<unsigned>(frame.height);
  image.depth = 8;
  image.pixel_type = ZIMG_PIXEL_BYTE;
  if (frame.format == AV_PIX_FMT_GBRP) {
    image.color_family = ZIMG_COLOR_RGB;
    image.matrix_coefficients = ZIMG_MATRIX_RGB;
    image.pixel_range = ZIMG_RANGE_FULL;
    return image;
  }
  image.subsample_w = static_cast<unsigned>(pixels->log2_chroma_w);
  image.subsample_h = static_cast<unsigned>(pixels->log2_chroma_h);
  image.color_family = ZIMG_COLOR_YUV;
  // Both libraries number matrices as H.273 does, and chroma positions alike but for the first number.
  image.matrix_coefficients = static_cast<zimg_matrix_coefficients_e>(meaning.matrix);
  image.pixel_range = meaning.isFullRange ? ZIMG_RANGE_FULL : ZIMG_RANGE_LIMITED;
  image.chroma_location = static_cast<zimg_chroma_location_e>(meaning.chromaLocation - AVCHROMA_LOC_LEFT);
  return image;
}

// zimg counts red first, GBRP's planes begin with green.
unsigned zimgPlane(const AVFrame& frame, unsigned plane) {
  return frame.format == AV_PIX_FMT_GBRP ? (plane + 1) % 3 : plane;
}

Expected<void> runGraph(const AVFrame& from, const YUVMeaning& fromMeaning, const AVFrame& to,
                        const YUVMeaning& toMeaning, SharedChroma chroma) {
  try {
    zimgxx::zfilter_graph_builder_params parameters;
    parameters.resample_filter_uv = chroma == SharedChroma::repeated ? ZIMG_RESIZE_POINT : ZIMG_RESIZE_BICUBIC;
    const auto graph = zimgxx::FilterGraph::build(describe(from, fromMeaning), describe(to, toMeaning), &parameters);
    const std::size_t bytes = (graph.get_tmp_size() + vectorAlignment) / vectorAlignment * vectorAlignment;
    const std::unique_ptr<void, decltype(&std::free)> scratch(std::aligned_alloc(vectorAlignment, bytes), &std::free);
    if (scratch == nullptr) return failed(ErrorKind::outOfMemory, "out of memory for a picture");
    zimgxx::zimage_buffer_const source;
    zimgxx::zimage_buffer target;
    for (unsigned plane = 0; plane < 3; ++plane) {
      source.data(zimgPlane(from, plane)) = from.data[plane];
      source.stride(zimgPlane(from, plane)) = from.linesize[plane];
      source.mask(zimgPlane(from, plane)) = ZIMG_BUFFER_MAX;
      target.data(zimgPlane(to, plane)) = to.data[plane];
      target.stride(zimgPlane(to, plane)) = to.linesize[plane];
      target.mask(zimgPlane(to, plane)) = ZIMG_BUFFER_MAX;
    }
    graph.process(source, target, scratch.get());
    return {};
  } catch (const zimgxx::zerror& error) {
    return failed(ErrorKind::internal, std::string("a picture cannot be converted: ") + error.msg);
  }
}

// Whole groups of chroma in both formats, at aligned addresses: what zimg asks for.
Expected<Frame> prepared(const Frame& picture, AVPixelFormat target) {
  Frame source = shareFrame(picture);
  source->format = plainKind(picture->format);
  int groupWidth = 1;
  int groupHeight = 1;
  for (const int format : {source->format, static_cast<int>(target)}) {
    const AVPixFmtDescriptor* pixels = av_pix_fmt_desc_get(static_cast<AVPixelFormat>(format));
    groupWidth = std::max(groupWidth, 1 << pixels->log2_chroma_w);
    groupHeight = std::max(groupHeight, 1 << pixels->log2_chroma_h);
  }
  const int width = (source->width + groupWidth - 1) / groupWidth * groupWidth;
  const int height = (source->height + groupHeight - 1) / groupHeight * groupHeight;
  if (isAligned(*source) && width == source->width && height == source->height) return source;
  return padFrame(source, width, height);
}

Expected<Frame> converted(const Frame& picture, AVPixelFormat format, const YUVMeaning& meaning, SharedChroma chroma) {
  YUVMeaning own = meaningOf(*picture);
  // The nearest sample is that of the own group when it lies in the group's middle.
  if (chroma == SharedChroma::repeated) own.chromaLocation = AVCHROMA_LOC_CENTER;
  auto source = prepared(picture, format);
  if (!source) return source;
  auto result = allocateFrame((*source)->width, (*source)->height, format);
  if (!result) return result;
  if (auto run = runGraph(**source, own, **result, meaning, chroma); !run) {
    return tl::make_unexpected(run.error());
  }
  av_frame_copy_props(result->get(), picture.get());
  (*result)->width = picture->width;
  (*result)->height = picture->height;
  return result;
}

Expected<Frame> takenApart(const Frame& picture) {
  auto planes = allocateFrame(picture->width, picture->height, AV_PIX_FMT_GBRP);
  if (!planes) return planes;
  const AVFrame& to = **planes;
  libyuv::SplitARGBPlane(picture->data[0], picture->linesize[0], to.data[2], to.linesize[2], to.data[0], to.linesize[0],
                         to.data[1], to.linesize[1], nullptr, 0, picture->width, picture->height);
  av_frame_copy_props(planes->get(), picture.get());
  return planes;
}

}  // namespace

Expected<void> checkStill(const AVFrame& picture) {
  if (picture.width < 1 || picture.height < 1) return failed(ErrorKind::unsupported, "a picture without pixels");
  if (picture.width > limits::maxPictureSide || picture.height > limits::maxPictureSide) {
    return failed(ErrorKind::tooLarge, "a picture of " + std::to_string(picture.width) + " × " +
                                           std::to_string(picture.height) + " is too large: a side may have " +
                                           std::to_string(limits::maxPictureSide) + " pixels");
  }
  const AVPixelFormat format = plainKind(picture.format);
  if (isPackedBGRA(format) || isPlanar8BitYUV(format)) return {};
  const char* name = av_get_pix_fmt_name(format);
  return failed(ErrorKind::unsupported,
                std::string("no still is made of pixels of the kind ") + (name ? name : "unknown"));
}

Expected<Frame> planarRGB(const Frame& picture, SharedChroma chroma) {
  if (isPackedBGRA(picture->format)) return takenApart(picture);
  return converted(picture, AV_PIX_FMT_GBRP, YUVMeaning{}, chroma);
}

Expected<Frame> planarYUV(const Frame& picture, AVPixelFormat format, const YUVMeaning& meaning) {
  if (isPackedBGRA(picture->format)) {
    const auto planes = takenApart(picture);
    return planes ? converted(*planes, format, meaning, SharedChroma::interpolated)
                  : tl::make_unexpected(planes.error());
  }
  const YUVMeaning own = meaningOf(*picture);
  const bool keepsMeaning = own.matrix == meaning.matrix && own.isFullRange == meaning.isFullRange;
  if (keepsMeaning && plainKind(picture->format) == format) return shareFrame(picture);
  return converted(picture, format, meaning, SharedChroma::interpolated);
}

}  // namespace clipworks::engine
