#include <clipworks/edit/Files.h>

#include <system_error>

#include <clipworks/edit/EditErrors.h>

namespace clipworks {

engine::ExistingName engineExisting(ExistingFile existing) {
  if (existing == ExistingFile::replaced) return engine::ExistingName::replaced;
  return existing == ExistingFile::numbered ? engine::ExistingName::numbered : engine::ExistingName::kept;
}

Result<void, Error> checkFiles(const EditState& state, const std::filesystem::path& path, ExistingFile existing) {
  const bool isWrittenOver = existing != ExistingFile::numbered;
  for (const auto& source : state.sources) {
    if (source->asset->hasChanged())
      return failed(ErrorCode::notReadable, source->name() + " has changed since it was opened");
    std::error_code ignored;  // a file that is not there is nobody's input
    if (isWrittenOver && std::filesystem::equivalent(path, source->path, ignored))
      return failed(ErrorCode::badArgument, path.string() + " is the input itself; choose another name");
  }
  return {};
}

}  // namespace clipworks
