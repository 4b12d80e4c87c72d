#pragma once

#include <functional>
#include <string_view>

#include <clipworks/media/base/Export.h>

namespace clipworks {

/// Prints one diagnostic line. Line breaks within it become spaces, one is added at its end, and the whole is handed
/// to the system in one write, so that lines of several threads never mix and none is lost in a buffer. What the C
/// library still holds for standard output is written before it. Any thread. A failure to print is ignored: it must
/// not keep an operation from ending.
CLIPWORKS_API void printLine(std::string_view line) noexcept;

/// Sends the printed lines of the whole process to `sink` instead of standard output; an empty one restores that.
/// The sink gets each line without its line break, on the thread that prints it, one call at a time; it must not
/// print lines or set the sink itself, and what it throws is dropped. The former sink is not running any more when
/// the call returns.
CLIPWORKS_API void setPrintedLineSink(std::function<void(std::string_view line)> sink);

/// Ends the process for a caller's mistake: writes `sentence`, which names the broken rule, to standard error and
/// calls `std::abort()`.
[[noreturn]] CLIPWORKS_API void fatalError(std::string_view sentence) noexcept;

}  // namespace clipworks
