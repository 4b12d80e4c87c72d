#include <clipworks/media/composition/SegmentArithmetic.h>

#include <numeric>

#include <clipworks/media/time/ExactTime.h>

namespace clipworks {
namespace {

constexpr auto halfAwayFromZero = CMTimeRoundingMethod::roundHalfAwayFromZero;

/// Time scales stay as their author chose them up to here; beyond, an instant may be written in lowest terms, so that
/// 1.5 s told in nanoseconds leaves room for the 44,100ths of the next one.
constexpr std::int32_t roomyTimescale = 1'000'000;

Int128 greatestCommonDivisor(Int128 a, Int128 b) {
  if (a < 0) a = -a;
  while (b != 0) {
    const Int128 rest = a % b;
    a = b;
    b = rest;
  }
  return a;
}

CMTime inLowestTerms(const CMTime& t) {
  const std::int64_t divisor = std::gcd(t.value % t.timescale, std::int64_t{t.timescale});
  return CMTime(t.value / divisor, static_cast<std::int32_t>(t.timescale / divisor), t.flags, t.epoch);
}

/// Exact in some cases where `+` rounds because a coarse instant is written at a fine time scale.
CMTime sum(const CMTime& a, const CMTime& b) {
  return commonTimescale(a.timescale, b.timescale) != 0 ? a + b : inLowestTerms(a) + inLowestTerms(b);
}

std::int32_t finestMultiple(std::int32_t timescale) { return timescale * (kCMTimeMaxTimescale / timescale); }

/// Two times as counts of the same unit.
struct Counts {
  std::int32_t timescale;
  Int128 anchor;
  Int128 other;
  bool isRounded;
};

/// Exact where the scales have a common multiple of 31 bits; else `other` is rounded to the finest one of `anchor`'s.
Counts atCommonTimescale(CMTime anchor, CMTime other) {
  std::int32_t timescale = commonTimescale(anchor.timescale, other.timescale);
  if (timescale == 0) {
    anchor = inLowestTerms(anchor);
    other = inLowestTerms(other);
    timescale = commonTimescale(anchor.timescale, other.timescale);
  }
  if (timescale == 0) timescale = finestMultiple(anchor.timescale);
  const Int128 count = ticks(other, timescale);
  const bool isRounded = count * other.timescale != static_cast<Int128>(other.value) * timescale;
  return {timescale, ticks(anchor, timescale), count, isRounded};
}

/// `numerator` / (`divisor` · `timescale`) seconds. The numerator has 126 bits at most, the divisor 63 (positive).
CMTime quotientAtBestTimescale(Int128 numerator, Int128 divisor, std::int32_t timescale, std::uint32_t flags) {
  const Int128 whole = numerator / divisor;  // towards zero, in counts of 1/timescale
  const Int128 rest = numerator % divisor;
  const Int128 latest = static_cast<Int128>(latestSecond) * timescale;
  if (whole >= latest) return rest == 0 && whole == latest ? CMTime(latestSecond, 1) : kCMTimePositiveInfinity;
  if (whole <= -latest) return rest == 0 && whole == -latest ? CMTime(-latestSecond, 1) : kCMTimeNegativeInfinity;

  const Int128 parts = divisor / greatestCommonDivisor(rest, divisor);
  if (parts <= kCMTimeMaxTimescale / timescale) {
    const Int128 value = whole * parts + rest / (divisor / parts);
    return CMTime(saturated(value), static_cast<std::int32_t>(timescale * parts), flags, 0);
  }
  const Int128 denominator = divisor * timescale;
  const Int128 common = greatestCommonDivisor(numerator, denominator);
  if (denominator / common <= kCMTimeMaxTimescale) {
    return CMTime(saturated(numerator / common), static_cast<std::int32_t>(denominator / common), flags, 0);
  }
  const std::int32_t multiple = kCMTimeMaxTimescale / timescale;
  const Int128 value = whole * multiple + divideRounded(rest * multiple, divisor, halfAwayFromZero, false);
  return CMTime(saturated(value), timescale * multiple, flags | CMTime::hasBeenRounded, 0);
}

/// The instant of the source that `segment`, which is not at its normal rate, presents at `t`.
CMTime sourceInstant(const AVAssetTrackSegment& segment, const CMTime& t) {
  if (t == segment.target.start) return segment.source.start;
  if (t == segment.target.end()) return segment.source.end();
  std::int32_t timescale = timescaleOf(segment.source);
  return fitToTimescale(retimed(t, segment.target, segment.source), timescale);
}

}  // namespace

CMTime retimed(const CMTime& t, const CMTimeRange& from, const CMTimeRange& onto) {
  if (!isPlaceable(t) || !isPlaceable(from) || !isPlaceable(onto) || from.duration == kCMTimeZero) {
    return kCMTimeInvalid;
  }
  const CMTime offset = sum(t, -from.start);
  if (from.duration == onto.duration) return sum(onto.start, offset);
  const Counts in = atCommonTimescale(from.duration, offset);
  const Counts out = atCommonTimescale(onto.start, onto.duration);
  // start + offset · duration / length, over the one divisor `length`: 63 + 62 bits and one for the sum.
  const Int128 numerator = out.anchor * in.anchor + in.other * out.other;
  const std::uint32_t lost = in.isRounded || out.isRounded ? CMTime::hasBeenRounded : 0U;
  return quotientAtBestTimescale(numerator, in.anchor, out.timescale, offset.flags | lost);
}

CMTime fitToTimescale(const CMTime& t, std::int32_t& timescale) {
  const std::int32_t common = commonTimescale(timescale, t.timescale);
  if (common != 0 && (common <= roomyTimescale || common == timescale)) {
    timescale = common;
    return t;
  }
  if (!isPlaceable(t)) return t;
  const CMTime simple = inLowestTerms(t);
  if (const std::int32_t simpleCommon = commonTimescale(timescale, simple.timescale); simpleCommon != 0) {
    timescale = simpleCommon;
    return simpleCommon == common ? t : simple;
  }
  timescale = finestMultiple(timescale);
  return t.convertScale(timescale, halfAwayFromZero);
}

std::int32_t timescaleOf(const CMTimeRange& range) {
  const std::int32_t common = commonTimescale(range.start.timescale, range.duration.timescale);
  return common != 0 ? common : range.start.timescale;
}

bool isAtNormalRate(const AVAssetTrackSegment& segment) {
  return !segment.isEmpty() && segment.source.duration == segment.target.duration;
}

void keepPart(AVAssetTrackSegment& segment, const CMTime& from, const CMTime& to) {
  if (from == segment.target.start && to == segment.target.end()) return;
  const CMTimeRange part = CMTimeRange::fromTo(from, to);
  if (isAtNormalRate(segment)) {
    if (from != segment.target.start) segment.source.start += from - segment.target.start;
    segment.source.duration = part.duration;
  } else if (!segment.isEmpty()) {
    const CMTime start = sourceInstant(segment, from);
    // Where instants were rounded, the end of a part of nanoseconds may come out before its start.
    segment.source = CMTimeRange::fromTo(start, CMTimeMaximum(start, sourceInstant(segment, to)));
  }
  segment.target = part;
}

}  // namespace clipworks
