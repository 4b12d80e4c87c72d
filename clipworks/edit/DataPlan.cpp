#include <clipworks/edit/DataPlan.h>

#include <algorithm>
#include <array>
#include <cstddef>
#include <iterator>
#include <map>
#include <memory>
#include <optional>
#include <set>
#include <span>
#include <string>
#include <tuple>
#include <utility>

#include <clipworks/edit/TimeCode.h>
#include <clipworks/engine/Limits.h>
#include <clipworks/engine/boxes/BoxBuilder.h>
#include <clipworks/engine/boxes/BoxCursor.h>
#include <clipworks/engine/boxes/FourCC.h>
#include <clipworks/media/asset/FileSegments.h>
#include <clipworks/media/asset/MediaTrack.h>
#include <clipworks/media/composition/SegmentArithmetic.h>
#include <clipworks/media/time/ExactTime.h>

namespace clipworks {
namespace {

using engine::DataJob;
using engine::DataTrack;
using engine::fourCC;

/// A file of the edit with its data tracks.
struct DataSource {
  const Source* source = nullptr;
  std::shared_ptr<const engine::MediaFile> file;
  engine::DataTracks data;
};

/// A range of a track's media, and where it plays.
struct Piece {
  CMTimeRange media;
  CMTimeRange target;
};

/// A track of a file, its pieces in the order in which they play.
struct UsedTrack {
  const DataSource* source = nullptr;
  const DataTrack* track = nullptr;
  std::vector<Piece> pieces;
  std::uint32_t picturesID = 0;  // of the track of pictures beside it
  int job = -2;                  // none
};

std::string textOf(std::uint32_t fourCharacters) {
  std::string text;
  for (int shift = 24; shift >= 0; shift -= 8) {
    const auto character = static_cast<char>(fourCharacters >> shift & 0xFF);
    text += character >= ' ' && character <= '~' ? character : '?';
  }
  return text;
}

std::string kindOf(std::uint32_t handler) {
  if (handler == fourCC("meta") || handler == fourCC("data")) return "timed metadata";
  return handler == fourCC("tmcd") ? "time code" : "subtitles";
}

std::string formatOf(const DataTrack& track) {
  return kindOf(track.format.handler) + (track.sampleFormat() == 0 ? "" : " (" + textOf(track.sampleFormat()) + ")");
}

std::vector<DataSource> sourcesOf(const EditState& state) {
  std::vector<DataSource> sources;
  std::set<const engine::MediaFile*> seen;
  for (const auto& source : state.sources) {
    const auto file = source->asset->tracks().front()->media()->file();
    if (!file->hasMovieHeader() || file->otherStreams().empty() || !seen.insert(file.get()).second) continue;
    if (auto data = engine::readDataTracks(*file->handle())) sources.push_back({source.get(), file, std::move(*data)});
  }
  return sources;
}

/// Why no data track can come along; empty where they can.
std::string obstacle(const EditState& state, const engine::PictureJob* pictures, bool keepsMetadata) {
  if (pictures == nullptr) return "there are no pictures that it could go with";
  if (!keepsMetadata) return "metadata is not kept";
  for (const MediaSegment& segment : state.pictures->segments()) {
    if (segment.backwards) return "pictures play backwards";
    const bool isHeld = segment.isEmpty() || segment.source.duration == kCMTimeZero;
    if (!isHeld && !isAtNormalRate(segment)) return "pictures are re-timed";
  }
  return "";
}

/// Whether pictures of `file` are drawn, rather than shown as they are.
bool drawsFrom(const engine::PictureJob& pictures, const engine::MediaFile* file) {
  return std::any_of(pictures.runs.begin(), pictures.runs.end(), [file](const engine::PictureRun& run) {
    return std::any_of(run.layers.begin(), run.layers.end(), [file](const auto& l) { return l.file.get() == file; });
  });
}

/// Why this one cannot; empty where it can.
std::string obstacleTo(const DataSource& source, const DataTrack& track, const engine::PictureJob& pictures) {
  if (!track.flaw.empty()) return track.flaw;
  if (track.format.handler == fourCC("meta") && drawsFrom(pictures, source.file.get()))
    return "it may tell of places in the pictures, which are drawn anew";
  return "";
}

/// What `segment`, at its own pace, shows of the file's own timeline; nothing where the file never shows it.
std::optional<CMTimeRange> onFileTimeline(const Source& source, const MediaSegment& segment) {
  for (const auto& track : source.asset->tracks()) {
    const auto& media = *track->media();
    if (media.file() != segment.mediaTrack->file() || media.stream() != segment.mediaTrack->stream()) continue;
    for (const auto& shown : track->segments()) {
      if (!shown.isEmpty() && shown.source.start <= segment.source.start && segment.source.start < shown.source.end())
        return CMTimeRange(mapToTarget(shown, segment.source.start), segment.source.duration);
    }
  }
  return std::nullopt;
}

/// The file's own presentation of a data track.
std::vector<AVAssetTrackSegment> segmentsOf(const DataSource& source, const DataTrack& track) {
  const auto& last = track.samples.back();
  return segmentsFromEdits({track.edits, source.file->timescale(), track.timescale, last.time + last.length, 0});
}

/// Stretches that go on in one another make one piece, so that no sample is cut between them.
void append(std::vector<Piece>& pieces, Piece piece) {
  const bool goesOn = !pieces.empty() && pieces.back().media.end() == piece.media.start &&
                      pieces.back().target.end() == piece.target.start;
  if (!goesOn) return pieces.push_back(std::move(piece));
  pieces.back() = {CMTimeRange::fromTo(pieces.back().media.start, piece.media.end()),
                   CMTimeRange::fromTo(pieces.back().target.start, piece.target.end())};
}

/// Cuts `track` as the pictures of its file are cut.
UsedTrack cut(const EditState& state, const DataSource& source, const DataTrack& track) {
  UsedTrack used{&source, &track, {}};
  const auto shownAt = segmentsOf(source, track);
  const auto& last = track.samples.back();
  const CMTime mediaEnd(last.time + last.length, track.timescale);
  for (const MediaSegment& stretch : state.pictures->segments()) {
    if (stretch.isEmpty() || stretch.source.duration == kCMTimeZero || stretch.mediaTrack->file() != source.file)
      continue;
    used.picturesID = static_cast<std::uint32_t>(stretch.mediaTrack->facts().trackID);
    const auto range = onFileTimeline(*source.source, stretch);
    if (!range) continue;
    for (const AVAssetTrackSegment& shown : shownAt) {
      const CMTime from = CMTimeMaximum(shown.target.start, range->start);
      const CMTime to = CMTimeMinimum(shown.target.end(), range->end());
      if (!isAtNormalRate(shown) || from >= to) continue;
      const CMTime begin = mapToSource(shown, from);
      const CMTime end = CMTimeMinimum(begin + (to - from), mediaEnd);
      const CMTime start = stretch.target.start + (from - range->start);
      if (begin < end) append(used.pieces, {CMTimeRange::fromTo(begin, end), CMTimeRange(start, end - begin)});
    }
  }
  return used;
}

/// Tracks of different files that mean the same: of one kind and language and, where the description says what is in
/// the samples, of one description.
bool meanTheSame(const DataTrack& a, const DataTrack& b) {
  if (a.format.handler != b.format.handler || a.sampleFormat() != b.sampleFormat()) return false;
  if (a.format.language != b.format.language) return false;
  return a.format.handler != fourCC("meta") || a.descriptions == b.descriptions;
}

/// The time scale in which the track's samples and the cuts are whole; where there is none, that of its samples.
std::int32_t timescaleOf(const std::vector<const UsedTrack*>& parts) {
  constexpr std::int32_t most = 90'000;
  std::int32_t scale = parts.front()->track->timescale;
  const auto refine = [&scale](std::int32_t wanted) {
    if (const std::int32_t common = commonTimescale(scale, wanted, most); common != 0) scale = common;
  };
  for (const UsedTrack* part : parts) refine(part->track->timescale);
  for (const UsedTrack* part : parts) {
    for (const Piece& piece : part->pieces) {
      refine(piece.target.start.timescale);
      refine(piece.target.duration.timescale);
      refine(piece.media.start.timescale);
    }
  }
  return scale;
}

/// A sample that says nothing: an empty text (3GPP TS 26.245, 5.17; QuickTime's too), an empty cue (ISO/IEC 14496-30),
/// an empty box of no key (QuickTime's timed metadata). Elsewhere no bytes.
std::vector<std::byte> nothingIn(std::uint32_t format) {
  engine::BoxBuilder bytes;
  if (format == fourCC("tx3g") || format == fourCC("text")) bytes.putZeros(2);
  if (format == fourCC("wvtt")) bytes.box(fourCC("vtte"), [] {});
  if (format == fourCC("mebx")) bytes.box(0, [] {});
  return bytes.take();
}

/// Writes the pieces of some tracks as one.
class JobMaker {
 public:
  explicit JobMaker(const std::vector<const UsedTrack*>& parts) : parts_(parts) {
    job_.timescale = timescaleOf(parts);
    job_.format = parts.front()->track->format;
  }

