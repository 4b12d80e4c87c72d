#pragma once

#include <clipworks/engine/FFmpeg.h>

namespace clipworks::engine {

/// The shares of red and blue in luma; green has the rest.
struct LumaWeights {
  double red;
  double blue;
};

/// Of a matrix by its code point in ITU-T H.273, 8.3; BT.601's for those that have no such weights.
[[nodiscard]] constexpr LumaWeights lumaWeights(int matrix) {
  switch (matrix) {
    case AVCOL_SPC_BT709:
      return {0.2126, 0.0722};
    case AVCOL_SPC_BT2020_NCL:
    case AVCOL_SPC_BT2020_CL:
      return {0.2627, 0.0593};
    case AVCOL_SPC_SMPTE240M:
      return {0.212, 0.087};
    case AVCOL_SPC_FCC:
      return {0.30, 0.11};
    default:
      return {0.299, 0.114};
  }
}

}  // namespace clipworks::engine
