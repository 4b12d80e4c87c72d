#pragma once

#include <cstdint>
#include <map>

#include <clipworks/engine/Error.h>
#include <clipworks/engine/output/OutputFile.h>

namespace clipworks::engine {

/// What the index of a written file shall say of a track of pictures.
struct WantedEdit {
  std::int64_t start = 0;        ///< of what it shows, in ticks of the movie
  std::int64_t end = 0;          ///< the same
  std::int64_t mediaTime = 0;    ///< where its edit begins, in ticks of the track
  std::int64_t mediaLength = 0;  ///< of all its samples, in ticks of the track
  std::int32_t timescale = 0;    ///< of the track
};

/// Has the tracks of a written MP4 or QuickTime file show what `edits` says, by the track's place in the file, from 0:
/// their edits, their lengths, those of their media and the movie's are written anew, the samples stay (ISO/IEC
/// 14496-12, 8.2.2, 8.3.2, 8.4.2, 8.6.6). The first box lies at `start`. Fails when the file is not as its writer
/// should have left it.
///
/// A track that starts late counts in the movie's time scale, where that is a multiple of its own and all numbers go
/// into their fields: Firefox counts the empty edit before it in the track's scale.
[[nodiscard]] Expected<void> writeEdits(OutputFile& file, std::int64_t start, std::int32_t movieTimescale,
                                        const std::map<int, WantedEdit>& edits);

}  // namespace clipworks::engine
