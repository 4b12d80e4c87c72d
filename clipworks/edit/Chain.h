#pragma once

#include <cstdint>
#include <filesystem>
#include <functional>
#include <utility>
#include <vector>

#include <clipworks/edit/Edit.h>
#include <clipworks/edit/Error.h>
#include <clipworks/edit/MakeMovie.h>
#include <clipworks/edit/Steps.h>
#include <clipworks/media/base/Export.h>
#include <clipworks/media/base/Result.h>
#include <clipworks/media/geometry/CGRect.h>

namespace clipworks {

/// Steps one behind the other, as one writes them; the first that fails is what `save` reports. A value.
///
///     const auto made = clipworks::Chain("clip.mp4").speed(2, 4, 2).crop({100, 100, 800, 800}).save("short.mp4");
///     if (!made) std::cerr << made.error().sentence << '\n';
///
/// Times are seconds of what the chain shows so far, rectangles pixels of it. See Steps.h.
class CLIPWORKS_API Chain {
 public:
  /// Begins with all of a file, see `Edit::open`.
  explicit Chain(const std::filesystem::path& file);
  /// Begins with an edit.
  explicit Chain(Result<Edit, Error> edit) : edit_(std::move(edit)) {}

  /// See `looped`.
  [[nodiscard]] Chain loop(std::int64_t count) const;
  /// Seconds `from` to `to` last `ratio` times as long: `retimed`.
  [[nodiscard]] Chain speed(double from, double to, double ratio) const;
  /// See `reversed`.
  [[nodiscard]] Chain reverse() const;
  /// See `turned`.
  [[nodiscard]] Chain rotate(Turn by = Turn::right) const;
  /// See `cropped`.
  [[nodiscard]] Chain crop(const CGRect& rect) const;
  /// See `narrated`.
  [[nodiscard]] Chain narrate(const std::vector<NarratedPiece>& pieces, double baseVolume = 1) const;
  /// `height` in pixels, `bitRate` in bits a second: `compressed`.
  [[nodiscard]] Chain compress(int height, std::int64_t bitRate) const;
  /// See `compressedTo`.
  [[nodiscard]] Chain compressTo(std::int64_t bytes, int height = 0) const;
  /// Keeps seconds `from` to `to`: `trimmed`.
  [[nodiscard]] Chain trim(double from, double to) const;

  /// Keeps several stretches of seconds, one behind the other: `trimmed`.
  [[nodiscard]] Chain trim(const std::vector<std::pair<double, double>>& stretches) const;
  /// Plays the clip `file`, opened with the same limits, behind it: `joined`.
  [[nodiscard]] Chain join(const std::filesystem::path& file, const JoinLook& look = {}) const;

  /// The edit so far, or why there is none.
  [[nodiscard]] const Result<Edit, Error>& edit() const { return edit_; }
  /// See `makeMovie`.
  [[nodiscard]] Result<MovieReport, Error> save(const std::filesystem::path& path,
                                                const MovieOptions& options = {}) const;

 private:
  [[nodiscard]] Chain then(const std::function<Result<Edit, Error>(const Edit&)>& step) const;

  Result<Edit, Error> edit_;
};

}  // namespace clipworks
