#pragma once

#include <cstddef>
#include <filesystem>
#include <memory>
#include <stop_token>
#include <vector>

#include <clipworks/edit/EditState.h>
#include <clipworks/edit/Error.h>
#include <clipworks/edit/TakePicture.h>
#include <clipworks/engine/input/DamagedPictures.h>
#include <clipworks/engine/pictures/StillImage.h>
#include <clipworks/media/base/Result.h>
#include <clipworks/media/time/CMTime.h>

namespace clipworks {

/// What an edit with pictures shows at some times, as stills. One thread at a time; the edit must outlive this.
class Stills {
 public:
  /// Finds the pictures at `times`; decodes none, and later with `threads` threads at most, see `PictureOptions`. Fails
  /// with `badArgument` for a time outside the edit.
  [[nodiscard]] static Result<Stills, Error> find(const Edit& edit, std::vector<CMTime> times, int threads = 0);
  /// When each picture comes on screen.
  [[nodiscard]] static Result<std::vector<CMTime>, Error> times(const Edit& edit);
  Stills(Stills&&) noexcept;
  ~Stills();

  [[nodiscard]] std::size_t count() const { return times_.size(); }
  [[nodiscard]] const CMTime& time(std::size_t i) const { return times_[i]; }
  /// The still at `time(i)`. Cheapest in the order of the times, whatever it is.
  [[nodiscard]] Result<std::shared_ptr<const engine::StillImage>, Error> take(std::size_t i,
                                                                              const std::stop_token& stop);
  /// Those that were taken so far and could not be decoded whole.
  [[nodiscard]] const engine::DamagedPictures& damaged() const;

 private:
  struct Taking;
  Stills(std::vector<CMTime> times, std::unique_ptr<Taking> taking);

  std::vector<CMTime> times_;
  std::unique_ptr<Taking> taking_;
};

/// Encodes `still` and gives it its name. Fails as `takePictures` does.
[[nodiscard]] Result<std::filesystem::path, Error> saveStill(const engine::StillImage& still,
                                                             const std::filesystem::path& path,
                                                             const PictureOptions& options);

/// Fails with `damaged` where some of `stills` are and the options are strict.
[[nodiscard]] Result<void, Error> checkDamage(const Stills& stills, const PictureOptions& options);

}  // namespace clipworks
