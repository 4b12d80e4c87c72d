#pragma once

#include <array>
#include <memory>

#include <clipworks/engine/Error.h>
#include <clipworks/engine/Handles.h>
#include <clipworks/engine/input/MediaFile.h>
#include <clipworks/engine/pictures/PictureResampler.h>
#include <clipworks/engine/pictures/PlaneTurns.h>
#include <clipworks/engine/pictures/StillImage.h>
#include <clipworks/engine/pictures/ToneMapper.h>

namespace clipworks::engine {

/// How a still shall look.
struct StillSettings {
  double maxWidth = 0;  ///< of the result; 0 is no limit
  double maxHeight = 0;
  /// a b c d of the transform that turns it upright: x' = a·x + c·y, y' = b·x + d·y.
  std::array<double, 4> transform{1, 0, 0, 1};

  friend bool operator==(const StillSettings&, const StillSettings&) = default;
};

/// Sizes on the way from a coded picture to a still.
struct StillGeometry {
  Region part;          ///< of the coded picture
  int scaledWidth = 0;  ///< that part after scaling
  int scaledHeight = 0;
  PlaneTurn turn;  ///< then, as long as that is all the transform asks for
  /// Otherwise: a b c d of what is left of the transform, about the middle.
  std::array<double, 4> rest{1, 0, 0, 1};
  bool hasRest = false;
  int width = 0;  ///< of the still
  int height = 0;
};

/// The geometry for pictures of the natural size `naturalWidth` × `naturalHeight`, which show `part` of what is coded:
/// fitted into the box of the settings and into what a picture may measure, keeping the aspect, never enlarged. A
/// transform that is not finite, or leaves no area, is none.
[[nodiscard]] StillGeometry stillGeometry(const Region& part, double naturalWidth, double naturalHeight,
                                          const StillSettings& settings);

/// Makes stills of decoded pictures of one track: whole, of square pixels, upright, 8 bits, of standard dynamic range.
/// Quarter turns and mirrors move samples and change none. One thread at a time.
class StillMaker {
 public:
  StillMaker(std::shared_ptr<const MediaFile> file, int stream, const StillSettings& settings);

  /// Shares the picture's buffers where nothing has to change. Fails with `unsupported` for kinds of pixels that phones
  /// and cameras do not record.
  [[nodiscard]] Expected<std::shared_ptr<const StillImage>> make(const Frame& picture);

 private:
  void completeColours(AVFrame& frame) const;
  Expected<Frame> scaled(const Frame& picture, const ColourChange& change);
  Expected<Frame> resampled(const Frame& picture, const Region& part, int width, int height, AVPixelFormat format,
                            const ColourChange& change);
  Expected<Frame> upright(Frame frame);

  std::shared_ptr<const MediaFile> file_;
  int stream_;
  StillSettings settings_;
  PictureResampler resampler_;
  PictureResampler chromaResampler_;  // before a transform that moves no whole samples
  ToneMapper toneMapper_;
};

/// A black still, as large as one of pictures of that natural size.
[[nodiscard]] Expected<std::shared_ptr<const StillImage>> blackStill(double naturalWidth, double naturalHeight,
                                                                     const StillSettings& settings);

}  // namespace clipworks::engine
