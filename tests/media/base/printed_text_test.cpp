#include <clipworks/media/base/PrintedText.h>

#include <bit>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <limits>
#include <random>
#include <string>

#include <gtest/gtest.h>

namespace clipworks {
namespace {

constexpr double infinite = std::numeric_limits<double>::infinity();

struct NumberCase {
  const char* text;
  double number;
};

std::ostream& operator<<(std::ostream& out, const NumberCase& c) { return out << c.text; }

class PrintedDoubleTest : public testing::TestWithParam<NumberCase> {};

TEST_P(PrintedDoubleTest, HasTheExpectedForm) { EXPECT_EQ(printedNumber(GetParam().number), GetParam().text); }

INSTANTIATE_TEST_SUITE_P(
    Numbers, PrintedDoubleTest,
    testing::Values(NumberCase{"0.0", 0.0}, NumberCase{"-0.0", -0.0}, NumberCase{"1920.0", 1920},
                    NumberCase{"-1080.0", -1080}, NumberCase{"100000.0", 1e5}, NumberCase{"1.5707963267948966", M_PI_2},
                    NumberCase{"6.123233995736766e-17", 6.123233995736766e-17}, NumberCase{"0.1", 0.1},
                    NumberCase{"0.0001", 1e-4}, NumberCase{"9.999999999999999e-05", std::nextafter(1e-4, 0)},
                    NumberCase{"3e-05", 3e-5}, NumberCase{"9007199254740991.0", 0x1p53 - 1},
                    NumberCase{"4503599627370495.5", 0x1p52 - 0.5}, NumberCase{"-9.007199254740992e+15", -0x1p53},
                    NumberCase{"1e+16", 1e16}, NumberCase{"5e-324", 5e-324},
                    NumberCase{"1.7976931348623157e+308", std::numeric_limits<double>::max()},
                    NumberCase{"inf", infinite}, NumberCase{"-inf", -infinite},
                    NumberCase{"nan", std::copysign(std::nan(""), -1.0)}));

TEST(PrintedNumberTest, SinglePrecisionHasItsOwnDigitsAndLimit) {
  EXPECT_EQ(printedNumber(0.1F), "0.1");
  EXPECT_EQ(printedNumber(1e-4F), "0.0001");
  EXPECT_EQ(printedNumber(std::nextafter(1e-4F, 0.0F)), "9.999999e-05");
  EXPECT_EQ(printedNumber(16'777'215.0F), "16777215.0");
  EXPECT_EQ(printedNumber(16'777'216.0F), "1.6777216e+07");
  EXPECT_EQ(printedNumber(std::numeric_limits<float>::infinity()), "inf");
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
