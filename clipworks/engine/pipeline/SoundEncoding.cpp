#include <clipworks/engine/pipeline/SoundEncoding.h>

#include <algorithm>
#include <exception>

namespace clipworks::engine {
namespace {

// A few seconds of sound, at the usual sizes of portions.
constexpr std::size_t portionsUnderWay = 32;

constexpr std::int64_t silentPortion = 8192;

// A step beyond this fraction of a second is a real gap or overlap: 2 ms.
constexpr int jitterShare = 500;

std::int64_t samplesAt(const Instant& instant, int sampleRate) {
  return av_rescale(instant.value, sampleRate, instant.timescale);
}

}  // namespace

Expected<std::unique_ptr<SoundEncoding>> SoundEncoding::open(const SoundEncoderSettings& settings,
                                                             std::shared_ptr<SharedMovie> movie, std::size_t track,
                                                             std::function<void(const Error&)> onFailure) {
  auto encoder = SoundEncoder::open(settings);
  if (!encoder) return tl::make_unexpected(encoder.error());
  std::unique_ptr<SoundEncoding> encoding(
      new SoundEncoding(settings, std::move(*encoder), std::move(movie), track, std::move(onFailure)));
  auto thread = Thread::start([made = encoding.get()] { made->run(); });
  if (!thread) return tl::make_unexpected(thread.error());
  encoding->thread_ = std::move(*thread);
  return encoding;
}

SoundEncoding::SoundEncoding(const SoundEncoderSettings& settings, SoundEncoder encoder,
                             std::shared_ptr<SharedMovie> movie, std::size_t track,
                             std::function<void(const Error&)> onFailure)
    : settings_(settings),
      movie_(std::move(movie)),
      track_(track),
      onFailure_(std::move(onFailure)),
      portions_(portionsUnderWay),
      encoder_(std::move(encoder)) {}

SoundEncoding::~SoundEncoding() { portions_.abandon(); }

void SoundEncoding::run() {
  std::optional<Error> failure;
  try {
    if (auto encoded = encodeAll(); !encoded) failure = encoded.error();
  } catch (const std::bad_alloc&) {
    failure = Error{ErrorKind::outOfMemory, "out of memory", 0};
  } catch (const std::exception& thrown) {
    failure = Error{ErrorKind::internal, thrown.what(), 0};
  }
  if (!failure) return;
  portions_.abandon();
  onFailure_(*failure);
}

Expected<void> SoundEncoding::encodeAll() {
  for (;;) {
    auto portion = portions_.pop();
    if (!portion) return tl::make_unexpected(portion.error());
    if (!*portion) break;
    if (auto taken = take(**portion); !taken) return taken;
  }
  if (!converter_) return movie_->leaveOut(track_);
  if (auto finished = converter_->finish(converted_); !finished) return finished;
  if (auto encoded = encode(true); !encoded) return encoded;
  if (auto finished = encoder_.finish(); !finished) return finished;
  return passOn();
}

Expected<void> SoundEncoding::begin(const SoundPortion& first) {
  format_ = first.format;
  auto converter = SoundConverter::open(format_, {settings_.sampleRate, settings_.channels});
  if (!converter) return tl::make_unexpected(converter.error());
  converter_.emplace(std::move(*converter));
  const std::int64_t start = samplesAt(start_, format_.sampleRate);
  position_ = first.start ? std::max(samplesAt(*first.start, format_.sampleRate), start) : start;
  offset_ = av_rescale(position_, settings_.sampleRate, format_.sampleRate);
  return movie_->describe(track_, encoder_.format(), settings_.sampleRate, std::nullopt);
}

Expected<void> SoundEncoding::take(const SoundPortion& portion) {
  if (!converter_) {
    if (auto begun = begin(portion); !begun) return begun;
  }
  if (!(portion.format == format_)) {
    return failed(ErrorKind::unsupported, "the sound's rate or channels change on the way");
  }
  const std::int16_t* samples = portion.samples.data();
  auto count = static_cast<std::int64_t>(portion.samples.size()) / format_.channels;
  if (portion.start) {
    const std::int64_t told = samplesAt(*portion.start, format_.sampleRate);
    if (told - position_ > format_.sampleRate / jitterShare) {
      if (auto skipped = skipTo(told); !skipped) return skipped;
    } else if (position_ - told > format_.sampleRate / jitterShare) {
      const std::int64_t early = std::min(position_ - told, count);
      samples += early * format_.channels;
      count -= early;
    }
  }
  position_ += count;
  if (auto pushed = converter_->push(samples, count, converted_); !pushed) return pushed;
  return encode(false);
}

// Silence up to `position`.
Expected<void> SoundEncoding::skipTo(std::int64_t position) {
  const std::vector<std::int16_t> silence(static_cast<std::size_t>(silentPortion * format_.channels));
  while (position_ < position) {
    const std::int64_t count = std::min(position - position_, silentPortion);
    if (auto pushed = converter_->push(silence.data(), count, converted_); !pushed) return pushed;
    position_ += count;
    if (auto encoded = encode(false); !encoded) return encoded;
  }
  return {};
}

// Whole packets; at the end what is left too.
Expected<void> SoundEncoding::encode(bool isEnd) {
  const auto channels = static_cast<std::size_t>(settings_.channels);
  const std::size_t whole = SoundEncoder::samplesPerPacket * channels;
  std::size_t at = 0;
  while (converted_.size() - at >= whole || (isEnd && at < converted_.size())) {
    const std::size_t part = std::min(whole, converted_.size() - at);
    if (auto pushed = encoder_.push(converted_.data() + at, static_cast<int>(part / channels)); !pushed) return pushed;
    at += part;
    if (auto passed = passOn(); !passed) return passed;
  }
  converted_.erase(converted_.begin(), converted_.begin() + static_cast<std::ptrdiff_t>(at));
  return {};
}

Expected<void> SoundEncoding::passOn() {
  for (;;) {
    auto packet = encoder_.pull();
    if (!packet) return tl::make_unexpected(packet.error());
    if (!*packet) return {};
    (**packet)->pts += offset_;
    (**packet)->dts += offset_;
    if (auto written = movie_->write(track_, std::move(**packet)); !written) return written;
  }
}

}  // namespace clipworks::engine
