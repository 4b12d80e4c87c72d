#pragma once

#include <filesystem>
#include <string>

#include <clipworks/media/asset/AVAsset.h>

namespace clipworks::app {

/// What the platform sees in a file, as lines for people: length, tracks in columns, segments where a track has more
/// than one, and what the recording says of itself.
[[nodiscard]] std::string describedForPeople(const std::filesystem::path& path, const AVAsset& asset);

}  // namespace clipworks::app
