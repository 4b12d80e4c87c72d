#pragma once

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>

namespace clipworks::fuzz {

/// Ends the process, and so makes a finding, when a rule does not hold.
inline void require(bool holds, const char* rule) {
  if (holds) return;
  (void)std::fprintf(stderr, "broken: %s\n", rule);
  std::abort();
}

/// Values taken off the front of a fuzzer's bytes; zeros when these have run out.
class FuzzInput {
 public:
  FuzzInput(const std::uint8_t* data, std::size_t size) : data_(data), left_(size) {}

  [[nodiscard]] bool isEmpty() const { return left_ == 0; }

  template <class Integer>
  [[nodiscard]] Integer take() {
    Integer value{};
    const std::size_t count = left_ < sizeof(value) ? left_ : sizeof(value);
    if (count > 0) std::memcpy(&value, data_, count);
    data_ += count;
    left_ -= count;
    return value;
  }

  /// From `least` to `most`.
  [[nodiscard]] int between(int least, int most) {
    return least + static_cast<int>(take<std::uint16_t>() % static_cast<unsigned>(most - least + 1));
  }

 private:
  const std::uint8_t* data_;
  std::size_t left_;
};

}  // namespace clipworks::fuzz
