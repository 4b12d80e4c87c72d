#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <vector>

namespace clipworks::engine {

/// One coded sample of a track, by the track's own clock.
struct Sample {
  std::int64_t presentation = 0;  ///< when it is shown, in ticks of the track
  std::int64_t decode = 0;        ///< its place in decoding order, in ticks
  std::int64_t position = 0;      ///< byte offset in the file; -1 when the container hides it
  std::int32_t bytes = 0;
  bool accessPoint = false;  ///< decoding may start here
};

/// Bytes for the decoder that hold from a sample on, in decoding order, in place of those before.
struct CodecChange {
  std::uint32_t sample = 0;
  std::shared_ptr<const std::vector<std::uint8_t>> bytes;
};

/// What the decoder needs beside the samples of a track, wherever it starts.
struct CodecChanges {
  /// Parameters in place of the stream's own: those of another sample description (ISO/IEC 14496-12, 8.5.2), or a new
  /// header in the middle of a stream.
  std::vector<CodecChange> parameters;
  /// Colours of pixels that are numbers in a list, 32 bits each.
  std::vector<CodecChange> palettes;
};

/// All coded samples of one track of pictures, in both orders: the one list of picture times that reading, rendering
/// and copying share, so that none of them rounds into a neighbour. Immutable once built.
class PictureTable {
 public:
  PictureTable() = default;
  /// `decodeOrder` as the file stores it; `trackEnd` is where the last picture stops being shown, in ticks.
  PictureTable(std::vector<Sample> decodeOrder, std::int64_t trackEnd, CodecChanges changes = {});

  [[nodiscard]] const std::vector<Sample>& samples() const { return samples_; }

  /// How many pictures are ever on screen: samples that share their presentation time with an earlier one are not.
  [[nodiscard]] std::size_t pictureCount() const { return pictures_.size(); }
  /// The index in `samples()` of the picture shown as number `picture`.
  [[nodiscard]] std::uint32_t sampleOfPicture(std::size_t picture) const { return pictures_[picture]; }
  /// When picture number `picture` comes on screen, in ticks.
  [[nodiscard]] std::int64_t timeOfPicture(std::size_t picture) const {
    return samples_[pictures_[picture]].presentation;
  }
  /// The number of the picture on screen at `ticks`; nothing before the first.
  [[nodiscard]] std::optional<std::size_t> pictureAt(std::int64_t ticks) const;
  /// The number of the first picture that comes on screen at `ticks` or later; `pictureCount()` when there is none.
  [[nodiscard]] std::size_t firstPictureFrom(std::int64_t ticks) const;

  /// Where decoding has to start to get picture number `picture`: the last access point in decoding order that is
  /// shown no later (the leading pictures of a later one would lack their references) and is not stored behind it.
  /// Index in `samples()`; 0 where there is none.
  [[nodiscard]] std::uint32_t accessPointFor(std::size_t picture) const;
  /// The access point before sample `accessPoint`; 0 where there is none.
  [[nodiscard]] std::uint32_t accessPointBefore(std::uint32_t accessPoint) const;
  /// The first access point behind sample `sample`.
  [[nodiscard]] std::optional<std::uint32_t> accessPointAfter(std::uint32_t sample) const;

  /// Whether pictures follow each other evenly, to a tick: a clock may not divide their rate.
  [[nodiscard]] bool hasConstantRate() const;
  /// How many samples there are at most from one access point to the next.
  [[nodiscard]] std::size_t longestGroup() const;
  /// How many samples end beyond `fileSize` bytes.
  [[nodiscard]] std::int64_t samplesBeyond(std::int64_t fileSize) const;
  /// The change of the decoder's parameters that holds at sample `sample`; null for the stream's own.
  [[nodiscard]] const CodecChange* parametersFor(std::uint32_t sample) const;
  /// The palette that holds at sample `sample`; null for none.
  [[nodiscard]] const CodecChange* paletteFor(std::uint32_t sample) const;

  [[nodiscard]] std::int64_t trackEnd() const { return trackEnd_; }
  [[nodiscard]] std::int64_t totalBytes() const { return totalBytes_; }

 private:
  std::vector<Sample> samples_;              // in decoding order
  std::vector<std::uint32_t> pictures_;      // indices of samples_ in order of presentation
  std::vector<std::uint32_t> accessPoints_;  // indices of samples_, with rising presentation times
  CodecChanges changes_;                     // each with rising samples
  std::int64_t trackEnd_ = 0;
  std::int64_t totalBytes_ = 0;
};

}  // namespace clipworks::engine
