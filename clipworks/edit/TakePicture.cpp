#include <clipworks/edit/TakePicture.h>

#include <algorithm>
#include <cmath>
#include <exception>
#include <memory>
#include <new>
#include <optional>
#include <system_error>
#include <utility>

#include <clipworks/edit/EditErrors.h>
#include <clipworks/edit/EditState.h>
#include <clipworks/edit/Files.h>
#include <clipworks/edit/Sentences.h>
#include <clipworks/engine/input/DamagedPictures.h>
#include <clipworks/engine/output/OutputFile.h>
#include <clipworks/engine/pictures/PictureFitter.h>
#include <clipworks/engine/pictures/PictureRenderer.h>
#include <clipworks/engine/stills/HEICEncoder.h>
#include <clipworks/engine/stills/JPEGEncoder.h>
#include <clipworks/engine/stills/PNGEncoder.h>
#include <clipworks/media/asset/MediaTrack.h>
#include <clipworks/media/export/PicturePlan.h>
#include <clipworks/media/images/ImageSource.h>

namespace clipworks {
namespace {

using Still = std::shared_ptr<const engine::StillImage>;

bool playsBackwards(const Stretches& stretches) {
  return std::any_of(stretches.segments().begin(), stretches.segments().end(),
                     [](const MediaSegment& segment) { return segment.backwards; });
}

/// Which picture of which media is on screen when.
class Screen {
 public:
  static Result<Screen, Error> of(const EditState& state) {
    Screen screen;
    auto timeline = PictureTimeline::make(state.pictures->segments());
    if (!timeline) return failure(fromPlatform(timeline.error()));
    screen.timeline_ = std::move(*timeline);
    if (!playsBackwards(*state.pictures)) return screen;
    auto laidOut = layOutPictures({AVMediaType::video, state.transform, state.pictures->segments()});
    if (!laidOut) return failure(fromPlatform(laidOut.error()));
    if (!*laidOut) return failed(ErrorCode::noPictures, "there is no picture");
    screen.job_ = std::move((*laidOut)->job);
    screen.findTracks(*state.pictures);
    return screen;
  }

  [[nodiscard]] const PictureTimeline& timeline() const { return *timeline_; }

  [[nodiscard]] std::optional<ScreenPicture> at(const CMTime& time) const {
    if (!job_) return timeline_->at(time);
    std::optional<ScreenPicture> shown;
    forEach([&](const ScreenPicture& picture) {
      if (!shown || picture.since <= time) shown = picture;
    });
    return shown;
  }

  [[nodiscard]] std::vector<CMTime> times() const {
    std::vector<CMTime> all;
    if (job_) {
      forEach([&](const ScreenPicture& picture) { all.push_back(picture.since); });
    } else {
      for (const auto& picture : timeline_->pictures()) all.push_back(picture.since);
    }
    return all;
  }

 private:
  /// In order.
  template <class Take>
  void forEach(Take take) const {
    for (const auto& placement : job_->placements) {
      const auto& run = job_->runs[placement.run];
      for (const auto& picture : run.pictures) {
        take(ScreenPicture{tracks_[placement.run], picture.picture,
                           CMTime(placement.start + picture.time, job_->timescale), 0});
      }
    }
  }

  void findTracks(const Stretches& stretches) {
    for (const auto& run : job_->runs) {
      const auto& segments = stretches.segments();
      const auto found = std::find_if(segments.begin(), segments.end(), [&](const MediaSegment& segment) {
        return segment.mediaTrack != nullptr && segment.mediaTrack->file() == run.file &&
               segment.mediaTrack->stream() == run.stream;
      });
      tracks_.push_back(found == segments.end() ? nullptr : found->mediaTrack);
    }
  }

