#include <clipworks/engine/output/SoundConverter.h>

#include <algorithm>

#include <clipworks/engine/LibraryErrors.h>
#include <clipworks/engine/output/MixingGains.h>

namespace clipworks::engine {
namespace {

constexpr std::int64_t portion = 8192;  // samples converted at a time

/// Six channels whose order nobody tells. Played backwards value by value, centre and low frequencies have changed
/// places, so the middle two both count as the centre: no voice is lost.
std::optional<std::vector<double>> gainsWithoutLayout(int from, int to) {
  constexpr double minus3dB = 0.70710678118654752;
  if (from != 6 || to != 2) return mixingGains(from, to);
  return std::vector<double>{1.0, 0.0, minus3dB, minus3dB, minus3dB, 0.0, 0.0, 1.0, minus3dB, minus3dB, 0.0, minus3dB};
}

tl::unexpected<Error> conversionFailed(int code) {
  return tl::make_unexpected(libraryError(code, "the sound cannot be converted", ErrorKind::unsupported));
}

}  // namespace

Expected<SoundConverter> SoundConverter::open(const SoundFormat& from, const SoundFormat& to) {
  SoundConverter converter(from, to);
  AVChannelLayout source{};
  AVChannelLayout target{};
  av_channel_layout_default(&source, from.channels);
  av_channel_layout_default(&target, to.channels);
  SwrContext* context = nullptr;
  int code = swr_alloc_set_opts2(&context, &target, AV_SAMPLE_FMT_FLT, to.sampleRate, &source, AV_SAMPLE_FMT_S16,
                                 from.sampleRate, 0, nullptr);
  converter.converter_.reset(context);
  av_channel_layout_uninit(&source);
  av_channel_layout_uninit(&target);
  if (code >= 0) {
    if (const auto gains = gainsWithoutLayout(from.channels, to.channels)) {
      code = swr_set_matrix(context, gains->data(), from.channels);
    }
  }
  // The samples in between are as exact as floating point is; 16 bits would be rounded twice.
  if (code >= 0) code = av_opt_set_sample_fmt(context, "internal_sample_fmt", AV_SAMPLE_FMT_FLTP, 0);
  if (code >= 0) code = swr_init(context);
  if (code < 0) return conversionFailed(code);
  return converter;
}

Expected<void> SoundConverter::push(const std::int16_t* samples, std::int64_t count, std::vector<float>& converted) {
  while (count > 0) {
    const std::int64_t part = std::min(count, portion);
    if (auto done = convert(samples, static_cast<int>(part), converted); !done) return done;
    samples += part * from_.channels;
    count -= part;
    taken_ += part;
  }
  return {};
}

Expected<void> SoundConverter::finish(std::vector<float>& converted) {
  for (std::int64_t before = -1; before != made_;) {
    before = made_;
    if (auto done = convert(nullptr, 0, converted); !done) return done;
  }
  const std::int64_t wanted = av_rescale(taken_, to_.sampleRate, from_.sampleRate);
  const std::int64_t missing = (wanted - made_) * to_.channels;
  const auto have = static_cast<std::int64_t>(converted.size());
  converted.resize(static_cast<std::size_t>(std::max<std::int64_t>(have + missing, 0)));
  made_ = wanted;
  return {};
}

// Without samples it gives what it still holds.
Expected<void> SoundConverter::convert(const std::int16_t* samples, int count, std::vector<float>& converted) {
  int room = swr_get_out_samples(converter_.get(), count);
  if (room < 0) return conversionFailed(room);
  room += static_cast<int>(portion);
  const std::size_t had = converted.size();
  converted.resize(had + static_cast<std::size_t>(room) * static_cast<std::size_t>(to_.channels));
  auto* out = reinterpret_cast<std::uint8_t*>(converted.data() + had);
  const auto* in = reinterpret_cast<const std::uint8_t*>(samples);
  const int made = swr_convert(converter_.get(), &out, room, samples == nullptr ? nullptr : &in, count);
  if (made < 0) return conversionFailed(made);
  converted.resize(had + static_cast<std::size_t>(made) * static_cast<std::size_t>(to_.channels));
  made_ += made;
  return {};
}

}  // namespace clipworks::engine
