#pragma once

#include <array>
#include <cstdint>

namespace clipworks::engine {

/// Colours beside each other: samples moved up to 16 bits.
struct ToneRow {
  const std::uint16_t* luma = nullptr;
  const std::uint16_t* cb = nullptr;
  const std::uint16_t* cr = nullptr;
  int count = 0;
};

/// What is added to a value (in units of 1/128) before its fraction is cut off, for eight columns in turn.
using DitherRow = std::array<std::uint8_t, 8>;

/// Reads one component of a ToneTable (`values`: one of its planes) for each colour of a row, by trilinear
/// interpolation, and rounds it to 8 bits with `dither`. On any processor the same samples.
void readToneRow(const std::int16_t* values, const ToneRow& row, const DitherRow& dither, std::uint8_t* to);

}  // namespace clipworks::engine
