#pragma once

#include <cstdint>
#include <optional>
#include <vector>

#include <clipworks/engine/Error.h>
#include <clipworks/engine/Handles.h>
#include <clipworks/engine/pictures/PictureConverter.h>
#include <clipworks/engine/pictures/PictureFitter.h>
#include <clipworks/engine/pictures/PictureRenderer.h>
#include <clipworks/engine/pictures/ToneMapper.h>
#include <clipworks/engine/pipeline/ExportJob.h>

namespace clipworks::engine {

/// Between decoder and encoder: makes of what the tracks show at one time the picture that is encoded. Tone-maps where
/// the encoder's colours are of standard dynamic range, brings pixels to the encoder's kind, renders layers onto the
/// canvas. One thread at a time.
class PictureFinish {
 public:
  /// For an encoder that takes pictures of `format`. The job must outlive this.
  PictureFinish(const PictureJob& job, AVPixelFormat format);

  /// `frames`: what each layer of `run` shows, or its one track; none is black.
  [[nodiscard]] Expected<Frame> finish(const PictureRun& run, const std::vector<Frame>& frames);

 private:
  Expected<Frame> standardRange(const Frame& frame);
  [[nodiscard]] ColourChange changeOf(const AVFrame& frame) const;
  Expected<Frame> asCoded(const Frame& frame);
  Expected<Frame> asEncoded(const Frame& frame, PictureResampler& resampler) const;
  Expected<Frame> rendered(const PictureRun& run, const std::vector<Frame>& frames);
  Expected<Frame> fitted(const Frame& frame, const AffineMap& map);
  [[nodiscard]] bool isFitted(const PictureRun& run, const std::vector<Frame>& frames) const;
  [[nodiscard]] bool isShownAgain(const PictureRun& run, const std::vector<Frame>& frames) const;

  const PictureJob& job_;
  AVPixelFormat format_;
  bool keepsHighRange_;
  ToneMapper toneMapper_;
  PictureConverter converter_;                     // to the encoder's size and kind
  std::vector<PictureResampler> layerConverters_;  // to the encoder's kind, one for each layer
  std::optional<PictureRenderer> renderer_;
  std::optional<PictureFitter> fitter_;

  // A picture often stays on screen for several of a rendered track's times.
  const PictureRun* lastRun_ = nullptr;
  std::vector<Frame> lastFrames_;
  Frame last_;
};

}  // namespace clipworks::engine
