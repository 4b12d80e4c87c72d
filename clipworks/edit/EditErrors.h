#pragma once

#include <string>
#include <utility>

#include <clipworks/edit/Error.h>
#include <clipworks/engine/Error.h>
#include <clipworks/media/base/NSError.h>
#include <clipworks/media/base/Result.h>

namespace clipworks {

/// `return failed(ErrorCode::noSound, "clip.mp4 has no sound track");`
[[nodiscard]] inline auto failed(ErrorCode code, std::string sentence) {
  return failure(Error{code, std::move(sentence)});
}

/// The engine's failure as the core tells it.
[[nodiscard]] Error fromEngine(const engine::Error& error);

/// The platform's failure as the core tells it.
[[nodiscard]] Error fromPlatform(const NSError& error);

}  // namespace clipworks
