#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <span>
#include <stop_token>

#include <clipworks/engine/input/CachedPictureReader.h>
#include <clipworks/engine/pictures/WholePictures.h>
#include <clipworks/engine/stills/StillMaker.h>
#include <clipworks/media/asset/AVAsset.h>
#include <clipworks/media/asset/MediaTrack.h>
#include <clipworks/media/base/NSError.h>
#include <clipworks/media/base/Result.h>
#include <clipworks/media/composition/PictureTimeline.h>
#include <clipworks/media/geometry/CGSize.h>
#include <clipworks/media/images/CGImage.h>

namespace clipworks {

/// How images shall be taken.
struct ImageSettings {
  CGSize maximumSize{0, 0};  ///< sides that are not positive numbers are no limits
  bool isUpright = false;    ///< by the track's preferred transform
  TimeTolerance tolerance;
  std::size_t cacheLimit = engine::CachedPictureReader::usualCacheLimit;  ///< bytes
  int threads = 0;  ///< that decode at most; 0: as many as suit the processors
};

/// Makes images of an asset's first track of pictures, as it is at the first request. Holds one memory of pictures.
/// One thread at a time; nothing is thrown but for want of memory.
class ImageSource {
 public:
  /// Counts the damaged ones of its pictures in `damaged`.
  ImageSource(std::shared_ptr<AVAsset> asset, std::shared_ptr<engine::DamagedPictures> damaged)
      : asset_(std::move(asset)), damaged_(std::move(damaged)) {}
  /// The same for what `timeline` shows, turned upright by `transform`; black is as large as `blackSize`.
  ImageSource(PictureTimeline timeline, const CGAffineTransform& transform, const CGSize& blackSize,
              std::shared_ptr<engine::DamagedPictures> damaged)
      : damaged_(std::move(damaged)), transform_(transform), blackSize_(blackSize), timeline_(std::move(timeline)) {
    end_ = timeline_->end();
  }

  /// What is on screen at `time`, or cheap to decode within the tolerance.
  [[nodiscard]] Result<ScreenPicture, NSError> locate(const CMTime& time, const TimeTolerance& tolerance);
  /// The image of a picture of this asset; `upcoming` are the pictures of the same media that will be asked for next.
  [[nodiscard]] Result<std::shared_ptr<const CGImage>, NSError> image(const ScreenPicture& shown,
                                                                      std::span<const std::uint32_t> upcoming,
                                                                      const ImageSettings& settings,
                                                                      const std::stop_token& stop);

 private:
  Result<void, NSError> look();
  engine::StillSettings stillSettings(const ImageSettings& settings) const;
  engine::Expected<std::shared_ptr<const engine::StillImage>> still(const ScreenPicture& shown,
                                                                    std::span<const std::uint32_t> upcoming,
                                                                    const ImageSettings& settings,
                                                                    const std::stop_token& stop);
  engine::Expected<void> open(const std::shared_ptr<const MediaTrack>& media, const ImageSettings& settings);

  std::shared_ptr<AVAsset> asset_;
  std::shared_ptr<engine::DamagedPictures> damaged_;
  // Seen at the first request.
  CGAffineTransform transform_;
  CGSize blackSize_;
  std::optional<PictureTimeline> timeline_;
  CMTime end_;
  // Of the media that is shown at the moment.
  std::shared_ptr<const MediaTrack> media_;
  std::optional<engine::CachedPictureReader> reader_;
  std::optional<engine::WholePictures> whole_;
  std::optional<engine::StillMaker> maker_;
  engine::StillSettings made_;  // what maker_ was made for
  // The last image, for pictures that are asked for again.
  ScreenPicture lastShown_;
  engine::StillSettings lastSettings_;
  std::shared_ptr<const CGImage> lastImage_;
};

}  // namespace clipworks
