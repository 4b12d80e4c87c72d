#pragma once

#include <memory>

#include <clipworks/engine/Error.h>
#include <clipworks/engine/Handles.h>
#include <clipworks/engine/pictures/Colour.h>

namespace clipworks::engine {

/// The part of a picture that is resampled, in its own pixels; edges may lie between two.
struct PictureWindow {
  double left = 0;
  double top = 0;
  double width = 0;
  double height = 0;
  friend bool operator==(const PictureWindow&, const PictureWindow&) = default;
};

/// The kind without the range in its name: "yuvj420p" is "yuv420p".
[[nodiscard]] AVPixelFormat plainKind(int format);

/// The same picture with its range in the field for it only, not in the name of its kind ("yuvj420p").
[[nodiscard]] Frame withPlainKind(const Frame& picture);

/// Whether pictures of this kind can be resampled: planar YUV of 8 to 16 bits.
[[nodiscard]] bool isResampled(AVPixelFormat format);

/// By what new samples are weighted from old ones. Both leave whole shifts exact; Lanczos (three lobes) keeps more
/// detail of what is made smaller, and costs a half more.
enum class ResamplingFilter { bicubic, lanczos };

/// The same colours by other numbers; nothing is changed where both are the same. Curves of standard range count as
/// that of a display of BT.1886; where one becomes a curve of high range, its white comes at 203 cd/m² (ITU-R BT.2408).
struct ColourChange {
  Colour from;
  Colour to;
  [[nodiscard]] bool isNone() const { return from == to; }
  friend bool operator==(const ColourChange&, const ColourChange&) = default;
};

/// One precise step of zimg: a window of a picture becomes a whole picture of another size, chroma layout or depth,
/// with error-diffused rounding. Range and colours stay, unless a change is asked for. One thread at a time;
/// what it prepares serves the pictures that follow while they are of one kind.
class PictureResampler {
 public:
  explicit PictureResampler(ResamplingFilter filter = ResamplingFilter::bicubic);
  PictureResampler(PictureResampler&&) noexcept;
  PictureResampler& operator=(PictureResampler&&) noexcept;
  ~PictureResampler();

  /// `window` of `picture`, inside it, as `width` × `height` pixels of `format`. Sizes are multiples of the format's
  /// chroma steps. Properties of `picture` are kept. Fails with `unsupported` for kinds that are not resampled.
  [[nodiscard]] Expected<Frame> resample(const Frame& picture, const PictureWindow& window, int width, int height,
                                         AVPixelFormat format, const ColourChange& change = {});

 private:
  struct Graph;
  ResamplingFilter filter_;
  std::unique_ptr<Graph> graph_;
};

}  // namespace clipworks::engine
