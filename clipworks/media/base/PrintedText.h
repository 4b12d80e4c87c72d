#pragma once

#include <optional>
#include <string>

#include <clipworks/media/base/Export.h>
#include <clipworks/media/base/NSError.h>

/// The texts of values in printed lines.
namespace clipworks {

/// The fewest decimal digits that read back as the same number. Fixed form for 0 and for 1e-4 ≤ |x| < 2^53, with ".0"
/// where there is no fraction (`1920.0`, `0.0001`, `-0.0`); exponent form elsewhere, the exponent with a sign and at
/// least two digits (`6.123233995736766e-17`, `1e+16`); `inf`, `-inf` and `nan` (whatever the sign of a NaN).
[[nodiscard]] CLIPWORKS_API std::string printedNumber(double number);

/// The same for single precision: the fewest digits that read back as the same `float`, fixed form up to 2^24.
[[nodiscard]] CLIPWORKS_API std::string printedNumber(float number);

/// `Optional(<the error's description>)`, or `nil`. One line.
[[nodiscard]] CLIPWORKS_API std::string printedOptional(const std::optional<NSError>& error);

/// `Optional(<text>)`, or `nil`; the text is taken as it is.
[[nodiscard]] CLIPWORKS_API std::string printedOptional(const std::optional<std::string>& text);

}  // namespace clipworks
