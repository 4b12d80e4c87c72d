#pragma once

#include <cstdint>

#include <clipworks/media/asset/AVAssetTrackSegment.h>
#include <clipworks/media/time/CMTimeRange.h>
#include <clipworks/media/time/PlaceableTime.h>

/// What editing a track and looking through it have in common: exact instants on timelines that are stretched and cut.
/// Pure values.
namespace clipworks {

/// The instant of `onto` that lies where `t` lies in `from`; the mapping goes on linearly outside. Invalid when `from`
/// is empty or a time is not placeable.
/// Exact when the two times of each range and `t` have common time scales, and the result has one of 31 bits: the
/// finest of those that come up, a multiple of `onto`'s, before any other. Else rounded half away from zero to the
/// finest multiple of `onto`'s time scale, with the rounded flag. Infinite beyond `latestSecond`.
[[nodiscard]] CMTime retimed(const CMTime& t, const CMTimeRange& from, const CMTimeRange& onto);

/// `t` as an instant whose distances from all instants fitted to the same `timescale` before are exact: at its own
/// time scale or in lowest terms, and then `timescale` grows to a common multiple. When there is none of 31 bits,
/// `timescale` becomes its finest multiple, and `t` is rounded to it half away from zero; that is never coarser than
/// 2^-30 s, so what is not zero does not become zero. Begin with 1. A time that is not placeable comes back as it is.
[[nodiscard]] CMTime fitToTimescale(const CMTime& t, std::int32_t& timescale);

/// A time scale at which start and end of `range` are whole counts, to fit instants between them to; the start's when
/// there is none of 31 bits.
[[nodiscard]] std::int32_t timescaleOf(const CMTimeRange& range);

/// The segment has media, and its target is exactly as long as its source.
[[nodiscard]] bool isAtNormalRate(const AVAssetTrackSegment& segment);

/// Leaves of `segment` what it presents from `from` to `to`, instants of its target. A normal rate stays exactly so,
/// a held picture stays the same picture; two neighbouring parts meet at the same instant of the source.
void keepPart(AVAssetTrackSegment& segment, const CMTime& from, const CMTime& to);

}  // namespace clipworks
