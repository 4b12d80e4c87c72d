#pragma once

#include <cstring>

#include <clipworks/engine/FFmpeg.h>

namespace clipworks::engine {

/// `tag` becomes `unspecified` when it is none of the first `count` values of its enumeration, which are all that it
/// can hold: some decoders pass on any byte of a file.
template <class Tag>
void dropUnknown(Tag& tag, int count, Tag unspecified) {
  int value = 0;
  static_assert(sizeof(value) == sizeof(tag));
  std::memcpy(&value, &tag, sizeof(value));  // as a tag, such a value must not even be looked at
  if (value < 0 || value >= count) tag = unspecified;
}

inline void dropUnknownColors(AVFrame& frame) {
  dropUnknown(frame.color_primaries, AVCOL_PRI_NB, AVCOL_PRI_UNSPECIFIED);
  dropUnknown(frame.color_trc, AVCOL_TRC_NB, AVCOL_TRC_UNSPECIFIED);
  dropUnknown(frame.colorspace, AVCOL_SPC_NB, AVCOL_SPC_UNSPECIFIED);
}

inline void dropUnknownColors(AVCodecParameters& parameters) {
  dropUnknown(parameters.color_primaries, AVCOL_PRI_NB, AVCOL_PRI_UNSPECIFIED);
  dropUnknown(parameters.color_trc, AVCOL_TRC_NB, AVCOL_TRC_UNSPECIFIED);
  dropUnknown(parameters.color_space, AVCOL_SPC_NB, AVCOL_SPC_UNSPECIFIED);
}

}  // namespace clipworks::engine
