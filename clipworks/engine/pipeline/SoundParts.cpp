#include <clipworks/engine/pipeline/SoundParts.h>

#include <algorithm>

#include <clipworks/engine/input/SoundReader.h>
#include <clipworks/engine/pipeline/SoundLaneReader.h>

namespace clipworks::engine {
namespace {

// Each part costs a decoder, a stretcher and some threads.
constexpr std::size_t mostParts = 4;

// A mirrored lane is read by jumps alone, to the same places wherever reading begins.
Expected<bool> allJumpExactly(const SoundJob& job) {
  for (const auto& lane : job.lanes) {
    if (lane.mirror) continue;
    const auto reader = SoundReader::open(lane.file, lane.stream);
    if (!reader) return tl::make_unexpected(reader.error());
    if (!reader->jumpsExactly()) return false;
  }
  return true;
}

}  // namespace

bool stretches(const SoundJob& job, std::int64_t from, std::int64_t to) {
  return std::any_of(job.lanes.begin(), job.lanes.end(), [&](const SoundLane& lane) {
    return std::any_of(lane.pieces.begin(), lane.pieces.end(), [&](const SoundPiece& piece) {
      return piece.isStretched() && piece.target < to && from < piece.target + piece.length;
    });
  });
}

Expected<std::vector<ParallelSoundEncoding::Sections>> soundParts(const SoundJob& job) {
  constexpr std::int64_t samplesPerPacket = SoundEncoder::samplesPerPacket;
  std::vector<ParallelSoundEncoding::Sections> parts(1);
  if (job.limited || !stretches(job, 0, job.length)) return parts;
  const std::int64_t section = ParallelSoundEncoding::sectionPackets * samplesPerPacket;
  std::int64_t partStart = 0;
  for (std::int64_t i = 1; (i + 1) * section <= job.length && parts.size() < mostParts; ++i) {
    const std::int64_t start = ParallelSoundEncoding::firstPacket(i) * samplesPerPacket;
    const bool mayStart = std::all_of(job.lanes.begin(), job.lanes.end(), [&](const SoundLane& lane) {
      return SoundLaneReader::mayStartAt(start, lane, job.encoder.sampleRate);
    });
    if (!mayStart || !stretches(job, partStart, start)) continue;
    parts.back().end = i;
    parts.push_back({i, std::nullopt});
    partStart = start;
  }
  if (parts.size() == 1) return parts;
  const auto exact = allJumpExactly(job);
  if (!exact) return tl::make_unexpected(exact.error());
  if (!*exact) return std::vector<ParallelSoundEncoding::Sections>(1);
  return parts;
}

}  // namespace clipworks::engine
