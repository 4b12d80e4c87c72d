#include <clipworks/media/composition/PictureTimeline.h>

#include <algorithm>

#include <clipworks/media/asset/EngineErrors.h>
#include <clipworks/media/asset/MediaTrack.h>
#include <clipworks/media/composition/SegmentPictures.h>

namespace clipworks {
namespace {

/// In ticks of `timescale` when that is the same instant.
CMTime inTicks(const CMTime& time, std::int32_t timescale) {
  const CMTime converted = time.convertScale(timescale, CMTimeRoundingMethod::roundHalfAwayFromZero);
  return converted == time ? converted : time;
}

}  // namespace

Result<PictureTimeline, NSError> PictureTimeline::make(std::vector<MediaSegment> segments) {
  PictureTimeline timeline;
  for (auto& segment : segments) {
    Piece piece{std::move(segment), nullptr};
    if (piece.segment.mediaTrack != nullptr) {
      auto table = piece.segment.mediaTrack->file()->pictureTable(piece.segment.mediaTrack->stream());
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

std::vector<ScreenPicture> PictureTimeline::pictures() const {
  std::vector<ScreenPicture> pictures;
  const auto append = [&](std::size_t piece, std::size_t picture, const CMTime& since) {
    const auto& media = pieces_[piece].segment.mediaTrack;
    if (!pictures.empty() && !(pictures.back().since < since)) pictures.pop_back();
    pictures.push_back({media, picture, inTicks(since, media->facts().timescale), piece});
  };
  for (std::size_t piece = 0; piece < pieces_.size(); ++piece) {
    const auto& [segment, table] = pieces_[piece];
    if (table == nullptr) continue;
    const SegmentPictures shown(segment, *table);
    if (const auto first = shown.first()) {
      const ScreenPicture onScreen{segment.mediaTrack, *first, shown.since(*first), piece};
      if (sinceItCame(onScreen).since == onScreen.since) append(piece, *first, onScreen.since);
    }
    for (std::size_t picture = shown.held() ? shown.next() : shown.next() + 1; picture < shown.end(); ++picture)
      append(piece, picture, shown.since(picture));
  }
  return pictures;
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
