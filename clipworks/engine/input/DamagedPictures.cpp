#include <clipworks/engine/input/DamagedPictures.h>

#include <sys/stat.h>

#include <clipworks/engine/input/MediaFile.h>

namespace clipworks::engine {
namespace {

std::mutex observerMutex;

std::shared_ptr<DamagedPictures>& observerPlace() {
  // Never destroyed: readers may outlive the end of main().
  static auto* instance = new std::shared_ptr<DamagedPictures>();
  return *instance;
}

}  // namespace

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

void DamagedPictures::setObserver(std::shared_ptr<DamagedPictures> observer) {
  const std::lock_guard lock(observerMutex);
  observerPlace() = std::move(observer);
}

void DamagedPictures::tell(DamagedPictures* counter, const MediaFile& file, int stream, std::size_t picture) {
  if (counter != nullptr) counter->add(file, stream, picture);
  std::shared_ptr<DamagedPictures> observer;
  {
    const std::lock_guard lock(observerMutex);
    observer = observerPlace();
  }
  if (observer != nullptr) observer->add(file, stream, picture);
}

}  // namespace clipworks::engine
