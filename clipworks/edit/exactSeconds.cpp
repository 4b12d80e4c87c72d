#include <charconv>
#include <cmath>
#include <cstdint>
#include <numeric>
#include <string>

#include <clipworks/edit/Steps.h>
#include <clipworks/media/time/PlaceableTime.h>

namespace clipworks {

CMTime exactSeconds(double seconds) {
  if (!(std::abs(seconds) <= static_cast<double>(latestSecond))) return kCMTimeInvalid;
  constexpr std::int64_t finest = 1'000'000'000;
  // The shortest text that reads back as the same number is what was typed.
  char text[400];
  const auto written = std::to_chars(text, text + sizeof text, std::abs(seconds), std::chars_format::fixed);
  const std::string digits(text, written.ptr);
  const std::size_t point = digits.find('.');
  std::int64_t whole = 0;
  std::from_chars(digits.data(), digits.data() + std::min(point, digits.size()), whole);
  std::int64_t parts = 0;
  if (point != std::string::npos) {
    std::string fraction = digits.substr(point + 1, 10) + std::string(10, '0');
    fraction.resize(10);
    std::int64_t tenths = 0;
    std::from_chars(fraction.data(), fraction.data() + fraction.size(), tenths);
    parts = (tenths + 5) / 10;
  }
  std::int64_t value = whole * finest + parts;
  const std::int64_t divisor = std::gcd(value, finest);
  value /= divisor;
  return CMTime(std::signbit(seconds) ? -value : value, static_cast<std::int32_t>(finest / divisor));
}

}  // namespace clipworks
