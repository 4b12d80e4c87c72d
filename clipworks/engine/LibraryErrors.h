#pragma once

#include <string>

#include <clipworks/engine/Error.h>

namespace clipworks::engine {

/// The codec libraries' own words for one of their negative codes.
[[nodiscard]] std::string libraryErrorText(int code);

/// Turns a negative code of the codec libraries into an `Error`. `what` begins the sentence ("clip.mp4 cannot be
/// opened"), the library's reason ends it. System errors keep their `errno` value.
[[nodiscard]] Error libraryError(int code, const std::string& what, ErrorKind otherwise = ErrorKind::damaged);

/// Once for the process: keeps the libraries from printing to standard error on their own, and from asking for more
/// memory at a time than `limits::maxAllocation`, as they would for what some fields of a file merely claim.
void prepareLibraries();

}  // namespace clipworks::engine
