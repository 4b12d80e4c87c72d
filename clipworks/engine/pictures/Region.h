#pragma once

namespace clipworks::engine {

/// A part of a picture, in pixels from its upper left corner; edges may lie between pixels.
struct Region {
  double left = 0;
  double top = 0;
  double width = 0;
  double height = 0;

  friend bool operator==(const Region&, const Region&) = default;
};

}  // namespace clipworks::engine
