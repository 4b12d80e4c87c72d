#pragma once

#include <filesystem>
#include <string>

#include <clipworks/media/asset/InputLimits.h>
#include <clipworks/media/base/Export.h>

namespace clipworks {

/// What a file holds, with every figure, as one line of JSON: an object with `path`, `duration`, `tracks`, `metadata`
/// and `otherTracks`; of a file that cannot be read `error` says why, which
/// may be that it is beyond `limits`. Reads header and sample tables only. Any thread.
[[nodiscard]] CLIPWORKS_API std::string describe(const std::filesystem::path& file, const InputLimits& limits = {});

}  // namespace clipworks