  std::optional<PictureTimeline> timeline_;
  std::optional<engine::PictureJob> job_;                  // where something plays backwards
  std::vector<std::shared_ptr<const MediaTrack>> tracks_;  // of its runs; null for black
};

CGAffineTransform inverse(const CGAffineTransform& t) {
  const double determinant = t.a * t.d - t.b * t.c;
  return {t.d / determinant,
          -t.b / determinant,
          -t.c / determinant,
          t.a / determinant,
          (t.c * t.ty - t.d * t.tx) / determinant,
          (t.b * t.tx - t.a * t.ty) / determinant};
}

/// A still of what is seen as the edit's canvas shows it.
engine::Expected<Still> drawn(const Still& seen, const CGAffineTransform& place, const CGAffineTransform& seenOfMedia,
                              const CGSize& canvas) {
  const CGAffineTransform map = CGAffineTransformConcat(inverse(seenOfMedia), place);
  const engine::AffineMap onto{map.a, map.b, map.c, map.d, map.tx, map.ty};
  const int width = static_cast<int>(std::lround(canvas.width));
  const int height = static_cast<int>(std::lround(canvas.height));
  const auto format = static_cast<AVPixelFormat>(seen->frame->format);
  const bool isScaled = std::hypot(map.a, map.b) != 1 || std::hypot(map.c, map.d) != 1;
  engine::PictureFitter fitter(width, height);
  engine::PictureRenderer renderer(width, height, format);
  const bool isFitted = isScaled && width % 2 == 0 && height % 2 == 0 && fitter.covers(*seen->frame, onto);
  std::vector<engine::PictureLayer> layers;
  layers.push_back({engine::shareFrame(seen->frame), onto, 1});
  auto frame = isFitted ? fitter.fit(seen->frame, onto, format) : renderer.render(layers);
  if (!frame) return tl::make_unexpected(frame.error());
  return std::make_shared<const engine::StillImage>(
      engine::StillImage{std::move(*frame), seen->metadata, seen->isDithered});
}

engine::Expected<std::vector<std::uint8_t>> encoded(const engine::StillImage& still, StillFormat format) {
  switch (format) {
    case StillFormat::jpg:
      return engine::encodeJPEG(still);
    case StillFormat::png:
      return engine::encodePNG(still);
    case StillFormat::heic:
      return engine::encodeHEIC(still);
  }
  return engine::failed(engine::ErrorKind::internal, "there is no such format");
}

engine::Expected<std::filesystem::path> write(const std::vector<std::uint8_t>& bytes, const std::filesystem::path& path,
                                              ExistingFile existing) {
  auto file = engine::OutputFile::create(path, 0, engineExisting(existing));
  if (!file) return tl::make_unexpected(file.error());
  if (auto written = (*file)->writeAt(0, bytes.data(), static_cast<std::int64_t>(bytes.size())); !written)
    return tl::make_unexpected(written.error());
  if (auto named = (*file)->commit(); !named) return tl::make_unexpected(named.error());
  return (*file)->path();
}

/// Takes the pictures one after the other.
class Taking {
 public:
  Taking(const Edit& edit, const PictureOptions& options, Screen screen)
      : edit_(edit), options_(options), screen_(std::move(screen)), source_(sourceOf()) {
    settings_.isUpright = true;
    settings_.tolerance = {kCMTimeZero, kCMTimeZero};
  }

  Result<PictureReport, Error> take(const std::vector<WantedPicture>& pictures) {
    PictureReport report;
    auto taken = takeAll(pictures, report);
    report.damaged = damagedMediaIn(*damaged_);
    if (taken) return report;
    std::error_code ignored;
    for (const auto& path : report.paths) std::filesystem::remove(path, ignored);
    return failure(taken.error());
  }

 private:
  ImageSource sourceOf() const {
    const auto& segments = edit_.state().pictures->segments();
    const auto first = std::find_if(segments.begin(), segments.end(), [](const auto& s) { return s.mediaTrack; });
    const auto& facts = first->mediaTrack->facts();
    return {screen_.timeline(), edit_.state().transform, {facts.naturalWidth, facts.naturalHeight}, damaged_};
  }

