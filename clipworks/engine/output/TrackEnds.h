#pragma once

#include <cstdint>
#include <map>

#include <clipworks/engine/Error.h>
#include <clipworks/engine/output/OutputFile.h>

namespace clipworks::engine {

/// Ends tracks of a written MP4 or QuickTime file before their last samples do: the last edit, the track's length and the
/// movie's are written anew, the samples stay (ISO/IEC 14496-12, 8.2.2, 8.3.2, 8.6.6). `ends`: by the track's place in
/// the file, from 0, in ticks of the movie's time scale. Fails when the file is not as its writer should have left it.
[[nodiscard]] Expected<void> endTracks(OutputFile& file, const std::map<int, std::int64_t>& ends);

}  // namespace clipworks::engine
