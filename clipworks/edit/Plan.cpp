#include <clipworks/edit/Plan.h>

#include <algorithm>
#include <cmath>
#include <exception>
#include <iterator>
#include <tuple>
#include <utility>

#include <clipworks/edit/DataPlan.h>
#include <clipworks/edit/EditErrors.h>
#include <clipworks/edit/EditState.h>
#include <clipworks/edit/Sentences.h>
#include <clipworks/edit/SizeBudget.h>
#include <clipworks/engine/Processors.h>
#include <clipworks/engine/input/CachedPictureReader.h>
#include <clipworks/media/asset/MediaTrack.h>
#include <clipworks/media/export/AVAssetExportSession.h>
#include <clipworks/media/export/DrawnPlan.h>
#include <clipworks/media/export/ExportPlan.h>
#include <clipworks/media/export/ExportPreset.h>

namespace clipworks {
namespace {

bool hasMedia(const std::vector<MediaSegment>& segments) {
  return std::any_of(segments.begin(), segments.end(),
                     [](const auto& segment) { return segment.mediaTrack != nullptr; });
}

std::vector<ExportTrack> tracksOf(const EditState& state) {
  std::vector<ExportTrack> tracks;
  if (state.pictures && hasMedia(state.pictures->segments())) {
    ExportTrack track{AVMediaType::video, state.transform, state.pictures->segments()};
    if (state.canvas) {
      track.canvas = engine::Canvas{static_cast<int>(std::lround(state.canvas->width)),
                                    static_cast<int>(std::lround(state.canvas->height))};
    }
    tracks.push_back(std::move(track));
  }
  for (const Sound& sound : state.sounds) {
    if (!hasMedia(sound.stretches.segments())) continue;
    ExportTrack track{AVMediaType::audio, CGAffineTransformIdentity, sound.stretches.segments()};
    track.volume = sound.volume;
    tracks.push_back(std::move(track));
  }
  return tracks;
}

bool isHEVC(const EditState& state) {
  const auto tracks = state.sources.front()->asset->AVAsset::tracks(AVMediaType::video);
  return !tracks.empty() && tracks.front()->codecName() == "hevc";
}

bool playsBackwards(const EditState& state) {
  return state.pictures && std::any_of(state.pictures->segments().begin(), state.pictures->segments().end(),
                                       [](const MediaSegment& segment) { return segment.backwards; });
}

/// Whether pictures of the first source with any come as they are coded.
bool showsUndrawn(const EditState& state) {
  if (!state.canvas || !state.pictures) return true;
  const MediaSegment* first = firstOfMedia(*state.pictures);
  return first != nullptr && isShownAsRecorded(*first, state.transform, *state.canvas);
}

engine::VideoCodec codecOf(const EditState& state, CodecChoice choice) {
  if (choice == CodecChoice::h264) return engine::VideoCodec::h264;
  if (choice == CodecChoice::hevc) return engine::VideoCodec::hevc;
  return isHEVC(state) && showsUndrawn(state) && !playsBackwards(state) ? engine::VideoCodec::hevc
                                                                        : engine::VideoCodec::h264;
}

ExportPreset presetOf(const EditState& state, const PlanOptions& options) {
  using Quality = Wanted::Quality;
  if (state.wanted.quality == Quality::small) return *exportPreset(AVAssetExportPresetLowQuality);
  if (state.wanted.quality == Quality::codedPictures) return *exportPreset(AVAssetExportPresetPassthrough);
  const bool hevc = codecOf(state, options.codec) == engine::VideoCodec::hevc;
  ExportPreset preset = *exportPreset(hevc ? AVAssetExportPresetHEVCHighestQuality : AVAssetExportPresetHighestQuality);
  if (state.wanted.quality == Quality::bitRate) {
    preset.keepsCodedPictures = false;
    preset.videoBitRate = state.wanted.pictureBitRate;
    preset.fixedSound = engine::SoundEncoderSettings{44'100, 2, 128'000};
  }
  if (state.wanted.mostBytes > 0) {
    constexpr std::int64_t leastOfStereo = 56'000;
    const SizeBudget budget = SizeBudget::of(state.wanted.mostBytes, measureOf(state));
    preset.videoBitRate = std::max(budget.pictures, engine::leastBitRate);
    preset.fixedSound = engine::SoundEncoderSettings{44'100, budget.sound < leastOfStereo ? 1 : 2, budget.sound};
  }
  if (options.isDraft) {
    preset.videoBitRate = 0;
    preset.quality = 25;
    preset.speed = "ultrafast";
    preset.longestGroup = 12;
  }
  return preset;
}

/// When `t`, on the clock of a track's media, is shown as the file itself plays.
CMTime onFileTimeline(const EditState& state, const MediaTrack& media, const CMTime& t) {
  for (const auto& source : state.sources) {
    for (const auto& track : source->asset->tracks()) {
      if (track->media().get() != &media) continue;
      for (const auto& segment : track->segments()) {
        if (!segment.isEmpty() && segment.source.start <= t && t <= segment.source.end())
          return mapToTarget(segment, t);
      }
    }
  }
  return t;
}

std::vector<PlannedStretch> stretchesOf(const EditState& state, const ExportTrack& track) {
  std::vector<PlannedStretch> stretches;
  for (const MediaSegment& segment : track.segments) {
    PlannedStretch stretch;
    stretch.target = segment.target;
    if (segment.mediaTrack == nullptr) {
      stretch.kind = segment.gap == SegmentGap::hold ? PlannedStretch::Kind::held : PlannedStretch::Kind::black;
    } else {
      const auto& media = *segment.mediaTrack;
      stretch.source = CMTimeRange::fromTo(onFileTimeline(state, media, segment.source.start),
                                           onFileTimeline(state, media, segment.source.end()));
      stretch.file = segment.mediaTrack->file()->name();
      stretch.backwards = segment.backwards;
    }
    stretches.push_back(std::move(stretch));
  }
  return stretches;
}

/// Of the samples that are copied, each time they play.
std::int64_t copiedBytes(const engine::PictureJob& job) {
  std::vector<std::int64_t> ofRuns;
  for (const auto& run : job.runs) {
    ofRuns.push_back(0);
    if (!run.copy) continue;
    const auto table = run.file->pictureTable(run.stream);
    if (!table) continue;
    for (const auto& shown : run.written())
      ofRuns.back() += (*table)->samples()[(*table)->sampleOfPicture(shown.picture)].bytes;
  }
  std::int64_t bytes = 0;
  for (const auto& placement : job.placements) bytes += ofRuns[placement.run];
  return bytes;
}

/// What of a file comes before the first picture and is copied with it, since it is decoded from there.
std::string hiddenPart(const engine::PictureRun& run) {
  if (run.hiddenBefore.empty()) return "";
  const auto table = run.file->pictureTable(run.stream);
  if (!table) return "";
  const std::int64_t ticks =
      (*table)->timeOfPicture(run.pictures.front().picture) - (*table)->timeOfPicture(run.hiddenBefore.front().picture);
  return shownSeconds(CMTime(ticks, run.file->stream(run.stream).timescale)) +
         " s before the start are in the file, not shown.";
}

PlannedTrack pictureTrack(const engine::PictureJob& job, const ExportedTrack& exported) {
  PlannedTrack track;
  track.isCopied = exported.copied;
  track.encoder = exported.encoder;
  track.remark = exported.remark;
  std::tie(track.encodedPictures, track.pictures) = job.encodedOfShown();
  track.width = job.encoder.width;
  track.height = job.encoder.height;
  track.bitRate = job.encoder.averageBitRate;
  if (job.copiesAny()) {
    const auto& first = *job.firstOfFile();
    track.width = first.file->stream(first.stream).codedWidth;
    track.height = first.file->stream(first.stream).codedHeight;
    if (track.isCopied) track.bitRate = 0;
    const std::string hidden = hiddenPart(job.runs[job.placements.front().run]);
    if (!hidden.empty()) track.remark += (track.remark.empty() ? "" : " ") + hidden;
  }
  return track;
}

PlannedTrack soundTrack(const engine::SoundJob& job) {
  PlannedTrack track;
  track.kind = PlannedTrack::Kind::sound;
  track.isCopied = job.copy;
  track.sampleRate = job.encoder.sampleRate;
  track.channels = job.copy ? job.lanes.front().file->stream(job.lanes.front().stream).channels : job.encoder.channels;
  if (!job.copy) {
    track.encoder = "aac";
    track.bitRate = job.encoder.bitRate;
  }
  return track;
}

std::optional<std::int64_t> bytesOf(const Plan& plan) {
  double bytes = 0;
  const double seconds = plan.length.seconds();
  for (const auto& job : plan.job->data) bytes += static_cast<double>(job.mediaBytes());
  for (const auto& track : plan.tracks) {
    if (track.kind == PlannedTrack::Kind::data) continue;
    if (track.kind == PlannedTrack::Kind::sound) {
      const auto& sound = *plan.job->sound;
      const auto& lane = sound.lanes.front();
      const auto rate = track.isCopied ? lane.file->stream(lane.stream).bitRate : track.bitRate;
      bytes += static_cast<double>(rate) * seconds / 8;
    } else if (track.isCopied) {
      bytes += static_cast<double>(copiedBytes(*plan.job->pictures));
    } else if (track.bitRate > 0) {
      bytes += static_cast<double>(track.bitRate) * seconds / 8;
    } else {
      return std::nullopt;
    }
  }
  return static_cast<std::int64_t>(bytes);
}

/// Pictures that an encoder holds for looking ahead, its references and its threads; measured with x264 and x265 on two
/// processors, where they held up to 110.
constexpr std::int64_t encoderPictures = 100;
constexpr std::int64_t encoderPicturesPerProcessor = 10;
/// What is decoded and under way.
constexpr std::int64_t decodedPictures = 16;
constexpr std::int64_t otherMemory = 128LL << 20;

std::int64_t bytesOfPicture(int width, int height, int bitDepth) {
  return static_cast<std::int64_t>(width) * height * 3 / 2 * (bitDepth > 8 ? 2 : 1);
}

/// What is read of the files.
struct Sources {
  std::int64_t largest = 0;  // bytes of a decoded picture
  bool isBackwards = false;  // somewhere
};

Sources sourcesOf(const engine::PictureJob& pictures) {
  Sources sources;
  for (const auto& run : pictures.runs) {
    const auto& file = run.file != nullptr || run.layers.empty() ? run.file : run.layers.front().file;
    if (file == nullptr) continue;
    const auto& facts = file->stream(run.file != nullptr ? run.stream : run.layers.front().stream);
    sources.largest = std::max(sources.largest, bytesOfPicture(facts.codedWidth, facts.codedHeight, facts.bitDepth));
    const auto first = run.layers.empty() ? run.pictures.front().picture : run.layers.front().pictures.front();
    const auto last = run.layers.empty() ? run.pictures.back().picture : run.layers.front().pictures.back();
    sources.isBackwards = sources.isBackwards || last < first;
  }
  return sources;
}

std::int64_t memoryOf(const engine::ExportJob& job, int threads) {
  if (!job.pictures || job.pictures->copiesAll()) return otherMemory;
  const auto& encoder = job.pictures->encoder;
  const std::int64_t processors = threads > 0 ? threads : engine::usableProcessors();
  const std::int64_t encoded = bytesOfPicture(encoder.width, encoder.height, encoder.bitDepth);
  const Sources sources = sourcesOf(*job.pictures);
  std::int64_t memory = otherMemory + (encoderPictures + processors * encoderPicturesPerProcessor) * encoded;
  memory += decodedPictures * sources.largest;
  if (sources.isBackwards) memory += static_cast<std::int64_t>(engine::CachedPictureReader::usualCacheLimit);
  return memory;
}

/// Fails where something has to be decoded that the limits of its file do not let in.
engine::Expected<void> requireDecoders(const engine::ExportJob& job) {
  const auto require = [](const auto& part) {
    return part.file == nullptr ? engine::Expected<void>() : part.file->requireDecoder(part.stream);
  };
  for (const auto& run : job.pictures ? job.pictures->runs : std::vector<engine::PictureRun>()) {
    if (run.copy) continue;
    if (auto known = require(run); !known) return known;
    for (const auto& layer : run.layers) {
      if (auto known = require(layer); !known) return known;
    }
  }
  if (!job.sound || job.sound->copy) return {};
  for (const auto& lane : job.sound->lanes) {
    if (auto known = require(lane); !known) return known;
  }
  return {};
}

Result<Plan, Error> planOf(const EditState& state, const PlanOptions& options) {
  const auto tracks = tracksOf(state);
  ExportPreset preset = presetOf(state, options);
  preset.hidesPictures = options.hidesPictures;
  auto planned = planExport(tracks, nullptr, preset, options.keepsMetadata);
  if (!planned) return failure(fromPlatform(planned.error()));
  if (auto known = requireDecoders(planned->job); !known) return failure(fromEngine(known.error()));
  Plan plan;
  plan.length = state.length;
  plan.remarks = state.remarks;
  for (const auto& part : state.leftOut) plan.leftOut.push_back({part.what, part.why});
  if (planned->job.pictures) {
    plan.tracks.push_back(pictureTrack(*planned->job.pictures, planned->tracks.front()));
    plan.tracks.back().stretches.push_back(stretchesOf(state, tracks.front()));
  }
  if (planned->job.sound) {
    plan.tracks.push_back(soundTrack(*planned->job.sound));
    for (const auto& track : tracks) {
      if (track.mediaType == AVMediaType::audio) plan.tracks.back().stretches.push_back(stretchesOf(state, track));
    }
  }
  auto data = planData(state, planned->job.pictures ? &*planned->job.pictures : nullptr, options.keepsMetadata);
  planned->job.data = std::move(data.jobs);
  std::move(data.tracks.begin(), data.tracks.end(), std::back_inserter(plan.tracks));
  std::move(data.leftOut.begin(), data.leftOut.end(), std::back_inserter(plan.leftOut));
  plan.job = std::make_shared<const engine::ExportJob>(std::move(planned->job));
  plan.bytes = bytesOf(plan);
  plan.memory = memoryOf(*plan.job, options.threads);
  return plan;
}

}  // namespace

std::int64_t Plan::memoryForPictures(std::size_t count) const {
  if (!job->pictures) return otherMemory;
  const auto cache = count > 1 ? static_cast<std::int64_t>(engine::CachedPictureReader::usualCacheLimit) : 0;
  return otherMemory + decodedPictures * sourcesOf(*job->pictures).largest + cache;
}

Result<Plan, Error> plan(const Edit& edit, const PlanOptions& options) {
  try {
    return planOf(edit.state(), options);
  } catch (const std::exception& thrown) {
    return failed(ErrorCode::internal, edit.name() + " could not be planned: " + thrown.what());
  }
}

}  // namespace clipworks
