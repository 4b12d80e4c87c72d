#pragma once

#include <optional>

#include <clipworks/engine/output/MovieWriter.h>
#include <clipworks/media/asset/AVMediaTypes.h>

namespace clipworks {

/// The container behind a file type; nothing for types that are not written.
[[nodiscard]] std::optional<engine::MovieContainer> movieContainer(AVFileType fileType);

}  // namespace clipworks
