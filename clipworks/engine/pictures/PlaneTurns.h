#pragma once

#include <optional>

#include <clipworks/engine/Error.h>
#include <clipworks/engine/Handles.h>

namespace clipworks::engine {

/// One of the eight ways in which a picture may lie, by the axes of the result: swapped with each other or not, then
/// each reversed or not.
struct PlaneTurn {
  bool swapsAxes = false;
  bool reversesX = false;
  bool reversesY = false;

  friend bool operator==(const PlaneTurn&, const PlaneTurn&) = default;
  /// Whether nothing moves.
  [[nodiscard]] bool isIdentity() const { return *this == PlaneTurn{}; }
};

inline constexpr PlaneTurn clockwiseTurn{true, true, false};
inline constexpr PlaneTurn halfTurn{false, true, true};
inline constexpr PlaneTurn counterclockwiseTurn{true, false, true};
inline constexpr PlaneTurn horizontalMirror{false, true, false};
inline constexpr PlaneTurn verticalMirror{false, false, true};

/// The turn that x' = a·x + c·y, y' = b·x + d·y makes on a plane whose y points down. Residues of up to 1e-6 of the
/// largest factor count as 0, and the scale of an axis does not matter; nothing where more than a turn is asked for.
[[nodiscard]] std::optional<PlaneTurn> turnOf(double a, double b, double c, double d);

/// What becomes of chroma samples that a turn takes off the places that they had among the pixels.
enum class TurnedChroma {
  named,        ///< They stay what they are, and the picture says where they lie.
  movedToLeft,  ///< They are resampled to where video has them and players expect them (H.273, 8.7, type 0).
};

/// A new picture with every sample of `frame` moved, none changed, its properties kept (pixel aspect turned with it);
/// the same buffers when nothing moves. 4:2:2 turned on its side is 4:4:0. Where the chroma samples lie follows the
/// turn; a place that has no name becomes the centre, half a pixel off. Only where a side of odd length is reversed and
/// chroma samples lie between two pixels of it, they are moved by half a sample, between their neighbours, to stay on
/// their pixels. With `movedToLeft`, chroma of any picture (turned or not) is moved between its neighbours to the left
/// place, by a quarter or a half of its samples' distance. Fails with `unsupported` for pixels that are not planar, of
/// 8 to 16 bits, and for layouts that have no counterpart on their side.
[[nodiscard]] Expected<Frame> turned(const Frame& frame, PlaneTurn turn, TurnedChroma chroma = TurnedChroma::named);

}  // namespace clipworks::engine
