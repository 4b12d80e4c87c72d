#pragma once

#include <deque>
#include <memory>
#include <optional>

#include <clipworks/engine/Error.h>
#include <clipworks/engine/Handles.h>
#include <clipworks/engine/input/PictureReader.h>
#include <clipworks/engine/pictures/Deinterlacer.h>

namespace clipworks::engine {

/// Decoded pictures of one track by their number in the order of presentation, for rising numbers: as they are, or
/// deinterlaced where the track is interlaced. One thread at a time.
class WholePictures {
 public:
  [[nodiscard]] static Expected<WholePictures> open(std::shared_ptr<const MediaFile> file, int stream);

  /// Picture number `picture`, no lower than the one asked for before.
  [[nodiscard]] Expected<Frame> picture(std::size_t picture);

  /// How many of the pictures decoded stand in for one that did not decode.
  [[nodiscard]] std::int64_t replacedPictures() const { return reader_.replacedPictures(); }

 private:
  struct Numbered {
    std::size_t number = 0;
    Frame frame;
  };
  WholePictures(PictureReader reader, bool interlaced) : reader_(std::move(reader)), interlaced_(interlaced) {}
  Expected<void> startAt(std::size_t picture);
  Expected<void> deinterlaceMore();

  PictureReader reader_;
  bool interlaced_;
  std::optional<Deinterlacer> deinterlacer_;
  std::size_t pushed_ = 0;  // the picture after the last one pushed into it
  std::size_t pulled_ = 0;  // the picture that comes out of it next
  std::deque<Numbered> whole_;
};

}  // namespace clipworks::engine
