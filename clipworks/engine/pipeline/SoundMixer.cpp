#include <clipworks/engine/pipeline/SoundMixer.h>

#include <algorithm>

namespace clipworks::engine {

Expected<SoundMixer> SoundMixer::open(const SoundJob& job, std::int64_t from, const std::stop_token& stop) {
  SoundMixer mixer(job.encoder.channels);
  for (const auto& lane : job.lanes) {
    if (lane.volume == 0) continue;
    auto reader = SoundLaneReader::open(lane, job.encoder.sampleRate, job.encoder.channels, from, stop);
    if (!reader) return tl::make_unexpected(reader.error());
    mixer.lanes_.push_back(std::move(*reader));
  }
  if (job.limited) {
    mixer.limiter_.emplace(job.encoder.sampleRate, job.encoder.channels);
    std::vector<float> ahead;
    if (auto added = mixer.addUp(mixer.limiter_->delay(), ahead); !added) return tl::make_unexpected(added.error());
    mixer.limiter_->process(ahead.data(), mixer.limiter_->delay());
  }
  return mixer;
}

Expected<void> SoundMixer::addUp(std::int64_t count, std::vector<float>& samples) {
  samples.assign(static_cast<std::size_t>(count * channels_), 0.0F);
  for (const auto& lane : lanes_) {
    if (auto added = lane->addNext(count, samples.data()); !added) return added;
  }
  return {};
}

Expected<void> SoundMixer::next(std::int64_t count, std::vector<float>& samples) {
  if (auto added = addUp(count, samples); !added) return added;
  if (limiter_) limiter_->process(samples.data(), count);
  return {};
}

}  // namespace clipworks::engine
