#include <app/ParseNumber.h>

#include <charconv>
#include <cmath>
#include <system_error>

namespace clipworks::app {

std::optional<double> parseNumber(std::string_view text) {
  double number = 0;
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
  if (error != std::errc() || end != text.data() + text.size() || !std::isfinite(number)) return std::nullopt;
  return number;
}

}  // namespace clipworks::app
