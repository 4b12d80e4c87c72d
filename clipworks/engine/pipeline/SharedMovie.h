#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include <clipworks/engine/Error.h>
#include <clipworks/engine/Handles.h>
#include <clipworks/engine/output/MovieWriter.h>
#include <clipworks/engine/output/OutputFile.h>

namespace clipworks::engine {

/// One movie that the encoders of several tracks write into, each on its own thread. The file is begun when all tracks
/// have told their format or that they stay empty; coded samples that come earlier wait in memory. Samples are written
/// in the order in which they come. Any thread; after a failure every further call fails with it.
class SharedMovie {
 public:
  SharedMovie(std::unique_ptr<OutputFile> file, MovieContainer container)
      : file_(std::move(file)), container_(container) {}
  ~SharedMovie();
  SharedMovie(const SharedMovie&) = delete;
  SharedMovie& operator=(const SharedMovie&) = delete;

  /// Before anything is described.
  void setMetadata(std::map<std::string, std::string> metadata);
  /// A track to come; returns its number. Before anything is described.
  [[nodiscard]] std::size_t addTrack();

  /// The track's samples will be of this kind, their times in ticks of `timescale`.
  [[nodiscard]] Expected<void> describe(std::size_t track, CodecParameters format, std::int32_t timescale,
                                        const std::optional<std::array<std::int32_t, 9>>& matrix);
  /// The track will have no samples, and is left out.
  [[nodiscard]] Expected<void> leaveOut(std::size_t track);
  /// The next coded sample of a track that was described.
  [[nodiscard]] Expected<void> write(std::size_t track, Packet packet);
  /// The last one of a track of pictures (`MovieWriter::writeLast`).
  [[nodiscard]] Expected<void> writeLast(std::size_t track, Packet packet, const TrackEdit& edit);

  /// Writes the index and gives the file its name, once all samples are there.
  [[nodiscard]] Expected<void> finish();
  /// Makes every further call fail with `cancelled`.
  void cancel();

 private:
  struct Sample {
    std::size_t track = 0;
    Packet packet;
    std::optional<TrackEdit> edit;  // of the last one of a track of pictures
  };
  enum class TrackState { expected, described, leftOut };
  struct Track {
    TrackState state = TrackState::expected;
    CodecParameters format;
    std::int32_t timescale = 0;
    std::optional<std::array<std::int32_t, 9>> matrix;
    int number = -1;  // in the movie, once begun
  };

  // All with mutex_ held.
  Expected<void> beginIfReady();
  Expected<void> begin();
  Expected<void> write(Sample sample);
  Expected<void> writeNow(Sample& sample);
  Expected<void> noted(Expected<void> outcome);
  [[nodiscard]] std::int32_t movieTimescale() const;

  std::mutex mutex_;
  std::unique_ptr<OutputFile> file_;  // guarded by mutex_, like all below
  MovieContainer container_;
  std::map<std::string, std::string> metadata_;
  std::vector<Track> tracks_;
  std::unique_ptr<MovieWriter> movie_;  // null before the file is begun
  std::deque<Sample> early_;
  std::optional<Error> failure_;
};

}  // namespace clipworks::engine
