#pragma once

#include <filesystem>
#include <memory>
#include <string>
#include <string_view>

#include <clipworks/edit/Error.h>
#include <clipworks/media/asset/InputLimits.h>
#include <clipworks/media/base/Export.h>
#include <clipworks/media/base/Result.h>
#include <clipworks/media/geometry/CGSize.h>
#include <clipworks/media/time/CMTime.h>

namespace clipworks {

struct EditState;

/// What a movie is made of: stretches of files in time, how their pictures are placed, how loud each sound is, and how
/// the result is to be coded. A value: cheap to copy, never changed, for any thread. `open` makes one of a file, the
/// steps (Steps.h) make new ones of it, `plan` and `makeMovie` turn it into a file.
///
/// Keeps its files open. A file that is replaced stays what it was; one that is changed in place is noticed when a
/// movie is made.
class CLIPWORKS_API Edit {
 public:
  /// How much of a file.
  enum class Extent {
    movie,   ///< as long as its header says, which is how long players play it
    tracks,  ///< until the last of the tracks that are used ends; the header may say less or more
  };

  /// A file's first track of pictures and its first of sound. Reads header and sample tables only. Fails with
  /// `notFound`, `notReadable`, `notAMovie`, `damaged`, `tooLarge`, `unsupported`, or with `limitReached` where the
  /// file is beyond `limits`. A codec that they do not let in fails once something has to be decoded: in `plan`.
  [[nodiscard]] static Result<Edit, Error> open(const std::filesystem::path& file, Extent extent = Extent::movie,
                                                const InputLimits& limits = {});

  /// Those of its first file. Steps that open further files do so with the same.
  [[nodiscard]] InputLimits limits() const;

  /// How long it lasts.
  [[nodiscard]] CMTime duration() const;
  [[nodiscard]] bool hasPictures() const;
  [[nodiscard]] bool hasSound() const;
  /// Of the pictures, in pixels as they are seen: upright, with square pixels; zero without pictures.
  [[nodiscard]] CGSize size() const;
  /// The name of the first file, without its folder: what sentences call the edit.
  [[nodiscard]] std::string name() const;

  /// All of it on one line, for another process on this machine or for later. Versioned; names its files by their
  /// absolute paths.
  [[nodiscard]] std::string json() const;
  /// What `json` wrote. Fails as `open` does; with `badArgument` for anything else, `unsupported` for another version,
  /// and `notReadable` where a file has changed since.
  [[nodiscard]] static Result<Edit, Error> fromJson(std::string_view text);
  /// Whether both make the same of the same files.
  friend CLIPWORKS_API bool operator==(const Edit& a, const Edit& b);

  /// Within the core.
  explicit Edit(std::shared_ptr<const EditState> state) : state_(std::move(state)) {}
  [[nodiscard]] const EditState& state() const { return *state_; }

 private:
  std::shared_ptr<const EditState> state_;
};

}  // namespace clipworks
