#pragma once

#include <cstdint>
#include <stop_token>
#include <string>

#include <tl/expected.hpp>

namespace clipworks::app {

/// What a file's bytes come to.
struct Digest {
  std::int64_t bytes = 0;
  std::string xxh3;    ///< XXH3 of 128 bits, in 32 hexadecimal digits
  std::string sha256;  ///< SHA-256 (FIPS 180-4), in 64 hexadecimal digits; empty where it was not wanted

  friend bool operator==(const Digest&, const Digest&) = default;
};

/// Of an open file, from its first byte on, wherever its offset is. A value of `errno`; `ECANCELED` after a request to
/// stop.
[[nodiscard]] tl::expected<Digest, int> digestOf(int descriptor, bool withSHA256, const std::stop_token& stop);

}  // namespace clipworks::app
