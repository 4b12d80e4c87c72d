#include <clipworks/engine/pipeline/PictureFinish.h>

#include <algorithm>
#include <cmath>

#include <clipworks/engine/pictures/FramePadding.h>
#include <clipworks/engine/pictures/PlaneTurns.h>

namespace clipworks::engine {

PictureFinish::PictureFinish(const PictureJob& job, AVPixelFormat format)
    : job_(job),
      format_(format),
      keepsHighRange_(isHighDynamicRange(static_cast<AVColorTransferCharacteristic>(job.encoder.colour.transfer))),
      converter_(job.encoder.width, job.encoder.height, format, job.fit) {
  if (!job.canvas) return;
  renderer_.emplace(job.canvas->width, job.canvas->height, format);
  fitter_.emplace(job.canvas->width, job.canvas->height);
}

Expected<Frame> PictureFinish::finish(const PictureRun& run, const std::vector<Frame>& frames) {
  const auto& encoder = job_.encoder;
  if (frames.empty()) return blackFrame(encoder.width, encoder.height, format_, encoder.colour.fullRange);
  if (isShownAgain(run, frames)) return shareFrame(last_);
  auto picture = job_.canvas ? rendered(run, frames) : asCoded(frames.front());
  if (!picture) return picture;
  auto converted = converter_.convert(*picture);
  if (!converted) return converted;
  lastRun_ = &run;
  lastFrames_.clear();
  for (const auto& frame : frames) lastFrames_.push_back(shareFrame(frame));
  last_ = shareFrame(*converted);
  return converted;
}

bool PictureFinish::isShownAgain(const PictureRun& run, const std::vector<Frame>& frames) const {
  return lastRun_ == &run && std::equal(frames.begin(), frames.end(), lastFrames_.begin(), lastFrames_.end(),
                                        [](const Frame& a, const Frame& b) { return a->data[0] == b->data[0]; });
}

Expected<Frame> PictureFinish::standardRange(const Frame& frame) {
  if (keepsHighRange_ || !isHighDynamicRange(frame->color_trc)) return shareFrame(frame);
  return toneMapper_.map(frame);
}

// Chroma that lies elsewhere than the encoder's stream lets it be expected is moved there.
Expected<Frame> PictureFinish::asCoded(const Frame& frame) {
  auto picture = standardRange(withPlainKind(frame));
  if (!picture || !isResampled(static_cast<AVPixelFormat>((*picture)->format))) return picture;
  const AVPixFmtDescriptor& pixels = *av_pix_fmt_desc_get(static_cast<AVPixelFormat>((*picture)->format));
  if (pixels.log2_chroma_w > 1 || pixels.log2_chroma_h > 1) return picture;
  return turned(*picture, {}, TurnedChroma::movedToLeft);
}

ColourChange PictureFinish::changeOf(const AVFrame& frame) const {
  return job_.mixesColours ? ColourChange{completeColour(frame), job_.encoder.colour} : ColourChange{};
}

Expected<Frame> PictureFinish::asEncoded(const Frame& frame, PictureResampler& resampler) const {
  const Frame plain = withPlainKind(frame);
  const ColourChange change = changeOf(*plain);
  if (plain->format == format_ && change.isNone()) return shareFrame(plain);
  // Whole chroma steps of the encoder's kind; what is repeated to fill them is not shown.
  auto even = padFrame(plain, frame->width + frame->width % 2, frame->height + frame->height % 2);
  if (!even) return even;
  const PictureWindow whole{0, 0, static_cast<double>((*even)->width), static_cast<double>((*even)->height)};
  auto picture = resampler.resample(*even, whole, (*even)->width, (*even)->height, format_, change);
  if (!picture) return picture;
  (*picture)->width = frame->width;
  (*picture)->height = frame->height;
  return picture;
}

bool PictureFinish::isFitted(const PictureRun& run, const std::vector<Frame>& frames) const {
  // The renderer is exact where nothing is scaled.
  const auto isScaled = [](const AffineMap& map) {
    return std::hypot(map.a, map.b) != 1 || std::hypot(map.c, map.d) != 1;
  };
  const RunLayer& layer = run.layers.front();
  const bool evenCanvas = job_.canvas->width % 2 == 0 && job_.canvas->height % 2 == 0;
  // What tones are mapped of has the colours of BT.709 then.
  const bool changesTwice = job_.mixesColours && !keepsHighRange_ && isHighDynamicRange(frames.front()->color_trc) &&
                            job_.encoder.colour != Colour{};
  return !changesTwice && run.layers.size() == 1 && layer.opacity >= 1 && evenCanvas && isScaled(layer.map) &&
         fitter_->covers(*frames.front(), layer.map);
}

/// Scaled first, so that tones are mapped on the smaller picture.
Expected<Frame> PictureFinish::fitted(const Frame& frame, const AffineMap& map) {
  const Frame plain = withPlainKind(frame);
  const bool mapsTones = !keepsHighRange_ && isHighDynamicRange(plain->color_trc);
  if (!mapsTones) return fitter_->fit(plain, map, format_, changeOf(*plain));
  auto picture = fitter_->fit(plain, map, static_cast<AVPixelFormat>(plain->format));
  return picture ? toneMapper_.map(*picture) : std::move(picture);
}

Expected<Frame> PictureFinish::rendered(const PictureRun& run, const std::vector<Frame>& frames) {
  if (isFitted(run, frames)) return fitted(frames.front(), run.layers.front().map);
  layerConverters_.resize(std::max(layerConverters_.size(), frames.size()));
  std::vector<PictureLayer> layers;
  for (std::size_t i = 0; i < frames.size(); ++i) {
    auto picture = standardRange(frames[i]);
    if (!picture) return picture;
    picture = asEncoded(*picture, layerConverters_[i]);
    if (!picture) return picture;
    layers.push_back({std::move(*picture), run.layers[i].map, run.layers[i].opacity});
  }
  return renderer_->render(layers);
}

}  // namespace clipworks::engine
