#include <clipworks/media/images/ImageSource.h>

#include <cmath>
#include <string>
#include <utility>
#include <vector>

#include <clipworks/media/asset/EngineErrors.h>

namespace clipworks {

Result<void, NSError> ImageSource::look() {
  if (timeline_) return {};
  const auto tracks =
      asset_ == nullptr ? std::vector<std::shared_ptr<AVAssetTrack>>{} : asset_->tracks(AVMediaType::video);
  if (tracks.empty()) {
    const std::string why = asset_ == nullptr ? "there is no asset" : asset_->loadError();
    return failure(makeError(AVError::invalidSourceMedia, why.empty() ? "the asset has no pictures" : why));
  }
  auto timeline = PictureTimeline::make(resolveToMedia(*tracks.front()));
  if (!timeline) return failure(timeline.error());
  transform_ = tracks.front()->preferredTransform();
  blackSize_ = tracks.front()->naturalSize();
  end_ = CMTimeMaximum(asset_->duration(), timeline->end());
  timeline_ = std::move(*timeline);
  return {};
}

Result<ScreenPicture, NSError> ImageSource::locate(const CMTime& time, const TimeTolerance& tolerance) {
  if (auto looked = look(); !looked) return failure(looked.error());
  if (!time.isNumeric() || time < kCMTimeZero || end_ < time) {
    return failure(makeError(AVError::invalidTimeRange, "there is no picture at a time outside the asset"));
  }
  auto shown = timeline_->near(time, tolerance);
  if (!shown) return failure(makeError(AVError::invalidSourceMedia, "the asset has no pictures"));
  return std::move(*shown);
}

engine::StillSettings ImageSource::stillSettings(const ImageSettings& settings) const {
  const auto limit = [](double side) { return std::isfinite(side) && side > 0 ? side : 0.0; };
  engine::StillSettings still;
  still.maxWidth = limit(settings.maximumSize.width);
  still.maxHeight = limit(settings.maximumSize.height);
  if (settings.isUpright) {
    still.transform = {transform_.a, transform_.b, transform_.c, transform_.d};
  }
  return still;
}

Result<std::shared_ptr<const CGImage>, NSError> ImageSource::image(const ScreenPicture& shown,
                                                                   std::span<const std::uint32_t> upcoming,
                                                                   const ImageSettings& settings,
                                                                   const std::stop_token& stop) {
  if (stop.stop_requested()) return failure(makeError(AVError::operationCancelled, "the request was cancelled"));
  const engine::StillSettings wanted = stillSettings(settings);
  if (lastImage_ != nullptr && lastShown_.showsTheSameAs(shown) && lastSettings_ == wanted) return lastImage_;
  auto made = still(shown, upcoming, settings, stop);
  if (!made) return failure(errorFromEngine(made.error()));
  lastImage_ = std::make_shared<const CGImage>(std::move(*made));
  lastShown_ = shown;
  lastSettings_ = wanted;
  return lastImage_;
}

engine::Expected<std::shared_ptr<const engine::StillImage>> ImageSource::still(const ScreenPicture& shown,
                                                                               std::span<const std::uint32_t> upcoming,
                                                                               const ImageSettings& settings,
                                                                               const std::stop_token& stop) {
  if (shown.media == nullptr) {
    return engine::blackStill(blackSize_.width, blackSize_.height, stillSettings(settings));
  }
  if (auto opened = open(shown.media, settings); !opened) return tl::make_unexpected(opened.error());
  auto frame =
      whole_->picture(shown.picture, [&](std::size_t picture) { return reader_->picture(picture, upcoming, stop); });
  if (!frame) return tl::make_unexpected(frame.error());
  return maker_->make(*frame);
}

engine::Expected<void> ImageSource::open(const std::shared_ptr<const MediaTrack>& media,
                                         const ImageSettings& settings) {
  if (media_ != media) {
    media_.reset();
    whole_.reset();
    reader_.reset();  // before the next one opens: one memory
    maker_.reset();
    auto reader =
        engine::CachedPictureReader::open(media->file(), media->stream(), settings.cacheLimit, settings.threads);
    if (!reader) return tl::make_unexpected(reader.error());
    reader_.emplace(std::move(*reader));
    reader_->countDamageIn(damaged_);
    whole_.emplace(!media->facts().progressive, reader_->table().pictureCount());
    media_ = media;
  }
  reader_->setCacheLimit(settings.cacheLimit);
  if (const auto wanted = stillSettings(settings); !maker_ || made_ != wanted) {
    maker_.emplace(media->file(), media->stream(), wanted);
    made_ = wanted;
  }
  return {};
}

}  // namespace clipworks
