#pragma once

#include <filesystem>
#include <memory>
#include <vector>

#include <app/Failure.h>
#include <app/HiddenDirectory.h>
#include <app/Options.h>

namespace clipworks::app {

/// Directories that belong to one run: what the library makes goes there, and whole files move from there into the
/// outputs directory, on the same file system. Two runs never see each other's files. Removed with everything in them
/// at the end; what a run that was killed left behind, hidden, the next one in the same place removes.
class PrivateDirectories {
 public:
  /// Fails with a sentence when nothing can be made in `options.outputs` or `options.temp`.
  [[nodiscard]] static Result<std::unique_ptr<PrivateDirectories>, Failure> make(const Options& options);
  PrivateDirectories(const PrivateDirectories&) = delete;
  PrivateDirectories& operator=(const PrivateDirectories&) = delete;

  [[nodiscard]] std::filesystem::path outputs() const { return besideResults_->path() / "outputs"; }
  [[nodiscard]] std::filesystem::path documents() const { return besideResults_->path() / "documents"; }
  [[nodiscard]] std::filesystem::path temp() const {
    return (elsewhere_ ? elsewhere_ : besideResults_)->path() / "temp";
  }

  /// Where a result of that name goes.
  [[nodiscard]] std::filesystem::path place(const std::filesystem::path& fileName) const {
    return (results_ / fileName).lexically_normal();
  }

  /// Moves `made` into the outputs directory under its own name and returns its new path; a file of that name is
  /// replaced in one step. Refused when that file is one of `inputs`.
  [[nodiscard]] Result<std::filesystem::path, Failure> moveIntoPlace(
      const std::filesystem::path& made, const std::vector<std::filesystem::path>& inputs) const;

 private:
  explicit PrivateDirectories(std::filesystem::path results) : results_(std::move(results)) {}

  std::filesystem::path results_;
  std::unique_ptr<HiddenDirectory> besideResults_;  // in results_
  std::unique_ptr<HiddenDirectory> elsewhere_;      // in options.temp, if there is one
};

/// Refuses a result whose name leads to one of the inputs, by whatever path or link.
[[nodiscard]] Outcome refuseToOverwrite(const std::filesystem::path& result,
                                        const std::vector<std::filesystem::path>& inputs);

}  // namespace clipworks::app
