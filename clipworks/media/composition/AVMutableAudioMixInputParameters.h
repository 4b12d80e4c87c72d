#pragma once

#include <memory>

#include <clipworks/media/asset/AVAssetTrack.h>
#include <clipworks/media/base/Export.h>
#include <clipworks/media/time/CMTime.h>

namespace clipworks {

/// How loud one track of sound is in a mix. Not thread-safe: one thread at a time, and none while an export that uses
/// it is being started (a running export has its own copy).
class CLIPWORKS_API AVMutableAudioMixInputParameters final {
 public:
  /// `AVMutableAudioMixInputParameters(track:)`: names `track` by its identifier, at volume 1. A null track names
  /// none; set an identifier then.
  [[nodiscard]] static std::shared_ptr<AVMutableAudioMixInputParameters> make(
      const std::shared_ptr<const AVAssetTrack>& track);
  AVMutableAudioMixInputParameters(const AVMutableAudioMixInputParameters&) = delete;
  AVMutableAudioMixInputParameters& operator=(const AVMutableAudioMixInputParameters&) = delete;

  /// `setVolume(_:at:)`. The factor of the track's level: 1 leaves it as it is, 0 is silence; from 0 to
  /// `greatestVolume`. There is one volume for the whole track, the one set last, and `at` is zero or earlier. An
  /// export with another volume or a later time fails with `AVError::operationNotSupportedForAsset`.
  void setVolume(float volume, const CMTime& at);
  /// The factor that was set last; 1 before.
  [[nodiscard]] float volume() const { return volume_; }
  /// When it was set to begin; zero before.
  [[nodiscard]] CMTime volumeTime() const { return volumeTime_; }

  /// `setTrackID:`. The identifier that the track has in the exported asset. What an asset does not have is passed
  /// over.
  void setTrackID(CMPersistentTrackID trackID) { trackID_ = trackID; }
  /// The identifier of the track that these parameters hold for; 0 for none.
  [[nodiscard]] CMPersistentTrackID trackID() const { return trackID_; }

  /// 60 dB.
  static constexpr float greatestVolume = 1000.0F;

 private:
  AVMutableAudioMixInputParameters() = default;

  CMPersistentTrackID trackID_ = kCMPersistentTrackID_Invalid;
  float volume_ = 1.0F;
  CMTime volumeTime_ = kCMTimeZero;
};

}  // namespace clipworks
