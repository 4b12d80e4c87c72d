#include <clipworks/media/export/SoundPlan.h>

#include <algorithm>

#include <clipworks/engine/output/SoundEncoder.h>
#include <clipworks/media/asset/MediaTrack.h>
#include <clipworks/media/base/PrintedText.h>
#include <clipworks/media/time/ExactTime.h>

namespace clipworks {
namespace {

constexpr int lowRate = 44'100;
constexpr int highRate = 48'000;
constexpr int surroundChannels = 6;

// Sound before the first sample that is played stays in a copied file, hidden by the edit; more than an encoder's delay
// would be dead weight.
constexpr std::int64_t mostHiddenSamples = 8192;

/// 44,100 and 48,000 stay, others go to the next of the two.
int outputRate(int sourceRate) { return sourceRate <= lowRate ? lowRate : highRate; }

engine::SoundLane& laneOf(std::vector<engine::SoundLane>& lanes, std::size_t firstOfTrack, const MediaTrack& media,
                          const std::optional<std::int64_t>& mirror, float volume) {
  const auto begin = lanes.begin() + static_cast<std::ptrdiff_t>(firstOfTrack);
  const auto known = std::find_if(begin, lanes.end(), [&](const engine::SoundLane& lane) {
    return lane.file == media.file() && lane.stream == media.stream() && lane.mirror == mirror;
  });
  if (known != lanes.end()) return *known;
  lanes.push_back({media.file(), media.stream(), {}, volume, mirror});
  return lanes.back();
}

std::optional<NSError> whyNotAudible(const ExportTrack& track) {
  if (track.volumeTime > kCMTimeZero) {
    return makeError(AVError::operationNotSupportedForAsset,
                     "volumes that change in the course of a track are not supported");
  }
  // Written so that NaN fails too.
  if (!(track.volume >= 0.0F && track.volume <= AVMutableAudioMixInputParameters::greatestVolume)) {
    return makeError(AVError::operationNotSupportedForAsset,
                     "a track's volume must be from 0 to 1000, not " + printedNumber(track.volume));
  }
  return std::nullopt;
}

/// Where the media of a backwards segment is mirrored: behind all that the track plays of it, in samples.
std::optional<std::int64_t> mirrorOf(const MediaSegment& segment, const ExportTrack& track) {
  if (!segment.backwards) return std::nullopt;
  std::int64_t end = 0;
  for (const auto& other : track.segments) {
    if (other.mediaTrack == segment.mediaTrack)
      end = std::max(end, ticks(other.source.end(), segment.mediaTrack->facts().sampleRate));
  }
  return end;
}

/// Places a segment in samples at its own rate. Start and end are rounded each by itself, so no rounding adds up.
engine::SoundPiece pieceOf(const MediaSegment& segment, const std::optional<std::int64_t>& mirror) {
  const int rate = segment.mediaTrack->facts().sampleRate;
  engine::SoundPiece piece;
  piece.source = ticks(segment.source.start, rate);
  piece.target = ticks(segment.target.start, rate);
  piece.length = ticks(segment.target.end(), rate) - piece.target;
  const bool staysAtPace = segment.source.duration == segment.target.duration;
  piece.sourceLength = staysAtPace ? piece.length : ticks(segment.source.end(), rate) - piece.source;
  if (mirror) piece.source = *mirror - piece.source - piece.sourceLength;
  return piece;
}

/// The rate and the channels that leave nothing of the sources out.
engine::SoundEncoderSettings encoderFor(const std::vector<engine::SoundLane>& lanes, const ExportPreset& preset) {
  engine::SoundEncoderSettings encoder;
  encoder.sampleRate = lowRate;
  bool allMono = true;
  for (const auto& lane : lanes) {
    const auto& facts = lane.file->stream(lane.stream);
    encoder.sampleRate = std::max(encoder.sampleRate, outputRate(facts.sampleRate));
    allMono = allMono && facts.channels == 1;
  }
  const auto& first = lanes.front();
  const bool onlySurround = lanes.size() == 1 && first.file->stream(first.stream).channels == surroundChannels;
  encoder.channels = allMono ? 1 : onlySurround ? surroundChannels : 2;
  encoder.bitRate = preset.soundBitRatePerChannel * encoder.channels;
  return encoder;
}

/// Several tracks, a volume above 1, or surround sound folded down can add up to more than full scale.
bool canPassFullScale(const engine::SoundJob& job, const std::vector<const ExportTrack*>& tracks) {
  const auto audible = std::count_if(tracks.begin(), tracks.end(), [](const auto* track) { return track->volume > 0; });
  return audible > 1 || std::any_of(job.lanes.begin(), job.lanes.end(), [&](const engine::SoundLane& lane) {
           return lane.volume > 1.0F || lane.file->stream(lane.stream).channels > job.encoder.channels;
         });
}

/// Whether a copy of what `piece` plays holds no more of the track than that, but for its own first edit and a packet.
bool isWhole(const engine::StreamFacts& facts, const engine::SoundPiece& piece) {
  const auto own = std::find_if(facts.edits.begin(), facts.edits.end(), [](const auto& e) { return e.mediaTime >= 0; });
  const auto samples = [&facts](std::int64_t t) { return ticks(CMTime(t, facts.timescale), facts.sampleRate); };
  const std::int64_t start = own == facts.edits.end() ? 0 : samples(own->mediaTime);
  const std::int64_t end = samples(facts.duration) - engine::SoundEncoder::samplesPerPacket;
  return piece.source <= start && piece.source + piece.length >= end;
}

bool canBeCopied(const engine::SoundJob& job, const ExportPreset& preset, std::size_t tracks) {
  if (!preset.keepsCodedPictures || tracks != 1 || job.lanes.size() != 1 || job.lanes.front().pieces.size() != 1) {
    return false;
  }
  const auto& lane = job.lanes.front();
  const auto& piece = lane.pieces.front();
  const auto& facts = lane.file->stream(lane.stream);
  if (!preset.hidesPictures && !isWhole(facts, piece)) return false;
  return facts.codec == "aac" && facts.hasConfiguration && !lane.mirror && lane.volume == 1.0F &&
         !piece.isStretched() && piece.target == 0 && piece.source <= mostHiddenSamples;
}

}  // namespace

void applyAudioMix(const AVMutableAudioMix& audioMix, CMPersistentTrackID trackID, ExportTrack& track) {
  for (const auto& parameters : audioMix.inputParameters()) {
    if (parameters == nullptr || parameters->trackID() != trackID) continue;
    track.volume = parameters->volume();
    track.volumeTime = parameters->volumeTime();
    return;
  }
}

Result<std::optional<engine::SoundJob>, NSError> planSound(const std::vector<const ExportTrack*>& tracks,
                                                           const ExportPreset& preset) {
  engine::SoundJob job;
  CMTime end = kCMTimeZero;
  for (const auto* track : tracks) {
    if (auto reason = whyNotAudible(*track)) return failure(std::move(*reason));
    const std::size_t firstOfTrack = job.lanes.size();
    for (const auto& segment : track->segments) {
      end = CMTimeMaximum(end, segment.target.end());
      if (segment.isEmpty()) continue;
      const auto mirror = mirrorOf(segment, *track);
      const engine::SoundPiece piece = pieceOf(segment, mirror);
      auto& lane = laneOf(job.lanes, firstOfTrack, *segment.mediaTrack, mirror, track->volume);
      // What is shorter than a sample, or held, is silent.
      if (piece.length > 0 && piece.sourceLength > 0) lane.pieces.push_back(piece);
    }
  }
  if (job.lanes.empty()) return std::optional<engine::SoundJob>{};

  job.encoder = preset.fixedSound ? *preset.fixedSound : encoderFor(job.lanes, preset);
  job.copy = canBeCopied(job, preset, tracks.size());
  job.limited = canPassFullScale(job, tracks);
  const auto& first = job.lanes.front();
  if (job.copy) job.encoder.sampleRate = first.file->stream(first.stream).sampleRate;
  job.length = job.copy ? first.pieces.front().length : ticks(end, job.encoder.sampleRate);
  return std::optional<engine::SoundJob>(std::move(job));
}

}  // namespace clipworks
