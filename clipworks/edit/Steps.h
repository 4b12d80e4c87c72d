#pragma once

#include <cstdint>
#include <filesystem>
#include <optional>
#include <vector>

#include <clipworks/edit/Edit.h>
#include <clipworks/edit/Error.h>
#include <clipworks/media/base/Export.h>
#include <clipworks/media/base/Result.h>
#include <clipworks/media/geometry/CGRect.h>
#include <clipworks/media/geometry/CGSize.h>
#include <clipworks/media/time/CMTime.h>
#include <clipworks/media/time/CMTimeRange.h>

/// The steps: functions from an edit to an edit. Times and rectangles of a step are those of what the edit shows that
/// it is given. They read at most headers and sample tables of files that they add; nothing is decoded, written or
/// printed. Each is in a source file of its own, with its rule. From any thread.
namespace clipworks {

/// A length or an instant that somebody typed, as the fraction that was meant: 2.1 is 21/10 s, in lowest terms; finer
/// than a billionth of a second is rounded. Invalid for what is no number or does not fit (2^31 s).
[[nodiscard]] CLIPWORKS_API CMTime exactSeconds(double seconds);

/// Plays it `count` times in a row, from 1 to 100,000, and 1000 hours at most. Fails with `noPictures`, `noSound` or
/// `badArgument`.
[[nodiscard]] CLIPWORKS_API Result<Edit, Error> looped(const Edit& edit, std::int64_t count);

/// Makes `stretch` last `ratio` times as long: 2 is half the speed, 0.5 double the speed. The sound keeps its pitch.
/// Fails with `noPictures`, `noSound`, or with `badArgument` where the stretch does not lie in the edit, would vanish,
/// or would last more than 1000 hours.
[[nodiscard]] CLIPWORKS_API Result<Edit, Error> retimed(const Edit& edit, const CMTimeRange& stretch, double ratio);

/// Plays it backwards. Fails with `noPictures` or `noSound`.
[[nodiscard]] CLIPWORKS_API Result<Edit, Error> reversed(const Edit& edit);

/// How far pictures are turned, clockwise.
enum class Turn { right, half, left };
/// Turns the pictures. Fails with `noPictures`.
[[nodiscard]] CLIPWORKS_API Result<Edit, Error> turned(const Edit& edit, Turn turn);
/// Has players turn the pictures: the movie's header says so, the pictures stay as they are coded. Fails with
/// `noPictures`, or with `badArgument` where a step before draws them anew.
[[nodiscard]] CLIPWORKS_API Result<Edit, Error> turnedByHeader(const Edit& edit, Turn turn);

/// Shows `rect` of the pictures, in pixels as they are seen. Sides are made whole, and even by leaving the last column
/// or line out, which the plan tells. Fails with `noPictures`, or with `badArgument` where it reaches out of the
/// picture.
[[nodiscard]] CLIPWORKS_API Result<Edit, Error> cropped(const Edit& edit, const CGRect& rect);

/// A recording that is laid over an edit.
struct NarratedPiece {
  std::filesystem::path file;  ///< any audio file, or a video for its sound
  CMTime at = kCMTimeZero;     ///< where it starts
  double volume = 1;           ///< factor of its level, from 0 to 1000
};
/// Lays recordings over the sound, which plays at `baseVolume`, a factor from 0 to 1000. Pieces may overlap; one that
/// runs past the end makes the movie longer, the last picture stays. Opened with the limits of `edit`. Fails with
/// `noPictures`, `noSound`, as `Edit::open`, or with `badArgument` for volumes, and where a piece would start behind
/// the end.
[[nodiscard]] CLIPWORKS_API Result<Edit, Error> narrated(const Edit& edit, const std::vector<NarratedPiece>& pieces,
                                                         double baseVolume = 1);

/// Has the pictures encoded `height` pixels high, as wide as their shape asks, at `bitRate` bits a second on average,
/// 10^9 at most, or, for 0, at constant quality; smaller ones are enlarged. The sound becomes stereo at 44.1 kHz and
/// 128 kb/s. Fails with `noPictures`, or with `badArgument` for a height or a shape that gives no picture of 1 to
/// 16,384 pixels.
[[nodiscard]] CLIPWORKS_API Result<Edit, Error> compressed(const Edit& edit, int height, std::int64_t bitRate);

/// Has it encoded so that the file has `bytes` at most, and, of ten seconds and more, hardly less: pictures `height`
/// pixels high, or for 0 as high as so many bytes serve well, never enlarged. At most two encodes. Fails as
/// `compressed`, and with `badArgument` where so few bytes do not do; the sentence says how many would.
[[nodiscard]] CLIPWORKS_API Result<Edit, Error> compressedTo(const Edit& edit, std::int64_t bytes, int height = 0);

/// Keeps `range` alone. Fails with `badArgument` where nothing of the edit lies in it.
[[nodiscard]] CLIPWORKS_API Result<Edit, Error> trimmed(const Edit& edit, const CMTimeRange& range);
/// Keeps `ranges`, in any order, one behind the other. Fails as for one, and with `badArgument` for none.
[[nodiscard]] CLIPWORKS_API Result<Edit, Error> trimmed(const Edit& edit, const std::vector<CMTimeRange>& ranges);

/// How clips of different looks go together.
struct JoinLook {
  /// Of the result, in pixels; that of the first clip with pictures when not given.
  std::optional<CGSize> size{};
  /// Whether each picture fills it, cut at two sides; else it is shown whole, black beside it.
  bool fills = false;
};
/// Plays `edits` one behind the other. Pictures stay as they are where all are shown alike, else each is brought to one
/// size, upright; colours become those of the first, high dynamic range becomes standard where not all have it. Black
/// and silence stand in for what an edit does not have. Fails with `badArgument` for no edit, for a size that is none,
/// and for more than 1000 hours.
[[nodiscard]] CLIPWORKS_API Result<Edit, Error> joined(const std::vector<Edit>& edits, const JoinLook& look = {});

/// Leaves the other half out. Fails with `noPictures`, with `noSound`.
[[nodiscard]] CLIPWORKS_API Result<Edit, Error> picturesOnly(const Edit& edit);
[[nodiscard]] CLIPWORKS_API Result<Edit, Error> soundOnly(const Edit& edit);

/// Has the pictures made small, within 480 × 480 pixels at about 400 kb/s.
[[nodiscard]] CLIPWORKS_API Edit madeSmall(const Edit& edit);
/// Has the pictures kept as they are coded; a plan fails where that cannot be.
[[nodiscard]] CLIPWORKS_API Edit keepingCodedPictures(const Edit& edit);

}  // namespace clipworks
