#pragma once

#include <cstddef>
#include <memory>
#include <optional>
#include <vector>

#include <clipworks/engine/input/PictureTable.h>
#include <clipworks/media/base/NSError.h>
#include <clipworks/media/base/Result.h>
#include <clipworks/media/composition/SegmentMapping.h>
#include <clipworks/media/time/CMTime.h>

namespace clipworks {

/// What is on screen at a time.
struct ScreenPicture {
  std::shared_ptr<const MediaTrack> media;  ///< null for black
  std::size_t picture = 0;                  ///< its number in the order of presentation
  CMTime since;                             ///< when it came on screen, on the asset's timeline
  std::size_t piece = 0;                    ///< the segment that shows it, by its place in the timeline

  [[nodiscard]] bool showsTheSameAs(const ScreenPicture& other) const {
    return media == other.media && (media == nullptr || picture == other.picture);
  }
};

/// How far from the asked time a picture may come on screen.
struct TimeTolerance {
  CMTime before = kCMTimePositiveInfinity;
  CMTime after = kCMTimePositiveInfinity;
};

/// Which picture of which media a track of pictures shows when: the one answer that rendering, stills and reading
/// share, over the same table of picture times that exports use. Immutable, for any thread.
class PictureTimeline {
 public:
  /// `segments` in order, without holes. Fails when the pictures of a file cannot be listed.
  [[nodiscard]] static Result<PictureTimeline, NSError> make(std::vector<MediaSegment> segments);

  /// The picture on screen at `time`, black in an explicit hole; padding shows what was there before it. Times before
  /// the first picture show that one, which came later then; those after the end show the last.
  /// Nothing for a track without pictures.
  [[nodiscard]] std::optional<ScreenPicture> at(const CMTime& time) const;

  /// A picture that is cheap to decode, within the tolerance: of the access points that come on screen there, the
  /// nearest one to `time`; the picture of `at` where there is none, or where it is one itself.
  [[nodiscard]] std::optional<ScreenPicture> near(const CMTime& time, const TimeTolerance& tolerance) const;

  /// The pictures that come on screen, black left out, their times rising and in ticks of the media where that is
  /// exact. One that stays from a segment to the next counts once; of those at one instant the last counts.
  [[nodiscard]] std::vector<ScreenPicture> pictures() const;

  /// Where the track ends.
  [[nodiscard]] CMTime end() const;

 private:
  struct Piece {
    MediaSegment segment;
    std::shared_ptr<const engine::PictureTable> table;  // null for gaps
  };
  PictureTimeline() = default;
  [[nodiscard]] std::optional<ScreenPicture> shownBy(std::size_t piece, const CMTime& time) const;
  [[nodiscard]] std::optional<ScreenPicture> lastBefore(std::size_t piece) const;
  [[nodiscard]] std::optional<ScreenPicture> firstFrom(std::size_t piece) const;
  [[nodiscard]] ScreenPicture sinceItCame(ScreenPicture shown) const;
  [[nodiscard]] ScreenPicture black(std::size_t piece) const {
    return {nullptr, 0, pieces_[piece].segment.target.start, piece};
  }

  std::vector<Piece> pieces_;  // without holes
};

}  // namespace clipworks
