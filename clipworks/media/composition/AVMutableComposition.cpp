#include <clipworks/media/composition/AVMutableComposition.h>

#include <set>

namespace clipworks {

std::shared_ptr<AVMutableComposition> AVMutableComposition::make() {
  return std::shared_ptr<AVMutableComposition>(new AVMutableComposition);
}

std::shared_ptr<AVMutableCompositionTrack> AVMutableComposition::addMutableTrack(AVMediaType withMediaType,
                                                                                 CMPersistentTrackID preferredTrackID) {
  if (preferredTrackID < 0) return nullptr;
  std::set<CMPersistentTrackID> taken;
  for (const auto& track : tracks_) taken.insert(track->trackID());
  CMPersistentTrackID identifier = preferredTrackID;
  if (identifier == kCMPersistentTrackID_Invalid || taken.contains(identifier)) {
    identifier = 1;
    while (taken.contains(identifier)) ++identifier;
  }
  return tracks_.emplace_back(std::make_shared<AVMutableCompositionTrack>(withMediaType, identifier));
}

const std::vector<std::shared_ptr<AVMutableCompositionTrack>>& AVMutableComposition::compositionTracks() const {
  return tracks_;
}

CMTime AVMutableComposition::duration() const {
  CMTime latest = kCMTimeZero;
  for (const auto& track : tracks_) latest = CMTimeMaximum(latest, track->timeRange().duration);
  return latest;
}

std::vector<std::shared_ptr<AVAssetTrack>> AVMutableComposition::tracks() const {
  return {tracks_.begin(), tracks_.end()};
}

std::map<std::string, std::string> AVMutableComposition::metadata() const { return {}; }

std::string AVMutableComposition::loadError() const { return {}; }

}  // namespace clipworks
