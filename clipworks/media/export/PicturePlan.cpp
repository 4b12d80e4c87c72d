#include <clipworks/media/export/PicturePlan.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <map>
#include <span>
#include <tuple>
#include <utility>

#include <clipworks/media/asset/EngineErrors.h>
#include <clipworks/media/asset/MediaTrack.h>
#include <clipworks/media/asset/TrackMatrix.h>
#include <clipworks/media/composition/SegmentPictures.h>
#include <clipworks/media/time/ExactTime.h>

namespace clipworks {
namespace {

// Fine enough that decode times can be told apart between pictures, and that players' own rounding does not show.
constexpr std::int32_t leastTimescale = 90'000;
// Beyond a microsecond nothing is gained, and the container counts some lengths in 32 bits.
constexpr std::int32_t mostTimescale = 1'000'000;

/// The time scale in which every picture and every join of the track falls on a whole tick, where there is one.
std::int32_t commonTimescaleOf(const std::vector<MediaSegment>& segments) {
  std::int32_t scale = 1;
  for (const auto& segment : segments) {
    std::vector<std::int32_t> wanted{segment.target.start.timescale, segment.target.duration.timescale};
    if (segment.mediaTrack != nullptr) wanted.push_back(segment.mediaTrack->facts().timescale);
    for (const std::int32_t one : wanted) {
      if (const std::int32_t common = commonTimescale(scale, one, mostTimescale); common != 0) scale = common;
    }
  }
  return outputTimescale(scale);
}

/// Segments that go on in one source, each at its own pace; their pictures make one run.
using Stretch = std::span<const MediaSegment>;

bool goesOn(const MediaSegment& before, const MediaSegment& segment) {
  if (before.isEmpty() || segment.isEmpty() || before.mediaTrack != segment.mediaTrack) return false;
  if (before.backwards != segment.backwards || before.place != segment.place) return false;
  const auto& [earlier, later] = segment.backwards ? std::tie(segment, before) : std::tie(before, segment);
  return before.source.duration > kCMTimeZero && earlier.source.end() == later.source.start;
}

/// The segments from `first` on that go on in one source.
Stretch stretchFrom(const std::vector<MediaSegment>& segments, std::size_t first) {
  std::size_t end = first + 1;
  while (end < segments.size() && goesOn(segments[end - 1], segments[end])) ++end;
  return Stretch(segments).subspan(first, end - first);
}

/// What makes two stretches show the same pictures at the same distances, segment by segment.
using RunKey = std::vector<std::tuple<const MediaTrack*, std::int64_t, std::int32_t, std::int64_t, std::int32_t,
                                      std::int64_t, std::int32_t, bool, bool, std::array<double, 6>>>;

RunKey keyOf(Stretch stretch, bool startsHeld) {
  RunKey key;
  for (const MediaSegment& segment : stretch) {
    const CGAffineTransform place = segment.place.value_or(CGAffineTransformIdentity);
    key.emplace_back(segment.mediaTrack.get(), segment.source.start.value, segment.source.start.timescale,
                     segment.source.duration.value, segment.source.duration.timescale, segment.target.duration.value,
                     segment.target.duration.timescale, startsHeld, segment.backwards,
                     std::array{place.a, place.b, place.c, place.d, place.tx, place.ty});
  }
  return key;
}

// More pictures a second than this are only shown where the source itself has them.
constexpr double mostPicturesPerSecond = 120;

/// Thins the pictures of a segment that plays faster: one for each slot of the highest rate.
class PictureThinner {
 public:
  PictureThinner(const MediaSegment& segment, const engine::PictureTable& table, std::int32_t timescale)
      : isNeeded_(segment.target.duration < segment.source.duration) {
    double rate = mostPicturesPerSecond;
    if (const std::size_t count = table.pictureCount(); count > 1) {
      const auto length = static_cast<double>(table.timeOfPicture(count - 1) - table.timeOfPicture(0));
      if (length > 0)
        rate = std::max(rate, static_cast<double>(count - 1) * segment.mediaTrack->facts().timescale / length);
    }
    slotsPerTick_ = rate / timescale;
  }

  /// Whether the picture at `ticks` of the output, later than those before, stays.
  bool keeps(std::int64_t ticks) {
    if (!isNeeded_) return true;
    // Times are rounded to ticks; half a tick more keeps them in their slot.
    const auto slot = static_cast<std::int64_t>(std::floor((static_cast<double>(ticks) + 0.5) * slotsPerTick_));
    return std::exchange(lastSlot_, slot) != slot;
  }

 private:
  bool isNeeded_;
  double slotsPerTick_ = 0;
  std::int64_t lastSlot_ = INT64_MIN;
};

class PictureLayout {
 public:
  explicit PictureLayout(std::int32_t timescale) { job_.timescale = timescale; }

