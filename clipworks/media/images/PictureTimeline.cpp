#include <clipworks/media/images/PictureTimeline.h>

#include <algorithm>

#include <clipworks/media/asset/EngineErrors.h>
#include <clipworks/media/asset/MediaTrack.h>
#include <clipworks/media/time/ExactTime.h>

namespace clipworks {
namespace {

constexpr auto up = CMTimeRoundingMethod::roundTowardPositiveInfinity;
constexpr auto down = CMTimeRoundingMethod::roundTowardNegativeInfinity;

/// The pictures that a segment with media shows: those that come on screen within its source range, after the one that
/// is on screen where it starts.
class SegmentPictures {
 public:
  SegmentPictures(const MediaSegment& segment, const engine::SampleTable& table)
      : segment_(segment), table_(table), scale_(segment.mediaTrack->facts().timescale) {
    const std::int64_t to = ticks(segment.source.end(), scale_, up);
    next_ = table.firstPictureFrom(ticks(segment.source.start, scale_, up));
    end_ = std::max(next_, table.firstPictureFrom(to));
    held_ = table.pictureAt(ticks(segment.source.start, scale_, down));
    if (held_ && *held_ == next_) ++next_;  // it comes exactly at the start
    if (held_ && end_ <= *held_) end_ = *held_ + 1;
  }

  [[nodiscard]] std::optional<std::size_t> first() const {
    if (held_) return held_;
    return next_ < end_ ? std::optional(next_) : std::nullopt;
  }

  /// Behind the last.
  [[nodiscard]] std::size_t end() const { return end_; }

  [[nodiscard]] bool contains(std::size_t picture) const { return first() && picture >= *first() && picture < end_; }

  /// Nothing as long as none has come.
  [[nodiscard]] std::optional<std::size_t> at(const CMTime& time) const {
    const CMTime mapped = mapToSource(segment_, time);
    if (!mapped.isNumeric()) return held_;  // a picture that is held
    // By the times at which pictures come on screen, wherever a time had to be rounded.
    std::size_t after = std::clamp(table_.firstPictureFrom(ticks(mapped, scale_, down) + 1), next_, end_);
    while (after < end_ && since(after) <= time) ++after;
    while (after > next_ && since(after - 1) > time) --after;
    return after > next_ ? std::optional(after - 1) : held_;
  }

  [[nodiscard]] CMTime since(std::size_t picture) const {
    if (held_ && picture <= *held_) return segment_.target.start;
    const CMTime mapped = mapToTarget(segment_, CMTime(table_.timeOfPicture(picture), scale_));
    return mapped.isNumeric() ? CMTimeMaximum(mapped, segment_.target.start) : segment_.target.start;
  }