  /// Why it cannot be written; empty where `take` gives it.
  std::string make() {
    struct Placed {
      const UsedTrack* part;
      const Piece* piece;
      std::size_t descriptionsBefore;
    };
    std::vector<Placed> all;
    for (const UsedTrack* part : parts_) {
      const std::size_t before = addDescriptions(*part->track);
      for (const Piece& piece : part->pieces) all.push_back({part, &piece, before});
    }
    std::stable_sort(all.begin(), all.end(),
                     [](const Placed& a, const Placed& b) { return a.piece->target.start < b.piece->target.start; });
    for (const Placed& placed : all) {
      if (auto flaw = add(*placed.part, *placed.piece, placed.descriptionsBefore); !flaw.empty()) return flaw;
    }
    if (job_.placements.empty()) return "it has nothing in what is shown";
    if (static_cast<std::uint64_t>(job_.sampleCount()) > engine::limits::maxSamples)
      return "it would have more samples than a track may have";
    return "";
  }

  DataJob take() { return std::move(job_); }

 private:
  /// Descriptions that the job has already are used again. Returns where those of the track begin.
  std::size_t addDescriptions(const DataTrack& track) {
    auto& all = job_.descriptions;
    const auto known = std::search(all.begin(), all.end(), track.descriptions.begin(), track.descriptions.end());
    const auto place = static_cast<std::size_t>(known - all.begin());
    if (known == all.end()) all.insert(all.end(), track.descriptions.begin(), track.descriptions.end());
    return place;
  }

