#include <clipworks/engine/pipeline/SoundLaneReader.h>

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <numbers>
#include <optional>

#include <clipworks/engine/LibraryErrors.h>
#include <clipworks/engine/output/MixingGains.h>

namespace clipworks::engine {
namespace {

constexpr std::int64_t blockSamples = 4096;

/// A seam's tail may be led away from its place by this part of the seam: half a period of 200 Hz, at the most.
constexpr std::int64_t leadDivisor = 4;

/// How far a fade has come at its sample `at` of `count`: 0 … 1.
double fadedShare(std::size_t at, std::size_t count) {
  return 0.5 - 0.5 * std::cos(std::numbers::pi * (static_cast<double>(at) + 0.5) / static_cast<double>(count));
}

/// How alike two sounds are while one fades into the other: 1 as a sound is to itself, 0 as two noises, -1 as
/// opposites.
double likenessInFade(const std::vector<float>& head, const std::vector<float>& tail, std::size_t channels) {
  double both = 0;
  double powers = 0;
  const std::size_t count = head.size() / channels;
  for (std::size_t i = 0; i < count; ++i) {
    const double share = fadedShare(i, count);
    const double weight = share * (1.0 - share);
    for (std::size_t at = i * channels; at < (i + 1) * channels; ++at) {
      const double a = head[at];
      const double b = tail[at];
      both += weight * a * b;
      powers += 0.5 * weight * (a * a + b * b);
    }
  }
  return powers > 0 ? both / powers : 1.0;
}

/// The first `count` samples of a sound that hurries or dawdles at its start, so that from the middle on it is heard
/// `lead` samples early. The sound goes on for at least `lead` samples behind them.
std::vector<float> leaning(const std::vector<float>& sound, std::ptrdiff_t lead, std::size_t count,
                           std::size_t channels) {
  std::vector<float> leant(count * channels);
  for (std::size_t i = 0; i < count; ++i) {
    const double shift = static_cast<double>(lead) * (2 * i < count ? fadedShare(2 * i, count) : 1.0);
    const double position = std::max(0.0, static_cast<double>(i) + shift);
    const auto before = static_cast<std::size_t>(position);
    const auto fraction = static_cast<float>(position - static_cast<double>(before));
    const std::size_t behind = std::min(before + 1, sound.size() / channels - 1);
    for (std::size_t channel = 0; channel < channels; ++channel) {
      const float a = sound[before * channels + channel];
      leant[i * channels + channel] = a + fraction * (sound[behind * channels + channel] - a);
    }
  }
  return leant;
}

/// `tail`, leaning by up to `mostLead` samples such that it goes along with `head` where the two are heard together.
std::vector<float> alongside(const std::vector<float>& head, const std::vector<float>& tail, std::ptrdiff_t mostLead,
                             std::size_t channels) {
  // A tone is alike again a period later: the least that helps is taken.
  constexpr double costOfMostLead = 0.1;
  std::vector<float> best;
  double bestLikeness = -2;
  for (std::ptrdiff_t lead = -mostLead; lead <= mostLead; ++lead) {
    auto leant = leaning(tail, lead, head.size() / channels, channels);
    const double cost = costOfMostLead * static_cast<double>(std::abs(lead)) /
                        static_cast<double>(std::max<std::ptrdiff_t>(1, mostLead));
    const double likeness = likenessInFade(head, leant, channels) - cost;
    if (likeness <= bestLikeness) continue;
    bestLikeness = likeness;
    best = std::move(leant);
  }
  return best;
}

/// Fades from `tail` into `head`, which becomes the result. Two sounds of one source at two paces are alike but not in
/// phase. So the tail, which goes on for `mostLead` samples more, is led into phase with the head, as far as that goes
/// with sounds of many pitches; and the fade keeps their power, whether they add up as amplitudes or as powers.
void fadeInto(std::vector<float>& head, const std::vector<float>& tail, std::ptrdiff_t mostLead, int channels) {
  const auto width = static_cast<std::size_t>(channels);
  const std::vector<float> led = alongside(head, tail, mostLead, width);
  // Below this the two cancel out, and making up for it would make noise loud.
  constexpr double leastLikeness = -0.5;
  const double likeness = std::max(likenessInFade(head, led, width), leastLikeness);
  const std::size_t count = head.size() / width;
  for (std::size_t i = 0; i < count; ++i) {
    const double share = fadedShare(i, count);
    const double rest = 1.0 - share;
    const double gain = 1.0 / std::sqrt(share * share + rest * rest + 2 * likeness * share * rest);
    for (std::size_t at = i * width; at < (i + 1) * width; ++at) {
      head[at] = static_cast<float>(gain * (share * head[at] + rest * led[at]));
    }
  }
}

}  // namespace

bool SoundLaneReader::mayStartAt(std::int64_t from, const SoundLane& lane, int sampleRate) {
  const StreamFacts& facts = lane.file->stream(lane.stream);
  if (facts.sampleRate != sampleRate) return false;
  const auto seam = static_cast<std::int64_t>(seamSeconds * sampleRate);
  return std::none_of(lane.pieces.begin(), lane.pieces.end(), [&](const SoundPiece& piece) {
    return piece.target <= from && from < piece.target + (piece.isStretched() ? piece.length : seam);
  });
}

Expected<std::unique_ptr<SoundLaneReader>> SoundLaneReader::open(const SoundLane& lane, int sampleRate, int channels,
                                                                 std::int64_t from, std::stop_token stop) {
  auto sound = LaneSound::open(lane, std::move(stop));
  if (!sound) return tl::make_unexpected(sound.error());
  std::unique_ptr<SoundLaneReader> opened(new SoundLaneReader(lane, std::move(*sound), channels));
  if (auto ready = opened->prepareConverter(sampleRate); !ready) return tl::make_unexpected(ready.error());
  if (auto cached = opened->prepareSource(); !cached) return tl::make_unexpected(cached.error());
  opened->position_ = from;
  return opened;
}

Expected<void> SoundLaneReader::prepareSource() {
  std::int64_t surroundings = 0;
  for (const auto& piece : lane_.pieces) {
    if (piece.isStretched())
      surroundings = std::max(surroundings, SoundStretcher::surroundings(piece, sound_.sampleRate()));
  }
  if (surroundings > 0) {
    recent_.emplace(sound_, 2 * surroundings + blockSamples);
    return {};
  }
  if (lane_.pieces.size() < 2) return {};
  std::int64_t start = INT64_MAX;
  std::int64_t end = INT64_MIN;
  std::int64_t played = 0;
  for (const auto& piece : lane_.pieces) {
    start = std::min(start, piece.source);
    end = std::max(end, piece.source + piece.length);
    played += piece.length;
  }
  const std::int64_t values = (end - start) * sound_.channels();
  if (played <= end - start || values * static_cast<std::int64_t>(sizeof(float)) > cachedBytes) return {};
  std::vector<float> cache(static_cast<std::size_t>(values));
  if (auto read = sound_.read(start, end - start, cache.data()); !read) return read;
  cache_ = std::move(cache);
  cacheStart_ = start;
  return {};
}

Expected<void> SoundLaneReader::prepareConverter(int sampleRate) {
  const int from = sound_.channels();
  if (sound_.sampleRate() == sampleRate && from == channels_) return {};
  AVChannelLayout source{};
  AVChannelLayout target{};
  av_channel_layout_default(&source, from);
  av_channel_layout_default(&target, channels_);
  SwrContext* converter = nullptr;
  int code = swr_alloc_set_opts2(&converter, &target, AV_SAMPLE_FMT_FLT, sampleRate, &source, AV_SAMPLE_FMT_FLT,
                                 sound_.sampleRate(), 0, nullptr);
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
  if (recent_) return recent_->read(position, count, samples);
  if (cache_.empty()) return sound_.read(position, count, samples);
  const auto from = cache_.begin() + (position - cacheStart_) * sound_.channels();
  std::copy(from, from + count * sound_.channels(), samples);
  return {};
}

Expected<void> SoundLaneReader::beginPiece(std::size_t index) {
  const SoundPiece& piece = lane_.pieces[index];
  const SoundPiece* before = index > 0 ? &lane_.pieces[index - 1] : nullptr;
  const bool goesOn = before != nullptr && before->target + before->length == piece.target &&
                      std::llabs(before->source + before->sourceLength - piece.source) <= 1;  // both were rounded
  const bool isAtStart = position_ <= piece.target;
  const bool fades = isAtStart && goesOn && (before->isStretched() || piece.isStretched());
  const auto most = static_cast<std::int64_t>(seamSeconds * sound_.sampleRate());
  const std::int64_t count = fades ? std::min(most, piece.length) : 0;

  const std::int64_t mostLead = count / leadDivisor;
  const std::int64_t tailCount = count + mostLead;
  std::vector<float> tail(static_cast<std::size_t>(tailCount * sound_.channels()));
  if (count > 0) {
    auto read = before->isStretched() ? stretcher_->read(tailCount, tail.data())
                                      : readSource(before->source + before->length, tailCount, tail.data());
    if (!read) return read;
  }
  begun_ = index;
  stretcher_.reset();
  if (piece.isStretched()) {
    stretcher_ = SoundStretcher::make(
        piece, sound_.sampleRate(), sound_.channels(),
        [this](std::int64_t position, std::int64_t n, float* samples) { return readSource(position, n, samples); });
  }
  seam_.clear();
  if (count == 0) return {};
  std::vector<float> seam(static_cast<std::size_t>(count * sound_.channels()));
  if (auto read = readPiece(0, count, seam.data()); !read) return read;
  fadeInto(seam, tail, mostLead, sound_.channels());
  seam_ = std::move(seam);
  return {};
}

// `count` samples of the piece that was begun, from `offset` on; in rising order.
Expected<void> SoundLaneReader::readPiece(std::int64_t offset, std::int64_t count, float* samples) {
  const std::int64_t channels = sound_.channels();
  const std::int64_t ofSeam = static_cast<std::int64_t>(seam_.size()) / channels;
  if (offset < ofSeam) {
    const std::int64_t part = std::min(count, ofSeam - offset);
    samples = std::copy_n(seam_.begin() + offset * channels, part * channels, samples);
    offset += part;
    count -= part;
  }
  if (count == 0) return {};
  return stretcher_ != nullptr ? stretcher_->read(count, samples)
                               : readSource(lane_.pieces[begun_].source + offset, count, samples);
}

// The next `count` samples of the pieces in their places, silence between them, at the lane's own rate and layout.
Expected<void> SoundLaneReader::readPlaced(std::int64_t count, std::vector<float>& samples) {
  const std::int64_t channels = sound_.channels();
  samples.assign(static_cast<std::size_t>(count * channels), 0.0F);
  const std::int64_t end = position_ + count;
  for (; piece_ < lane_.pieces.size(); ++piece_) {
    const SoundPiece& piece = lane_.pieces[piece_];
    const std::int64_t from = std::max(position_, piece.target);
    const std::int64_t to = std::min(end, piece.target + piece.length);
    if (from < to) {
      if (begun_ != piece_) {
        if (auto begun = beginPiece(piece_); !begun) return begun;
      }
      float* out = samples.data() + (from - position_) * channels;
      if (auto read = readPiece(from - piece.target, to - from, out); !read) return read;
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
    if (made < 0)
      return tl::make_unexpected(libraryError(made, lane_.file->name() + ": the sound cannot be converted"));
    pending_.resize(had + static_cast<std::size_t>(made * channels_));
  }
  for (std::size_t i = 0; i < wanted; ++i) mix[i] += lane_.volume * pending_[i];
  pending_.erase(pending_.begin(), pending_.begin() + static_cast<std::ptrdiff_t>(wanted));
  return {};
}

}  // namespace clipworks::engine
