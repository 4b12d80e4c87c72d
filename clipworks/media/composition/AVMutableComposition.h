#pragma once

#include <map>
#include <memory>
#include <string>
#include <vector>

#include <clipworks/media/asset/AVAsset.h>
#include <clipworks/media/composition/AVMutableCompositionTrack.h>

namespace clipworks {

/// An asset put together in memory from ranges of other assets' tracks; it copies no media. Not thread-safe: build it
/// on one thread. It keeps the assets alive whose tracks it uses.
class CLIPWORKS_API AVMutableComposition final : public AVAsset {
 public:
  /// `AVMutableComposition()`: without tracks, of zero length.
  [[nodiscard]] static std::shared_ptr<AVMutableComposition> make();

  /// `addMutableTrack(withMediaType:preferredTrackID:)`. The identifier is `preferredTrackID` when it is positive and
  /// free, else the lowest free one from 1 on. Null, and nothing is added, when it is negative.
  std::shared_ptr<AVMutableCompositionTrack> addMutableTrack(AVMediaType withMediaType,
                                                             CMPersistentTrackID preferredTrackID);

  /// The tracks as such, in the order in which they were added.
  [[nodiscard]] const std::vector<std::shared_ptr<AVMutableCompositionTrack>>& compositionTracks() const;

  /// The end of the track that ends last; zero without tracks.
  [[nodiscard]] CMTime duration() const override;
  [[nodiscard]] std::vector<std::shared_ptr<AVAssetTrack>> tracks() const override;
  /// Always empty.
  [[nodiscard]] std::map<std::string, std::string> metadata() const override;
  /// Always empty.
  [[nodiscard]] std::string loadError() const override;
  using AVAsset::tracks;

 private:
  AVMutableComposition() = default;
  std::vector<std::shared_ptr<AVMutableCompositionTrack>> tracks_;
};

}  // namespace clipworks
