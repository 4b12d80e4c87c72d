#include <clipworks/media/time/CMTime.h>

#include <cmath>
#include <limits>

#include <clipworks/media/time/ExactTime.h>

namespace clipworks {

namespace {

/// Kinds of times, in the order of `<=>`.
enum class Kind { invalid, negativeInfinity, number, indefinite, positiveInfinity };

Kind kindOf(const CMTime& time) {
  if (!time.isValid()) return Kind::invalid;
  if (time.isIndefinite()) return Kind::indefinite;
  if (time.isPositiveInfinity()) return Kind::positiveInfinity;
  if (time.isNegativeInfinity()) return Kind::negativeInfinity;
  return time.timescale > 0 ? Kind::number : Kind::invalid;
}

bool isInfinite(Kind kind) { return kind == Kind::negativeInfinity || kind == Kind::positiveInfinity; }

CMTime infinity(bool isPositive) { return isPositive ? kCMTimePositiveInfinity : kCMTimeNegativeInfinity; }

bool fits(Int128 number) { return number == saturated(number); }

/// What a result takes over from its operands.
struct Provenance {
  bool wasRounded;
  std::int64_t epoch;
};

CMTime makeNumber(std::int64_t value, std::int32_t timescale, const Provenance& provenance) {
  const std::uint32_t flags =
      provenance.wasRounded ? CMTime::valid | CMTime::hasBeenRounded : std::uint32_t{CMTime::valid};
  return {value, timescale, flags, provenance.epoch};
}

/// `numerator` / `denominator` (positive) seconds at `timescale`, or at the half, the quarter … of it that holds the
/// value. |numerator| < 2^96, so that the product with a time scale fits 128 bits.
CMTime makeFromFraction(Int128 numerator, Int128 denominator, std::int32_t timescale, Provenance provenance) {
  for (; timescale > 0; timescale /= 2) {
    const Int128 product = numerator * timescale;
    const Int128 value = divideRounded(product, denominator, CMTimeRoundingMethod::roundHalfAwayFromZero, false);
    if (!fits(value)) continue;
    provenance.wasRounded = provenance.wasRounded || product % denominator != 0;
    return makeNumber(static_cast<std::int64_t>(value), timescale, provenance);
  }
  return infinity(numerator > 0);
}

Int128 greatestCommonDivisor(Int128 a, Int128 b) {
  while (b != 0) {
    const Int128 rest = a % b;
    a = b;
    b = rest;
  }
  return a < 0 ? -a : a;
}

/// The sum of two numbers; `sign` is that of the second.
CMTime sumOfNumbers(const CMTime& a, const CMTime& b, int sign) {
  if (a.epoch != b.epoch && a.epoch != 0 && b.epoch != 0) return kCMTimeInvalid;
  const Provenance provenance{a.wasRounded() || b.wasRounded(), a.epoch == b.epoch ? 0 : a.epoch + b.epoch};
  const std::int64_t multiple = std::lcm(std::int64_t{a.timescale}, std::int64_t{b.timescale});
  const Int128 numerator = static_cast<Int128>(a.value) * (multiple / a.timescale) +
                           sign * static_cast<Int128>(b.value) * (multiple / b.timescale);
  const std::int32_t common = commonTimescale(a.timescale, b.timescale);
  return makeFromFraction(numerator, multiple, common != 0 ? common : kCMTimeMaxTimescale, provenance);
}

CMTime sum(const CMTime& a, const CMTime& b, int sign) {
  const Kind kindA = kindOf(a);
  const Kind kindB = kindOf(b);
  if (kindA == Kind::invalid || kindB == Kind::invalid) return kCMTimeInvalid;
  if (isInfinite(kindA) || isInfinite(kindB)) {
    const bool positiveA = kindA == Kind::positiveInfinity;
    const bool positiveB = kindB == (sign > 0 ? Kind::positiveInfinity : Kind::negativeInfinity);
    if (isInfinite(kindA) && isInfinite(kindB) && positiveA != positiveB) return kCMTimeInvalid;
    return infinity(isInfinite(kindA) ? positiveA : positiveB);
  }
  if (kindA == Kind::indefinite || kindB == Kind::indefinite) return kCMTimeIndefinite;
  return sumOfNumbers(a, b, sign);
}

/// The product of a time that is no number with a factor, of which only the sign counts.
CMTime multiplySpecial(Kind kind, int signOfFactor) {
  if (kind == Kind::indefinite) return kCMTimeIndefinite;
  if (kind == Kind::invalid || signOfFactor == 0) return kCMTimeInvalid;
  return infinity((kind == Kind::positiveInfinity) == (signOfFactor > 0));
}

int signOf(std::int64_t number) { return number > 0 ? 1 : number < 0 ? -1 : 0; }

}  // namespace

CMTime::CMTime(double seconds, std::int32_t preferredTimescale) {
  if (std::isnan(seconds) || preferredTimescale <= 0) return;
  constexpr double limit = 0x1p63;
  std::int32_t scale = preferredTimescale;
  double rounded = std::round(seconds * scale);
  while (!(rounded >= -limit && rounded < limit) && scale > 1) {
    scale /= 2;
    rounded = std::round(seconds * scale);
  }
  if (!(rounded >= -limit && rounded < limit)) {
    *this = infinity(seconds > 0);
    return;
  }
  *this = CMTime(static_cast<std::int64_t>(rounded), scale);
  if (this->seconds() != seconds) flags |= hasBeenRounded;
}

double CMTime::seconds() const {
  constexpr double infinite = std::numeric_limits<double>::infinity();
  switch (kindOf(*this)) {
    case Kind::number:
      return static_cast<double>(value) / timescale;
    case Kind::positiveInfinity:
      return infinite;
    case Kind::negativeInfinity:
      return -infinite;
    case Kind::invalid:
    case Kind::indefinite:
      break;
  }
  return std::numeric_limits<double>::quiet_NaN();
}

CMTime CMTime::convertScale(std::int32_t newTimescale, CMTimeRoundingMethod method) const {
  const Kind kind = kindOf(*this);
  if (kind == Kind::invalid || newTimescale <= 0) return kCMTimeInvalid;
  if (kind != Kind::number || newTimescale == timescale) return *this;
  const Int128 product = static_cast<Int128>(value) * newTimescale;
  const Int128 converted = divideRounded(product, timescale, method, newTimescale < timescale);
  if (!fits(converted)) return infinity(value > 0);
  return makeNumber(static_cast<std::int64_t>(converted), newTimescale,
                    {wasRounded() || product % timescale != 0, epoch});
}

CMTime operator+(const CMTime& a, const CMTime& b) { return sum(a, b, 1); }

CMTime operator-(const CMTime& a, const CMTime& b) { return sum(a, b, -1); }

CMTime operator-(const CMTime& time) { return CMTimeMultiply(time, -1); }

std::weak_ordering operator<=>(const CMTime& a, const CMTime& b) {
  const Kind kindA = kindOf(a);
  const Kind kindB = kindOf(b);
  if (kindA != kindB) return kindA <=> kindB;
  if (kindA != Kind::number) return std::weak_ordering::equivalent;
  if (a.epoch != b.epoch) return a.epoch <=> b.epoch;
  const Int128 left = static_cast<Int128>(a.value) * b.timescale;
  const Int128 right = static_cast<Int128>(b.value) * a.timescale;
  if (left == right) return std::weak_ordering::equivalent;
  return left < right ? std::weak_ordering::less : std::weak_ordering::greater;
}

bool operator==(const CMTime& a, const CMTime& b) { return (a <=> b) == 0; }

CMTime CMTimeAbsoluteValue(const CMTime& time) {
  const bool isNegative = kindOf(time) == Kind::number ? time.value < 0 : kindOf(time) == Kind::negativeInfinity;
  return isNegative ? -time : time;
}

CMTime CMTimeMinimum(const CMTime& a, const CMTime& b) {
  if (kindOf(a) == Kind::invalid || kindOf(b) == Kind::invalid) return kCMTimeInvalid;
  return b < a ? b : a;
}

CMTime CMTimeMaximum(const CMTime& a, const CMTime& b) {
  if (kindOf(a) == Kind::invalid || kindOf(b) == Kind::invalid) return kCMTimeInvalid;
  return a < b ? b : a;
}

CMTime CMTimeMultiply(const CMTime& time, std::int32_t multiplier) {
  const Kind kind = kindOf(time);
  if (kind != Kind::number) return multiplySpecial(kind, signOf(multiplier));
  return makeFromFraction(static_cast<Int128>(time.value) * multiplier, time.timescale, time.timescale,
                          {time.wasRounded(), time.epoch});
}

CMTime CMTimeMultiplyByRatio(const CMTime& time, std::int32_t multiplier, std::int32_t divisor) {
  const Kind kind = kindOf(time);
  if (divisor == 0) return kCMTimeInvalid;
  if (kind != Kind::number) return multiplySpecial(kind, signOf(multiplier) * signOf(divisor));
  const Int128 numerator = static_cast<Int128>(time.value) * multiplier * signOf(divisor);
  const Int128 denominator = static_cast<Int128>(time.timescale) * divisor * signOf(divisor);

  const Int128 reduced = denominator / greatestCommonDivisor(numerator, denominator);
  const Int128 multiple = reduced / greatestCommonDivisor(reduced, time.timescale) * time.timescale;
  const Int128 exact = multiple <= kCMTimeMaxTimescale ? multiple : reduced;
  const Int128 scale = exact <= kCMTimeMaxTimescale ? exact : kCMTimeMaxTimescale;
  return makeFromFraction(numerator, denominator, static_cast<std::int32_t>(scale), {time.wasRounded(), time.epoch});
}

CMTime CMTimeMultiplyByFloat64(const CMTime& time, double multiplier) {
  const Kind kind = kindOf(time);
  if (std::isnan(multiplier) || kind == Kind::invalid) return kCMTimeInvalid;
  const int sign = multiplier > 0 ? 1 : multiplier < 0 ? -1 : 0;
  if (kind != Kind::number) return multiplySpecial(kind, sign);
  if (std::isinf(multiplier)) {
    return multiplySpecial(sign > 0 ? Kind::positiveInfinity : Kind::negativeInfinity, signOf(time.value));
  }
  // The significand of `long double` holds any value; the product of both may lose its last digits, which is found out.
  const auto value = static_cast<long double>(time.value);
  const long double product = value * multiplier;
  const bool productIsExact = std::fma(value, static_cast<long double>(multiplier), -product) == 0;

  std::int32_t scale = time.timescale;
  long double scaled = product;
  while (scale < 65'536 && !(productIsExact && std::round(scaled) == scaled)) {
    scale *= 2;
    scaled *= 2;
  }
  constexpr long double limit = 0x1p63L;
  while (!(std::round(scaled) >= -limit && std::round(scaled) < limit)) {
    if (scale == 1) return infinity(scaled > 0);
    scale /= 2;
    scaled = product * scale / time.timescale;
  }
  const long double rounded = std::round(scaled);
  const bool isExact = productIsExact && rounded * time.timescale == product * scale;
  return makeNumber(static_cast<std::int64_t>(rounded), scale, {time.wasRounded() || !isExact, time.epoch});
}

}  // namespace clipworks
