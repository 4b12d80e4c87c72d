#pragma once

#include <cstddef>
#include <deque>
#include <functional>
#include <optional>

#include <clipworks/engine/Error.h>
#include <clipworks/engine/Handles.h>
#include <clipworks/engine/pictures/Deinterlacer.h>

namespace clipworks::engine {

/// Decoded pictures of one track as they are, or deinterlaced where the track is interlaced: each with the help of the
/// one before and the one after, so that it is the same in any order of requests; rising ones cost least. One thread at
/// a time.
class WholePictures {
 public:
  /// Gives picture number `picture`, in the order of presentation, as it is coded.
  using Decode = std::function<Expected<Frame>(std::size_t picture)>;

  /// Of a track of `pictureCount` pictures.
  WholePictures(bool isInterlaced, std::size_t pictureCount) : isInterlaced_(isInterlaced), count_(pictureCount) {}

  /// Picture number `picture`, of what `decode` gives. Fails as that does.
  [[nodiscard]] Expected<Frame> picture(std::size_t picture, const Decode& decode);

 private:
  struct Numbered {
    std::size_t number = 0;
    Frame frame;
  };
  void startAt(std::size_t picture);
  Expected<void> deinterlaceMore(const Decode& decode);
  Expected<Frame> coded(std::size_t picture, const Decode& decode);
  Expected<void> push(const Frame& frame);
  Expected<void> finishRun();
  Expected<void> pull();

  bool isInterlaced_;
  std::size_t count_;
  std::optional<Deinterlacer> deinterlacer_;  // of the run of pictures of one size that is under way
  std::size_t pushed_ = 0;                    // the picture after the last one pushed into it
  std::size_t pulled_ = 0;                    // the picture that comes out of it next
  std::deque<Numbered> coded_;                // the last ones pushed
  std::deque<Numbered> whole_;                // those that came out, from the last one asked for on
};

}  // namespace clipworks::engine
