#include <algorithm>
#include <array>
#include <cmath>
#include <string>
#include <utility>

#include <clipworks/edit/EditErrors.h>
#include <clipworks/edit/EditState.h>
#include <clipworks/edit/Sentences.h>
#include <clipworks/edit/SizeBudget.h>
#include <clipworks/edit/Steps.h>

namespace clipworks {
namespace {

// Where a picture's height is chosen: as H.264 looks well with, and what it can still be looked at with.
constexpr double goodBitsPerPixel = 0.05;
constexpr double leastBitsPerPixel = 0.004;
constexpr double leastSoundRate = 24'000;
constexpr double mostSoundRate = 128'000;
constexpr double soundShare = 0.15;
constexpr std::array<int, 7> heights{1080, 720, 540, 480, 360, 240, 144};

/// Of a file, beside its samples: headers, and for each sample its size, its place and its times.
double bytesAround(const MovieMeasure& movie) {
  constexpr double headers = 2500;  // with two tracks and what a recording tells of itself
  constexpr double ofPicture = 20;
  constexpr double ofSoundASecond = 43 * 8;
  return headers + movie.seconds * (movie.picturesPerSecond * ofPicture + (movie.hasSound ? ofSoundASecond : 0));
}

/// An encoder keeps to a rate within a little.
constexpr double kept = 0.985;

double pixelsAt(const CGSize& seen, double height) { return seen.width / seen.height * height * height; }

}  // namespace

SizeBudget SizeBudget::of(std::int64_t bytes, const MovieMeasure& movie) {
  const double all = kept * (static_cast<double>(bytes) - bytesAround(movie)) * 8 / movie.seconds;
  const double sound = movie.hasSound ? std::clamp(all * soundShare, leastSoundRate, mostSoundRate) : 0;
  return {std::llround(all - sound), std::llround(sound), std::llround(bytesAround(movie) + sound * movie.seconds / 8)};
}

std::int64_t leastBytes(const MovieMeasure& movie, double pixels) {
  const double rate = pixels * movie.picturesPerSecond * leastBitsPerPixel + (movie.hasSound ? leastSoundRate : 0);
  return std::llround(std::ceil(bytesAround(movie) + rate / kept * movie.seconds / 8));
}

MovieMeasure measureOf(const EditState& state) {
  MovieMeasure movie{state.length.seconds(), 30, !state.sounds.empty()};
  const auto tracks = state.sources.front()->asset->AVAsset::tracks(AVMediaType::video);
  if (!tracks.empty() && tracks.front()->nominalFrameRate() > 0)
    movie.picturesPerSecond = static_cast<double>(tracks.front()->nominalFrameRate());
  return movie;
}

Result<Edit, Error> compressedTo(const Edit& edit, std::int64_t bytes, int height) {
  if (auto fit = needPictures(edit, "compressing it"); !fit) return failure(fit.error());
  const MovieMeasure movie = measureOf(edit.state());
  const CGSize seen = edit.size();
  const double least = height > 0 ? height : std::min<double>(seen.height, heights.back());
  const std::int64_t fewest = leastBytes(movie, pixelsAt(seen, least));
  if (bytes < fewest) {
    return failed(ErrorCode::badArgument, edit.name() + " cannot become as small as " + std::to_string(bytes) +
                                              " bytes: " + shortNumber(movie.seconds) + " seconds of it take " +
                                              std::to_string(fewest) + " at least");
  }
  if (height == 0) {
    const auto rate = static_cast<double>(SizeBudget::of(bytes, movie).pictures);
    const auto isGood = [&](double lines) {
      return rate >= pixelsAt(seen, lines) * movie.picturesPerSecond * goodBitsPerPixel;
    };
    const auto good =
        std::find_if(heights.begin(), heights.end(), [&](int lines) { return lines < seen.height && isGood(lines); });
    height = static_cast<int>(std::lround(isGood(seen.height) ? seen.height : good != heights.end() ? *good : least));
  }
  auto small = compressed(edit, height, 0);
  if (!small) return small;
  EditState state = small->state();
  state.wanted.mostBytes = bytes;
  return edited(std::move(state));
}

}  // namespace clipworks