  Result<void, Error> takeAll(const std::vector<WantedPicture>& pictures, PictureReport& report) {
    std::vector<ScreenPicture> shown;
    for (const auto& picture : pictures) {
      if (!picture.at.isNumeric() || picture.at < kCMTimeZero || picture.at > edit_.duration()) {
        return failed(ErrorCode::badArgument, edit_.name() + " lasts " + shownSeconds(edit_.duration()) +
                                                  " seconds; there is no picture at " +
                                                  shortNumber(picture.at.seconds()));
      }
      const auto there = screen_.at(picture.at);
      if (!there) return failed(ErrorCode::noPictures, edit_.name() + " has no pictures");
      shown.push_back(*there);
    }
    for (std::size_t i = 0; i < shown.size(); ++i) {
      if (auto taken = takeOne(shown, i, pictures[i], report); !taken) return taken;
      if (options_.onProgress) options_.onProgress(static_cast<double>(i + 1) / static_cast<double>(shown.size()));
    }
    return {};
  }

  Result<void, Error> takeOne(const std::vector<ScreenPicture>& shown, std::size_t i, const WantedPicture& wanted,
                              PictureReport& report) {
    std::vector<std::uint32_t> upcoming;
    for (std::size_t next = i + 1; next < shown.size(); ++next) {
      if (shown[next].media == shown[i].media) upcoming.push_back(static_cast<std::uint32_t>(shown[next].picture));
    }
    const auto image = source_.image(shown[i], upcoming, settings_, options_.stop);
    if (!image) return failure(because(wanted.at, fromPlatform(image.error())));
    if (const auto damaged = damaged_->files(); options_.isStrict && !damaged.empty())
      return failed(ErrorCode::damaged, damaged.front().sentence() + ", which strict work does not allow");
    auto still = asShown((*image)->still(), shown[i]);
    if (!still) return failure(because(wanted.at, fromEngine(still.error())));
    const engine::StillImage plain{engine::shareFrame((*still)->frame), {}, (*still)->isDithered};
    const auto bytes = encoded(options_.keepsMetadata ? **still : plain, options_.format);
    if (!bytes) return failure(because(wanted.at, fromEngine(bytes.error())));
    const auto path = write(*bytes, wanted.path, options_.existing);
    if (!path) return failure(fromEngine(path.error()));
    report.paths.push_back(*path);
    return {};
  }

  engine::Expected<Still> asShown(Still seen, const ScreenPicture& shown) const {
    const auto& state = edit_.state();
    if (!state.canvas || shown.media == nullptr) return seen;
    const auto& segments = state.pictures->segments();
    const auto drawnBy = std::find_if(segments.begin(), segments.end(),
                                      [&](const auto& segment) { return segment.mediaTrack == shown.media; });
    return drawn(seen, *drawnBy->place, seenOf(*shown.media), *state.canvas);
  }

  [[nodiscard]] Error because(const CMTime& at, Error why) const {
    if (why.code == ErrorCode::cancelled) return why;
    return {why.code,
            "no picture of " + edit_.name() + " could be taken at " + shortNumber(at.seconds()) + ": " + why.sentence};
  }

  const Edit& edit_;
  const PictureOptions& options_;
  const Screen screen_;
  const std::shared_ptr<engine::DamagedPictures> damaged_ = std::make_shared<engine::DamagedPictures>();
  ImageSource source_;
  ImageSettings settings_;
};

}  // namespace

Result<PictureReport, Error> takePictures(const Edit& edit, const std::vector<WantedPicture>& pictures,
                                          const PictureOptions& options) {
  if (auto fit = needPictures(edit, "taking a picture"); !fit) return failure(fit.error());
  for (const auto& picture : pictures) {
    if (auto fit = checkFiles(edit.state(), picture.path, options.existing); !fit) return failure(fit.error());
  }
  auto screen = Screen::of(edit.state());
  if (!screen) return failure(screen.error());
  return Taking(edit, options, std::move(*screen)).take(pictures);
}

Result<std::vector<CMTime>, Error> pictureTimes(const Edit& edit) {
  if (auto fit = needPictures(edit, "listing its pictures"); !fit) return failure(fit.error());
  const auto screen = Screen::of(edit.state());
  if (!screen) return failure(screen.error());
  return screen->times();
}

}  // namespace clipworks
