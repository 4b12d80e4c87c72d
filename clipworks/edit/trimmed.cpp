#include <optional>
#include <utility>
#include <vector>

#include <clipworks/edit/EditErrors.h>
#include <clipworks/edit/EditState.h>
#include <clipworks/edit/Sentences.h>
#include <clipworks/edit/Steps.h>
#include <clipworks/media/asset/MediaTrack.h>

namespace clipworks {
namespace {

void keep(Stretches& stretches, const CMTimeRange& range) {
  const CMTime start = stretches.fit(range.start);
  const CMTime stop = stretches.fit(range.end());
  if (stop < stretches.end()) stretches.remove(stop, stretches.end());
  if (start > kCMTimeZero) stretches.remove(kCMTimeZero, start);
}

/// As `keep`; where the part begins while a picture stays on screen, it begins with that one, and where sound has
/// ended, there is sound still, which is silent.
void keepWithHeld(Stretches& stretches, const CMTimeRange& range) {
  const MediaSegment* last = nullptr;
  for (const MediaSegment& segment : stretches.segments()) {
    if (segment.target.start > range.start) break;
    if (segment.gap != SegmentGap::hold) last = &segment;
  }
  std::optional<MediaSegment> held;
  if (last != nullptr && last->mediaTrack != nullptr && last->target.end() <= range.start) held = *last;
  keep(stretches, range);
  if (!held) return;
  const CMTime tick(1, held->mediaTrack->facts().timescale);
  const CMTime shown = held->backwards ? held->source.start : held->source.end() - tick;
  bool isFirst = true;
  stretches.forEach([&](MediaSegment& segment) {
    if (!std::exchange(isFirst, false)) return;
    held->target = segment.target;
    segment = *held;
    segment.source = CMTimeRange(shown, kCMTimeZero);
    segment.backwards = false;
  });
}

}  // namespace

Result<Edit, Error> trimmed(const Edit& edit, const CMTimeRange& asked) {
  if (!asked.start.isNumeric() || asked.start < kCMTimeZero || !(asked.duration > kCMTimeZero))
    return failed(ErrorCode::badArgument, "a part must start before it ends, and not before the clip");
  if (asked.start >= edit.duration()) {
    return failed(ErrorCode::badArgument, edit.name() + " ends at " + shownSeconds(edit.duration()) +
                                              " seconds, so nothing is left from " +
                                              shortNumber(asked.start.seconds()) + " on");
  }
  const CMTimeRange range = CMTimeRange::fromTo(asked.start, CMTimeMinimum(asked.end(), edit.duration()));
  EditState state = edit.state();
  if (state.pictures) keepWithHeld(*state.pictures, range);
  for (auto& sound : state.sounds) keepWithHeld(sound.stretches, range);
  state.length = range.duration;
  return edited(std::move(state));
}

Result<Edit, Error> trimmed(const Edit& edit, const std::vector<CMTimeRange>& ranges) {
  if (ranges.empty()) return failed(ErrorCode::badArgument, "trimming needs a part that is kept");
  std::vector<Edit> parts;
  for (const CMTimeRange& range : ranges) {
    auto part = trimmed(edit, range);
    if (!part) return failure(part.error());
    parts.push_back(std::move(*part));
  }
  if (parts.size() == 1) return parts.front();
  auto whole = joined(parts);
  if (!whole) return whole;
  // Each part told of the same files.
  EditState state = whole->state();
  state.sources = edit.state().sources;
  state.leftOut = edit.state().leftOut;
  state.remarks = edit.state().remarks;
  return edited(std::move(state));
}

}  // namespace clipworks
