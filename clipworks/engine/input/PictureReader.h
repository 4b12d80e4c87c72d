#pragma once

#include <cstdint>
#include <memory>
#include <optional>

#include <clipworks/engine/Error.h>
#include <clipworks/engine/Handles.h>
#include <clipworks/engine/input/MediaFile.h>
#include <clipworks/engine/input/PictureDecoder.h>

namespace clipworks::engine {

/// Gives pictures of one track by their number in the order of presentation, in rising order and holding two at most;
/// `CachedPictureReader` is for any other order. Exact: decoding starts at the access point that the picture needs,
/// what comes before it is decoded and dropped, or left out where nothing refers to it. Every sample is decoded once. A
/// picture that does not decode is replaced by the one before it, the first by the one after.
/// One thread at a time; the decoder has threads of its own.
class PictureReader {
 public:
  /// `threads`: see `PictureDecoder::open`.
  [[nodiscard]] static Expected<PictureReader> open(std::shared_ptr<const MediaFile> file, int stream, int threads = 0);

  /// Leaves out the loop filter of pictures that nothing refers to, before the first one is asked for: they lose a
  /// little, which does not show when they are made smaller.
  void leaveOutFilters() { decoder_.leaveOutFilters(); }

  /// Leaves out that of all pictures, where it only matters whether they decode.
  void leaveOutAllFilters() { decoder_.leaveOutAllFilters(); }

  [[nodiscard]] const PictureTable& table() const { return decoder_.table(); }

  /// Counts the damaged pictures that are handed out from now on in `counter`.
  void countDamageIn(std::shared_ptr<DamagedPictures> counter) { damaged_ = std::move(counter); }

  /// Picture number `picture`, shared with the reader's memory of it. Fails with `damaged` when nothing decodes, and
  /// when the file ends before one of its samples.
  [[nodiscard]] Expected<Frame> picture(std::size_t picture);

  /// How many of the pictures handed out stand in for one that did not decode.
  [[nodiscard]] std::int64_t replacedPictures() const { return replaced_; }

 private:
  explicit PictureReader(PictureDecoder decoder) : decoder_(std::move(decoder)) {}
  Expected<bool> jumpTo(std::size_t picture, std::uint32_t accessPoint);
  Expected<bool> advanceTo(std::size_t picture, bool leavesOut);
  [[nodiscard]] std::int64_t timeOf(const PictureDecoder::Picture& picture) const {
    return table().samples()[picture.sample].presentation;
  }

  PictureDecoder decoder_;
  bool started_ = false;
  std::size_t asked_ = 0;                           // the last picture
  std::optional<PictureDecoder::Picture> current_;  // the last one handed out or passed
  std::optional<PictureDecoder::Picture> ahead_;    // the first decoded one after it
  std::int64_t replaced_ = 0;
  std::shared_ptr<DamagedPictures> damaged_;
};

}  // namespace clipworks::engine
