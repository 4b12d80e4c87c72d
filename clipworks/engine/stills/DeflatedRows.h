#pragma once

#include <cstdint>
#include <vector>

#include <clipworks/engine/Error.h>
#include <clipworks/engine/Handles.h>

namespace clipworks::engine {

/// The pixels of planes of green, blue and red (GBRP) as PNG stores them: rows of red, green and blue, less the average
/// of their neighbours to the left and above, as one zlib stream (RFC 1950). It comes in parts that make the whole
/// stream one behind the other. They are compressed at once, on `threads` threads at most, or for 0 on as many as
/// there are `usableProcessors`, and no more than the system allows; the bytes do not depend on how many. Fails with
/// `outOfMemory`.
[[nodiscard]] Expected<std::vector<std::vector<std::uint8_t>>> deflatedRows(const AVFrame& planes, int threads = 0);

}  // namespace clipworks::engine
