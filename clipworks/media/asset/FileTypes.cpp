#include <clipworks/media/asset/FileTypes.h>

namespace clipworks {

std::optional<engine::MovieContainer> movieContainer(AVFileType fileType) {
  if (fileType == AVFileTypeMPEG4) return engine::MovieContainer::mpeg4;
  if (fileType == AVFileTypeQuickTimeMovie) return engine::MovieContainer::quickTime;
  if (fileType == AVFileTypeAppleM4A) return engine::MovieContainer::m4a;
  return std::nullopt;
}

}  // namespace clipworks
