#pragma once

#include <string>

#include <clipworks/media/base/Export.h>

namespace clipworks {

/// A width and a height, in pixels. Both may be negative after a transform.
struct CGSize {
  double width = 0;
  double height = 0;

  friend constexpr bool operator==(const CGSize&, const CGSize&) = default;
};

/// `(<width>, <height>)`, with the numbers of `printedNumber`.
[[nodiscard]] CLIPWORKS_API std::string printedText(const CGSize& size);

}  // namespace clipworks
