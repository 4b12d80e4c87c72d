#include <cmath>

#include <clipworks/media/time/ExactTime.h>
#include <fuzz/FuzzTimes.h>

// Times and ranges of times beside exact arithmetic in 128 bits.

namespace {

using namespace clipworks;
using fuzz::require;

/// In the order of a - b, where neither is rounded: 95 bits at most.
int compareExactly(const CMTime& a, const CMTime& b) {
  const Int128 left = static_cast<Int128>(a.value) * b.timescale;
  const Int128 right = static_cast<Int128>(b.value) * a.timescale;
  return left < right ? -1 : left > right ? 1 : 0;
}

bool isPlainNumber(const CMTime& time) { return time.isNumeric() && time.timescale > 0 && time.epoch == 0; }

void checkOrder(const CMTime& a, const CMTime& b, const CMTime& c) {
  require((a < b) == (b > a) && (a == b) == (b == a), "the order is the same from both sides");
  require(!(a < b && b < c) || a < c, "the order is transitive");
  require(!(a == b) || (a < c) == (b < c), "what is equal is interchangeable");
  if (!isPlainNumber(a) || !isPlainNumber(b)) return;
  require((a <=> b == 0) == (compareExactly(a, b) == 0) && (a < b) == (compareExactly(a, b) < 0), "the order is exact");
}

void checkSum(const CMTime& a, const CMTime& b) {
  require((a + b).isIdenticalTo(b + a), "a sum does not depend on the order");
  const CMTime sum = a + b;
  require(!sum.isNumeric() || (a.isNumeric() && b.isNumeric()), "a number comes from numbers alone");
  if (!isPlainNumber(a) || !isPlainNumber(b) || !sum.isNumeric() || sum.wasRounded()) return;
  const CMTime back = sum - b;
  require(back.wasRounded() || !back.isNumeric() || back == a, "what was added can be taken off again");
  require(!(b > kCMTimeZero) || sum > a, "a sum with something positive is later");
}

void checkScale(const CMTime& a, std::int32_t scale) {
  for (const auto method :
       {CMTimeRoundingMethod::roundHalfAwayFromZero, CMTimeRoundingMethod::roundTowardZero,
        CMTimeRoundingMethod::roundAwayFromZero, CMTimeRoundingMethod::quickTime,
        CMTimeRoundingMethod::roundTowardPositiveInfinity, CMTimeRoundingMethod::roundTowardNegativeInfinity}) {
    const CMTime scaled = a.convertScale(scale, method);
    if (!isPlainNumber(a) || !scaled.isNumeric()) continue;
    require(scaled.timescale == scale, "the scale is the one asked for");
    const Int128 exact = static_cast<Int128>(a.value) * scale;
    const Int128 error = exact - static_cast<Int128>(scaled.value) * a.timescale;
    require(error < a.timescale && -error < a.timescale, "less than one unit is lost");
    require((error == 0) == !scaled.wasRounded() || a.wasRounded(), "what is lost is told");
  }
}

void checkProducts(const CMTime& a, fuzz::FuzzInput& input) {
  const auto multiplier = input.take<std::int32_t>();
  const auto divisor = input.take<std::int32_t>();
  const CMTime product = CMTimeMultiply(a, multiplier);
  require(!product.isNumeric() || a.isNumeric(), "a product is a number where the time is one");
  const CMTime share = CMTimeMultiplyByRatio(a, multiplier, divisor);
  require(!share.isValid() || divisor != 0, "nothing is divided by zero");
  if (isPlainNumber(share) && isPlainNumber(a) && !share.wasRounded() && divisor != 0) {
    const CMTime back = CMTimeMultiplyByRatio(share, divisor, multiplier);
    require(multiplier == 0 || back.wasRounded() || !back.isNumeric() || back == a, "an exact share can be undone");
  }
  (void)CMTimeMultiplyByFloat64(a, input.take<double>());
  (void)CMTimeAbsoluteValue(a);
}

void checkRanges(const CMTimeRange& a, const CMTimeRange& b, const CMTime& time) {
  const CMTimeRange both = a.intersection(b);
  const CMTimeRange all = a.unionWith(b);
  const bool areExact = a.isValid() && b.isValid() && !a.end().wasRounded() && !b.end().wasRounded() &&
                        !both.end().wasRounded() && !all.end().wasRounded() && !both.duration.wasRounded() &&
                        !all.duration.wasRounded() && isPlainNumber(a.end()) && isPlainNumber(b.end());
  if (!areExact) return;
  require(both.containsTime(time) == (a.containsTime(time) && b.containsTime(time)),
          "an intersection has what both have");
  require(!(a.containsTime(time) || b.containsTime(time)) || all.containsTime(time), "a union has what one has");
  require(a.containsTimeRange(both) || both.isEmpty(), "an intersection is part of each");
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  fuzz::FuzzInput input(data, size);
  const CMTime a = fuzz::takeTime(input);
  const CMTime b = fuzz::takeTime(input);
  const CMTime c = fuzz::takeTime(input);
  checkOrder(a, b, c);
  checkSum(a, b);
  checkScale(a, input.take<std::int32_t>());
  checkProducts(a, input);
  checkRanges(CMTimeRange(a, b), fuzz::takeRange(input), c);
  require(std::isnan(a.seconds()) || a.isValid(), "seconds of nothing are not a number");
  return 0;
}
