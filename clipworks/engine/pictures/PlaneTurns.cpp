#include <clipworks/engine/pictures/PlaneTurns.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdint>
#include <utility>
#include <vector>

#include <libyuv/rotate.h>

#include <clipworks/engine/pictures/FramePadding.h>

namespace clipworks::engine {
namespace {

// Where chroma samples lie along an axis, in half pixels from the first of the pixels they stand for.
struct ChromaPlace {
  int x = 0;
  int y = 1;
};

ChromaPlace placeOf(AVChromaLocation location) {
  switch (location) {
    case AVCHROMA_LOC_CENTER:
      return {1, 1};
    case AVCHROMA_LOC_TOPLEFT:
      return {0, 0};
    case AVCHROMA_LOC_TOP:
      return {1, 0};
    case AVCHROMA_LOC_BOTTOMLEFT:
      return {0, 2};
    case AVCHROMA_LOC_BOTTOM:
      return {1, 2};
    default:
      return {0, 1};  // left, which is also what unspecified means
  }
}

AVChromaLocation locationAt(ChromaPlace place) {
  if (place.x == 0) {
    return place.y == 0 ? AVCHROMA_LOC_TOPLEFT : place.y == 1 ? AVCHROMA_LOC_LEFT : AVCHROMA_LOC_BOTTOMLEFT;
  }
  if (place.x == 1) return place.y == 0 ? AVCHROMA_LOC_TOP : place.y == 1 ? AVCHROMA_LOC_CENTER : AVCHROMA_LOC_BOTTOM;
  return AVCHROMA_LOC_CENTER;
}

// The same depth with the two subsampling factors exchanged.
AVPixelFormat onItsSide(AVPixelFormat format, const AVPixFmtDescriptor& pixels) {
  if (pixels.log2_chroma_w == pixels.log2_chroma_h || pixels.nb_components < 3) return format;
  static constexpr std::pair<AVPixelFormat, AVPixelFormat> sides[] = {
      {AV_PIX_FMT_YUV422P, AV_PIX_FMT_YUV440P},
      {AV_PIX_FMT_YUVJ422P, AV_PIX_FMT_YUVJ440P},
      {AV_PIX_FMT_YUV422P10, AV_PIX_FMT_YUV440P10},
      {AV_PIX_FMT_YUV422P12, AV_PIX_FMT_YUV440P12},
  };
  for (const auto& [wide, high] : sides) {
    if (format == wide) return high;
    if (format == high) return wide;
  }
  return AV_PIX_FMT_NONE;
}

struct Plane {
  std::uint8_t* data = nullptr;
  std::ptrdiff_t stride = 0;  // in samples
  int width = 0;
  int height = 0;
};

Plane planeOf(const AVFrame& frame, const AVPixFmtDescriptor& pixels, int plane) {
  const bool chroma = plane == 1 || plane == 2;
  const int bytes = pixels.comp[0].depth > 8 ? 2 : 1;
  return {frame.data[plane], frame.linesize[plane] / bytes,
          chroma ? AV_CEIL_RSHIFT(frame.width, pixels.log2_chroma_w) : frame.width,
          chroma ? AV_CEIL_RSHIFT(frame.height, pixels.log2_chroma_h) : frame.height};
}

// libyuv turns, and reads the rows from the last to the first where the height is negative: all eight ways.
void turnPlane(const Plane& from, const Plane& to, PlaneTurn turn, bool wide) {
  const bool fromBelow = turn.swapsAxes ? turn.reversesX == turn.reversesY : turn.reversesX != turn.reversesY;
  libyuv::RotationMode mode = libyuv::kRotate0;
  if (turn.swapsAxes) {
    mode = turn.reversesY ? libyuv::kRotate270 : libyuv::kRotate90;
  } else if (turn.reversesX) {
    mode = libyuv::kRotate180;
  }
  const int height = fromBelow ? -from.height : from.height;
  const auto fromStride = static_cast<int>(from.stride);
  const auto toStride = static_cast<int>(to.stride);
  if (wide) {
    libyuv::RotatePlane_16(reinterpret_cast<const std::uint16_t*>(from.data), fromStride,
                           reinterpret_cast<std::uint16_t*>(to.data), toStride, from.width, height, mode);
  } else {
    libyuv::RotatePlane(from.data, fromStride, to.data, toStride, from.width, height, mode);
  }
}

// Moves the samples of a plane by `halves` half samples towards its start, in place; the last ones stay.
template <class Sample>
void shiftBack(const Plane& plane, bool alongX, int halves) {
  auto* samples = reinterpret_cast<Sample*>(plane.data);
  const std::ptrdiff_t step = alongX ? 1 : plane.stride;
  const int last = (alongX ? plane.width : plane.height) - 1;
  const int near = halves / 2;
  const int far = (halves + 1) / 2;
  for (int y = 0; y < (alongX ? plane.height : last + 1); ++y) {
    for (int x = 0; x < (alongX ? last + 1 : plane.width); ++x) {
      const int at = alongX ? x : y;
      Sample* sample = samples + y * plane.stride + x;
      const int sum = sample[std::min(near, last - at) * step] + sample[std::min(far, last - at) * step];
      *sample = static_cast<Sample>((sum + 1) / 2);
    }
  }
}

void shiftChroma(AVFrame& frame, const AVPixFmtDescriptor& pixels, bool alongX, int halves) {
  for (int plane = 1; plane <= 2; ++plane) {
    const Plane chroma = planeOf(frame, pixels, plane);
    if (pixels.comp[0].depth > 8) {
      shiftBack<std::uint16_t>(chroma, alongX, halves);
    } else {
      shiftBack<std::uint8_t>(chroma, alongX, halves);
    }
  }
}

// Between samples: the spline of Catmull and Rom, in 1/128, for a quarter of a sample before one or after it, and for
// half of one before. The first of the four lies two samples before, or one.
struct Between {
  std::array<int, 4> weights;
  int first;
};

Between betweenSamples(int quarters) {
  if (quarters == 1) return {{-3, 29, 111, -9}, -2};
  if (quarters == 2) return {{-8, 72, 72, -8}, -2};
  return {{-9, 111, 29, -3}, -1};
}

template <class Sample>
void mix(const std::array<const Sample*, 4>& from, const std::array<int, 4>& weights, int count, int largest,
         Sample* to) {
  for (int x = 0; x < count; ++x) {
    const int sum =
        weights[0] * from[0][x] + weights[1] * from[1][x] + weights[2] * from[2][x] + weights[3] * from[3][x];
    to[x] = static_cast<Sample>(std::clamp((sum + 64) >> 7, 0, largest));
  }
}

// The same in 16 bits, which twice as many fit into a vector of: sums lie from -16 × 255 to 144 × 255, and a bias of
// whole steps keeps them above 0.
void mix(const std::array<const std::uint8_t*, 4>& from, const std::array<int, 4>& weights, int count, int /*largest*/,
         std::uint8_t* to) {
  constexpr int biasSteps = 34;
  constexpr auto bias = static_cast<std::uint16_t>(biasSteps * 128 + 64);
  std::array<std::uint16_t, 4> w{};
  std::transform(weights.begin(), weights.end(), w.begin(),
                 [](int weight) { return static_cast<std::uint16_t>(weight); });
  const std::uint8_t* const a = from[0];
  const std::uint8_t* const b = from[1];
  const std::uint8_t* const c = from[2];
  const std::uint8_t* const d = from[3];
  for (int x = 0; x < count; ++x) {
    const auto sum = static_cast<std::uint16_t>(w[0] * a[x] + w[1] * b[x] + w[2] * c[x] + w[3] * d[x] + bias);
    const auto value = static_cast<std::int16_t>((sum >> 7) - biasSteps);
    to[x] = static_cast<std::uint8_t>(std::clamp<std::int16_t>(value, 0, 255));
  }
}

// What lies `quarters` quarters of a sample before each one takes its place: 1, 2 or -1 along the rows or the columns.
template <class Sample>
void resamplePlane(const Plane& plane, bool alongX, int quarters, int largest) {
  const Between between = betweenSamples(quarters);
  auto* samples = reinterpret_cast<Sample*>(plane.data);
  constexpr int margin = 2;
  const auto width = static_cast<std::size_t>(plane.width);
  std::vector<Sample> copy(alongX ? width + 2 * margin : width * static_cast<std::size_t>(plane.height));
  if (!alongX) {
    for (int y = 0; y < plane.height; ++y)
      std::copy_n(samples + y * plane.stride, width, copy.data() + y * plane.width);
  }
  for (int y = 0; y < plane.height; ++y) {
    Sample* row = samples + y * plane.stride;
    std::array<const Sample*, 4> from{};
    if (alongX) {
      std::fill_n(copy.begin(), margin, row[0]);
      std::copy_n(row, width, copy.begin() + margin);
      std::fill_n(copy.end() - margin, margin, row[width - 1]);
    }
    for (int i = 0; i < 4; ++i) {
      from[static_cast<std::size_t>(i)] =
          alongX ? copy.data() + margin + between.first + i
                 : copy.data() + static_cast<std::ptrdiff_t>(std::clamp(y + between.first + i, 0, plane.height - 1)) *
                                     plane.width;
    }
    mix(from, between.weights, plane.width, largest, row);
  }
}

// Makes chroma that lies at `place` lie where `left` says.
void moveChromaToLeft(AVFrame& frame, const AVPixFmtDescriptor& pixels, ChromaPlace place) {
  const int largest = (1 << pixels.comp[0].depth) - 1;
  const auto move = [&](bool alongX, int quarters) {
    if (quarters == 0) return;
    for (int plane = 1; plane <= 2; ++plane) {
      const Plane chroma = planeOf(frame, pixels, plane);
      const auto resample = pixels.comp[0].depth > 8 ? resamplePlane<std::uint16_t> : resamplePlane<std::uint8_t>;
      resample(chroma, alongX, quarters, largest);
    }
  };
  if (pixels.log2_chroma_w == 1) move(true, place.x);
  if (pixels.log2_chroma_h == 1) move(false, place.y - 1);
}

// Keeps chroma on its pixels, or says where it went, or moves it. `frame` is turned already; its location is the old
// one.
void settleChroma(AVFrame& frame, PlaneTurn turn, TurnedChroma wanted) {
  const AVPixFmtDescriptor& pixels = *av_pix_fmt_desc_get(static_cast<AVPixelFormat>(frame.format));
  if (pixels.nb_components < 3 || (pixels.log2_chroma_w == 0 && pixels.log2_chroma_h == 0)) return;
  ChromaPlace place = placeOf(frame.chroma_location);
  if (turn.swapsAxes) std::swap(place.x, place.y);
  const auto reverse = [&](int& at, int length, int log2, bool alongX) {
    if (log2 == 0) return;
    if (length % 2 == 0) {
      at = 2 - at;
    } else if (at > 0) {
      shiftChroma(frame, pixels, alongX, at);
    }
  };
  if (turn.reversesX) reverse(place.x, frame.width, pixels.log2_chroma_w, true);
  if (turn.reversesY) reverse(place.y, frame.height, pixels.log2_chroma_h, false);
  if (wanted == TurnedChroma::movedToLeft) {
    moveChromaToLeft(frame, pixels, place);
    place = {};
  }
  frame.chroma_location = locationAt(place);
}

}  // namespace

std::optional<PlaneTurn> turnOf(double a, double b, double c, double d) {
  constexpr double residue = 1e-6;
  const double largest = std::max({std::fabs(a), std::fabs(b), std::fabs(c), std::fabs(d)});
  if (!std::isfinite(largest) || largest <= 0) return std::nullopt;
  const auto none = [&](double factor) { return std::fabs(factor) <= residue * largest; };
  if (none(b) && none(c) && !none(a) && !none(d)) return PlaneTurn{false, a < 0, d < 0};
  if (none(a) && none(d) && !none(b) && !none(c)) return PlaneTurn{true, c < 0, b < 0};
  return std::nullopt;
}

Expected<Frame> turned(const Frame& frame, PlaneTurn turn, TurnedChroma chroma) {
  const ChromaPlace place = placeOf(frame->chroma_location);
  const bool isInPlace = chroma == TurnedChroma::named || (place.x == 0 && place.y == 1);
  if (turn.isIdentity() && isInPlace) return shareFrame(frame);
  const auto format = static_cast<AVPixelFormat>(frame->format);
  const AVPixFmtDescriptor* pixels = av_pix_fmt_desc_get(format);
  constexpr std::uint64_t unfit = AV_PIX_FMT_FLAG_BE | AV_PIX_FMT_FLAG_FLOAT | AV_PIX_FMT_FLAG_HWACCEL |
                                  AV_PIX_FMT_FLAG_PAL | AV_PIX_FMT_FLAG_BITSTREAM;
  const bool fit = pixels != nullptr && (pixels->flags & unfit) == 0 && pixels->log2_chroma_w <= 1 &&
                   pixels->log2_chroma_h <= 1 && av_pix_fmt_count_planes(format) == pixels->nb_components;
  const AVPixelFormat turnedFormat = !fit ? AV_PIX_FMT_NONE : turn.swapsAxes ? onItsSide(format, *pixels) : format;
  if (turnedFormat == AV_PIX_FMT_NONE) {
    const char* name = av_get_pix_fmt_name(format);
    return failed(ErrorKind::unsupported,
                  std::string("pictures of the kind ") + (name ? name : "unknown") + " are not turned");
  }
  auto result = allocateFrame(turn.swapsAxes ? frame->height : frame->width,
                              turn.swapsAxes ? frame->width : frame->height, turnedFormat);
  if (!result) return result;
  av_frame_copy_props(result->get(), frame.get());
  av_frame_remove_side_data(result->get(), AV_FRAME_DATA_DISPLAYMATRIX);
  if (turn.swapsAxes) std::swap((*result)->sample_aspect_ratio.num, (*result)->sample_aspect_ratio.den);
  for (int plane = 0; plane < av_pix_fmt_count_planes(format); ++plane) {
    turnPlane(planeOf(*frame, *pixels, plane), planeOf(**result, *av_pix_fmt_desc_get(turnedFormat), plane), turn,
              pixels->comp[0].depth > 8);
  }
  settleChroma(**result, turn, chroma);
  return result;
}

}  // namespace clipworks::engine
