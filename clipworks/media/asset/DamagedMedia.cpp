#include <clipworks/media/asset/DamagedMedia.h>

#include <clipworks/engine/input/DamagedPictures.h>

namespace clipworks {

std::vector<DamagedMedia> damagedMediaIn(const engine::DamagedPictures& counted) {
  std::vector<DamagedMedia> media;
  for (auto& file : counted.files()) media.push_back({std::move(file.name), file.pictures});
  return media;
}

std::string DamagedMedia::sentence() const { return engine::DamagedFile{fileName, pictures}.sentence(); }

}  // namespace clipworks