 private:
  const MediaSegment& segment_;
  const engine::SampleTable& table_;
  std::int32_t scale_;
  std::optional<std::size_t> held_;  // on screen at the start
  std::size_t next_ = 0;             // the first that comes after it
  std::size_t end_ = 0;
};

}  // namespace

Result<PictureTimeline, NSError> PictureTimeline::make(const AVAssetTrack& track) {
  PictureTimeline timeline;
  for (auto& segment : resolveToMedia(track)) {
    Piece piece{std::move(segment), nullptr};
    if (piece.segment.mediaTrack != nullptr) {
      auto table = piece.segment.mediaTrack->file()->sampleTable(piece.segment.mediaTrack->stream());
      if (!table) return failure(errorFromEngine(table.error()));
      piece.table = *table;
    }
    timeline.pieces_.push_back(std::move(piece));
  }
  return timeline;
}

CMTime PictureTimeline::end() const { return pieces_.empty() ? kCMTimeZero : pieces_.back().segment.target.end(); }

std::optional<ScreenPicture> PictureTimeline::at(const CMTime& time) const {
  const auto after = std::upper_bound(pieces_.begin(), pieces_.end(), time,
                                      [](const CMTime& t, const Piece& p) { return t < p.segment.target.start; });
  const auto piece = static_cast<std::size_t>(std::max<std::ptrdiff_t>(after - pieces_.begin() - 1, 0));
  if (pieces_.empty()) return std::nullopt;
  auto shown = shownBy(piece, time);
  if (!shown) shown = lastBefore(piece);
  if (!shown) return firstFrom(piece);
  return sinceItCame(*shown);
}

// Nothing as long as the segment lets what was on screen before stay there.
std::optional<ScreenPicture> PictureTimeline::shownBy(std::size_t piece, const CMTime& time) const {
  const auto& [segment, table] = pieces_[piece];
  if (segment.gap == SegmentGap::empty) return black(piece);
  if (table == nullptr) return std::nullopt;
  const SegmentPictures pictures(segment, *table);
  const auto picture = pictures.at(time);
  if (!picture) return std::nullopt;
  return ScreenPicture{segment.mediaTrack, *picture, pictures.since(*picture), piece};
}

std::optional<ScreenPicture> PictureTimeline::lastBefore(std::size_t piece) const {
  while (piece-- > 0) {
    if (auto shown = shownBy(piece, pieces_[piece].segment.target.end())) return shown;
  }
  return std::nullopt;
}

std::optional<ScreenPicture> PictureTimeline::firstFrom(std::size_t piece) const {
  for (; piece < pieces_.size(); ++piece) {
    const auto& [segment, table] = pieces_[piece];
    if (segment.gap == SegmentGap::empty) return black(piece);
    if (table == nullptr) continue;
    const SegmentPictures pictures(segment, *table);
    if (const auto first = pictures.first())
      return ScreenPicture{segment.mediaTrack, *first, pictures.since(*first), piece};
  }
  return std::nullopt;
}

// A picture that is on screen where its segment starts may have been there before.
ScreenPicture PictureTimeline::sinceItCame(ScreenPicture shown) const {
  while (shown.since == pieces_[shown.piece].segment.target.start) {
    const auto before = lastBefore(shown.piece);
    if (!before || !before->showsTheSameAs(shown)) break;
    shown = *before;
  }
  return shown;
}

std::vector<CMTime> PictureTimeline::times() const {
  std::vector<CMTime> times;
  for (std::size_t piece = 0; piece < pieces_.size(); ++piece) {
    const auto& [segment, table] = pieces_[piece];
    if (table == nullptr) continue;
    const SegmentPictures pictures(segment, *table);
    const auto first = pictures.first();
    if (!first) continue;
    const ScreenPicture shown{segment.mediaTrack, *first, pictures.since(*first), piece};
    if (sinceItCame(shown).since == shown.since) times.push_back(shown.since);
    for (std::size_t picture = *first + 1; picture < pictures.end(); ++picture) times.push_back(pictures.since(picture));
  }
  return times;
}

std::optional<ScreenPicture> PictureTimeline::near(const CMTime& time, const TimeTolerance& tolerance) const {
  const auto exact = at(time);
  if (!exact || exact->media == nullptr) return exact;
  const auto& [segment, table] = pieces_[exact->piece];
  const SegmentPictures pictures(segment, *table);
  const std::uint32_t before = table->accessPointFor(exact->picture);
  if (before == table->sampleOfPicture(exact->picture)) return exact;
  std::optional<ScreenPicture> nearest;
  for (const auto access : {std::optional(before), table->accessPointAfter(before)}) {
    if (!access) continue;
    const auto picture = table->pictureAt(table->samples()[*access].presentation);
    if (!picture || !pictures.contains(*picture)) continue;
    const CMTime since = pictures.since(*picture);
    if (since < time - tolerance.before || time + tolerance.after < since) continue;
    const bool isNearer = !nearest || CMTimeAbsoluteValue(since - time) < CMTimeAbsoluteValue(nearest->since - time);
    if (isNearer) nearest = ScreenPicture{exact->media, *picture, since, exact->piece};
  }
  return nearest ? nearest : exact;
}

}  // namespace clipworks
