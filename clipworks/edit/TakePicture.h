#pragma once

#include <cstdint>
#include <filesystem>
#include <functional>
#include <memory>
#include <stop_token>
#include <vector>

#include <clipworks/edit/Edit.h>
#include <clipworks/edit/Error.h>
#include <clipworks/edit/MakeMovie.h>
#include <clipworks/media/asset/DamagedMedia.h>
#include <clipworks/media/base/Export.h>
#include <clipworks/media/base/Result.h>
#include <clipworks/media/time/CMTime.h>

namespace clipworks {

/// The format of a picture's file.
enum class StillFormat { jpg, png, heic };

/// A picture to be taken: what is on screen at a time, and where it goes.
struct WantedPicture {
  CMTime at;
  std::filesystem::path path;
};

/// How pictures are taken.
struct PictureOptions {
  StillFormat format = StillFormat::jpg;
  /// Whether the date, place and device of the recording are kept.
  bool keepsMetadata = true;
  ExistingFile existing = ExistingFile::refused;
  /// Whether a damaged picture is a failure; else what could be decoded is shown.
  bool isStrict = false;
  /// Threads that the decoder and an encoder may have at most; 0 as for `MovieOptions`.
  int threads = 0;
  /// As for movies.
  std::shared_ptr<engine::NewFiles> files{};
  /// Called on the caller's thread with the share of the pictures that is done. What it throws ends the work.
  std::function<void(double)> onProgress{};
  std::stop_token stop{};
};

/// What became of the pictures, in their order.
struct PictureReport {
  std::vector<std::filesystem::path> paths;
  std::vector<DamagedMedia> damaged;
};

/// Takes pictures of what an edit shows: upright, with square pixels, 8 bits, of standard range. A time before the
/// first picture gives that one, the edit's end the last one. Decodes each group of pictures as few times as a memory
/// of 256 MiB allows, in any order of times. Works on the caller's thread; any number at once. After a failure no new
/// file is left, but for those that have replaced older ones. Fails with `noPictures`; with `badArgument` for a time
/// outside the edit; with `damaged`, `unsupported`, `tooLarge`, `notFound`, `notWritable`, `noSpace`, `cancelled` or
/// `internal`.
[[nodiscard]] CLIPWORKS_API Result<PictureReport, Error> takePictures(const Edit& edit,
                                                                      const std::vector<WantedPicture>& pictures,
                                                                      const PictureOptions& options = {});

/// Takes pictures at `columns` × `rows` times, spread evenly over the edit, and puts them on one sheet, at most 1920
/// pixels wide, each with its time (hours, minutes, seconds and thousandths). Fails as `takePictures` does, and with
/// `badArgument` for a side of the sheet below 1 or over 40.
[[nodiscard]] CLIPWORKS_API Result<PictureReport, Error> takeSheet(const Edit& edit, int columns, int rows,
                                                                   const std::filesystem::path& path,
                                                                   const PictureOptions& options = {});

/// When each picture of the edit comes on screen, rising. Fails with `noPictures` or `damaged`.
[[nodiscard]] CLIPWORKS_API Result<std::vector<CMTime>, Error> pictureTimes(const Edit& edit);

}  // namespace clipworks
