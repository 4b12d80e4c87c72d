#include <clipworks/media/base/PrintedText.h>

#include <bit>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <limits>
#include <random>
#include <string>
#include <utility>

#include <gtest/gtest.h>

namespace clipworks {
namespace {

constexpr double infinite = std::numeric_limits<double>::infinity();

TEST(PrintedNumberTest, HasTheExpectedForm) {
  const std::pair<double, const char*> cases[] = {{-0.0, "-0.0"},
                                                  {1920, "1920.0"},
                                                  {M_PI_2, "1.5707963267948966"},
                                                  {1e-4, "0.0001"},
                                                  {3e-5, "3e-05"},
                                                  {0x1p53 - 1, "9007199254740991.0"},
                                                  {-0x1p53, "-9.007199254740992e+15"},
                                                  {1e16, "1e+16"},
                                                  {5e-324, "5e-324"},
                                                  {std::numeric_limits<double>::max(), "1.7976931348623157e+308"},
                                                  {-infinite, "-inf"},
                                                  {std::copysign(std::nan(""), -1.0), "nan"}};
  for (const auto& [number, text] : cases) EXPECT_EQ(printedNumber(number), text);
}

TEST(PrintedNumberTest, SinglePrecisionHasItsOwnDigitsAndLimit) {
  EXPECT_EQ(printedNumber(0.1F), "0.1");
  EXPECT_EQ(printedNumber(16'777'215.0F), "16777215.0");
  EXPECT_EQ(printedNumber(16'777'216.0F), "1.6777216e+07");
}

TEST(PrintedNumberTest, ReadsBackAndHasNoMoreDigitsThanTheCLibraryNeeds) {
  std::mt19937_64 random(1);
  for (int i = 0; i < 50'000; ++i) {
    const auto number = std::bit_cast<double>(random());
    if (!std::isfinite(number)) continue;
    const std::string text = printedNumber(number);
    ASSERT_EQ(std::strtod(text.c_str(), nullptr), number) << text;
    std::string shortest;
    for (int digits = 1; digits <= 17; ++digits) {
      char buffer[64];
      std::snprintf(buffer, sizeof buffer, "%.*e", digits - 1, number);
      shortest = buffer;
      if (std::strtod(buffer, nullptr) == number) break;
    }
    const double size = std::abs(number);
    if (size < 1e-4 || size >= 0x1p53) {
      ASSERT_EQ(text.size(), shortest.size()) << text << " " << shortest;
    }
  }
}

TEST(PrintedOptionalTest, PrintsTheDescriptionOrNil) {
  EXPECT_EQ(printedOptional(std::optional<NSError>()), "nil");
  EXPECT_EQ(printedOptional(std::optional<NSError>(NSError("D", 4, "two\nlines"))),
            "Optional(Error Domain=D Code=4 \"two lines\")");
  EXPECT_EQ(printedOptional(std::optional<std::string>("text")), "Optional(text)");
}

}  // namespace
}  // namespace clipworks
