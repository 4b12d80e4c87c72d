#include <clipworks/engine/pipeline/SoundMixer.h>

#include <algorithm>
#include <cmath>

#include <clipworks/engine/LibraryErrors.h>

namespace clipworks::engine {
namespace {

constexpr std::int64_t blockSamples = 4096;

// Gains from the source's channels (columns) to the output's (rows). Mono goes to both sides at unity, 5.1 folds down by
// ITU-R BS.775-3, annex 4: centre and surrounds at -3 dB, no low frequencies. Nothing: the library's own matrix.
std::optional<std::vector<double>> mixingGains(int from, int to) {
  constexpr double minus3dB = 0.70710678118654752;
  if (from == 1 && to == 2) return std::vector<double>{1.0, 1.0};
  if (from == 6 && to == 2) {  // L R C LFE Ls Rs
    return std::vector<double>{1.0, 0.0, minus3dB, 0.0, minus3dB, 0.0, 0.0, 1.0, minus3dB, 0.0, 0.0, minus3dB};
  }
  return std::nullopt;
}

}  // namespace

Expected<std::unique_ptr<SoundLaneReader>> SoundLaneReader::open(const SoundLane& lane, int sampleRate, int channels) {
  auto reader = SoundReader::open(lane.file, lane.stream);
  if (!reader) return tl::make_unexpected(reader.error());
  std::unique_ptr<SoundLaneReader> opened(new SoundLaneReader(lane, std::move(*reader), channels));
  if (auto ready = opened->prepareConverter(sampleRate); !ready) return tl::make_unexpected(ready.error());
  if (auto cached = opened->cacheIfRepeated(); !cached) return tl::make_unexpected(cached.error());
  return opened;
}

Expected<void> SoundLaneReader::cacheIfRepeated() {
  if (lane_.pieces.size() < 2) return {};
  std::int64_t start = INT64_MAX;
  std::int64_t end = INT64_MIN;
  std::int64_t played = 0;
  for (const auto& piece : lane_.pieces) {
    start = std::min(start, piece.source);
    end = std::max(end, piece.source + piece.length);
    played += piece.length;
  }
  const std::int64_t values = (end - start) * reader_.channels();
  if (played <= end - start || values * static_cast<std::int64_t>(sizeof(float)) > cachedBytes) return {};
  std::vector<float> cache(static_cast<std::size_t>(values));
  if (auto read = reader_.read(start, end - start, cache.data()); !read) return read;
  cache_ = std::move(cache);
  cacheStart_ = start;
  return {};
}

Expected<void> SoundLaneReader::prepareConverter(int sampleRate) {
  const int from = reader_.channels();
  if (reader_.sampleRate() == sampleRate && from == channels_) return {};
  AVChannelLayout source;
  AVChannelLayout target;
  av_channel_layout_default(&source, from);
  av_channel_layout_default(&target, channels_);
  SwrContext* converter = nullptr;
  int code = swr_alloc_set_opts2(&converter, &target, AV_SAMPLE_FMT_FLT, sampleRate, &source, AV_SAMPLE_FMT_FLT,
                                 reader_.sampleRate(), 0, nullptr);
  converter_.reset(converter);
  av_channel_layout_uninit(&source);
  av_channel_layout_uninit(&target);
  if (code >= 0) {
    if (const auto gains = mixingGains(from, channels_)) code = swr_set_matrix(converter, gains->data(), from);
  }
  if (code >= 0) code = swr_init(converter);
  if (code < 0) return tl::make_unexpected(libraryError(code, lane_.file->name() + ": the sound cannot be converted"));
  return {};
}

Expected<void> SoundLaneReader::readSource(std::int64_t position, std::int64_t count, float* samples) {
  if (cache_.empty()) return reader_.read(position, count, samples);
  const auto from = cache_.begin() + (position - cacheStart_) * reader_.channels();
  std::copy(from, from + count * reader_.channels(), samples);
  return {};
}

// The next `count` samples of the pieces in their places, silence between them, at the lane's own rate and layout.
Expected<void> SoundLaneReader::readPlaced(std::int64_t count, std::vector<float>& samples) {
  const std::int64_t channels = reader_.channels();
  samples.assign(static_cast<std::size_t>(count * channels), 0.0F);
  const std::int64_t end = position_ + count;
  for (; piece_ < lane_.pieces.size(); ++piece_) {
    const SoundPiece& piece = lane_.pieces[piece_];
    const std::int64_t from = std::max(position_, piece.target);
    const std::int64_t to = std::min(end, piece.target + piece.length);
    if (from < to) {
      float* out = samples.data() + (from - position_) * channels;
      if (auto read = readSource(piece.source + (from - piece.target), to - from, out); !read) return read;
    }
    if (piece.target + piece.length > end) break;
  }
  position_ = end;
  return {};
}

Expected<void> SoundLaneReader::addNext(std::int64_t count, float* mix) {
  const auto wanted = static_cast<std::size_t>(count * channels_);
  while (pending_.size() < wanted) {
    if (auto read = readPlaced(blockSamples, placed_); !read) return read;
    if (converter_ == nullptr) {
      pending_.insert(pending_.end(), placed_.begin(), placed_.end());
      continue;
    }
    const int room = swr_get_out_samples(converter_.get(), static_cast<int>(blockSamples));
    const std::size_t had = pending_.size();
    pending_.resize(had + static_cast<std::size_t>(std::max(room, 0) * channels_));
    auto* out = reinterpret_cast<std::uint8_t*>(pending_.data() + had);
    const auto* in = reinterpret_cast<const std::uint8_t*>(placed_.data());
    const int made = swr_convert(converter_.get(), &out, room, &in, static_cast<int>(blockSamples));
    if (made < 0) return tl::make_unexpected(libraryError(made, lane_.file->name() + ": the sound cannot be converted"));
    pending_.resize(had + static_cast<std::size_t>(made * channels_));
  }
  for (std::size_t i = 0; i < wanted; ++i) mix[i] += lane_.volume * pending_[i];
  pending_.erase(pending_.begin(), pending_.begin() + static_cast<std::ptrdiff_t>(wanted));
  return {};
}

Expected<SoundMixer> SoundMixer::open(const SoundJob& job) {
  SoundMixer mixer(job.encoder.channels);
  for (const auto& lane : job.lanes) {
    if (lane.volume == 0) continue;
    auto reader = SoundLaneReader::open(lane, job.encoder.sampleRate, job.encoder.channels);
    if (!reader) return tl::make_unexpected(reader.error());
    mixer.lanes_.push_back(std::move(*reader));
  }
  return mixer;
}

Expected<void> SoundMixer::next(std::int64_t count, std::vector<float>& samples) {
  samples.assign(static_cast<std::size_t>(count * channels_), 0.0F);
  for (const auto& lane : lanes_) {
    if (auto added = lane->addNext(count, samples.data()); !added) return added;
  }
  return {};
}

}  // namespace clipworks::engine
