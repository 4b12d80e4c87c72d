#include <cmath>
#include <numeric>
#include <utility>

#include <clipworks/edit/EditErrors.h>
#include <clipworks/edit/EditState.h>
#include <clipworks/edit/Sentences.h>
#include <clipworks/edit/Steps.h>
#include <clipworks/media/time/ExactTime.h>

namespace clipworks {
namespace {

// Lengths are shown with three digits, so what is typed may lie a little behind the end.
constexpr double shownDigit = 0.001;

/// `length` × `ratio`, exact where there is a time scale for it, else to a microsecond.
CMTime times(const CMTime& length, const CMTime& ratio) {
  Int128 value = static_cast<Int128>(length.value) * ratio.value;
  Int128 scale = static_cast<Int128>(length.timescale) * ratio.timescale;
  Int128 a = value;
  Int128 b = scale;
  while (b != 0) a = std::exchange(b, a % b);
  if (a > 0) {
    value /= a;
    scale /= a;
  }
  if (scale <= kCMTimeMaxTimescale) return CMTime(saturated(value), static_cast<std::int32_t>(scale));
  constexpr std::int32_t micro = 1'000'000;
  return CMTime(saturated(divideRounded(value * micro, scale, CMTimeRoundingMethod::roundHalfAwayFromZero, false)),
                micro);
}

void scale(Stretches& stretches, const CMTimeRange& stretch, const CMTime& length) {
  const CMTime start = stretches.fit(stretch.start);
  const CMTime stop = stretches.fit(stretch.end());
  const CMTime onto = stretches.fit(length);
  if (start < stop && onto > kCMTimeZero) stretches.scale(start, stop, onto);
}

}  // namespace

Result<Edit, Error> retimed(const Edit& edit, const CMTimeRange& asked, double ratio) {
  if (!asked.start.isNumeric() || !asked.duration.isNumeric())
    return failed(ErrorCode::badArgument, "a stretch needs a start and an end");
  if (!std::isfinite(ratio) || !(ratio > 0))
    return failed(ErrorCode::badArgument, "a ratio must be more than 0, and not infinite");
  if (asked.start < kCMTimeZero) return failed(ErrorCode::badArgument, "a stretch must not start before the clip");
  if (!(asked.duration > kCMTimeZero)) return failed(ErrorCode::badArgument, "a stretch must start before it ends");
  if (auto fit = needPictures(edit, "a speed change"); !fit) return failure(fit.error());
  if (auto fit = needSound(edit, "a speed change"); !fit) return failure(fit.error());
  const CMTime end = edit.duration();
  if (asked.end().seconds() > end.seconds() + shownDigit || asked.start >= end) {
    return failed(ErrorCode::badArgument, edit.name() + " ends at " + shownSeconds(end) +
                                              " seconds, so the stretch from " + shortNumber(asked.start.seconds()) +
                                              " to " + shortNumber(asked.end().seconds()) + " is not in it");
  }
  const CMTimeRange stretch = CMTimeRange::fromTo(asked.start, CMTimeMinimum(asked.end(), end));
  if (stretch.duration.seconds() * ratio > mostHours * 3600) {
    return failed(ErrorCode::badArgument, "the stretch would be longer than " + wholeNumber(mostHours) + " hours");
  }
  const CMTime exactRatio = exactSeconds(ratio);
  const CMTime length = times(stretch.duration, exactRatio);
  if (length.seconds() * end.timescale < 0.5)
    return failed(ErrorCode::badArgument, "the ratio is so small that nothing of the stretch would be left");
  EditState state = edit.state();
  scale(*state.pictures, stretch, length);
  for (auto& sound : state.sounds) scale(sound.stretches, stretch, length);
  state.length = state.pictures->end();
  return edited(std::move(state));
}

}  // namespace clipworks
