#include <clipworks/engine/pipeline/LaneSound.h>

#include <algorithm>
#include <utility>

#include <clipworks/engine/pipeline/SoundStretcher.h>

namespace clipworks::engine {
namespace {

/// Where the block begins that holds `position`, which is not negative.
std::int64_t startOfBlock(std::int64_t position) {
  return position / LaneSound::blockSamples * LaneSound::blockSamples;
}

}  // namespace

Expected<LaneSound> LaneSound::open(const SoundLane& lane, std::stop_token stop) {
  auto reader = SoundReader::open(lane.file, lane.stream);
  if (!reader) return tl::make_unexpected(reader.error());
  LaneSound sound(std::move(*reader), lane.mirror, std::move(stop));
  // Every block is reached by a jump, and a click would be heard where it lay beside the one before.
  if (lane.mirror && !sound.reader_.jumpsExactly()) sound.toLearn_ = mirroredRange(lane, sound.sampleRate());
  return sound;
}

// What the pieces play, and what their stretching hears around that, in whole blocks.
LaneSound::Range LaneSound::mirroredRange(const SoundLane& lane, int sampleRate) {
  Range range{INT64_MAX, 0};
  for (const auto& piece : lane.pieces) {
    const std::int64_t around = piece.isStretched() ? SoundStretcher::surroundings(piece, sampleRate) : 0;
    const std::int64_t end = *lane.mirror - piece.source;
    range.begin = std::min(range.begin, std::max<std::int64_t>(end - piece.sourceLength - around, 0));
    range.end = std::max(range.end, end + around);
  }
  return {startOfBlock(range.begin), startOfBlock(range.end) + blockSamples};
}

Expected<void> LaneSound::read(std::int64_t position, std::int64_t count, float* samples) {
  if (mirror_) return readMirrored(position, count, samples);
  const std::int64_t before = std::clamp<std::int64_t>(-position, 0, count);
  samples = std::fill_n(samples, before * channels(), 0.0F);
  return before == count ? Expected<void>{} : reader_.read(position + before, count - before, samples);
}

Expected<void> LaneSound::readMirrored(std::int64_t position, std::int64_t count, float* samples) {
  const std::int64_t width = channels();
  std::int64_t source = *mirror_ - 1 - position;
  while (count > 0 && source >= 0) {
    if (auto loaded = load(startOfBlock(source)); !loaded) return loaded;
    const std::int64_t part = std::min(count, source - blockStart_ + 1);
    auto frame = block_.cbegin() + (source - blockStart_) * width;
    for (std::int64_t i = 0; i < part; ++i) samples = std::copy_n(frame - i * width, width, samples);
    source -= part;
    count -= part;
  }
  std::fill_n(samples, count * width, 0.0F);
  return {};
}

Expected<void> LaneSound::load(std::int64_t start) {
  if (!block_.empty() && blockStart_ == start) return {};
  if (const auto range = std::exchange(toLearn_, std::nullopt)) {
    if (auto learned = reader_.learnPlaces(range->begin, range->end, stop_); !learned) return learned;
  }
  std::vector<float> block = std::move(block_);
  block.resize(static_cast<std::size_t>(blockSamples * channels()));
  if (auto read = reader_.read(start, blockSamples, block.data()); !read) return read;
  block_ = std::move(block);
  blockStart_ = start;
  return {};
}

}  // namespace clipworks::engine
