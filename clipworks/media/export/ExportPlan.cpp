#include <clipworks/media/export/ExportPlan.h>

#include <algorithm>

#include <clipworks/media/asset/MediaTrack.h>
#include <clipworks/media/export/CopyPlan.h>
#include <clipworks/media/export/DrawnPlan.h>
#include <clipworks/media/export/PicturePlan.h>
#include <clipworks/media/export/RenderPlan.h>
#include <clipworks/media/export/SoundPlan.h>
#include <clipworks/media/time/ExactTime.h>

namespace clipworks {
namespace {

constexpr std::int32_t mostMovieTimescale = 10'000'000;
constexpr std::int32_t fineMovieTimescale = 1'000'000;

/// What a file says of its container rather than of the recording.
bool describesContainer(const std::string& key) {
  return key == "major_brand" || key == "minor_version" || key == "compatible_brands" || key == "encoder";
}

}  // namespace

std::map<std::string, std::string> withoutContainerKeys(std::map<std::string, std::string> metadata) {
  std::erase_if(metadata, [](const auto& entry) { return describesContainer(entry.first); });
  return metadata;
}

namespace {

/// What the recording says of itself, from the first picture's file, else the first sound's.
std::map<std::string, std::string> recordingMetadata(const engine::ExportJob& job) {
  std::map<std::string, std::string> metadata;
  if (job.pictures) {
    const auto& runs = job.pictures->runs;
    const auto run =
        std::find_if(runs.begin(), runs.end(), [](const auto& r) { return r.file != nullptr || !r.layers.empty(); });
    if (run != runs.end()) metadata = (run->file != nullptr ? run->file : run->layers.back().file)->metadata();
  } else if (job.sound) {
    metadata = job.sound->lanes.front().file->metadata();
  }
  return withoutContainerKeys(std::move(metadata));
}

/// The time scale in which the lengths of both tracks are whole, so that no edit is rounded; where there is none, those
/// of the pictures are, and those of the sound within a tenth of a sample.
std::int32_t movieTimescale(const engine::ExportJob& job) {
  const std::int32_t sound = job.sound ? job.sound->encoder.sampleRate : 0;
  const std::int32_t pictures = job.pictures ? job.pictures->timescale : 0;
  if (sound == 0 || pictures == 0) return std::max(sound, pictures);
  const std::int32_t common = commonTimescale(sound, pictures, mostMovieTimescale);
  return common != 0 ? common : pictures * std::max(1, fineMovieTimescale / pictures);
}

/// What of a job is encoded, and why.
std::string encodedRemark(const engine::PictureJob& job, const std::string& why) {
  const auto [encoded, all] = job.encodedOfShown();
  if (encoded == all) return "The pictures are encoded: " + why + ".";
  return std::to_string(encoded) + " of " + std::to_string(all) + " pictures are encoded: " + why + ".";
}

Result<void, NSError> planPictures(const std::vector<const ExportTrack*>& tracks, const ExportPreset& preset,
                                   ExportPlan& plan) {
  if (tracks.empty()) return {};
  auto job = layOutPictures(*tracks.front());
  if (!job) return failure(job.error());
  if (!*job) return {};
  engine::PictureJob& laidOut = (*job)->job;
  ExportedTrack track;
  track.mediaType = AVMediaType::video;
  if (preset.videoCodec) chooseEncoding(laidOut, preset);
  const std::string obstacle = chooseCopies(laidOut, preset);
  track.copied = laidOut.copiesAll();
  if (!track.copied) {
    // Passthrough names no codec; what cannot stay as it is would need one.
    if (!preset.videoCodec) {
      return failure(
          makeError(AVError::operationNotSupportedForAsset, "the pictures cannot be copied as they are: " + obstacle));
    }
    track.encoder = engine::VideoEncoder::libraryName(*preset.videoCodec);
    track.remark = encodedRemark(laidOut, obstacle);
  }
  if (tracks.size() > 1)
    track.remark += (track.remark.empty() ? "" : " ") + std::string("Only the first track of pictures is shown.");
  plan.job.pictures = std::move(laidOut);
  plan.tracks.push_back(std::move(track));
  return {};
}

Result<void, NSError> planDrawnPictures(const ExportTrack& track, const ExportPreset& preset, const std::string& why,
                                        ExportPlan& plan) {
  if (!preset.videoCodec) {
    return failure(
        makeError(AVError::operationNotSupportedForAsset, "the pictures cannot be copied as they are: " + why));
  }
  auto job = planDrawn(track, preset);
  if (!job) return failure(job.error());
  if (!*job) return {};
  plan.job.pictures = std::move(**job);
  if (plan.job.pictures->copiesAll()) {
    plan.tracks.push_back({AVMediaType::video, true, "", ""});
  } else {
    plan.tracks.push_back({AVMediaType::video, false, engine::VideoEncoder::libraryName(*preset.videoCodec),
                           encodedRemark(*plan.job.pictures, why)});
  }
  return {};
}

Result<void, NSError> planRenderedPictures(const std::vector<const ExportTrack*>& tracks,
                                           const AVMutableVideoComposition& videoComposition, const CMTime& end,
                                           const ExportPreset& preset, ExportPlan& plan) {
  if (tracks.empty()) return {};
  auto job = planRendering(tracks, videoComposition, end, preset);
  if (!job) return failure(job.error());
  plan.job.pictures = std::move(*job);
  plan.tracks.push_back({AVMediaType::video, false, engine::VideoEncoder::libraryName(*preset.videoCodec),
                         "The pictures are encoded: they are rendered anew."});
  return {};
}

}  // namespace

std::vector<ExportTrack> snapshotTracks(const AVAsset& asset, const AVMutableAudioMix* audioMix) {
  std::vector<ExportTrack> tracks;
  for (const auto& track : asset.tracks()) {
    ExportTrack snapshot{track->mediaType(), track->preferredTransform(), resolveToMedia(*track)};
    snapshot.trackID = track->trackID();
    if (audioMix != nullptr) applyAudioMix(*audioMix, track->trackID(), snapshot);
    const bool hasMedia = std::any_of(snapshot.segments.begin(), snapshot.segments.end(),
                                      [](const MediaSegment& segment) { return segment.mediaTrack != nullptr; });
    if (hasMedia) tracks.push_back(std::move(snapshot));
  }
  return tracks;
}

Result<ExportPlan, NSError> planExport(const std::vector<ExportTrack>& tracks,
                                       const AVMutableVideoComposition* videoComposition, const ExportPreset& preset,
                                       bool keepsRecordingMetadata) {
  ExportPlan plan;
  std::vector<const ExportTrack*> pictures;
  std::vector<const ExportTrack*> sound;
  CMTime end = kCMTimeZero;
  for (const auto& track : tracks) {
    (track.mediaType == AVMediaType::video ? pictures : sound).push_back(&track);
    end = CMTimeMaximum(end, track.segments.back().target.end());
  }

  auto planned = videoComposition != nullptr ? planRenderedPictures(pictures, *videoComposition, end, preset, plan)
                 : pictures.empty()          ? Result<void, NSError>{}
                 : preset.fixedSize          ? planDrawnPictures(fitted(*pictures.front(), *preset.fixedSize), preset,
                                                                 "their size is asked for", plan)
                 : pictures.front()->canvas  ? planDrawnPictures(*pictures.front(), preset, "they are drawn anew", plan)
                                             : planPictures(pictures, preset, plan);
  if (!planned) return failure(planned.error());
  auto soundJob = planSound(sound, preset);
  if (!soundJob) return failure(soundJob.error());
  if (*soundJob) {
    plan.job.sound = std::move(**soundJob);
    plan.tracks.push_back({AVMediaType::audio, plan.job.sound->copy, plan.job.sound->copy ? "" : "aac", ""});
  }
  if (plan.tracks.empty()) {
    return failure(makeError(AVError::invalidSourceMedia, "there is nothing to export: no pictures and no sound"));
  }
  plan.job.movieTimescale = movieTimescale(plan.job);
  if (keepsRecordingMetadata) plan.job.metadata = recordingMetadata(plan.job);
  return plan;
}

}  // namespace clipworks
