#include <utility>

#include <clipworks/edit/EditErrors.h>
#include <clipworks/edit/EditState.h>
#include <clipworks/edit/Steps.h>

namespace clipworks {

Result<Edit, Error> picturesOnly(const Edit& edit) {
  if (auto fit = needPictures(edit, "keeping its pictures"); !fit) return failure(fit.error());
  EditState state = edit.state();
  state.sounds.clear();
  return edited(std::move(state));
}

Result<Edit, Error> soundOnly(const Edit& edit) {
  if (auto fit = needSound(edit, "keeping its sound"); !fit) return failure(fit.error());
  EditState state = edit.state();
  state.pictures.reset();
  state.canvas.reset();
  return edited(std::move(state));
}

Edit madeSmall(const Edit& edit) {
  EditState state = edit.state();
  state.wanted = {Wanted::Quality::small, 0};
  return edited(std::move(state));
}

Edit keepingCodedPictures(const Edit& edit) {
  EditState state = edit.state();
  state.wanted = {Wanted::Quality::codedPictures, 0};
  return edited(std::move(state));
}

}  // namespace clipworks
