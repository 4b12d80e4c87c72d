#pragma once

namespace clipworks::engine {

/// White of the picture that is made, and HDR reference white: cd/m² (BT.2408, table 1).
inline constexpr double referenceWhite = 203.0;

/// The tone curve of BT.2390, 5.4.1 (EETF): what a display of `referenceWhite` shows for light meant for a brighter
/// one. Identity up to a knee, a Hermite spline in PQ signal above it.
///
/// Two things differ from the clause, so that bright greys keep their order and reference white stays above 85 % of the
/// signal. The spline does not arrive flat: it ends a little below white and goes on straight, up to the brightest
/// signal that can be written. And for a programme brighter than 1000 cd/m² it ends at reference white already; from
/// there it is straight in PQ up to the programme's peak, where only little is left for what should not be there. Black
/// is taken as 0 on both sides.
class ToneCurve {
 public:
  /// `sourcePeak`: cd/m² of the brightest part of the programme, taken between 250 and `signalPeak`: cd/m² of the
  /// brightest signal. `room`: the step in PQ signal that is kept for light between these two when the programme is not
  /// brighter than 1000.
  ToneCurve(double sourcePeak, double signalPeak, double room);

  /// Light of the display for light of the source, both in cd/m²; rises from 0 to `referenceWhite`.
  [[nodiscard]] double operator()(double light) const;

 private:
  // PQ signals.
  double peak_;         // where the spline ends
  double straightEnd_;  // where the first straight part does
  // Parts of peak_.
  double end_;    // what the spline arrives at; maxLum in the clause
  double knee_;   // KS in the clause
  double slope_;  // at the spline's end and on the first straight part
  double slopeBeyond_;
};

}  // namespace clipworks::engine
