#include <clipworks/media/images/PictureTimes.h>

#include <clipworks/media/composition/PictureTimeline.h>

namespace clipworks {

Result<std::vector<CMTime>, NSError> pictureTimes(const AVAsset& asset) {
  const auto tracks = asset.tracks(AVMediaTypeVideo);
  if (tracks.empty()) {
    const std::string why = asset.loadError();
    return failure(makeError(AVError::invalidSourceMedia, why.empty() ? "the asset has no pictures" : why));
  }
  const auto timeline = PictureTimeline::make(resolveToMedia(*tracks.front()));
  if (!timeline) return failure(timeline.error());
  std::vector<CMTime> times;
  for (const ScreenPicture& picture : timeline->pictures()) times.push_back(picture.since);
  return times;
}

}  // namespace clipworks
