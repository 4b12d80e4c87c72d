#include <cmath>
#include <utility>

#include <clipworks/edit/EditErrors.h>
#include <clipworks/edit/EditState.h>
#include <clipworks/edit/Steps.h>

namespace clipworks {

namespace {

/// From pictures of `size` to the turned ones, whose corner is at zero.
CGAffineTransform mapOf(Turn turn, const CGSize& size) {
  switch (turn) {
    case Turn::right:
      return {0, 1, -1, 0, size.height, 0};
    case Turn::half:
      return {-1, 0, 0, -1, size.width, size.height};
    case Turn::left:
      return {0, -1, 1, 0, 0, size.width};
  }
  return {};
}

}  // namespace

Result<Edit, Error> turned(const Edit& edit, Turn turn) {
  if (auto fit = needPictures(edit, "turning it"); !fit) return failure(fit.error());
  const CGSize seen{std::round(edit.size().width), std::round(edit.size().height)};
  EditState state = edit.state();
  draw(state, mapOf(turn, seen), turn == Turn::half ? seen : CGSize{seen.height, seen.width});
  return edited(std::move(state));
}

Result<Edit, Error> turnedByHeader(const Edit& edit, Turn turn) {
  if (auto fit = needPictures(edit, "turning it"); !fit) return failure(fit.error());
  EditState state = edit.state();
  if (state.canvas)
    return failed(ErrorCode::badArgument,
                  "pictures that are drawn anew are not turned by the header; turn them before");
  state.transform = CGAffineTransformConcat(state.transform, mapOf(turn, edit.size()));
  return edited(std::move(state));
}

}  // namespace clipworks
