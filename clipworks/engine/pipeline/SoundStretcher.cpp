#include <clipworks/engine/pipeline/SoundStretcher.h>

#include <algorithm>
#include <cmath>
#include <vector>

#include <rubberband/RubberBandStretcher.h>

namespace clipworks::engine {
namespace {

using RubberBand::RubberBandStretcher;

double ratioOf(const SoundPiece& piece) {
  return static_cast<double>(piece.length) / static_cast<double>(piece.sourceLength);
}

/// What the library needs around the piece, in seconds of the source and of the output alike: half of its longest
/// window, 43 ms at 48 kHz, passes before its output has its full level, and the same at the end.
constexpr double contextSeconds = 0.1;
static_assert(contextSeconds > SoundStretcher::leastTail + 0.05);

class PitchKeepingStretcher final : public SoundStretcher {
 public:
  PitchKeepingStretcher(const SoundPiece& piece, int sampleRate, int channels, ReadSource readSource)
      : readSource_(std::move(readSource)),
        channels_(static_cast<std::size_t>(channels)),
        ratio_(ratioOf(piece)),
        library_(static_cast<std::size_t>(sampleRate), channels_,
                 RubberBandStretcher::OptionProcessOffline | RubberBandStretcher::OptionEngineFiner |
                     RubberBandStretcher::OptionThreadingNever | RubberBandStretcher::OptionChannelsTogether,
                 ratio_),
        planes_(channels_),
        planePointers_(channels_) {
    const std::int64_t context = surroundings(piece, sampleRate);
    next_ = piece.source - context;
    end_ = piece.source + piece.sourceLength + context;
    toDrop_ = std::llround(static_cast<double>(context) * ratio_);
    left_ = piece.length;
    portion_ = std::clamp(static_cast<std::int64_t>(mostMade / ratio_), std::int64_t{64}, std::int64_t{mostFed});
    // With the length known, the finer engine learns nothing from a first pass over the sound (its output is the same
    // bit for bit), so there is none.
    library_.setExpectedInputDuration(static_cast<std::size_t>(end_ - next_));
    library_.setMaxProcessSize(static_cast<std::size_t>(portion_));
  }

  Expected<void> read(std::int64_t count, float* samples) override {
    while (count > 0) {
      if (madeFrom_ == made_.size()) {
        auto more = make();
        if (!more) return tl::make_unexpected(more.error());
        if (!*more) return fillBehindEnd(count, samples);
        continue;
      }
      const std::size_t part = std::min(static_cast<std::size_t>(count) * channels_, made_.size() - madeFrom_);
      samples = std::copy_n(made_.begin() + static_cast<std::ptrdiff_t>(madeFrom_), part, samples);
      madeFrom_ += part;
      count -= static_cast<std::int64_t>(part / channels_);
      left_ -= static_cast<std::int64_t>(part / channels_);
    }
    return {};
  }

 private:
  // A portion that makes more than the library's buffers hold would be cut.
  static constexpr double mostMade = 8192;
  static constexpr int mostFed = 4096;

  /// Replaces made_ by what the library makes next; false when it has made all.
  Expected<bool> make() {
    made_.clear();
    madeFrom_ = 0;
    while (made_.empty()) {
      const int available = library_.available();
      if (available < 0) return false;
      if (available > 0) {
        take(static_cast<std::size_t>(available));
      } else if (next_ == end_) {
        return false;
      } else if (auto fed = feed(); !fed) {
        return tl::make_unexpected(fed.error());
      }
    }
    return true;
  }

  Expected<void> feed() {
    const std::int64_t count = std::min(portion_, end_ - next_);
    interleaved_.resize(static_cast<std::size_t>(count) * channels_);
    if (auto read = readSource_(next_, count, interleaved_.data()); !read) return read;
    next_ += count;
    arrange(static_cast<std::size_t>(count));
    for (std::size_t channel = 0; channel < channels_; ++channel) {
      for (std::size_t i = 0; i < static_cast<std::size_t>(count); ++i) {
        const float sample = interleaved_[i * channels_ + channel];
        planes_[channel][i] = std::isfinite(sample) ? sample : 0.0F;  // one that is not would spoil all that follow
      }
    }
    library_.process(planePointers_.data(), static_cast<std::size_t>(count), next_ == end_);
    return {};
  }

  void take(std::size_t available) {
    arrange(available);
    const std::size_t got = library_.retrieve(planePointers_.data(), available);
    const std::size_t dropped = std::min(got, static_cast<std::size_t>(toDrop_));
    toDrop_ -= static_cast<std::int64_t>(dropped);
    for (std::size_t i = dropped; i < got; ++i) {
      for (const auto& plane : planes_) made_.push_back(plane[i]);
    }
  }

  void arrange(std::size_t count) {
    for (std::size_t channel = 0; channel < channels_; ++channel) {
      planes_[channel].resize(std::max(planes_[channel].size(), count));
      planePointers_[channel] = planes_[channel].data();
    }
  }

