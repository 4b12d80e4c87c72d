#include <algorithm>
#include <cmath>
#include <string>
#include <utility>

#include <clipworks/edit/EditErrors.h>
#include <clipworks/edit/EditState.h>
#include <clipworks/edit/Sentences.h>
#include <clipworks/edit/Steps.h>

namespace clipworks {
namespace {

constexpr double largestSide = 16'384;
// More than any encoder takes.
constexpr std::int64_t mostBitsPerSecond = 1'000'000'000;

double evenFrom(double side) { return 2 * std::ceil(side / 2); }

}  // namespace

Result<Edit, Error> compressed(const Edit& edit, int height, std::int64_t bitRate) {
  if (height < 1 || height > largestSide)
    return failed(ErrorCode::badArgument, "a height must be from 1 to " + wholeNumber(largestSide) + " pixels");
  if (bitRate < 0 || bitRate > mostBitsPerSecond)
    return failed(ErrorCode::badArgument, "a bit rate must be from 0 to 1000000 kb/s");
  if (auto fit = needPictures(edit, "compressing it"); !fit) return failure(fit.error());
  const CGSize seen = edit.size();
  const double width = std::floor(seen.width / seen.height * height);
  if (!(width >= 1 && width <= largestSide)) {
    return failed(ErrorCode::badArgument, edit.name() + " shows " + wholeNumber(seen.width) + " × " +
                                              wholeNumber(seen.height) + " pixels, a shape that a height of " +
                                              std::to_string(height) + " has no width for");
  }
  // Even sides are covered; what another shape makes stick out, less than two pixels, is not shown.
  const CGSize size{evenFrom(width), evenFrom(height)};
  const double scale = std::max(size.width / seen.width, size.height / seen.height);
  EditState state = edit.state();
  draw(state, {scale, 0, 0, scale, (size.width - scale * seen.width) / 2, (size.height - scale * seen.height) / 2},
       size);
  state.wanted.quality = Wanted::Quality::bitRate;
  state.wanted.pictureBitRate = bitRate;
  return edited(std::move(state));
}

}  // namespace clipworks
