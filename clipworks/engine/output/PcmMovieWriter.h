#pragma once

#include <cstdint>
#include <filesystem>
#include <memory>
#include <optional>
#include <span>
#include <vector>

#include <clipworks/engine/Error.h>
#include <clipworks/engine/FFmpeg.h>
#include <clipworks/engine/FileHandle.h>

namespace clipworks::engine {

/// 16-bit signed sound, its channels interleaved.
struct PcmFormat {
  int sampleRate = 44'100;  ///< hertz
  int channels = 2;
};

/// Writes sound into a QuickTime file, as 16-bit little-endian linear PCM, so that the file can be read at any moment:
///
///     ftyp | room for the index | mdat: the sound
///
/// The muxer reserves the room and writes the index there at the end. Until then the room holds a provisional index,
/// renewed with every half second of sound: the index that the muxer makes for one single sample, with the true count
/// in its place. Whatever ends the process, the file is a plain one with all but the last half second in it. The file
/// has its name from the start, whatever its ending. One thread at a time.
class PcmMovieWriter {
 public:
  /// Makes the file; one of that name is replaced. Fails with `unwritable`.
  [[nodiscard]] static Expected<std::unique_ptr<PcmMovieWriter>> create(const std::filesystem::path& path,
                                                                        const PcmFormat& format);
  PcmMovieWriter(const PcmMovieWriter&) = delete;
  PcmMovieWriter& operator=(const PcmMovieWriter&) = delete;
  ~PcmMovieWriter();

  /// Appends sound; `samples` holds whole frames, one sample for each channel. After a failure the file still reads as
  /// far as it was written, and nothing more is taken.
  [[nodiscard]] Expected<void> write(std::span<const std::int16_t> samples);
  /// Appends silence.
  [[nodiscard]] Expected<void> writeSilence(std::int64_t frames);
  /// Frames taken so far.
  [[nodiscard]] std::int64_t frames() const { return stored_ + static_cast<std::int64_t>(pending_.size()) / channels_; }

  /// Writes what is left and the index. Nothing may follow.
  [[nodiscard]] Expected<void> finish();

 private:
  PcmMovieWriter(std::filesystem::path path, int channels) : path_(std::move(path)), channels_(channels) {}
  [[nodiscard]] Expected<void> begin(const PcmFormat& format);
  [[nodiscard]] Expected<void> store();
  [[nodiscard]] Expected<void> renewIndex();
  [[nodiscard]] tl::unexpected<Error> writeFailure(int code);
  [[nodiscard]] Expected<void> writeAt(std::int64_t offset, std::span<const std::uint8_t> bytes);
  static int writeBytes(void* opaque, std::uint8_t* bytes, int length);
  static std::int64_t seekBytes(void* opaque, std::int64_t offset, int whence);

  /// The index for one frame, and where in it the count of frames stands, everywhere as 32 bits.
  struct ProvisionalIndex {
    std::int64_t offset = 0;
    std::vector<std::uint8_t> bytes;
    std::vector<std::size_t> counts;
  };
  [[nodiscard]] static Expected<ProvisionalIndex> makeProvisionalIndex(const PcmFormat& format);

  std::filesystem::path path_;
  int channels_;
  std::optional<FileHandle> file_;
  ProvisionalIndex index_;
  AVFormatContext* context_ = nullptr;
  AVIOContext* io_ = nullptr;
  std::int64_t offset_ = 0;            // where the muxer's next bytes go
  std::int64_t stored_ = 0;            // frames that the muxer has
  std::size_t packetSamples_ = 0;      // in half a second
  std::vector<std::int16_t> pending_;  // less than a packet
  std::optional<Error> failure_;       // the first of a write; the library only passes a number on
};

}  // namespace clipworks::engine
