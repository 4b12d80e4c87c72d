#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

#include <clipworks/engine/output/DataJob.h>

namespace clipworks::engine {

/// What the index of a track of data needs to know of the movie around it.
struct DataTrackPlace {
  std::uint32_t picturesID = 0;            ///< of the track of pictures; 0: none
  std::uint32_t firstID = 0;               ///< of the first job; the others count on
  std::int32_t movieTimescale = 0;         ///< of edits and lengths
  bool isQuickTime = false;                ///< names and data handlers as QuickTime has them
  std::vector<std::int64_t> runPositions;  ///< of the bytes of each of the job's runs in the written file
};

/// The `trak` box of job `number` of `jobs`: header, edits (`edts`: nothing where no run is placed), references and
/// tables. Its size depends on neither positions nor IDs. ISO/IEC 14496-12, 8.3 to 8.7.
[[nodiscard]] std::vector<std::byte> dataTrackBox(const std::vector<DataJob>& jobs, std::size_t number,
                                                  const DataTrackPlace& place);

/// The `tref` box by which the track of pictures refers to `jobs`, whose first has the ID `firstID`; empty when it
/// refers to none.
[[nodiscard]] std::vector<std::byte> picturesReferencesBox(const std::vector<DataJob>& jobs, std::uint32_t firstID);

}  // namespace clipworks::engine
