#pragma once

#include <tl/expected.hpp>

namespace clipworks {

/// Success with a `T`, or failure with an `E`. Nothing in the library throws across its boundary;
/// whatever can fail returns one of these.
template <class T, class E>
using Result = tl::expected<T, E>;

/// Makes the failure of a `Result`: `return failure(VideoLooperError::generic);`.
template <class E>
[[nodiscard]] constexpr auto failure(E&& error) {
  return tl::make_unexpected(std::forward<E>(error));
}

}  // namespace clipworks
