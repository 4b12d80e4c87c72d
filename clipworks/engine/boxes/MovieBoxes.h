#pragma once

#include <array>
#include <cstdint>
#include <optional>
#include <vector>

#include <clipworks/engine/Error.h>

namespace clipworks::engine {

/// What the demuxer does not tell about an MP4 or QuickTime file: the movie header, and each track's raw edits and
/// picture offsets. Read by a small parser of our own, written for hostile input: every length is checked against the
/// box and the file, nesting and counts are bounded (engine/Limits.h), and nothing is allocated for what a count merely
/// claims. ISO/IEC 14496-12 and the QuickTime file format.
struct MovieBoxes {
  /// One entry of `elst`: ISO/IEC 14496-12, 8.6.6.
  struct Edit {
    std::uint64_t duration = 0;   ///< in the movie's time scale
    std::int64_t mediaTime = 0;   ///< in the media's time scale; -1 is an empty edit
    std::int32_t rate = 1 << 16;  ///< 16.16 fixed point; 0 is a held picture
  };

  /// A run of one value: an entry of `stts` (a sample's length) or `ctts` (presentation less decode time).
  struct Run {
    std::uint32_t count = 0;
    std::int64_t value = 0;
  };

  struct Track {
    std::uint32_t id = 0;                  ///< `tkhd`
    std::uint32_t handler = 0;             ///< `hdlr`: 'vide', 'soun', …
    std::array<std::int32_t, 9> matrix{};  ///< `tkhd`: a b u c d v x y w; 16.16, u v w 2.30
    std::uint32_t width = 0;               ///< `tkhd`, 16.16: the presentation size
    std::uint32_t height = 0;
    std::uint32_t mediaTimescale = 0;      ///< `mdhd`
    std::uint64_t mediaDuration = 0;       ///< `mdhd`
    std::vector<Edit> edits;               ///< empty when there is no `edts`
    std::uint32_t sampleDescriptions = 0;  ///< count of entries in `stsd`
    /// Width and height of coded pictures by the descriptions, the first ones at most.
    std::vector<std::array<std::uint16_t, 2>> codedSizes;
    std::vector<Run> sampleLengths;          ///< `stts`
    std::vector<Run> pictureOffsets;         ///< `ctts`, signed as its values are meant; empty when there is none
    std::vector<std::uint32_t> syncSamples;  ///< `stss`, counted from 1
    bool hasSyncTable = false;               ///< without one, every sample is an access point
    std::uint64_t sampleCount = 0;           ///< `stsz` or `stz2`
    /// `clap` of the first sample description: width, height, x and y offset, each a fraction (N, D).
    std::optional<std::array<std::int32_t, 8>> cleanAperture;
    /// `pasp`: horizontal and vertical spacing.
    std::optional<std::array<std::uint32_t, 2>> pixelAspect;
  };

  std::uint32_t timescale = 0;           ///< `mvhd`
  std::uint64_t duration = 0;            ///< `mvhd`
  std::array<std::int32_t, 9> matrix{};  ///< `mvhd`: as that of a track, and applied after it; all 0 when cut off
  std::uint64_t fragmentsDuration = 0;   ///< `mehd`; 0 when there is none
  bool fragmented = false;               ///< there is an `mvex`, or a `moof`
  std::vector<Track> tracks;             ///< in the order of the `trak` boxes
  /// iTunSMPB: samples of encoder delay, of padding at the end, and of sound between.
  struct GaplessInfo {
    std::uint32_t delay = 0;
    std::uint32_t padding = 0;
    std::uint64_t samples = 0;
  };
  std::optional<GaplessInfo> gapless;
};

/// Reads the boxes of the open file `fd` (its offset is neither used nor moved: `pread`). Fails with `notMedia` when
/// there is no `moov`, `damaged` when one is cut off or contradicts itself beyond use, `tooLarge` beyond a limit.
/// A track that contradicts itself is still listed, with what could be read.
[[nodiscard]] Expected<MovieBoxes> readMovieBoxes(int fd);

}  // namespace clipworks::engine
