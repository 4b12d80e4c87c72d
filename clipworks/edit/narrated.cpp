#include <cmath>
#include <string>
#include <utility>

#include <clipworks/edit/EditErrors.h>
#include <clipworks/edit/EditState.h>
#include <clipworks/edit/Sentences.h>
#include <clipworks/edit/Steps.h>

namespace clipworks {
namespace {

constexpr double greatestVolume = 1000;

bool isVolume(double volume) { return volume >= 0 && volume <= greatestVolume; }

/// The recording's sound from `at` on, silence before it.
Result<Sound, Error> laidOver(const Edit& edit, const NarratedPiece& piece, const Source& source) {
  const CMTime length = source.asset->duration();
  auto recorded = firstTrack(source, AVMediaType::audio, length);
  if (!recorded) return failed(ErrorCode::noSound, source.name() + " has no sound track; a piece needs one");
  if (!piece.at.isNumeric() || piece.at < kCMTimeZero)
    return failed(ErrorCode::badArgument, source.name() + " would start before the clip");
  if (piece.at >= edit.duration()) {
    return failed(ErrorCode::badArgument, edit.name() + " ends at " + shownSeconds(edit.duration()) + " seconds, so " +
                                              source.name() + " cannot start at " + shortNumber(piece.at.seconds()));
  }
  Sound sound;
  sound.volume = static_cast<float>(piece.volume);
  const CMTime at = sound.stretches.fit(piece.at);
  for (const MediaSegment& segment : recorded->segments()) {
    const CMTime start = CMTimeMaximum(sound.stretches.end(), at);
    const CMTime stop = sound.stretches.fit(at + segment.target.end());
    if (stop <= start) continue;
    MediaSegment placed = segment;
    placed.target = CMTimeRange::fromTo(start, stop);
    sound.stretches.insert({placed}, start, stop - start);
  }
  return sound;
}

}  // namespace

Result<Edit, Error> narrated(const Edit& edit, const std::vector<NarratedPiece>& pieces, double baseVolume) {
  for (const auto& piece : pieces) {
    if (!isVolume(piece.volume))
      return failed(ErrorCode::badArgument, piece.file.filename().string() + " needs a volume from 0 to 1000");
  }
  if (!isVolume(baseVolume)) return failed(ErrorCode::badArgument, "the base volume must be from 0 to 1000");
  if (auto fit = needPictures(edit, "narration"); !fit) return failure(fit.error());
  if (auto fit = needSound(edit, "narration"); !fit) return failure(fit.error());
  EditState state = edit.state();
  for (auto& sound : state.sounds) sound.volume *= static_cast<float>(baseVolume);
  for (const auto& piece : pieces) {
    auto source = Source::open(piece.file, edit.limits());
    if (!source) return failure(source.error());
    auto sound = laidOver(edit, piece, **source);
    if (!sound) return failure(sound.error());
    state.length = CMTimeMaximum(state.length, sound->stretches.end());
    state.sources.push_back(std::move(*source));
    state.sounds.push_back(std::move(*sound));
  }
  pad(*state.pictures, state.length);
  for (auto& sound : state.sounds) pad(sound.stretches, state.length);
  return edited(std::move(state));
}

}  // namespace clipworks
