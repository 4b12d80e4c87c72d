#pragma once

#include <optional>
#include <string>
#include <string_view>

#include <clipworks/media/base/URL.h>

namespace clipworks {

/// Chooses the file that an operation is about to write: `fileName` as given (even empty), else a new UUID, with
/// `extension` (".mp4") behind it, in `directory`. Whatever file has that name is deleted, so that the new one replaces
/// it.
[[nodiscard]] URL prepareOutputLocation(const URL& directory, const std::optional<std::string>& fileName,
                                        std::string_view extension);

}  // namespace clipworks
