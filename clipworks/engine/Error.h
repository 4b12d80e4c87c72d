#pragma once

#include <string>

#include <tl/expected.hpp>

namespace clipworks::engine {

/// What kind of failure it was; the platform turns these into its own errors.
enum class ErrorKind {
  unreadable,   ///< the file cannot be opened or read (see `posixCode`)
  notMedia,     ///< no known container, or one without an index
  damaged,      ///< a known container or codec with broken content
  unsupported,  ///< nothing here reads or writes this
  tooLarge,     ///< beyond a limit for untrusted input
  beyondLimit,  ///< beyond a limit that was set for this file
  noEncoder,    ///< the encoder does not exist or does not open
  unwritable,   ///< the output cannot be created or written (see `posixCode`)
  lengthLimit,  ///< the output reached its length limit
  noDevice,     ///< no microphone can be opened
  deviceLost,   ///< the microphone went away while it was used
  cancelled,
  outOfMemory,
  noThreads,  ///< the system allows no more threads (see `posixCode`)
  internal,
};

/// A failure inside the engine: kind, one sentence, and the value of `errno` where the system reported one.
struct Error {
  ErrorKind kind = ErrorKind::internal;
  std::string sentence;
  int posixCode = 0;
};

template <class T>
using Expected = tl::expected<T, Error>;

[[nodiscard]] inline tl::unexpected<Error> failed(ErrorKind kind, std::string sentence, int posixCode = 0) {
  return tl::make_unexpected(Error{kind, std::move(sentence), posixCode});
}

}  // namespace clipworks::engine
