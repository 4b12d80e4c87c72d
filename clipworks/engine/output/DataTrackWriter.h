#pragma once

#include <cstdint>
#include <optional>
#include <vector>

#include <clipworks/engine/Error.h>
#include <clipworks/engine/output/DataJob.h>
#include <clipworks/engine/output/OutputFile.h>

namespace clipworks::engine {

/// Adds tracks of data to a movie that a muxer writes: their samples behind all others, their `trak` boxes to the
/// index. The index grows by a number of bytes that is known beforehand, so the movie begins that many bytes into the
/// file, and is moved to its front with the index; no other sample moves. `jobs` are not empty and outlive the writer.
class DataTrackWriter {
 public:
  DataTrackWriter(const std::vector<DataJob>& jobs, std::int32_t movieTimescale, bool isQuickTime)
      : jobs_(jobs), movieTimescale_(movieTimescale), isQuickTime_(isQuickTime), room_(bytesOfIndex()) {}

  /// Bytes of the file before the movie's first box.
  [[nodiscard]] std::int64_t room() const { return room_; }

  /// Once the movie is written. `picturesTrack` is the place of the track of pictures in it, from 0. Fails as
  /// `OutputFile::writeAt` does, with `unreadable` where a source cannot be read any more, and when the movie is not as
  /// its muxer should have left it.
  [[nodiscard]] Expected<void> finish(OutputFile& file, std::optional<int> picturesTrack) const;

 private:
  using Positions = std::vector<std::vector<std::int64_t>>;  // of the runs of each job

  [[nodiscard]] std::int64_t bytesOfIndex() const;
  [[nodiscard]] Expected<Positions> writeMedia(OutputFile& file) const;

  const std::vector<DataJob>& jobs_;
  std::int32_t movieTimescale_;
  bool isQuickTime_;
  std::int64_t room_;
};

}  // namespace clipworks::engine
