#pragma once

#include <memory>

#include <clipworks/engine/Error.h>
#include <clipworks/engine/Handles.h>

namespace clipworks::engine {

/// The planar kind of YUV that decoded pictures of the kind `format` become: the same where they are of one already, of
/// the same depth (8 bits for less) and chroma otherwise, full chroma for RGB and palettes, 4:2:0 for grey.
/// `AV_PIX_FMT_NONE` for kinds that are not read: those of graphics memory, of camera sensors, and CIE XYZ.
[[nodiscard]] AVPixelFormat planarKind(AVPixelFormat format);

/// Whether pictures of the kind have no YUV of their own (RGB, palettes, grey): as planar pictures they are of video
/// range, and RGB has the matrix that goes with its primaries.
[[nodiscard]] bool isMadeYUV(AVPixelFormat format);

/// Makes planar YUV of decoded pictures of any kind: packed and semi-planar ones, either byte order, RGB, palettes,
/// grey, bit maps, floating point. Samples that are YUV already move unchanged; RGB is converted in one step, rounded
/// once (ITU-T H.273, 8.3). What is transparent is laid over black. One thread at a time.
class PlanarPictures {
 public:
  PlanarPictures();
  PlanarPictures(PlanarPictures&&) noexcept;
  PlanarPictures& operator=(PlanarPictures&&) noexcept;
  ~PlanarPictures();

  /// The picture itself where it is planar YUV without transparency. `matrix` (of ITU-T H.273) is what RGB is converted
  /// by. `isGreyFull`: grey is of full range, not of video range. Fails with `unsupported` for kinds that are
  /// not read.
  [[nodiscard]] Expected<Frame> convert(const Frame& picture, int matrix, bool isGreyFull);

 private:
  struct FromRGB;
  std::unique_ptr<FromRGB> fromRGB_;
};

}  // namespace clipworks::engine
