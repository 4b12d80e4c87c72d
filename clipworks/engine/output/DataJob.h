#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <vector>

#include <clipworks/engine/FileHandle.h>
#include <clipworks/engine/boxes/DataTracks.h>

namespace clipworks::engine {

/// A sample of data: bytes of a file as they are, or of its run's own.
struct DataRunSample {
  std::uint64_t position = 0;  ///< in the file, or among the run's own bytes
  std::uint32_t bytes = 0;
  std::uint32_t description = 0;  ///< of the job, from 0
  std::int64_t time = 0;          ///< in ticks of the output from the start of its run; rising strictly, from 0
  bool isSync = true;
  bool isOwn = false;  ///< it lies among the run's own bytes
};

/// Samples of one track that follow one another. Their bytes are written once, however often the run is placed.
struct DataRun {
  std::shared_ptr<const FileHandle> file;  ///< null where all is its own
  std::vector<DataRunSample> samples;      ///< one at least
  std::vector<std::byte> own{};  ///< what stands in no file: a time code that begins later, samples that say nothing
};

/// Where a run plays, in ticks of the output; the last sample stays until `end`.
struct DataPlacement {
  std::uint32_t run = 0;
  std::int64_t start = 0;
  std::int64_t end = 0;
};

/// One track of data to be written.
struct DataJob {
  /// In place of a job's number: the track of pictures.
  static constexpr int pictures = -1;
  /// What it refers to (`tref`).
  struct Reference {
    std::uint32_t type = 0;
    int to = pictures;  ///< a job by its number
    friend bool operator==(const Reference&, const Reference&) = default;
  };

  std::int32_t timescale = 0;  ///< ticks a second
  DataTrackFormat format;
  std::vector<std::vector<std::byte>> descriptions;  ///< as those of `DataTrack`
  std::vector<DataRun> runs;
  std::vector<DataPlacement> placements;  ///< with rising times, not overlapping; one at least
  std::vector<Reference> references;
  std::vector<std::uint32_t> picturesReferTo;  ///< the types by which the track of pictures refers to it

  /// Samples of the track.
  [[nodiscard]] std::int64_t sampleCount() const {
    std::int64_t count = 0;
    for (const auto& placement : placements) count += static_cast<std::int64_t>(runs[placement.run].samples.size());
    return count;
  }
  /// Bytes of media data.
  [[nodiscard]] std::int64_t mediaBytes() const {
    std::int64_t bytes = 0;
    for (const auto& run : runs) {
      for (const auto& sample : run.samples) bytes += sample.bytes;
    }
    return bytes;
  }
};

}  // namespace clipworks::engine
