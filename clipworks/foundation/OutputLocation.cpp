#include <clipworks/foundation/OutputLocation.h>

#include <clipworks/filedeck/FileSystem.h>
#include <clipworks/media/base/UUID.h>

namespace clipworks {

URL prepareOutputLocation(const URL& directory, const std::optional<std::string>& fileName,
                          std::string_view extension) {
  const std::string name = (fileName ? *fileName : UUID::make().uuidString()) + std::string(extension);
  const URL url = directory.appendingPathComponent(name);
  FileSystem::shared().deleteFile(url);
  return url;
}

}  // namespace clipworks
