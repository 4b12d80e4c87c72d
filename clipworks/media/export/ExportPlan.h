#pragma once

#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include <clipworks/engine/pipeline/ExportJob.h>
#include <clipworks/media/asset/AVAsset.h>
#include <clipworks/media/base/NSError.h>
#include <clipworks/media/base/Result.h>
#include <clipworks/media/composition/AVMutableVideoComposition.h>
#include <clipworks/media/composition/SegmentMapping.h>
#include <clipworks/media/export/AVAssetExportSession.h>
#include <clipworks/media/export/ExportPreset.h>

namespace clipworks {

/// A track of the asset as it was when the export started, seen through to its media.
struct ExportTrack {
  AVMediaType mediaType = AVMediaType::video;
  CGAffineTransform transform;
  std::vector<MediaSegment> segments;
  float volume = 1.0F;              ///< of sound
  CMTime volumeTime = kCMTimeZero;  ///< from when on
  CMPersistentTrackID trackID = kCMPersistentTrackID_Invalid;
  std::optional<engine::Canvas> canvas{};  ///< of pictures that are drawn, each as its segment's `place` says
};

/// The tracks of `asset` that have something to show or to play, as loud as `audioMix`, which may be null, says.
[[nodiscard]] std::vector<ExportTrack> snapshotTracks(const AVAsset& asset, const AVMutableAudioMix* audioMix);

/// All that is decided about an export before its first sample is read.
struct ExportPlan {
  engine::ExportJob job;
  std::vector<ExportedTrack> tracks;  ///< how each track comes into the file
};

/// `metadata` without what tells of the container rather than of the recording.
[[nodiscard]] std::map<std::string, std::string> withoutContainerKeys(std::map<std::string, std::string> metadata);

/// Decides for every track whether it is copied or encoded, and lays its pictures and sound out on the output's
/// timeline; with a video composition the pictures are rendered as it says. `job.path` and the limit are left to the
/// caller.
[[nodiscard]] Result<ExportPlan, NSError> planExport(const std::vector<ExportTrack>& tracks,
                                                     const AVMutableVideoComposition* videoComposition,
                                                     const ExportPreset& preset, bool keepsRecordingMetadata);

}  // namespace clipworks