  Result<void, NSError> add(Stretch stretch) {
    const MediaSegment& segment = stretch.front();
    const std::int64_t start = ticks(segment.target.start, job_.timescale);
    job_.end = ticks(stretch.back().target.end(), job_.timescale);
    if (segment.gap == SegmentGap::hold) return {};
    if (segment.gap == SegmentGap::empty) {
      // Before the first picture nothing is on screen anyway.
      if (!job_.placements.empty()) place(blackRun(), start);
      shown_.reset();
      return {};
    }
    auto table = segment.mediaTrack->file()->pictureTable(segment.mediaTrack->stream());
    if (!table) return failure(errorFromEngine(table.error()));
    addMedia(stretch, **table, start);
    return {};
  }

  LaidOutPictures take() { return {std::move(job_), std::move(places_)}; }

 private:
  struct OnScreen {
    const MediaTrack* media;
    std::size_t picture;
    bool operator==(const OnScreen&) const = default;
  };

  void addMedia(Stretch stretch, const engine::PictureTable& table, std::int64_t start) {
    const MediaTrack* const media = stretch.front().mediaTrack.get();
    // A stretch that starts between two pictures starts with the one on screen, unless that is shown already.
    const bool backwards = stretch.front().backwards;
    const auto before = SegmentPictures(stretch.front(), table).held();
    const bool startsHeld = !backwards && before && shown_ != OnScreen{media, *before};
    RunKey key = keyOf(stretch, startsHeld);
    auto known = runs_.find(key);
    if (known == runs_.end()) {
      engine::PictureRun run;
      run.file = stretch.front().mediaTrack->file();
      run.stream = stretch.front().mediaTrack->stream();
      if (startsHeld) run.pictures.push_back({static_cast<std::uint32_t>(*before), 0});
      for (const MediaSegment& segment : stretch) {
        backwards ? appendBackwards(run, segment, table, start) : appendPictures(run, segment, table, start);
      }
      // What comes within a tick of the end is never seen.
      while (run.pictures.size() > 1 && run.pictures.back().time >= job_.end - start) run.pictures.pop_back();
      if (run.pictures.empty()) return;
      known = runs_.emplace(std::move(key), job_.runs.size()).first;
      addRun(std::move(run), stretch.front().place);
    }
    place(known->second, start);
    shown_ = OnScreen{media, job_.runs[known->second].pictures.back().picture};
  }

  void appendPictures(engine::PictureRun& run, const MediaSegment& segment, const engine::PictureTable& table,
                      std::int64_t start) const {
    const std::int32_t scale = segment.mediaTrack->facts().timescale;
    const SegmentPictures shown(segment, table);
    PictureThinner thinner(segment, table, job_.timescale);
    const std::int64_t begin = ticks(segment.target.start, job_.timescale) - start;
    // Thinning may have dropped the picture that is on screen where the pace changes.
    if (shown.held() && !run.pictures.empty() && run.pictures.back().picture != *shown.held() &&
        run.pictures.back().time < begin) {
      run.pictures.push_back({static_cast<std::uint32_t>(*shown.held()), begin});
    }
    for (std::size_t picture = shown.next(); picture < shown.end(); ++picture) {
      const CMTime mediaTime(table.timeOfPicture(picture), scale);
      const std::int64_t time = timeOf(segment, mediaTime) - start;
      if (!run.pictures.empty() && time <= run.pictures.back().time) {
        run.pictures.back().picture = static_cast<std::uint32_t>(picture);  // faster than a tick: what stays is seen
        continue;
      }
      if (thinner.keeps(time)) run.pictures.push_back({static_cast<std::uint32_t>(picture), time});
    }
  }

  /// The pictures that the segment shows forwards, in reverse order at the same times.
  void appendBackwards(engine::PictureRun& run, const MediaSegment& segment, const engine::PictureTable& table,
                       std::int64_t start) const {
    engine::PictureRun forwards;
    if (const auto held = SegmentPictures(segment, table).held()) {
      forwards.pictures.push_back(
          {static_cast<std::uint32_t>(*held), ticks(segment.target.start, job_.timescale) - start});
    }
    appendPictures(forwards, segment, table, start);
    const auto& pictures = forwards.pictures;
    for (std::size_t i = 0; i < pictures.size(); ++i) {
      const engine::ShownPicture shown{pictures[pictures.size() - 1 - i].picture, pictures[i].time};
      const auto* before = run.pictures.empty() ? nullptr : &run.pictures.back();
      // One in which the pace changes stays on screen.
      if (before == nullptr || (before->picture != shown.picture && before->time < shown.time))
        run.pictures.push_back(shown);
    }
  }

