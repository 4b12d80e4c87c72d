#pragma once

#include <cstdint>
#include <optional>
#include <vector>

#include <clipworks/engine/Error.h>
#include <clipworks/engine/output/MovieWriter.h>
#include <clipworks/engine/pipeline/CodedPictures.h>
#include <clipworks/engine/pipeline/DecodeTimes.h>
#include <clipworks/engine/pipeline/ExportJob.h>

namespace clipworks::engine {

/// Writes the placements of a job's runs: the first time from the coded pictures as they come, again by reading back
/// what was written. One thread at a time.
class PictureTrackWriter {
 public:
  PictureTrackWriter(const PictureJob& job, CodedPictures& pictures, MovieWriter& movie, int track);

  /// The presentation time, in ticks, up to which everything is written; the track's end when it is all there.
  [[nodiscard]] std::int64_t writtenUntil() const;
  [[nodiscard]] bool isDone() const { return placement_ == job_.placements.size(); }
  [[nodiscard]] std::int64_t picturesWritten() const { return picturesWritten_; }
  /// Writes the next picture.
  [[nodiscard]] Expected<void> writeNext();

 private:
  struct WrittenPicture {
    StoredSample stored;
    std::int64_t time = 0;  // from the start of the run
    int flags = 0;
  };
  void stamp(AVPacket& packet, std::int64_t time);
  [[nodiscard]] TrackEdit edit() const;

  const PictureJob& job_;
  CodedPictures& pictures_;
  MovieWriter& movie_;
  int track_;
  std::int64_t
      shift_;  // of all times in the file, so that an edit list with an empty edit is written where one is needed
  DecodeTimes decodeTimes_;
  std::vector<std::vector<WrittenPicture>> written_;  // by run
  std::size_t placement_ = 0;
  std::size_t sample_ = 0;  // of the placement
  std::int64_t picturesWritten_ = 0;
};

}  // namespace clipworks::engine
