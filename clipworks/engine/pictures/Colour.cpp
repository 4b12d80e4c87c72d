#include <clipworks/engine/pictures/Colour.h>

#include <clipworks/engine/pictures/PlanarPictures.h>

namespace clipworks::engine {
namespace {

constexpr int highDefinitionLines = 720;

}  // namespace

Colour completeColour(const AVCodecParameters& parameters) {
  const bool isMade = isMadeYUV(static_cast<AVPixelFormat>(parameters.format));
  return completeColour(
      parameters.width, parameters.height,
      {parameters.color_primaries, parameters.color_trc, isMade ? AVCOL_SPC_UNSPECIFIED : parameters.color_space,
       !isMade && parameters.color_range == AVCOL_RANGE_JPEG});
}

Colour completeColour(int width, int height, const Colour& told) {
  const bool high = height >= highDefinitionLines || width >= 1280;
  const auto known = [](int value, int unspecified, int otherwise) { return value == unspecified ? otherwise : value; };
  Colour colour = told;
  colour.primaries = known(told.primaries, AVCOL_PRI_UNSPECIFIED, high ? AVCOL_PRI_BT709 : AVCOL_PRI_SMPTE170M);
  colour.transfer = known(told.transfer, AVCOL_TRC_UNSPECIFIED, high ? AVCOL_TRC_BT709 : AVCOL_TRC_SMPTE170M);
  colour.matrix = known(told.matrix, AVCOL_SPC_UNSPECIFIED, high ? AVCOL_SPC_BT709 : AVCOL_SPC_SMPTE170M);
  // That of wide primaries goes with no other: BT.2020, 10-bit and up.
  if (told.matrix == AVCOL_SPC_UNSPECIFIED && colour.primaries == AVCOL_PRI_BT2020)
    colour.matrix = AVCOL_SPC_BT2020_NCL;
  if (colour.matrix == AVCOL_SPC_RGB) colour.matrix = AVCOL_SPC_BT709;
  return colour;
}

void completeTags(AVCodecParameters& parameters) {
  const Colour colour = completeColour(parameters);
  if (parameters.color_primaries == AVCOL_PRI_UNSPECIFIED)
    parameters.color_primaries = static_cast<AVColorPrimaries>(colour.primaries);
  if (parameters.color_trc == AVCOL_TRC_UNSPECIFIED)
    parameters.color_trc = static_cast<AVColorTransferCharacteristic>(colour.transfer);
  if (parameters.color_space == AVCOL_SPC_UNSPECIFIED)
    parameters.color_space = static_cast<AVColorSpace>(colour.matrix);
  if (parameters.color_range == AVCOL_RANGE_UNSPECIFIED)
    parameters.color_range = colour.fullRange ? AVCOL_RANGE_JPEG : AVCOL_RANGE_MPEG;
}

bool isHighDynamicRange(AVColorTransferCharacteristic transfer) {
  return transfer == AVCOL_TRC_SMPTE2084 || transfer == AVCOL_TRC_ARIB_STD_B67;
}

Colour completeColour(const AVFrame& frame) {
  return completeColour(
      frame.width, frame.height,
      {frame.color_primaries, frame.color_trc, frame.colorspace, frame.color_range == AVCOL_RANGE_JPEG});
}

void tag(AVFrame& frame, const Colour& colour) {
  frame.color_primaries = static_cast<AVColorPrimaries>(colour.primaries);
  frame.color_trc = static_cast<AVColorTransferCharacteristic>(colour.transfer);
  frame.colorspace = static_cast<AVColorSpace>(colour.matrix);
  frame.color_range = colour.fullRange ? AVCOL_RANGE_JPEG : AVCOL_RANGE_MPEG;
}

}  // namespace clipworks::engine