  /// When a picture of a segment appears, in ticks of the output.
  [[nodiscard]] std::int64_t timeOf(const MediaSegment& segment, const CMTime& mediaTime) const {
    const std::int64_t start = ticks(segment.target.start, job_.timescale);
    const CMTime offset = mediaTime - segment.source.start;
    if (segment.source.duration == segment.target.duration) return start + ticks(offset, job_.timescale);
    return start + ticks(mapToTarget(segment, mediaTime) - segment.target.start, job_.timescale);
  }

  std::size_t blackRun() {
    if (!black_) {
      black_ = job_.runs.size();
      addRun({nullptr, 0, {{0, 0}}}, std::nullopt);
    }
    return *black_;
  }

  void addRun(engine::PictureRun run, const std::optional<CGAffineTransform>& place) {
    job_.runs.push_back(std::move(run));
    places_.push_back(place);
  }

  void place(std::size_t run, std::int64_t start) {
    job_.placements.push_back({static_cast<std::uint32_t>(run), start});
  }

  engine::PictureJob job_;
  std::vector<std::optional<CGAffineTransform>> places_;  // by run
  std::map<RunKey, std::size_t> runs_;
  std::optional<std::size_t> black_;
  std::optional<OnScreen> shown_;
};

}  // namespace

std::int32_t outputTimescale(std::int32_t timescale) {
  return timescale >= leastTimescale ? timescale : timescale * ((leastTimescale + timescale - 1) / timescale);
}

Result<std::optional<LaidOutPictures>, NSError> layOutPictures(const ExportTrack& track) {
  PictureLayout layout(commonTimescaleOf(track.segments));
  for (std::size_t first = 0; first < track.segments.size();) {
    const Stretch stretch = stretchFrom(track.segments, first);
    if (auto added = layout.add(stretch); !added) return failure(added.error());
    first += stretch.size();
  }
  LaidOutPictures laidOut = layout.take();
  if (laidOut.job.firstOfFile() == nullptr) return std::optional<LaidOutPictures>{};
  laidOut.job.matrix = trackMatrix(track.transform);
  return std::optional<LaidOutPictures>(std::move(laidOut));
}

void applyPreset(engine::VideoEncoderSettings& encoder, const ExportPreset& preset, const MediaTrack& media) {
  const auto& facts = media.facts();
  encoder.codec = *preset.videoCodec;
  encoder.quality = preset.quality;
  encoder.speed = preset.speed;
  encoder.longestGroup = preset.longestGroup;
  encoder.averageBitRate = preset.videoBitRate;
  encoder.bitDepth = encoder.codec == engine::VideoCodec::hevc && facts.bitDepth > 8 ? 10 : 8;
  encoder.pixelAspect = facts.pixelAspect;
  encoder.colour = engine::completeColour(media.file()->parameters(media.stream()));
  // Eight bits do not carry a high dynamic range; pictures are tone-mapped for them.
  if (encoder.bitDepth == 8 && facts.highDynamicRange) encoder.colour = {};
}

void setEncodedSize(engine::PictureJob& job, double width, double height, const ExportPreset& preset) {
  if (preset.largestSide > 0 && std::max(width, height) > preset.largestSide) {
    const double share = preset.largestSide / std::max(width, height);
    width *= share;
    height *= share;
    job.fit = engine::PictureConverter::Fit::scale;
  }
  // 4:2:0 encoders want even sizes.
  const auto even = [](double side) {
    const int whole = static_cast<int>(std::lround(side));
    return std::max(whole + whole % 2, engine::leastPictureSide);
  };
  job.encoder.width = even(width);
  job.encoder.height = even(height);
}

void setNominalRate(engine::PictureJob& job, const ExportPreset& preset) {
  std::optional<double> rate = preset.frameRate;
  const auto& pictures = job.firstOfFile()->pictures;
  if (!rate && pictures.size() > 1) {
    const std::int64_t length = pictures.back().time - pictures.front().time;
    rate = static_cast<double>(pictures.size() - 1) * job.timescale / static_cast<double>(length);
  }
  if (rate) job.encoder.frameRate = engine::nominalRate(*rate);
}

void chooseEncoding(engine::PictureJob& job, const ExportPreset& preset) {
  const auto* first = job.firstOfFile();
  const MediaTrack media(first->file, first->stream);
  applyPreset(job.encoder, preset, media);
  job.mixesColours = std::any_of(job.runs.begin(), job.runs.end(), [&media](const engine::PictureRun& run) {
    return run.file != nullptr && engine::completeColour(run.file->parameters(run.stream)) !=
                                      engine::completeColour(media.file()->parameters(media.stream()));
  });
  job.encoder.timescale = job.timescale;
  job.encoder.length = static_cast<double>(job.end) / job.timescale;
  setEncodedSize(job, media.facts().codedWidth, media.facts().codedHeight, preset);
  setNominalRate(job, preset);
}

}  // namespace clipworks
