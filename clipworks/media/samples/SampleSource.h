#pragma once

#include <memory>

#include <clipworks/media/asset/AVAssetTrack.h>
#include <clipworks/media/base/NSError.h>
#include <clipworks/media/base/Result.h>
#include <clipworks/media/base/SettingsDictionary.h>
#include <clipworks/media/samples/CMSampleBuffer.h>

namespace clipworks {

/// What a reader's output draws from: the samples of one track, in order of presentation. One thread at a time.
class SampleSource {
 public:
  virtual ~SampleSource() = default;
  /// The next samples; null at the end.
  [[nodiscard]] virtual Result<std::shared_ptr<CMSampleBuffer>, NSError> next() = 0;
};

/// The pictures of `track`, each decoded only when someone looks at it. Fails with a sentence for settings that ask for
/// what is not made.
[[nodiscard]] Result<std::unique_ptr<SampleSource>, NSError> openPictureSource(const AVAssetTrack& track,
                                                                               const SettingsDictionary& settings);

/// The sound of `track` as 16-bit interleaved PCM at its own rate and channels, from its first sample on; gaps behind
/// that are silence.
[[nodiscard]] Result<std::unique_ptr<SampleSource>, NSError> openSoundSource(const AVAssetTrack& track,
                                                                             const SettingsDictionary& settings);

}  // namespace clipworks
