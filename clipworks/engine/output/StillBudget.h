#pragma once

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <deque>

namespace clipworks::engine {

/// Keeps an average bit rate that is too low for moving pictures by choosing their quality, for slides, lectures and
/// the like. A picture that changes as a whole costs what seconds of the rate come to. It gets it, and those after it
/// save it again; what moves in between has to go with the rate. One thread at a time.
class StillBudget {
 public:
  /// Whether it takes `bitRate` (bits a second) seconds to buy one picture of `pixels` pixels with fine detail.
  [[nodiscard]] static bool suits(std::int64_t bitRate, std::int64_t pixels) {
    return static_cast<double>(bitRate) * leastSeconds < detailedPicture(pixels);
  }

  StillBudget(std::int64_t bitRate, std::int64_t pixels)
      : rate_(static_cast<double>(bitRate)), detailedPicture_(detailedPicture(pixels)) {}

  /// A sample of `bytes` was coded, and all pictures up to `seconds` from the first one with it.
  void coded(std::int64_t bytes, double seconds) {
    const double bits = static_cast<double>(bytes) * 8;
    const double passed = std::max(seconds - seconds_, 0.0);
    spent_ += bits;
    seconds_ += passed;
    recent_.push_back({seconds_, bits});
    while (recent_.front().seconds < seconds_ - window) recent_.pop_front();
    followFlow(passed);
  }

  /// The constant rate factor to ask for now. It changes in steps of a half.
  [[nodiscard]] double quality() const {
    const double owed = debt();
    const double ofChanges = usualQuality + (owed > 0 ? qualityForDebt : qualityForSavings) * owed;
    return std::round(std::max(std::clamp(ofChanges, bestQuality, readableQuality), ofMotion_) * 2) / 2;
  }

 private:
  struct Coded {
    double seconds;
    double bits;
  };

  // Slides of six to eight lines of text take 0.25 bits for each of their pixels at `usualQuality`; measured.
  static constexpr double bitsPerPixel = 0.3;
  static constexpr double leastSeconds = 2.5;  // below, the usual control does, and spends more of the rate
  static constexpr double usualQuality = 26;
  static constexpr double bestQuality = 18;      // nobody sees more
  static constexpr double readableQuality = 34;  // the worst that a debt alone leads to: text at 36 dB
  static constexpr double worstQuality = 51;
  static constexpr double qualityForDebt = 8;  // when a detailed picture is owed
  static constexpr double qualityForSavings = 16;
  static constexpr double window = 2;          // seconds
  static constexpr double halvingQuality = 6;  // motion takes half of the bits

  static double detailedPicture(std::int64_t pixels) { return bitsPerPixel * static_cast<double>(pixels); }

  /// What was spent too much, in detailed pictures; less than 0 when there is some left.
  [[nodiscard]] double debt() const { return (spent_ - rate_ * seconds_) / detailedPicture_; }

  /// Bits a second of the last seconds, but for pictures that have changed as a whole.
  [[nodiscard]] double flow() const {
    double sum = 0;
    double largest = 0;
    double second = 0;
    for (const Coded& sample : recent_) {
      sum += sample.bits;
      second = std::max(second, std::min(sample.bits, largest));
      largest = std::max(largest, sample.bits);
    }
    return (sum - largest - second) / window;
  }

  /// Two fifths of the rate at least are for what moves, and as long as something is owed not all of it.
  void followFlow(double passed) {
    if (seconds_ < window / 2) return;
    const double share = std::clamp(1 - debt(), 0.4, 1.2);
    const double tooMuch = std::clamp(std::log2(std::max(flow(), 1.0) / (share * rate_)), -1.0, 1.0);
    ofMotion_ = std::clamp(ofMotion_ + halvingQuality * tooMuch * passed / window, bestQuality, worstQuality);
  }

  double rate_;
  double detailedPicture_;
  double spent_ = 0;
  double seconds_ = 0;
  double ofMotion_ = usualQuality;
  std::deque<Coded> recent_;
};

}  // namespace clipworks::engine
