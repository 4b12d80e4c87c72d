#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include <clipworks/engine/Error.h>
#include <clipworks/engine/HDRMetadata.h>
#include <clipworks/engine/Handles.h>
#include <clipworks/engine/output/DataTrackWriter.h>
#include <clipworks/engine/output/OutputFile.h>
#include <clipworks/engine/output/TrackEdits.h>

namespace clipworks::engine {

/// Where a coded sample lies in the file that is being written.
struct StoredSample {
  std::int64_t position = 0;
  std::int32_t bytes = 0;
};

/// What a track of pictures shows, in its ticks: from `start` of the movie to `end`, what its samples' presentation
/// times call `mediaStart` and on.
struct TrackEdit {
  std::int64_t start = 0;
  std::int64_t end = 0;
  std::int64_t mediaStart = 0;
};

/// Which kind of file: MPEG-4, QuickTime movie, or MPEG-4 with sound only under Apple's brand.
enum class MovieContainer { mpeg4, quickTime, m4a };

/// Writes an MP4 or QuickTime file with its index first. Samples are written in the order given, so the caller
/// interleaves its tracks; they can be read back to be written again. One thread at a time.
class MovieWriter {
 public:
  /// `movieTimescale` counts the edits' lengths; choose it so that they come out whole.
  [[nodiscard]] static Expected<std::unique_ptr<MovieWriter>> create(OutputFile& file, std::int32_t movieTimescale,
                                                                     const std::map<std::string, std::string>& metadata,
                                                                     MovieContainer container = MovieContainer::mpeg4);
  MovieWriter(const MovieWriter&) = delete;
  MovieWriter& operator=(const MovieWriter&) = delete;
  ~MovieWriter();

  /// Adds a track with the samples' format, before `begin()`; returns its number. `timescale` counts its times.
  /// `matrix` (a b u c d v x y w, 16.16 and 2.30) is left out for the identity.
  [[nodiscard]] Expected<int> addTrack(const AVCodecParameters& format, std::int32_t timescale,
                                       const std::optional<std::array<std::int32_t, 9>>& matrix);
  /// Before `begin()`: what the track's description says of the light of its pictures. The library writes the
  /// configuration of dynamic metadata (`dvcC`, `dvvC`) into MP4 files alone.
  [[nodiscard]] Expected<void> setHDRMetadata(int track, const HDRMetadata& facts);
  /// Before `begin()`: tracks of data, whose samples `finish()` writes behind all others. `jobs` outlive the writer;
  /// `picturesTrack` is the track that they may refer to.
  void addDataTracks(const std::vector<DataJob>& jobs, std::optional<int> picturesTrack);
  [[nodiscard]] Expected<void> begin();

  /// Writes one sample, its times in ticks of the track; decode times rise strictly. A first sample shown before zero
  /// becomes an edit that begins at zero, one shown later an empty edit before it.
  [[nodiscard]] Expected<StoredSample> write(int track, AVPacket& packet);
  /// Writes the last sample of a track of pictures, which shows what `edit` says, whatever samples lie before and
  /// behind it. The first sample must be shown at zero or before where `edit` starts at zero, and later where it starts
  /// later. The lengths of the samples then add up to that of the media (`mdhd`): from the first picture to where the
  /// last goes.
  [[nodiscard]] Expected<StoredSample> writeLast(int track, AVPacket& packet, const TrackEdit& edit);

  /// A sample written earlier, in the form in which `write` takes it.
  [[nodiscard]] Expected<Packet> readBack(int track, const StoredSample& sample);

  /// Writes the index.
  [[nodiscard]] Expected<void> finish();

 private:
  explicit MovieWriter(OutputFile& file) : file_(file) {}
  Expected<void> addSideData(AVStream& stream, AVPacketSideDataType kind, const void* data, std::size_t size);
  [[nodiscard]] tl::unexpected<Error> writeFailure(int code, const std::string& what) const;
  static int writeBytes(void* opaque, std::uint8_t* bytes, int length);
  static std::int64_t seekBytes(void* opaque, std::int64_t offset, int whence);
  static int openForShift(AVFormatContext* context, AVIOContext** io, const char* url, int flags,
                          AVDictionary** options);
  static int closeAfterShift(AVFormatContext* context, AVIOContext* io);
  static int readBytes(void* opaque, std::uint8_t* bytes, int length);
  static std::int64_t seekForReading(void* opaque, std::int64_t offset, int whence);

  OutputFile& file_;
  AVFormatContext* context_ = nullptr;
  AVIOContext* io_ = nullptr;
  std::int64_t offset_ = 0;         // where the next bytes go
  std::int64_t readingOffset_ = 0;  // of the pass that moves the index to the front
  std::optional<Error> failure_;    // the first of a write; the library only passes a number on
  std::int32_t movieTimescale_ = 1000;
  MovieContainer container_ = MovieContainer::mpeg4;
  std::optional<DataTrackWriter> dataTracks_;
  std::optional<int> picturesTrack_;
  struct FirstSample {
    std::int64_t decode = 0;
    std::int64_t presentation = 0;
  };
  std::map<int, FirstSample> firstSamples_;  // by track
  std::map<int, WantedEdit> edits_;          // by track
};

}  // namespace clipworks::engine
