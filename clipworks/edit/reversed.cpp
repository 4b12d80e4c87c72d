#include <utility>

#include <clipworks/edit/EditErrors.h>
#include <clipworks/edit/EditState.h>
#include <clipworks/edit/Steps.h>

namespace clipworks {
namespace {

Stretches backwards(const Stretches& stretches) {
  Stretches mirrored;
  const auto& segments = stretches.segments();
  for (auto segment = segments.rbegin(); segment != segments.rend(); ++segment) {
    MediaSegment turned = *segment;
    if (!turned.isEmpty()) turned.backwards = !turned.backwards;
    const CMTime start = mirrored.end();
    const CMTime stop = mirrored.fit(stretches.end() - segment->target.start);
    if (stop <= start) continue;
    turned.target = CMTimeRange::fromTo(start, stop);
    mirrored.insert({turned}, start, stop - start);
  }
  return mirrored;
}

}  // namespace

Result<Edit, Error> reversed(const Edit& edit) {
  if (!edit.hasPictures() && !edit.hasSound()) return failed(ErrorCode::noPictures, edit.name() + " shows nothing");
  EditState state = edit.state();
  if (state.pictures) state.pictures = backwards(*state.pictures);
  for (auto& sound : state.sounds) sound.stretches = backwards(sound.stretches);
  return edited(std::move(state));
}

}  // namespace clipworks
