#pragma once

#include <cstdint>

#include <clipworks/edit/EditState.h>

namespace clipworks {

/// What a movie is made of, as far as its size depends on it.
struct MovieMeasure {
  double seconds = 0;
  double picturesPerSecond = 0;
  bool hasSound = false;
};

/// How the bytes of a file are shared out between its tracks.
struct SizeBudget {
  std::int64_t pictures = 0;  ///< bits a second; none or less where so few bytes do not do
  std::int64_t sound = 0;     ///< bits a second; 0 without sound
  std::int64_t beside = 0;    ///< bytes of the file that are not its pictures'

  [[nodiscard]] static SizeBudget of(std::int64_t bytes, const MovieMeasure& movie);
};

/// Of an edit, by the rate of its first file.
[[nodiscard]] MovieMeasure measureOf(const EditState& state);

/// The fewest bytes for a movie with pictures of so many pixels that one would look at.
[[nodiscard]] std::int64_t leastBytes(const MovieMeasure& movie, double pixels);

}  // namespace clipworks
