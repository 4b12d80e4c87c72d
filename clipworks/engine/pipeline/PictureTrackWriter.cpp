#include <clipworks/engine/pipeline/PictureTrackWriter.h>

#include <algorithm>

namespace clipworks::engine {
namespace {

std::int64_t intervalOf(const PictureJob& job) {
  for (const auto& run : job.runs) {
    if (run.pictures.size() > 1) return usualInterval(run);
  }
  return 0;
}

}  // namespace

PictureTrackWriter::PictureTrackWriter(const PictureJob& job, CodedPictures& pictures, MovieWriter& movie, int track)
    : job_(job), pictures_(pictures), movie_(movie), track_(track),
      decodeTimes_(pictures.reorderDepth(), intervalOf(job)), written_(job.runs.size()) {
  if (!job.runs[job.placements.back().run].hidden.empty()) movie.endTrackAt(track, job.end);
}

std::int64_t PictureTrackWriter::writtenUntil() const {
  if (isDone()) return job_.end;
  const auto& placement = job_.placements[placement_];
  const auto& pictures = job_.runs[placement.run].pictures;
  return placement.start + pictures[std::min(sample_, pictures.size() - 1)].time;
}

Expected<void> PictureTrackWriter::writeNext() {
  const auto& placement = job_.placements[placement_];
  const auto& run = job_.runs[placement.run];
  auto& written = written_[placement.run];
  const std::size_t samples = run.pictures.size() + run.hidden.size();
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
  auto stored = movie_.write(track_, *packet);
  if (!stored) return tl::make_unexpected(stored.error());
  if (!again) written.push_back({*stored, time, flags});
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
  packet.pts = placement.start + time;
  packet.dts = decodeTimes_.next(packet.pts);
  // The container counts a track's length in decoding order: its last sample closes the sum.
  if (lastPlacement && sample_ + 1 == shown.size() + run.hidden.size()) packet.dts = packet.pts;
  packet.duration = std::max<std::int64_t>(next - packet.pts, 1);
}

}  // namespace clipworks::engine
