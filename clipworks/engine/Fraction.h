#pragma once

#include <cstdint>

namespace clipworks::engine {

/// A fraction; 0/1 stands for unknown.
struct Fraction {
  std::int64_t numerator = 0;
  std::int64_t denominator = 1;
  friend bool operator==(const Fraction&, const Fraction&) = default;
  [[nodiscard]] double value() const {
    return denominator == 0 ? 0.0 : static_cast<double>(numerator) / static_cast<double>(denominator);
  }
};

}  // namespace clipworks::engine