  Expected<void> fillBehindEnd(std::int64_t count, float* samples) const {
    if (left_ > 0) return failed(ErrorKind::internal, "the stretched sound came out too short");
    std::fill_n(samples, static_cast<std::size_t>(count) * channels_, 0.0F);
    return {};
  }

  ReadSource readSource_;
  std::size_t channels_;
  double ratio_;
  RubberBandStretcher library_;
  std::int64_t next_ = 0;     // of the source, to be fed
  std::int64_t end_ = 0;      // of what is fed
  std::int64_t toDrop_ = 0;   // samples of the context before the piece that are still to come
  std::int64_t left_ = 0;     // of the piece, to be read
  std::int64_t portion_ = 0;  // fed at once
  std::vector<float> interleaved_;
  std::vector<std::vector<float>> planes_;
  std::vector<float*> planePointers_;
  std::vector<float> made_;   // interleaved
  std::size_t madeFrom_ = 0;  // where the part of it begins that was not read
};

/// Slower: straight lines between the samples. Faster: the mean of all samples that fall on one.
class PlainStretcher final : public SoundStretcher {
 public:
  PlainStretcher(const SoundPiece& piece, int channels, ReadSource readSource)
      : readSource_(std::move(readSource)),
        channels_(static_cast<std::size_t>(channels)),
        source_(piece.source),
        pace_(1.0 / ratioOf(piece)),
        end_(piece.source),
        mean_(channels_) {}

  Expected<void> read(std::int64_t count, float* samples) override {
    for (; count > 0; --count, ++given_, samples += channels_) {
      const double from = static_cast<double>(given_) * pace_;
      auto done = pace_ < 1.0 ? interpolate(from, samples) : average(from, from + pace_, samples);
      if (!done) return done;
    }
    return {};
  }

 private:
  static constexpr std::int64_t portion = 4096;

  Expected<void> interpolate(double at, float* samples) {
    const auto before = static_cast<std::int64_t>(at);
    const auto share = static_cast<float>(at - static_cast<double>(before));
    if (auto there = reach(source_ + before + 1); !there) return there;
    const float* a = sample(source_ + before);
    const float* b = sample(source_ + before + 1);
    for (std::size_t channel = 0; channel < channels_; ++channel) {
      samples[channel] = a[channel] + share * (b[channel] - a[channel]);
    }
    return {};
  }

  Expected<void> average(double from, double to, float* samples) {
    std::fill(mean_.begin(), mean_.end(), 0.0);
    const auto first = static_cast<std::int64_t>(from);
    const auto last = static_cast<std::int64_t>(to);
    for (std::int64_t i = first; i < last; ++i) {
      if (auto there = reach(source_ + i); !there) return there;
      const float* one = sample(source_ + i);
      for (std::size_t channel = 0; channel < channels_; ++channel) mean_[channel] += one[channel];
    }
    for (std::size_t channel = 0; channel < channels_; ++channel) {
      samples[channel] = static_cast<float>(mean_[channel] / static_cast<double>(last - first));
    }
    return {};
  }

  /// Reads on until the window holds `position`; the last sample of the window before stays in it.
  Expected<void> reach(std::int64_t position) {
    while (position >= end_) {
      const std::size_t kept = window_.empty() ? 0 : channels_;
      std::copy_n(window_.end() - static_cast<std::ptrdiff_t>(kept), kept, window_.begin());
      window_.resize(kept + static_cast<std::size_t>(portion) * channels_);
      if (auto read = readSource_(end_, portion, window_.data() + kept); !read) return read;
      end_ += portion;
    }
    return {};
  }

  [[nodiscard]] const float* sample(std::int64_t position) const {
    return window_.data() + window_.size() - static_cast<std::size_t>(end_ - position) * channels_;
  }

  ReadSource readSource_;
  std::size_t channels_;
  std::int64_t source_;
  double pace_;  // samples of the source for one
  std::int64_t given_ = 0;
  std::int64_t end_;  // of the source, behind window_
  std::vector<float> window_;
  std::vector<double> mean_;
};

}  // namespace

std::int64_t SoundStretcher::surroundings(const SoundPiece& piece, int sampleRate) {
  const double pace = std::clamp(1.0 / ratioOf(piece), 1.0, greatestRatio);
  return static_cast<std::int64_t>(std::ceil(contextSeconds * sampleRate * pace));
}

std::unique_ptr<SoundStretcher> SoundStretcher::make(const SoundPiece& piece, int sampleRate, int channels,
                                                     ReadSource readSource) {
  const double ratio = ratioOf(piece);
  if (ratio > greatestRatio || ratio < 1.0 / greatestRatio) {
    return std::make_unique<PlainStretcher>(piece, channels, std::move(readSource));
  }
  return std::make_unique<PitchKeepingStretcher>(piece, sampleRate, channels, std::move(readSource));
}

}  // namespace clipworks::engine
