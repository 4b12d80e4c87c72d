#pragma once

#include <cstdint>
#include <vector>

#include <clipworks/engine/Error.h>
#include <clipworks/engine/input/PictureTable.h>
#include <clipworks/engine/input/StreamPackets.h>

namespace clipworks::engine {

/// Gives presentation times to the samples of a stream whose container tells only decode times, or tells no other for
/// some of them (AVI; MPEG program streams with several pictures in one packet). The pictures' own order is read from
/// what is coded: H.264 and HEVC count it, elsewhere bidirectional pictures come before the one decoded before them.
/// The picture shown as number i gets the decode time of number i, and all are moved by what the pictures that nothing
/// is shown before say, if they say anything. `packets` is the same stream from its start.
[[nodiscard]] Expected<void> orderPictures(StreamPackets& packets, std::vector<Sample>& samples,
                                           const std::vector<bool>& isTold);

}  // namespace clipworks::engine
