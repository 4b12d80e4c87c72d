#pragma once

#include <cstdint>
#include <filesystem>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include <clipworks/edit/Edit.h>
#include <clipworks/edit/Error.h>
#include <clipworks/media/asset/FileAsset.h>
#include <clipworks/media/base/Result.h>
#include <clipworks/media/composition/SegmentList.h>
#include <clipworks/media/composition/SegmentMapping.h>
#include <clipworks/media/geometry/CGAffineTransform.h>
#include <clipworks/media/geometry/CGSize.h>

namespace clipworks {

/// A file that an edit draws on.
struct Source {
  std::filesystem::path path;
  std::shared_ptr<const FileAsset> asset;

  /// Opens `path`. Fails as `Edit::open` does.
  [[nodiscard]] static Result<std::shared_ptr<const Source>, Error> open(const std::filesystem::path& path,
                                                                         const InputLimits& limits);
  /// Without its folder.
  [[nodiscard]] std::string name() const { return path.filename().string(); }
};

/// Stretches of files one after the other, in time.
using Stretches = SegmentList<MediaSegment>;

/// One sound of several that play at once.
struct Sound {
  Stretches stretches;
  float volume = 1;
};

/// How the result is to be coded.
struct Wanted {
  enum class Quality {
    highest,        ///< visually transparent; coded pictures are kept where they can be
    small,          ///< within 480 × 480 pixels, about 400 kb/s
    codedPictures,  ///< pictures as they are coded, or not at all
    bitRate,        ///< that of `pictureBitRate`, sound in stereo at 44.1 kHz
  };
  Quality quality = Quality::highest;
  std::int64_t pictureBitRate = 0;  ///< bits a second; 0 is constant quality
  std::int64_t mostBytes = 0;       ///< of the file, which rates are chosen for then; 0: as many as come
};

/// A track or another part of a file that the edit does not use.
struct LeftOut {
  std::string what;
  std::string why;
};

/// What an `Edit` holds. All stretches start at zero and end at `length`.
struct EditState {
  std::vector<std::shared_ptr<const Source>> sources;  ///< at least one; the first gives name and codec
  CMTime length;
  std::optional<Stretches> pictures;
  std::vector<Sound> sounds;
  /// Of pictures that are not drawn: from their natural size to upright.
  CGAffineTransform transform;
  /// Of pictures that are drawn, in pixels; each stretch has its `place` then.
  std::optional<CGSize> canvas;
  Wanted wanted;
  std::vector<LeftOut> leftOut;
  std::vector<std::string> remarks;  ///< what a step had to change of what was asked, one sentence each
};

/// The first track of a type of a file, cut or padded to `length`; nothing where there is none.
[[nodiscard]] std::optional<Stretches> firstTrack(const Source& source, AVMediaType type, const CMTime& length);

/// Makes `stretches` end at `length`, which is no earlier: the picture on screen stays, the sound is silent.
void pad(Stretches& stretches, const CMTime& length);

/// Fails with `noPictures` or `noSound` where `edit` lacks what `work` ("looping") needs.
[[nodiscard]] Result<void, Error> needPictures(const Edit& edit, const std::string& work);
[[nodiscard]] Result<void, Error> needSound(const Edit& edit, const std::string& work);

/// Draws what is seen by `map`, in pixels, onto a canvas of `size`. There are pictures.
void draw(EditState& state, const CGAffineTransform& map, const CGSize& size);

/// The first of `stretches` that shows or plays something; null where there is none.
[[nodiscard]] const MediaSegment* firstOfMedia(const Stretches& stretches);

/// The edit of a changed state.
[[nodiscard]] Edit edited(EditState state);

}  // namespace clipworks
