#include <clipworks/edit/Stills.h>

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <optional>
#include <string>
#include <utility>

#include <clipworks/edit/EditErrors.h>
#include <clipworks/edit/Files.h>
#include <clipworks/edit/Sentences.h>
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

// What is asked for later than this is not kept for.
constexpr std::size_t mostUpcoming = 256;

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

/// A still of a picture, by its natural size, as the edit's canvas shows it.
engine::Expected<Still> drawn(const Still& natural, const CGAffineTransform& place, const CGSize& canvas) {
  const engine::AffineMap onto{place.a, place.b, place.c, place.d, place.tx, place.ty};
  const int width = static_cast<int>(std::lround(canvas.width));
  const int height = static_cast<int>(std::lround(canvas.height));
  const auto format = static_cast<AVPixelFormat>(natural->frame->format);
  const bool isScaled = std::hypot(onto.a, onto.b) != 1 || std::hypot(onto.c, onto.d) != 1;
  engine::PictureFitter fitter(width, height);
  engine::PictureRenderer renderer(width, height, format);
  const bool isFitted = isScaled && width % 2 == 0 && height % 2 == 0 && fitter.covers(*natural->frame, onto);
  std::vector<engine::PictureLayer> layers;
  layers.push_back({engine::shareFrame(natural->frame), onto, 1});
  auto frame = isFitted ? fitter.fit(natural->frame, onto, format) : renderer.render(layers);
  if (!frame) return tl::make_unexpected(frame.error());
  return std::make_shared<const engine::StillImage>(
      engine::StillImage{std::move(*frame), natural->metadata, natural->isDithered});
}

engine::Expected<std::vector<std::uint8_t>> encoded(const engine::StillImage& still, StillFormat format, int threads) {
  switch (format) {
    case StillFormat::jpg:
      return engine::encodeJPEG(still);
    case StillFormat::png:
      return engine::encodePNG(still, threads);
    case StillFormat::heic:
      return engine::encodeHEIC(still, threads);
  }
  return engine::failed(engine::ErrorKind::internal, "there is no such format");
}

engine::Expected<std::filesystem::path> write(const std::vector<std::uint8_t>& bytes, const std::filesystem::path& path,
                                              const PictureOptions& options) {
  auto file = engine::OutputFile::create(path, 0, engineExisting(options.existing), options.files);
  if (!file) return tl::make_unexpected(file.error());
  if (auto written = (*file)->writeAt(0, bytes.data(), static_cast<std::int64_t>(bytes.size())); !written)
    return tl::make_unexpected(written.error());
  if (auto named = (*file)->commit(); !named) return tl::make_unexpected(named.error());
  return (*file)->path();
}

ImageSource sourceOf(const EditState& state, const Screen& screen, std::shared_ptr<engine::DamagedPictures> damaged) {
  const auto& facts = firstOfMedia(*state.pictures)->mediaTrack->facts();
  const CGSize black = state.canvas.value_or(CGSize{facts.naturalWidth, facts.naturalHeight});
  return {screen.timeline(), state.transform, black, std::move(damaged)};
}

}  // namespace

struct Stills::Taking {
  Taking(const Edit& of, const Screen& screen, std::vector<ScreenPicture> pictures, int threads)
      : edit(of), shown(std::move(pictures)), source(sourceOf(of.state(), screen, damaged)) {
    settings.isUpright = !of.state().canvas;  // else its place on the canvas says how it is turned
    settings.tolerance = {kCMTimeZero, kCMTimeZero};
    settings.threads = threads;
    if (shown.size() == 1) settings.cacheLimit = 0;  // those on the way to it need not stay
  }

