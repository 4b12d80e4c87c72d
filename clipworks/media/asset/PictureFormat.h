#pragma once

#include <cstdint>
#include <string>

namespace clipworks {

/// What a track's pictures are, beyond codec and size. Names are those of the `ffmpeg` program ("bt709",
/// "arib-std-b67"); "unknown" where the file does not tell.
struct PictureFormat {
  /// Standard, or the high ranges of ITU-R BT.2100.
  enum class DynamicRange { standard, hlg, pq };

  int bitDepth = 8;  ///< bits of a sample of luma
  DynamicRange dynamicRange = DynamicRange::standard;
  int dolbyVisionProfile = 0;  ///< 0: none
  std::string primaries = "unknown";
  std::string transfer = "unknown";
  std::string matrix = "unknown";
  bool isFullRange = false;
  bool isInterlaced = false;
  bool hasConstantRate = true;    ///< pictures follow each other evenly, but for the clock's own steps
  std::int64_t longestGroup = 0;  ///< pictures, at most, from one that can be decoded by itself to the next
  std::int64_t missingPictures =
      0;  ///< whose place in the file lies beyond its end: it was cut off, or its index is damaged
};

/// A track that is neither pictures nor sound. Export sessions leave it out; edits cut data tracks as the pictures are
/// cut, where they can.
struct OtherTrack {
  std::string kind;   ///< "subtitles", "data", "attachment", "picture" (cover art)
  std::string codec;  ///< short name or four characters of the container; empty when unknown
  std::string name;   ///< that the file gives it; empty for none
  bool isData;        ///< timed metadata, time code or subtitles of an MP4 or QuickTime file
};

/// "SDR", "HLG", "PQ".
[[nodiscard]] inline const char* nameOf(PictureFormat::DynamicRange range) {
  constexpr const char* names[] = {"SDR", "HLG", "PQ"};
  return names[static_cast<int>(range)];
}

}  // namespace clipworks
