#pragma once

#include <string>
#include <string_view>

#include <clipworks/media/base/Export.h>

namespace clipworks {

/// What kind of failure it was. Hosts map these to exit codes, exceptions, statuses.
enum class ErrorCode {
  notFound,      ///< a file or directory is not there
  notReadable,   ///< it is there, and cannot be read
  notAMovie,     ///< no container that is known, or one without an index
  unsupported,   ///< a known thing that nothing here reads, draws or writes
  damaged,       ///< broken content
  noPictures,    ///< the step needs pictures
  noSound,       ///< the step needs sound
  badArgument,   ///< the step does not fit what the edit shows
  tooLarge,      ///< beyond a limit for untrusted input
  noEncoder,     ///< the encoder does not exist or does not open
  notWritable,   ///< the result cannot be written where it was asked for
  noSpace,       ///< the disk or the quota is full
  noMemory,      ///< the system, or a limit of the process, allows no more memory or threads
  limitReached,  ///< a file is larger or longer than the host allowed, or the result would be
  busy,          ///< something else did the same meanwhile; later it may be found done
  cancelled,     ///< the stop token asked for it
  internal,      ///< a fault of this library
};

/// The code's own name: "notFound".
[[nodiscard]] CLIPWORKS_API std::string_view name(ErrorCode code);

/// Why something could not be done. A value.
struct Error {
  ErrorCode code = ErrorCode::internal;
  /// One sentence for people, with the file and the place, without a full stop.
  std::string sentence;
};

}  // namespace clipworks
