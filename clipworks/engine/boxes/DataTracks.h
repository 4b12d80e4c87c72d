#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include <clipworks/engine/Error.h>
#include <clipworks/engine/FileHandle.h>
#include <clipworks/engine/boxes/MovieBoxes.h>

namespace clipworks::engine {

/// How a data track presents itself, byte by byte as in its file but for what names its tables: enough to write it
/// anew.
struct DataTrackFormat {
  std::uint32_t handler = 0;                 ///< `hdlr`: 'meta', 'tmcd', 'text', 'sbtl' …
  std::array<std::byte, 12> handlerMaker{};  ///< of `hdlr`, behind the type: QuickTime's manufacturer and flags
  std::string name;                          ///< of `hdlr`
  std::uint16_t language = 0;                ///< `mdhd`
  std::uint32_t flags = 0;                   ///< `tkhd`
  std::vector<std::byte> presentation;       ///< the end of `tkhd`, from the layer's reserved bytes to the height
  std::vector<std::byte> mediaHeader;        ///< the box `gmhd`, `nmhd`, `sthd` …; empty without one
  std::vector<std::byte> mediaMore;          ///< other boxes of `mdia`, which stay: `elng`
  std::vector<std::byte> trackMore;          ///< other boxes of `trak`, which stay: `udta`, `meta`
};

/// A sample of a data track, and where it lies in its file.
struct DataSample {
  std::uint64_t position = 0;
  std::int64_t time = 0;  ///< in ticks of the track's media
  std::uint32_t length = 0;
  std::uint32_t bytes = 0;
  std::uint32_t description = 0;  ///< from 0
  bool isSync = true;
};

/// A track of timed metadata, time code or subtitles of an MP4 or QuickTime file.
struct DataTrack {
  std::uint32_t id = 0;
  std::int32_t timescale = 0;
  DataTrackFormat format;
  std::vector<MovieBoxes::Edit> edits;
  /// Boxes of `stsd`, each with its head, and 1 for its data reference.
  std::vector<std::vector<std::byte>> descriptions;
  std::vector<DataSample> samples;  ///< one after the other, without holes; empty where there is a flaw
  /// Why its samples cannot be taken, as the end of a sentence; empty where they can.
  std::string flaw;

  /// The type of its first description: 'mebx', 'tmcd', 'tx3g' …; 0 without one.
  [[nodiscard]] std::uint32_t sampleFormat() const;
};

/// One track refers to another: an entry of `tref`, ISO/IEC 14496-12, 8.3.3.
struct TrackReference {
  std::uint32_t from = 0;
  std::uint32_t type = 0;  ///< 'cdsc', 'tmcd', 'chap' …
  std::uint32_t to = 0;
};

/// The data tracks of a file, in its order, and what refers to what among all its tracks.
struct DataTracks {
  std::vector<DataTrack> tracks;
  std::vector<TrackReference> references;
};

/// Whether a track of this handler is a data track: timed metadata, time code, text or subtitles.
[[nodiscard]] bool isDataHandler(std::uint32_t handler);

/// Reads the data tracks of an MP4 or QuickTime file, samples and all, by the rules of `readMovieBoxes`. Samples that
/// lie outside the file, in other files or in fragments are flaws of their track. Fails as `readMovieIndex` does. May
/// throw `std::bad_alloc`.
[[nodiscard]] Expected<DataTracks> readDataTracks(const FileHandle& file);

}  // namespace clipworks::engine