  std::string add(const UsedTrack& part, const Piece& piece, std::size_t descriptionsBefore) {
    const std::int64_t start = ticks(piece.target.start, job_.timescale);
    const std::int64_t end = ticks(piece.target.end(), job_.timescale);
    if (start >= end) return "";
    const RunKey key{part.track, piece.media.start.value, piece.media.start.timescale, piece.media.duration.value,
                     piece.media.duration.timescale};
    auto known = runs_.find(key);
    if (known == runs_.end()) {
      auto run = runOf(part, piece, descriptionsBefore, end - start);
      if (!run) return "its time code cannot be counted on";
      if (longestSample(*run, end - start) > UINT32_MAX) return "a sample of it lasts longer than a track can say";
      known = runs_.emplace(key, job_.runs.size()).first;
      job_.runs.push_back(std::move(*run));
    }
    // Where a time was rounded, the same run may be a tick shorter elsewhere.
    if (end - start <= job_.runs[known->second].samples.back().time) return "";
    const std::uint32_t description = job_.runs[known->second].samples.front().description;
    if (auto flaw = fillUpTo(start, description); !flaw.empty()) return flaw;
    job_.placements.push_back({static_cast<std::uint32_t>(known->second), start, end});
    return "";
  }

  /// The samples of a piece of `length` ticks: the one on at its start begins with it. Nothing where its time code
  /// cannot be counted on.
  std::optional<engine::DataRun> runOf(const UsedTrack& part, const Piece& piece, std::size_t descriptionsBefore,
                                       std::int64_t length) const {
    const DataTrack& track = *part.track;
    engine::DataRun run{part.source->file->handle(), {}};
    const std::int64_t begin = ticks(piece.media.start, track.timescale, CMTimeRoundingMethod::roundTowardZero);
    const auto next = std::upper_bound(track.samples.begin(), track.samples.end(), begin,
                                       [](std::int64_t time, const engine::DataSample& s) { return time < s.time; });
    for (auto sample = std::prev(next); sample != track.samples.end(); ++sample) {
      const CMTime offset = CMTime(sample->time, track.timescale) - piece.media.start;
      const std::int64_t time = std::max<std::int64_t>(ticks(offset, job_.timescale), 0);
      if (time >= length) break;
      const engine::DataRunSample taken{sample->position, sample->bytes,
                                        static_cast<std::uint32_t>(descriptionsBefore) + sample->description, time,
                                        sample->isSync};
      // Of samples that begin within one tick the last one stays.
      if (!run.samples.empty() && run.samples.back().time == time)
        run.samples.back() = taken;
      else
        run.samples.push_back(taken);
      if (offset >= kCMTimeZero || track.format.handler != fourCC("tmcd")) continue;
      const auto later = laterTimeCode(part, *sample, -offset);
      if (!later) return std::nullopt;
      setOwn(run, *later);
    }
    return run;
  }

