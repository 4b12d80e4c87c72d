#include <clipworks/engine/pictures/ToneCurve.h>

#include <algorithm>
#include <cmath>

namespace clipworks::engine {
namespace {

// SMPTE ST 2084, 5.3.
constexpr double m1 = 2610.0 / 16384.0;
constexpr double m2 = 2523.0 / 4096.0 * 128.0;
constexpr double c1 = 3424.0 / 4096.0;
constexpr double c2 = 2413.0 / 4096.0 * 32.0;
constexpr double c3 = 2392.0 / 4096.0 * 32.0;
constexpr double pqPeak = 10000.0;

double toPQ(double light) {
  const double power = std::pow(std::max(light, 0.0) / pqPeak, m1);
  return std::pow((c1 + c2 * power) / (1 + c3 * power), m2);
}

double fromPQ(double signal) {
  const double root = std::pow(std::max(signal, 0.0), 1 / m2);
  return pqPeak * std::pow(std::max(root - c1, 0.0) / (c2 - c3 * root), 1 / m1);
}

constexpr double dimmestPeak = 250.0;
constexpr double brightPeak = 1000.0;    // with 1500, the clause would take reference white to 82 % of the signal
constexpr double whiteOfBright = 144.0;  // what reference white becomes then: 87 %
constexpr double roomBeyond = 0.002;     // in PQ signal

}  // namespace

ToneCurve::ToneCurve(double sourcePeak, double signalPeak, double room) {
  const bool isBright = sourcePeak > brightPeak;
  const double white = toPQ(referenceWhite);
  const double last = toPQ(signalPeak);
  peak_ = isBright ? white : toPQ(std::max(sourcePeak, dimmestPeak));
  straightEnd_ = isBright ? toPQ(std::min(sourcePeak, signalPeak)) : last;
  const double splinesEnd = isBright ? toPQ(whiteOfBright) : white - room;
  const double beyond = straightEnd_ < last ? roomBeyond : 0;
  end_ = splinesEnd / peak_;
  knee_ = 1.5 * end_ - 0.5;
  slope_ = (white - beyond - splinesEnd) / (straightEnd_ - peak_);
  slopeBeyond_ = beyond > 0 ? beyond / (last - straightEnd_) : 0;
}

double ToneCurve::operator()(double light) const {
  const double signal = toPQ(light);
  if (signal >= peak_) {
    const double straight = slope_ * (std::min(signal, straightEnd_) - peak_);
    const double beyond = slopeBeyond_ * std::max(signal - straightEnd_, 0.0);
    return std::min(fromPQ(end_ * peak_ + straight + beyond), referenceWhite);
  }
  const double e1 = signal / peak_;
  if (e1 <= knee_) return light;
  const double t = (e1 - knee_) / (1 - knee_);
  const double t2 = t * t;
  const double t3 = t2 * t;
  const double e2 = (2 * t3 - 3 * t2 + 1) * knee_ + (t3 - 2 * t2 + t) * (1 - knee_) + (3 * t2 - 2 * t3) * end_ +
                    (t3 - t2) * (1 - knee_) * slope_;
  return fromPQ(e2 * peak_);
}

}  // namespace clipworks::engine
