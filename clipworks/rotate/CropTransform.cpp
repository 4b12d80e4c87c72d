#include <clipworks/rotate/CropTransform.h>

#include <cmath>

#include <clipworks/media/asset/AVAsset.h>
#include <clipworks/media/base/PrintedLines.h>
#include <clipworks/media/base/PrintedText.h>

namespace clipworks {
namespace {

/// What brings the turned picture back into the positive quarter of the plane. Rebuilt from the natural size; the
/// transform's own shift is not used. Kept: a mirrored track counts as one turned upside down.
CGPoint rotationOffset(const CGAffineTransform& preferred, const CGSize& natural) {
  if (preferred.b == -1.0) return {0, natural.width};
  if (preferred.c == -1.0) return {natural.height, 0};
  if (preferred.a == -1.0) return {natural.width, natural.height};
  return {0, 0};
}

}  // namespace

CGSize displayedSize(const AVAssetTrack& track) {
  return CGSizeApplyAffineTransform(track.naturalSize(), track.preferredTransform());
}

bool isPortrait(const URL& video) {
  const auto videoTracks = AVAsset::make(video)->tracks(AVMediaTypeVideo);
  if (videoTracks.empty()) fatalError("VideoRotateUtils: the orientation of a file without pictures was asked for");
  const CGSize displayed = displayedSize(*videoTracks.front());
  return std::abs(displayed.width) < std::abs(displayed.height);
}

CGAffineTransform getCropTransform(const AVAssetTrack& track, const CGRect& rect, double scale) {
  const CGSize natural = track.naturalSize();
  const CGAffineTransform preferred = track.preferredTransform();
  const double angle = std::atan2(preferred.b, preferred.a);
  const CGPoint offset = rotationOffset(preferred, natural);

  CGAffineTransform actual = CGAffineTransformScale(CGAffineTransformIdentity, 1, 1);
  actual = CGAffineTransformTranslate(actual, offset.x - rect.origin.x * scale, offset.y - rect.origin.y * scale);
  actual = CGAffineTransformRotate(actual, angle);

  printLine("track size " + printedText(natural));
  printLine("preferred Transform = " + printedText(preferred));
  printLine("rotation angle " + printedNumber(angle));
  printLine("rotation offset " + printedText(offset));
  printLine("actual Transform = " + printedText(actual));
  return actual;
}

}  // namespace clipworks