  /// The same media may lie in several places: the segment is the one on screen at `time`.
  engine::Expected<Still> asShown(Still taken, const ScreenPicture& picture, const CMTime& time) const {
    const auto& state = edit.state();
    if (!state.canvas || picture.media == nullptr) return taken;
    const MediaSegment* drawnBy = nullptr;
    for (const MediaSegment& segment : state.pictures->segments()) {
      if (drawnBy != nullptr && segment.target.start > time) break;
      if (segment.mediaTrack == picture.media) drawnBy = &segment;
    }
    return drawn(taken, *drawnBy->place, *state.canvas);
  }

  [[nodiscard]] Error because(const CMTime& at, Error why) const {
    if (why.code == ErrorCode::cancelled) return why;
    return {why.code,
            "no picture of " + edit.name() + " could be taken at " + shortNumber(at.seconds()) + ": " + why.sentence};
  }

  const Edit& edit;
  const std::vector<ScreenPicture> shown;
  const std::shared_ptr<engine::DamagedPictures> damaged = std::make_shared<engine::DamagedPictures>();
  ImageSource source;
  ImageSettings settings;
};

Stills::Stills(std::vector<CMTime> times, std::unique_ptr<Taking> taking)
    : times_(std::move(times)), taking_(std::move(taking)) {}
Stills::Stills(Stills&&) noexcept = default;
Stills::~Stills() = default;

Result<Stills, Error> Stills::find(const Edit& edit, std::vector<CMTime> times, int threads) {
  const auto screen = Screen::of(edit.state());
  if (!screen) return failure(screen.error());
  std::vector<ScreenPicture> shown;
  for (const CMTime& time : times) {
    if (!time.isNumeric() || time < kCMTimeZero || time > edit.duration()) {
      return failed(ErrorCode::badArgument, edit.name() + " lasts " + shownSeconds(edit.duration()) +
                                                " seconds; there is no picture at " + shortNumber(time.seconds()));
    }
    const auto there = screen->at(time);
    if (!there) return failed(ErrorCode::noPictures, edit.name() + " has no pictures");
    shown.push_back(*there);
  }
  return Stills(std::move(times), std::make_unique<Taking>(edit, *screen, std::move(shown), threads));
}

Result<std::vector<CMTime>, Error> Stills::times(const Edit& edit) {
  const auto screen = Screen::of(edit.state());
  if (!screen) return failure(screen.error());
  return screen->times();
}

Result<Still, Error> Stills::take(std::size_t i, const std::stop_token& stop) {
  const auto& shown = taking_->shown;
  std::vector<std::uint32_t> upcoming;
  for (std::size_t next = i + 1; next < std::min(shown.size(), i + mostUpcoming); ++next) {
    if (shown[next].media == shown[i].media) upcoming.push_back(static_cast<std::uint32_t>(shown[next].picture));
  }
  const auto image = taking_->source.image(shown[i], upcoming, taking_->settings, stop);
  if (!image) return failure(taking_->because(times_[i], fromPlatform(image.error())));
  auto still = taking_->asShown((*image)->still(), shown[i], times_[i]);
  if (!still) return failure(taking_->because(times_[i], fromEngine(still.error())));
  return std::move(*still);
}

Result<std::filesystem::path, Error> saveStill(const engine::StillImage& still, const std::filesystem::path& path,
                                               const PictureOptions& options) {
  const engine::StillImage plain{engine::shareFrame(still.frame), {}, still.isDithered};
  const auto bytes = encoded(options.keepsMetadata ? still : plain, options.format, options.threads);
  if (!bytes) return failure(fromEngine(bytes.error()));
  auto written = write(*bytes, path, options);
  if (!written) return failure(fromEngine(written.error()));
  return std::move(*written);
}

Result<void, Error> checkDamage(const Stills& stills, const PictureOptions& options) {
  const auto damaged = stills.damaged().files();
  if (!options.isStrict || damaged.empty()) return {};
  return failed(ErrorCode::damaged, damaged.front().sentence() + ", which strict work does not allow");
}

const engine::DamagedPictures& Stills::damaged() const { return *taking_->damaged; }

}  // namespace clipworks
