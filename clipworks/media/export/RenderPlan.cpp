#include <clipworks/media/export/RenderPlan.h>

#include <algorithm>
#include <cmath>
#include <map>
#include <optional>

#include <clipworks/engine/Limits.h>
#include <clipworks/media/asset/MediaTrack.h>
#include <clipworks/media/base/PrintedText.h>
#include <clipworks/media/composition/PictureTimeline.h>
#include <clipworks/media/export/PicturePlan.h>
#include <clipworks/media/time/ExactTime.h>

namespace clipworks {
namespace {

constexpr double largestSide = 16'384;
// More is no video, but a file whose times are broken, and would take hours.
constexpr std::int64_t mostPicturesPerSecond = 1000;
// A year at thirty pictures a second; the list of them alone takes 24 bytes a picture.
constexpr std::int64_t mostPictures = std::int64_t{30} * 366 * 24 * 3600;

NSError invalid(const std::string& sentence) { return makeError(AVError::invalidVideoComposition, sentence); }

Result<engine::Canvas, NSError> canvasOf(const CGSize& size) {
  const auto isFit = [](double side) { return std::isfinite(side) && std::lround(side) >= 1 && side <= largestSide; };
  if (!isFit(size.width) || !isFit(size.height)) {
    return failure(invalid("pictures of the size " + printedText(size) + " cannot be rendered"));
  }
  return engine::Canvas{static_cast<int>(std::lround(size.width)), static_cast<int>(std::lround(size.height))};
}

/// The pictures of a video composition, drawn one after the other; neighbours with the same layers are one run.
class Rendering {
 public:
  explicit Rendering(const AVMutableVideoComposition& composition) : composition_(composition) {}

  Result<void, NSError> open(const std::vector<const ExportTrack*>& tracks) {
    for (const auto* track : tracks) {
      auto timeline = PictureTimeline::make(track->segments);
      if (!timeline) return failure(timeline.error());
      tracks_.emplace(track->trackID, std::move(*timeline));
    }
    return {};
  }

  void add(const CMTime& t, std::int64_t tick) {
    std::vector<engine::RunLayer> layers;
    std::vector<std::uint32_t> pictures;
    for (const auto& layer : layersAt(t)) {
      const auto track = tracks_.find(layer->trackID());
      if (track == tracks_.end()) continue;
      const auto shown = track->second.at(t);
      const bool isOnScreen = shown && shown->media != nullptr && shown->since <= t && t < track->second.end();
      if (!isOnScreen) continue;
      const auto& media = *shown->media;
      layers.push_back({media.file(), media.stream(), {}, mapToCanvas(media, layer->transform(t)), layer->opacity(t)});
      pictures.push_back(static_cast<std::uint32_t>(shown->picture));
    }
    append(std::move(layers), pictures, tick);
  }

  void moveTo(engine::PictureJob& job) {
    job.runs = std::move(runs_);
    job.placements = std::move(placements_);
  }

 private:
  using Layers = std::vector<std::shared_ptr<AVMutableVideoCompositionLayerInstruction>>;

  /// From the back to the front.
  [[nodiscard]] Layers layersAt(const CMTime& t) const {
    for (const auto& instruction : composition_.instructions()) {
      const auto& layers = instruction->layerInstructions();
      if (instruction->timeRange().containsTime(t)) return {layers.rbegin(), layers.rend()};
    }
    return {};
  }

  void append(std::vector<engine::RunLayer> layers, const std::vector<std::uint32_t>& pictures, std::int64_t tick) {
    if (!continuesRun(layers, pictures)) {
      placements_.push_back({static_cast<std::uint32_t>(runs_.size()), tick});
      runs_.push_back({nullptr, 0, {}, std::move(layers)});
    }
    auto& run = runs_.back();
    run.pictures.push_back({0, tick - placements_.back().start});
    for (std::size_t i = 0; i < pictures.size(); ++i) run.layers[i].pictures.push_back(pictures[i]);
  }

