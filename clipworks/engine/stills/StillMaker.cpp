#include <clipworks/engine/stills/StillMaker.h>

#include <algorithm>
#include <cmath>
#include <initializer_list>
#include <string>
#include <utility>
#include <vector>

#include <clipworks/engine/Limits.h>
#include <clipworks/engine/pictures/Colour.h>
#include <clipworks/engine/pictures/FramePadding.h>
#include <clipworks/engine/pictures/PictureRenderer.h>

namespace clipworks::engine {
namespace {

int wholePixels(double side) {
  return static_cast<int>(std::lround(std::clamp(side, 1.0, static_cast<double>(limits::maxPictureSide))));
}

std::array<double, 4> usable(const std::array<double, 4>& transform) {
  constexpr double leastArea = 1e-9;
  const auto& [a, b, c, d] = transform;
  const bool isUsable = std::isfinite(a) && std::isfinite(b) && std::isfinite(c) && std::isfinite(d) &&
                        std::fabs(a * d - b * c) > leastArea;
  return isUsable ? transform : std::array<double, 4>{1, 0, 0, 1};
}

double fittingFactor(double width, double height, const StillSettings& settings) {
  const auto factor = [](double limit, double side) { return limit > 0 && side > limit ? limit / side : 1.0; };
  constexpr double most = limits::maxPictureSide;
  return std::min({factor(settings.maxWidth, width), factor(settings.maxHeight, height), factor(most, width),
                   factor(most, height)});
}

/// The pixels of a still: 8 bits, chroma as it is coded. Where a resampled side is odd, or the layout cannot be turned,
/// chroma gets all pixels.
AVPixelFormat stillFormat(const AVPixFmtDescriptor& coded, bool isResampled, int width, int height) {
  const int x = coded.log2_chroma_w;
  const int y = coded.log2_chroma_h;
  if (x > 1 || y > 1 || (isResampled && ((x == 1 && width % 2 != 0) || (y == 1 && height % 2 != 0))))
    return AV_PIX_FMT_YUV444P;
  if (x == 1) return y == 1 ? AV_PIX_FMT_YUV420P : AV_PIX_FMT_YUV422P;
  return y == 1 ? AV_PIX_FMT_YUV440P : AV_PIX_FMT_YUV444P;
}

AVPixelFormat tenBitsOf(AVPixelFormat format) {
  switch (format) {
    case AV_PIX_FMT_YUV420P:
      return AV_PIX_FMT_YUV420P10;
    case AV_PIX_FMT_YUV422P:
      return AV_PIX_FMT_YUV422P10;
    case AV_PIX_FMT_YUV440P:
      return AV_PIX_FMT_YUV440P10;
    default:
      return AV_PIX_FMT_YUV444P10;
  }
}

std::pair<int, int> scaledSize(const StillGeometry& geometry) { return {geometry.scaledWidth, geometry.scaledHeight}; }

/// The part begins on pixels that share no chroma with those outside.
bool startsOnChroma(const Region& part, const AVPixFmtDescriptor& pixels) {
  return std::fmod(part.left, 1 << pixels.log2_chroma_w) == 0 && std::fmod(part.top, 1 << pixels.log2_chroma_h) == 0;
}

/// The part, which starts on chroma, in the same buffers.
Frame view(const Frame& picture, const Region& part, const AVPixFmtDescriptor& pixels) {
  Frame result = shareFrame(picture);
  const int bytes = pixels.comp[0].depth > 8 ? 2 : 1;
  for (int plane = 0; plane < 3; ++plane) {
    const int x = static_cast<int>(part.left) >> (plane > 0 ? pixels.log2_chroma_w : 0);
    const int y = static_cast<int>(part.top) >> (plane > 0 ? pixels.log2_chroma_h : 0);
    result->data[plane] +=
        static_cast<std::ptrdiff_t>(y) * result->linesize[plane] + static_cast<std::ptrdiff_t>(x) * bytes;
  }
  result->width = static_cast<int>(part.width);
  result->height = static_cast<int>(part.height);
  return result;
}

/// A still is read as sRGB, whose primaries are BT.709's: those of other standard video are changed. Wider ones keep
/// their numbers and get a profile.
ColourChange primariesChange(const AVFrame& picture) {
  const auto isAmong = [](auto tag, std::initializer_list<decltype(tag)> tags) {
    return std::ranges::count(tags, tag) > 0;
  };
  const bool isOther =
      isAmong(picture.color_primaries, {AVCOL_PRI_BT470M, AVCOL_PRI_BT470BG, AVCOL_PRI_SMPTE170M, AVCOL_PRI_SMPTE240M});
  const bool isKnown = isAmong(picture.colorspace, {AVCOL_SPC_BT709, AVCOL_SPC_FCC, AVCOL_SPC_BT470BG,
                                                    AVCOL_SPC_SMPTE170M, AVCOL_SPC_SMPTE240M});
  if (!isOther || !isKnown) return {};
  ColourChange change{completeColour(picture), completeColour(picture)};
  change.to.primaries = AVCOL_PRI_BT709;
  return change;
}

}  // namespace

StillGeometry stillGeometry(const Region& part, double naturalWidth, double naturalHeight,
                            const StillSettings& settings) {
  const auto [a, b, c, d] = usable(settings.transform);
  const double uprightWidth = std::fabs(a) * naturalWidth + std::fabs(c) * naturalHeight;
  const double uprightHeight = std::fabs(b) * naturalWidth + std::fabs(d) * naturalHeight;
  const double fit = fittingFactor(uprightWidth, uprightHeight, settings);
  StillGeometry geometry;
  geometry.part = part;
  geometry.width = wholePixels(uprightWidth * fit);
  geometry.height = wholePixels(uprightHeight * fit);
  if (const auto turn = turnOf(a, b, c, d)) {
    geometry.turn = *turn;
    geometry.scaledWidth = turn->swapsAxes ? geometry.height : geometry.width;
    geometry.scaledHeight = turn->swapsAxes ? geometry.width : geometry.height;
    return geometry;
  }
  // The scale of each axis is for the resampler that averages; turning and shearing are left.
  geometry.scaledWidth = wholePixels(naturalWidth * fit * std::hypot(a, b));
  geometry.scaledHeight = wholePixels(naturalHeight * fit * std::hypot(c, d));
  const double x = naturalWidth * fit / geometry.scaledWidth;
  const double y = naturalHeight * fit / geometry.scaledHeight;
  geometry.rest = {a * x, b * x, c * y, d * y};
  geometry.hasRest = true;
  return geometry;
}

StillMaker::StillMaker(std::shared_ptr<const MediaFile> file, int stream, const StillSettings& settings)
    : file_(std::move(file)), stream_(stream), settings_(settings) {}

Expected<std::shared_ptr<const StillImage>> StillMaker::make(const Frame& picture) {
  Frame frame = withPlainKind(picture);
  // What nobody told is not changed, only called what it will be taken for.
  const bool tellsPrimaries = frame->color_primaries != AVCOL_PRI_UNSPECIFIED;
  completeColours(*frame);
  auto whole = scaled(frame, tellsPrimaries ? primariesChange(*frame) : ColourChange{});
  if (!whole) return tl::make_unexpected(whole.error());
  auto result = upright(std::move(*whole));
  if (!result) return tl::make_unexpected(result.error());
  (*result)->sample_aspect_ratio = {1, 1};
  av_frame_remove_side_data(result->get(), AV_FRAME_DATA_DISPLAYMATRIX);
  auto still = std::make_shared<StillImage>();
  still->isDithered = isHighDynamicRange(frame->color_trc);
  still->frame = std::move(*result);
  still->metadata = file_->metadata();
  return still;
}

void StillMaker::completeColours(AVFrame& frame) const {
  const Colour colour = completeColour(file_->parameters(stream_));
  if (frame.color_primaries == AVCOL_PRI_UNSPECIFIED)
    frame.color_primaries = static_cast<AVColorPrimaries>(colour.primaries);
  if (frame.color_trc == AVCOL_TRC_UNSPECIFIED)
    frame.color_trc = static_cast<AVColorTransferCharacteristic>(colour.transfer);
  if (frame.colorspace == AVCOL_SPC_UNSPECIFIED) frame.colorspace = static_cast<AVColorSpace>(colour.matrix);
  if (frame.color_range == AVCOL_RANGE_UNSPECIFIED)
    frame.color_range = colour.fullRange ? AVCOL_RANGE_JPEG : AVCOL_RANGE_MPEG;
  if (frame.chroma_location == AVCHROMA_LOC_UNSPECIFIED) frame.chroma_location = AVCHROMA_LOC_LEFT;
}

// The part that is shown, at its final size before it is turned, in 8 bits.
Expected<Frame> StillMaker::scaled(const Frame& picture, const ColourChange& change) {
  const StreamFacts& facts = file_->stream(stream_);
  const auto kind = static_cast<AVPixelFormat>(picture->format);
  const AVPixFmtDescriptor& pixels = *av_pix_fmt_desc_get(kind);
  const Region part = facts.shown;
  const auto [width, height] =
      scaledSize(stillGeometry(facts.shown, facts.naturalWidth, facts.naturalHeight, settings_));
  const bool isDeep = pixels.comp[0].depth > 8;
  const bool isMovedOnly =
      part.width == width && part.height == height && startsOnChroma(part, pixels) && change.isNone();
  const AVPixelFormat format = stillFormat(pixels, !isMovedOnly || isDeep, width, height);
  const bool isBright = isHighDynamicRange(picture->color_trc);
  const AVPixelFormat scaledFormat = isBright && isDeep ? tenBitsOf(format) : format;
  auto result = isMovedOnly && kind == scaledFormat ? view(picture, part, pixels)
                                                    : resampled(picture, part, width, height, scaledFormat, change);
  return result && isBright ? toneMapper_.map(*result) : std::move(result);
}

Expected<Frame> StillMaker::resampled(const Frame& picture, const Region& part, int width, int height,
                                      AVPixelFormat format, const ColourChange& change) {
  const AVPixFmtDescriptor& pixels = *av_pix_fmt_desc_get(static_cast<AVPixelFormat>(picture->format));
  // Behind the last pixel of an odd side lies half a chroma sample.
  const int roomWidth = AV_CEIL_RSHIFT(picture->width, pixels.log2_chroma_w) << pixels.log2_chroma_w;
  const int roomHeight = AV_CEIL_RSHIFT(picture->height, pixels.log2_chroma_h) << pixels.log2_chroma_h;
  auto source = roomWidth == picture->width && roomHeight == picture->height ? Expected<Frame>(shareFrame(picture))
                                                                             : padFrame(picture, roomWidth, roomHeight);
  if (!source) return source;
  return resampler_.resample(*source, {part.left, part.top, part.width, part.height}, width, height, format, change);
}

Expected<Frame> StillMaker::upright(Frame frame) {
  const StreamFacts& facts = file_->stream(stream_);
  const StillGeometry geometry = stillGeometry(facts.shown, facts.naturalWidth, facts.naturalHeight, settings_);
  if (!geometry.hasRest) return turned(frame, geometry.turn);
  auto room = padFrame(frame, frame->width + frame->width % 2, frame->height + frame->height % 2);
  if (!room) return room;
  const PictureWindow whole{0, 0, static_cast<double>((*room)->width), static_cast<double>((*room)->height)};
  auto full = chromaResampler_.resample(*room, whole, (*room)->width, (*room)->height, AV_PIX_FMT_YUV444P);
  if (!full) return full;
  (*full)->width = frame->width;
  (*full)->height = frame->height;
  const auto& [a, b, c, d] = geometry.rest;
  const AffineMap aboutTheMiddle{a,
                                 b,
                                 c,
                                 d,
                                 (geometry.width - a * frame->width - c * frame->height) / 2,
                                 (geometry.height - b * frame->width - d * frame->height) / 2};
  std::vector<PictureLayer> layers;
  layers.push_back({std::move(*full), aboutTheMiddle, 1});
  return PictureRenderer(geometry.width, geometry.height, AV_PIX_FMT_YUV444P).render(layers);
}

Expected<std::shared_ptr<const StillImage>> blackStill(double naturalWidth, double naturalHeight,
                                                       const StillSettings& settings) {
  const StillGeometry geometry = stillGeometry({}, naturalWidth, naturalHeight, settings);
  auto still = std::make_shared<StillImage>();
  auto frame = blackFrame(geometry.width, geometry.height, AV_PIX_FMT_YUV420P, false);
  if (!frame) return tl::make_unexpected(frame.error());
  (*frame)->color_primaries = AVCOL_PRI_BT709;
  (*frame)->color_trc = AVCOL_TRC_BT709;
  (*frame)->colorspace = AVCOL_SPC_BT709;
  (*frame)->chroma_location = AVCHROMA_LOC_LEFT;
  still->frame = std::move(*frame);
  return still;
}

}  // namespace clipworks::engine
