#pragma once

#include <array>
#include <cstdint>
#include <vector>

#include <clipworks/engine/Error.h>
#include <clipworks/engine/FFmpeg.h>

namespace clipworks::engine {

/// What the colours of a picture of high dynamic range mean.
struct ToneSource {
  AVColorTransferCharacteristic transfer = AVCOL_TRC_SMPTE2084;
  AVColorPrimaries primaries = AVCOL_PRI_BT2020;
  AVColorSpace matrix = AVCOL_SPC_BT2020_NCL;
  bool fullRange = false;
  int depth = 10;           ///< bits a sample; matters for the full range only
  double peakLight = 1000;  ///< cd/m² of the programme's brightest part, or what is usual; PQ only

  [[nodiscard]] bool operator==(const ToneSource&) const = default;
};

/// The way from a Y'CbCr sample of high dynamic range to one of BT.709, 8 bits and video range, as a table over a grid
/// of colours: read it with linear interpolation.
///
/// Coordinates are samples moved up to 16 bits. The grid has 64 steps of luma and of either chroma, so that grey
/// lies on a line of its points and stays grey. Values are in units of 1/128 of an 8-bit step.
struct ToneTable {
  static constexpr int lumaShift = 10;    ///< a luma coordinate shifted by this is its place in the grid
  static constexpr int chromaShift = 10;  ///< likewise for chroma
  static constexpr int lumaPoints = (1 << (16 - lumaShift)) + 1;
  static constexpr int chromaPoints = (1 << (16 - chromaShift)) + 1;
  static constexpr int nextU = lumaPoints;                 ///< from a point to its neighbour along Cb
  static constexpr int nextV = lumaPoints * chromaPoints;  ///< and along Cr; along luma it is 1
  static constexpr int fractionBits = 7;                   ///< of the values

  std::array<std::vector<std::int16_t>, 3> values;  ///< luma, Cb, Cr

  /// Fails with `unsupported` for a matrix or transfer that zimg does not know.
  [[nodiscard]] static Expected<ToneTable> make(const ToneSource& source);
};

}  // namespace clipworks::engine
