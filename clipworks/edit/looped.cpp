#include <utility>

#include <clipworks/edit/EditErrors.h>
#include <clipworks/edit/EditState.h>
#include <clipworks/edit/Sentences.h>
#include <clipworks/edit/Steps.h>

namespace clipworks {
namespace {

constexpr std::int64_t mostCopies = 100'000;

/// Every copy starts where a whole number of lengths ends, exactly.
void repeat(Stretches& stretches, std::int64_t count, const CMTime& length) {
  const auto once = stretches.segments();
  const CMTime step = stretches.fit(length);
  for (std::int64_t i = 1; i < count; ++i) {
    stretches.insert(once, stretches.end(), step);
  }
}

}  // namespace

Result<Edit, Error> looped(const Edit& edit, std::int64_t count) {
  if (count < 1) return failed(ErrorCode::badArgument, "a loop's count must be at least 1");
  if (count > mostCopies)
    return failed(ErrorCode::badArgument, "a loop's count must be at most " + std::to_string(mostCopies));
  if (auto fit = needPictures(edit, "looping"); !fit) return failure(fit.error());
  if (auto fit = needSound(edit, "looping"); !fit) return failure(fit.error());
  if (edit.duration().seconds() * static_cast<double>(count) > mostHours * 3600) {
    return failed(ErrorCode::badArgument, edit.name() + " played " + std::to_string(count) +
                                              " times would be longer than " + wholeNumber(mostHours) + " hours");
  }
  EditState state = edit.state();
  repeat(*state.pictures, count, state.length);
  for (auto& sound : state.sounds) repeat(sound.stretches, count, state.length);
  state.length = CMTime(state.length.value * count, state.length.timescale);
  return edited(std::move(state));
}

}  // namespace clipworks
