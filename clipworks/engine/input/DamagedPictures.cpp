#include <clipworks/engine/input/DamagedPictures.h>

#include <sys/stat.h>

#include <clipworks/engine/input/MediaFile.h>

namespace clipworks::engine {
void DamagedPictures::add(const MediaFile& file, int stream, std::size_t picture) {
  struct stat facts {};
  (void)::fstat(file.handle()->descriptor(), &facts);
  const std::lock_guard lock(mutex_);
  const auto [place, isNew] = places_.try_emplace({facts.st_dev, facts.st_ino}, counted_.size());
  if (isNew) counted_.push_back({file.name(), {}});
  counted_[place->second].pictures.insert({stream, picture});
}

std::vector<DamagedFile> DamagedPictures::files() const {
  const std::lock_guard lock(mutex_);
  std::vector<DamagedFile> files;
  for (const auto& one : counted_) files.push_back({one.name, static_cast<std::int64_t>(one.pictures.size())});
  return files;
}

void DamagedPictures::tell(DamagedPictures* counter, const MediaFile& file, int stream, std::size_t picture) {
  if (counter != nullptr) counter->add(file, stream, picture);
}

}  // namespace clipworks::engine