  /// The last sample of `run` becomes `bytes`.
  static void setOwn(engine::DataRun& run, const std::vector<std::byte>& bytes) {
    run.samples.back().position = run.own.size();
    run.samples.back().bytes = static_cast<std::uint32_t>(bytes.size());
    run.samples.back().isOwn = true;
    run.own.insert(run.own.end(), bytes.begin(), bytes.end());
  }

  /// Up to a piece there is a sample that says nothing, since players take holes in an edit list wrong: those in its
  /// middle, and the length of what comes behind one at its start. No time code says nothing: there the hole stays.
  std::string fillUpTo(std::int64_t start, std::uint32_t description) {
    const std::int64_t end = job_.placements.empty() ? 0 : job_.placements.back().end;
    if (end >= start || job_.format.handler == fourCC("tmcd")) return "";
    if (start - end > UINT32_MAX) return "it would have a hole that is longer than a sample can be";
    auto known = fillers_.find(description);
    if (known == fillers_.end()) {
      engine::DataRun run{nullptr, {{0, 0, description, 0}}};
      setOwn(run, nothingIn(parts_.front()->track->sampleFormat()));
      known = fillers_.emplace(description, job_.runs.size()).first;
      job_.runs.push_back(std::move(run));
    }
    job_.placements.push_back({static_cast<std::uint32_t>(known->second), end, start});
    return "";
  }

  static std::int64_t longestSample(const engine::DataRun& run, std::int64_t length) {
    std::int64_t longest = 0;
    for (std::size_t i = 0; i < run.samples.size(); ++i) {
      const bool isLast = i + 1 == run.samples.size();
      longest = std::max(longest, (isLast ? length : run.samples[i + 1].time) - run.samples[i].time);
    }
    return longest;
  }

  static std::optional<std::vector<std::byte>> laterTimeCode(const UsedTrack& part, const engine::DataSample& sample,
                                                             const CMTime& elapsed) {
    std::array<std::uint8_t, 4> number{};
    if (sample.bytes != number.size()) return std::nullopt;
    const auto position = static_cast<std::int64_t>(sample.position);
    if (part.source->file->handle()->readAt(position, number.data(), number.size()) != std::ssize(number))
      return std::nullopt;
    const auto first = engine::BoxCursor(std::as_bytes(std::span(number))).read<std::uint32_t>();
    const auto later = laterFrameNumber(part.track->descriptions[sample.description], first, elapsed);
    if (!later) return std::nullopt;
    engine::BoxBuilder bytes;
    bytes.put(*later);
    return bytes.take();
  }

  using RunKey = std::tuple<const DataTrack*, std::int64_t, std::int32_t, std::int64_t, std::int32_t>;