  [[nodiscard]] bool continuesRun(const std::vector<engine::RunLayer>& layers,
                                  const std::vector<std::uint32_t>& pictures) const {
    if (runs_.empty() || runs_.back().layers.size() != layers.size()) return false;
    for (std::size_t i = 0; i < layers.size(); ++i) {
      const auto& known = runs_.back().layers[i];
      const auto& next = layers[i];
      if (known.file != next.file || known.stream != next.stream || !(known.map == next.map) ||
          known.opacity != next.opacity || known.pictures.back() > pictures[i]) {
        return false;
      }
    }
    return true;
  }

  const AVMutableVideoComposition& composition_;
  std::map<CMPersistentTrackID, PictureTimeline> tracks_;
  std::vector<engine::PictureRun> runs_;
  std::vector<engine::RunPlacement> placements_;
};

/// How the rendered pictures are coded: upright, with square pixels, in the colours of the first track drawn.
void chooseRenderedEncoding(engine::PictureJob& job, const MediaTrack& first, const CMTime& frameDuration,
                            const ExportPreset& preset) {
  applyPreset(job.encoder, preset, first);
  job.encoder.timescale = job.timescale;
  job.encoder.pixelAspect = {1, 1};
  job.encoder.frameRate = {frameDuration.timescale, frameDuration.value};
  setEncodedSize(job, job.canvas->width, job.canvas->height, preset);
}

const MediaTrack* firstMedia(const std::vector<const ExportTrack*>& tracks) {
  for (const auto* track : tracks) {
    for (const auto& segment : track->segments) {
      if (segment.mediaTrack != nullptr) return segment.mediaTrack.get();
    }
  }
  return nullptr;
}

}  // namespace

engine::AffineMap mapToCanvas(const MediaTrack& media, const CGAffineTransform& layer) {
  const auto& facts = media.facts();
  const CGAffineTransform scaled =
      CGAffineTransformScale(layer, facts.naturalWidth / facts.shown.width, facts.naturalHeight / facts.shown.height);
  const CGAffineTransform whole = CGAffineTransformTranslate(scaled, -facts.shown.left, -facts.shown.top);
  return {whole.a, whole.b, whole.c, whole.d, whole.tx, whole.ty};
}

Result<engine::PictureJob, NSError> planRendering(const std::vector<const ExportTrack*>& tracks,
                                                  const AVMutableVideoComposition& videoComposition, const CMTime& end,
                                                  const ExportPreset& preset) {
  if (!preset.videoCodec) return failure(invalid("a preset that copies pictures cannot render any"));
  auto canvas = canvasOf(videoComposition.renderSize());
  if (!canvas) return failure(canvas.error());
  const CMTime frameDuration = videoComposition.frameDuration();
  if (!frameDuration.isNumeric() || frameDuration.timescale <= 0 || frameDuration.value <= 0 ||
      frameDuration.value > INT64_MAX / mostPicturesPerSecond) {
    return failure(invalid("the time that each rendered picture stays is no length"));
  }
  if (frameDuration.timescale > frameDuration.value * mostPicturesPerSecond) {
    return failure(
        invalid("more than " + std::to_string(mostPicturesPerSecond) + " pictures a second are not rendered"));
  }
  const std::int64_t length = ticks(end, frameDuration.timescale, CMTimeRoundingMethod::roundTowardPositiveInfinity);
  const std::int64_t count = length / frameDuration.value + (length % frameDuration.value != 0 ? 1 : 0);
  if (count > mostPictures) return failure(invalid("so many pictures are not rendered"));

  engine::PictureJob job;
  job.canvas = *canvas;
  job.timescale = outputTimescale(frameDuration.timescale);
  const std::int64_t step = frameDuration.value * (job.timescale / frameDuration.timescale);
  Rendering rendering(videoComposition);
  if (auto opened = rendering.open(tracks); !opened) return failure(opened.error());
  for (std::int64_t i = 0; i < count; ++i)
    rendering.add(CMTime(i * frameDuration.value, frameDuration.timescale), i * step);
  rendering.moveTo(job);
  job.end = std::max(ticks(end, job.timescale), (count - 1) * step + 1);
  chooseRenderedEncoding(job, *firstMedia(tracks), frameDuration, preset);
  return job;
}

}  // namespace clipworks
