#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace clipworks::app {

/// What the program may take of the system.
struct Limits {
  std::optional<std::int64_t> memory{};  ///< bytes of its own memory
  std::optional<double> seconds{};       ///< until it ends by itself
  std::optional<std::int64_t> file{};    ///< bytes of a new file
};

/// Sets what the kernel enforces for this process from now on: its memory (`RLIMIT_DATA`), the size of its files
/// (`RLIMIT_FSIZE`; a write beyond fails with `EFBIG`), and no core dumps, which would hold what is in the clips.
void enforce(const Limits& limits);

/// A size as it is typed: "25MB", "1.5 GiB", "800000".
[[nodiscard]] std::optional<std::int64_t> bytesIn(std::string_view text);

/// `24.1 MB`, in powers of 1000.
[[nodiscard]] std::string shownSize(double bytes);

}  // namespace clipworks::app