  const std::vector<const UsedTrack*>& parts_;
  DataJob job_;
  std::map<RunKey, std::size_t> runs_;
  std::map<std::uint32_t, std::size_t> fillers_;  // by description
};

class Planner {
 public:
  Planner(const EditState& state, const engine::PictureJob* pictures, bool keepsMetadata) : sources_(sourcesOf(state)) {
    const std::string ofAll = obstacle(state, pictures, keepsMetadata);
    for (const DataSource& source : sources_) {
      for (const DataTrack& track : source.data.tracks) {
        const std::string why = ofAll.empty() ? obstacleTo(source, track, *pictures) : ofAll;
        if (!why.empty()) {
          leaveOut(source, track, why);
        } else if (auto used = cut(state, source, track); used.pieces.empty()) {
          leaveOut(source, track, "it has nothing in what is shown");
        } else {
          used_.push_back(std::move(used));
        }
      }
    }
  }

  DataPlan make() {
    for (const auto& group : groups()) {
      std::vector<const UsedTrack*> parts;
      for (const std::size_t i : group) parts.push_back(&used_[i]);
      JobMaker maker(parts);
      const std::string why = maker.make();
      for (const std::size_t i : group) {
        if (why.empty())
          used_[i].job = static_cast<int>(plan_.jobs.size());
        else
          leaveOut(*used_[i].source, *used_[i].track, why);
      }
      if (!why.empty()) continue;
      plan_.jobs.push_back(maker.take());
      tell(*parts.front()->track, plan_.jobs.back());
    }
    for (const UsedTrack& used : used_) refer(used);
    return std::move(plan_);
  }

 private:
  void leaveOut(const DataSource& source, const DataTrack& track, const std::string& why) {
    plan_.leftOut.push_back(
        {source.source->name() + ": track " + std::to_string(track.id) + ", " + formatOf(track), why});
  }

  /// Numbers of used tracks that become one; at most one of each file.
  [[nodiscard]] std::vector<std::vector<std::size_t>> groups() const {
    std::vector<std::vector<std::size_t>> groups;
    for (std::size_t i = 0; i < used_.size(); ++i) {
      const auto takes = [&](const std::vector<std::size_t>& group) {
        return meanTheSame(*used_[group.front()].track, *used_[i].track) &&
               std::none_of(group.begin(), group.end(),
                            [&](auto other) { return used_[other].source == used_[i].source; });
      };
      const auto group = std::find_if(groups.begin(), groups.end(), takes);
      if (group == groups.end())
        groups.push_back({i});
      else
        group->push_back(i);
    }
    return groups;
  }

  void tell(const DataTrack& track, const DataJob& job) {
    PlannedTrack told;
    told.kind = PlannedTrack::Kind::data;
    told.isCopied = true;
    told.holds = kindOf(track.format.handler);
    told.format = textOf(track.sampleFormat());
    told.samples = job.sampleCount();
    plan_.tracks.push_back(std::move(told));
  }

  /// The references of a track, and to it, by what its file says.
  void refer(const UsedTrack& used) {
    if (used.job < 0) return;
    DataJob& job = plan_.jobs[static_cast<std::size_t>(used.job)];
    for (const auto& reference : used.source->data.references) {
      if (reference.from == used.picturesID && reference.to == used.track->id) add(job.picturesReferTo, reference.type);
      if (reference.from != used.track->id) continue;
      if (reference.to == used.picturesID) add(job.references, {reference.type, DataJob::pictures});
      for (const UsedTrack& other : used_) {
        if (other.source == used.source && other.track->id == reference.to && other.job >= 0)
          add(job.references, {reference.type, other.job});
      }
    }
  }

  template <class T>
  static void add(std::vector<T>& list, T value) {
    if (std::find(list.begin(), list.end(), value) == list.end()) list.push_back(value);
  }

  std::vector<DataSource> sources_;
  std::vector<UsedTrack> used_;
  DataPlan plan_;
};

}  // namespace

DataPlan planData(const EditState& state, const engine::PictureJob* pictures, bool keepsMetadata) {
  return Planner(state, pictures, keepsMetadata).make();
}

}  // namespace clipworks
