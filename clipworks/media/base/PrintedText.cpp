#include <clipworks/media/base/PrintedText.h>

#include <array>
#include <charconv>
#include <cmath>

namespace clipworks {

namespace {

template <class Number>
std::string shortestText(Number number, std::chars_format format) {
  std::array<char, 64> buffer{};  // fixed form is limited to 17 digits here, exponent form to 24 characters
  const auto end = std::to_chars(buffer.data(), buffer.data() + buffer.size(), number, format).ptr;
  return {buffer.data(), end};
}

/// `wholeLimit`: from here on not every integer is a number of the type, and fixed form would feign digits.
template <class Number>
std::string textOfNumber(Number number, Number wholeLimit) {
  if (std::isnan(number)) return "nan";
  if (std::isinf(number)) return number > 0 ? "inf" : "-inf";
  const Number size = std::abs(number);
  if (size != 0 && (size < Number(1e-4) || size >= wholeLimit)) {
    return shortestText(number, std::chars_format::scientific);
  }
  std::string text = shortestText(number, std::chars_format::fixed);
  if (text.find('.') == std::string::npos) text += ".0";
  return text;
}

}  // namespace

std::string printedNumber(double number) { return textOfNumber(number, 0x1p53); }

std::string printedNumber(float number) { return textOfNumber(number, 0x1p24F); }

std::string printedOptional(const std::optional<NSError>& error) {
  return error ? "Optional(" + error->description() + ")" : "nil";
}

std::string printedOptional(const std::optional<std::string>& text) { return text ? "Optional(" + *text + ")" : "nil"; }

}  // namespace clipworks
