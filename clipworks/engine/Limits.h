#pragma once

#include <cstddef>
#include <cstdint>

/// Bounds for what a file may ask of us, in one place. Beyond them a file is refused with `ErrorKind::tooLarge`.
namespace clipworks::engine::limits {

inline constexpr int maxTracks = 64;
inline constexpr int maxBoxNesting = 12;
inline constexpr std::uint64_t maxMovieIndexBytes = 256ULL << 20;  ///< of `moov`
inline constexpr std::uint64_t maxSamples = 20'000'000;            ///< in one track: 46 hours at 120 a second
inline constexpr std::uint64_t maxDataSamples = 4'000'000;         ///< in all tracks of data of a file
inline constexpr std::size_t maxDecoderParameters = 256;           ///< different ones in one track
inline constexpr std::uint32_t maxEdits = 100'000;                 ///< in one track
inline constexpr std::int64_t maxPixels = 16'384LL * 16'384LL;     ///< in one picture
inline constexpr int maxPictureSide = 16'384;
inline constexpr int maxChannels = 64;
inline constexpr int maxSampleRate = 768'000;  ///< hertz
inline constexpr std::size_t maxAllocation =
    1ULL << 30;  ///< bytes at a time, of FFmpeg: a plane of the largest picture fits
inline constexpr std::int64_t maxSampleBytes = 256LL << 20;  ///< of one coded sample

}  // namespace clipworks::engine::limits
