#pragma once

#include <filesystem>
#include <string>

#include <nlohmann/json_fwd.hpp>

#include <clipworks/media/asset/AVAsset.h>

namespace clipworks::app {

/// What the platform sees in a file, as lines for people: length, tracks in columns, segments where a track has more
/// than one, and what the recording says of itself.
[[nodiscard]] std::string describedForPeople(const std::filesystem::path& path, const AVAsset& asset);

/// The same for programs, with every figure: an object with `path`, `duration`, `tracks` and `metadata`; for a file
/// that cannot be read also `error`.
[[nodiscard]] nlohmann::ordered_json describedForPrograms(const std::filesystem::path& path, const AVAsset& asset);

/// The same as text, on one line.
[[nodiscard]] std::string jsonTextOf(const std::filesystem::path& path, const AVAsset& asset);

}  // namespace clipworks::app
