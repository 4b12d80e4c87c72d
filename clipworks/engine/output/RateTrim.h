#pragma once

#include <algorithm>
#include <cmath>
#include <cstdint>

namespace clipworks::engine {

/// Holds an encoder to an average bit rate: from what has been coded so far it tells which rate to ask for next, so
/// that what was too little is made up for, and what was too much is saved again, within seconds. One thread at a time.
class RateTrim {
 public:
  /// `bitRate` in bits a second.
  explicit RateTrim(std::int64_t bitRate) : bitRate_(bitRate), asked_(bitRate) {}

  /// A sample of `bytes` was coded, and all pictures up to `seconds` from the first one with it.
  void coded(std::int64_t bytes, double seconds) {
    bits_ += static_cast<double>(bytes) * 8;
    seconds_ = std::max(seconds_, seconds);
  }

  /// Bits a second to ask for now. It changes in steps of 2 %, since each change makes the encoder start over with its
  /// buffer's arithmetic.
  [[nodiscard]] std::int64_t wanted() {
    const double rate = static_cast<double>(bitRate_);
    const double missing = seconds_ - bits_ / rate;  // in seconds of the asked rate
    const double share = std::clamp(1 + missing / secondsToMend, leastShare, greatestShare);
    if (std::abs(share * rate - static_cast<double>(asked_)) >= step * rate)
      asked_ = static_cast<std::int64_t>(share * rate);
    return asked_;
  }

 private:
  static constexpr double secondsToMend = 2.5;
  static constexpr double leastShare = 0.7;
  static constexpr double greatestShare = 1.5;
  static constexpr double step = 0.02;

  std::int64_t bitRate_;
  std::int64_t asked_;
  double bits_ = 0;
  double seconds_ = 0;
};

}  // namespace clipworks::engine
