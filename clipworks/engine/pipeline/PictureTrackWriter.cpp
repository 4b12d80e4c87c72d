#include <clipworks/engine/pipeline/PictureTrackWriter.h>

#include <algorithm>

namespace clipworks::engine {
namespace {

/// The usual time between two pictures, by the source's own pace where that is quicker: what is slowed shall not delay
/// the first picture.
std::int64_t intervalOf(const PictureJob& job) {
  const auto run = std::find_if(job.runs.begin(), job.runs.end(), [](const auto& r) { return r.pictures.size() > 1; });
  if (run == job.runs.end()) return 0;
  std::vector<std::int64_t> times;
  for (const auto& picture : run->pictures) times.push_back(picture.time);
  const std::int64_t shown = usualInterval(times);
  if (run->file == nullptr) return shown;
  const auto table = run->file->pictureTable(run->stream);
  if (!table) return shown;
  times.clear();
  for (std::size_t picture = 0; picture < (*table)->pictureCount(); ++picture)
    times.push_back((*table)->timeOfPicture(picture));
  return std::min(shown, av_rescale(usualInterval(times), job.timescale, run->file->stream(run->stream).timescale));
}

/// When the first picture is shown.
std::int64_t startOf(const PictureJob& job) {
  const auto& first = job.placements.front();
  return first.start + job.runs[first.run].pictures.front().time;
}

/// The library writes an empty edit when the first sample lies behind zero. Where hidden samples precede a picture that
/// is shown late, all times are moved until the first lies there.
std::int64_t shiftOf(const PictureJob& job) {
  const auto& first = job.placements.front();
  const auto& hidden = job.runs[first.run].hiddenBefore;
  return hidden.empty() || startOf(job) == 0 ? 0 : startOf(job) - first.start - hidden.front().time;
}

}  // namespace

PictureTrackWriter::PictureTrackWriter(const PictureJob& job, CodedPictures& pictures, MovieWriter& movie, int track)
    : job_(job),
      pictures_(pictures),
      movie_(movie),
      track_(track),
      shift_(shiftOf(job)),
      decodeTimes_(pictures.reorderDepth(), intervalOf(job)),
      written_(job.runs.size()) {}

std::int64_t PictureTrackWriter::writtenUntil() const {
  if (isDone()) return job_.end;
  const auto& placement = job_.placements[placement_];
  const auto& run = job_.runs[placement.run];
  const std::size_t shown = sample_ - std::min(sample_, run.hiddenBefore.size());
  return placement.start + run.pictures[std::min(shown, run.pictures.size() - 1)].time;
}

Expected<void> PictureTrackWriter::writeNext() {
  const auto& placement = job_.placements[placement_];
  const auto& run = job_.runs[placement.run];
  auto& written = written_[placement.run];
  const std::size_t samples = run.hiddenBefore.size() + run.pictures.size() + run.hiddenAfter.size();
  const bool again = written.size() == samples;
  if (sample_ == 0) decodeTimes_.beginRun(run, placement.start);

  std::int64_t time = 0;
  Packet packet;
  if (again) {
    const WrittenPicture& before = written[sample_];
    auto stored = movie_.readBack(track_, before.stored);
    if (!stored) return tl::make_unexpected(stored.error());
    packet = std::move(*stored);
    packet->flags = before.flags;
    time = before.time;
  } else {
    auto coded = pictures_.next();
    if (!coded) return tl::make_unexpected(coded.error());
    if (!*coded) return failed(ErrorKind::internal, "pictures are missing at the end");
    packet = std::move((*coded)->packet);
    time = (*coded)->time;
  }
  const int flags = packet->flags;
  stamp(*packet, time);
  const bool isLast = placement_ + 1 == job_.placements.size() && sample_ + 1 == samples;
  auto stored = isLast ? movie_.writeLast(track_, *packet, edit()) : movie_.write(track_, *packet);
  if (!stored) return tl::make_unexpected(stored.error());
  if (!again) written.push_back({*stored, time, flags});
  ++picturesWritten_;
  if (++sample_ == samples) {
    sample_ = 0;
    ++placement_;
  }
  return {};
}

void PictureTrackWriter::stamp(AVPacket& packet, std::int64_t time) {
  const auto& placement = job_.placements[placement_];
  const auto& run = job_.runs[placement.run];
  const auto& shown = run.pictures;
  const auto after = std::upper_bound(shown.begin(), shown.end(), time,
                                      [](std::int64_t t, const ShownPicture& p) { return t < p.time; });
  const bool lastPlacement = placement_ + 1 == job_.placements.size();
  const std::int64_t next = after != shown.end() ? placement.start + after->time
                            : lastPlacement      ? job_.end
                                                 : job_.placements[placement_ + 1].start;
  packet.pts = placement.start + time + shift_;
  packet.dts = decodeTimes_.next(placement.start + time) + shift_;
  packet.duration = std::max<std::int64_t>(next - placement.start - time, 1);
}

TrackEdit PictureTrackWriter::edit() const {
  const std::int64_t start = startOf(job_);
  return {start, job_.end, start + shift_};
}

}  // namespace clipworks::engine
