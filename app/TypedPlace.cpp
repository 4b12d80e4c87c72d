#include <app/TypedPlace.h>

#include <algorithm>
#include <charconv>
#include <regex>

namespace clipworks::app {
namespace {

constexpr std::size_t mostDigits = 9;  // of whole seconds and behind the point: both fit a time of 64 bits

std::uint64_t number(const std::string& digits) {
  std::uint64_t value = 0;
  std::from_chars(digits.data(), digits.data() + digits.size(), value);
  return value;
}

CMTime timeOf(std::uint64_t seconds, std::string fraction) {
  fraction.resize(std::min(fraction.size(), mostDigits));
  std::int32_t scale = 1;
  for (std::size_t i = 0; i < fraction.size(); ++i) scale *= 10;
  return CMTime(static_cast<std::int64_t>(seconds * static_cast<std::uint64_t>(scale) + number(fraction)), scale);
}

}  // namespace

std::optional<TypedPlace> typedPlace(const std::string& text) {
  static const std::regex picture(R"(#(\d{1,18}))");
  static const std::regex seconds(R"((\d{1,9})(?:\.(\d{0,40}))?)");
  static const std::regex clock(R"((?:(\d{1,5}):)?([0-5]?\d):([0-5]?\d)(?:\.(\d{0,40}))?)");
  std::smatch parts;
  if (text.size() > 64) return std::nullopt;
  if (std::regex_match(text, parts, picture)) return number(parts[1]);
  if (std::regex_match(text, parts, seconds)) return timeOf(number(parts[1]), parts[2]);
  if (std::regex_match(text, parts, clock)) {
    return timeOf(number(parts[1]) * 3600 + number(parts[2]) * 60 + number(parts[3]), parts[4]);
  }
  return std::nullopt;
}

}  // namespace clipworks::app
