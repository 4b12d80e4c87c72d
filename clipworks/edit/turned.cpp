#include <cmath>
#include <utility>

#include <clipworks/edit/EditErrors.h>
#include <clipworks/edit/EditState.h>
#include <clipworks/edit/Steps.h>

namespace clipworks {

Result<Edit, Error> turned(const Edit& edit, Turn turn) {
  if (auto fit = needPictures(edit, "turning it"); !fit) return failure(fit.error());
  const double width = std::round(edit.size().width);
  const double height = std::round(edit.size().height);
  EditState state = edit.state();
  switch (turn) {
    case Turn::right:
      draw(state, {0, 1, -1, 0, height, 0}, {height, width});
      break;
    case Turn::half:
      draw(state, {-1, 0, 0, -1, width, height}, {width, height});
      break;
    case Turn::left:
      draw(state, {0, -1, 1, 0, 0, width}, {height, width});
      break;
  }
  return edited(std::move(state));
}

}  // namespace clipworks
