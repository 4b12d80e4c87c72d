#include <algorithm>
#include <cmath>
#include <iterator>
#include <optional>
#include <utility>
#include <vector>

#include <clipworks/edit/EditErrors.h>
#include <clipworks/edit/EditState.h>
#include <clipworks/edit/Sentences.h>
#include <clipworks/edit/Steps.h>
#include <clipworks/media/asset/MediaTrack.h>
#include <clipworks/media/export/DrawnPlan.h>

namespace clipworks {
namespace {

constexpr double largestSide = 16'384;

const MediaTrack* firstMedia(const EditState& state) {
  const MediaSegment* first = state.pictures ? firstOfMedia(*state.pictures) : nullptr;
  return first == nullptr ? nullptr : first->mediaTrack.get();
}

/// Whether pictures of both can follow each other without being drawn: shown in the same way, of one size and meaning.
bool lookAlike(const EditState& a, const EditState& b) {
  const auto* one = firstMedia(a);
  const auto* other = firstMedia(b);
  if (one == nullptr || other == nullptr) return true;  // black has no look
  if (a.canvas && b.canvas) return *a.canvas == *b.canvas;
  if (a.canvas || b.canvas || a.transform != b.transform) return false;
  const auto& facts = one->facts();
  const auto& others = other->facts();
  return facts.codedWidth == others.codedWidth && facts.codedHeight == others.codedHeight &&
         facts.naturalWidth == others.naturalWidth && facts.naturalHeight == others.naturalHeight &&
         facts.highDynamicRange == others.highDynamicRange && facts.bitDepth == others.bitDepth &&
         facts.codec == others.codec &&
         engine::completeColour(one->file()->parameters(one->stream())) ==
             engine::completeColour(other->file()->parameters(other->stream()));
}

/// Draws what `state` shows onto a canvas of `size`, whole with black beside it, or filling it.
void fitOnto(EditState& state, const CGSize& seen, const CGSize& size, bool fills) {
  if (firstMedia(state) == nullptr) return;
  const double across = size.width / seen.width;
  const double down = size.height / seen.height;
  const double scale = fills ? std::max(across, down) : std::min(across, down);
  draw(state, {scale, 0, 0, scale, (size.width - scale * seen.width) / 2, (size.height - scale * seen.height) / 2},
       size);
  if (state.canvas) return;
  // Nothing would have to be drawn, but for the clips beside it.
  state.canvas = size;
  state.pictures->forEach([&state](MediaSegment& segment) {
    if (segment.mediaTrack != nullptr) segment.place = seenOf(*segment.mediaTrack, state.transform);
  });
}

/// Lays `stretches`, which end at `length`, behind what there is, which ends at `start`.
void append(Stretches& all, const Stretches& stretches, const CMTime& start, const CMTime& length) {
  for (const MediaSegment& segment : stretches.segments()) {
    const CMTime from = all.end();
    const CMTime to = all.fit(start + CMTimeMinimum(segment.target.end(), length));
    if (to <= from) continue;
    MediaSegment placed = segment;
    placed.target = CMTimeRange::fromTo(from, to);
    all.insert({std::move(placed)}, from, to - from);
  }
}

/// Black or silence up to `end`.
void fill(Stretches& stretches, const CMTime& end) {
  const CMTime from = stretches.end();
  const CMTime to = stretches.fit(end);
  if (from < to) stretches.insert({Stretches::gap(SegmentGap::empty, to - from)}, from, to - from);
}

/// Sounds that are equally loud go on in one another.
void appendSounds(EditState& joined, const EditState& next) {
  std::vector<bool> isTaken(joined.sounds.size(), false);
  for (const Sound& sound : next.sounds) {
    std::size_t i = 0;
    while (i < isTaken.size() && (isTaken[i] || joined.sounds[i].volume != sound.volume)) ++i;
    if (i == isTaken.size()) {
      joined.sounds.push_back({{}, sound.volume});
      fill(joined.sounds.back().stretches, joined.length);
      isTaken.push_back(true);
    }
    isTaken[i] = true;
    append(joined.sounds[i].stretches, sound.stretches, joined.length, next.length);
  }
}

}  // namespace

Result<Edit, Error> joined(const std::vector<Edit>& edits, const JoinLook& look) {
  if (edits.empty()) return failed(ErrorCode::badArgument, "joining needs a clip at least");
  const auto shown = std::find_if(edits.begin(), edits.end(), [](const Edit& edit) { return edit.hasPictures(); });
  const auto even = [](double side) { return std::max(2 * std::round(side / 2), 2.0); };
  std::optional<CGSize> size;
  if (look.size) {
    size = CGSize{even(look.size->width), even(look.size->height)};
    if (!(size->width <= largestSide && size->height <= largestSide))
      return failed(ErrorCode::badArgument, "a size must be from 2 to " + wholeNumber(largestSide) + " pixels");
  } else if (shown != edits.end() && std::any_of(edits.begin(), edits.end(), [&shown](const Edit& edit) {
               return !lookAlike(shown->state(), edit.state());
             })) {
    size = CGSize{even(shown->size().width), even(shown->size().height)};
  }
  CMTime length = kCMTimeZero;
  for (const Edit& edit : edits) length += edit.duration();
  if (!length.isNumeric() || length.seconds() > mostHours * 3600)
    return failed(ErrorCode::badArgument, "joined clips must last " + wholeNumber(mostHours) + " hours at most");

  EditState joined = edits.front().state();
  joined.sources.clear();
  joined.leftOut.clear();
  joined.remarks.clear();
  joined.pictures.reset();
  joined.sounds.clear();
  joined.length = kCMTimeZero;
  if (shown != edits.end()) {
    joined.pictures.emplace();
    joined.transform = shown->state().transform;
    joined.canvas = size ? size : shown->state().canvas;
  }
  for (const Edit& edit : edits) {
    EditState next = edit.state();
    if (size) fitOnto(next, edit.size(), *size, look.fills);
    if (joined.pictures && next.pictures) {
      fill(*joined.pictures, joined.length);
      append(*joined.pictures, *next.pictures, joined.length, next.length);
    }
    appendSounds(joined, next);
    joined.length += next.length;
    for (auto& sound : joined.sounds) fill(sound.stretches, joined.length);
    std::move(next.sources.begin(), next.sources.end(), std::back_inserter(joined.sources));
    std::move(next.leftOut.begin(), next.leftOut.end(), std::back_inserter(joined.leftOut));
    std::move(next.remarks.begin(), next.remarks.end(), std::back_inserter(joined.remarks));
  }
  if (joined.pictures) fill(*joined.pictures, joined.length);
  return edited(std::move(joined));
}

}  // namespace clipworks
