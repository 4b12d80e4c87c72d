#pragma once

#include <filesystem>

#include <clipworks/edit/EditState.h>
#include <clipworks/edit/Error.h>
#include <clipworks/edit/MakeMovie.h>
#include <clipworks/engine/output/NewFiles.h>
#include <clipworks/media/base/Result.h>

namespace clipworks {

/// The same in the engine's words.
[[nodiscard]] engine::ExistingName engineExisting(ExistingFile existing);

/// Fails where a file of the edit has changed since it was opened, or is what a result at `path` would replace.
[[nodiscard]] Result<void, Error> checkFiles(const EditState& state, const std::filesystem::path& path,
                                             ExistingFile existing);

}  // namespace clipworks
