#pragma once

#include <cstdint>
#include <vector>

#include <clipworks/engine/Error.h>
#include <clipworks/engine/Handles.h>

namespace clipworks::engine {

/// What interleaved samples are.
struct SoundFormat {
  int sampleRate = 0;  ///< hertz
  int channels = 0;
  friend bool operator==(const SoundFormat&, const SoundFormat&) = default;
};

/// Brings 16-bit samples that come in portions to another rate and layout in one go, so that nothing happens where
/// portions meet. n samples become n × new rate / old rate, rounded half up, with nothing moved in time. Mono goes to
/// both sides at unity; six channels fold down by ITU-R BS.775, the middle two alike, since samples in memory do not
/// tell which of them is the centre. One thread at a time.
class SoundConverter {
 public:
  [[nodiscard]] static Expected<SoundConverter> open(const SoundFormat& from, const SoundFormat& to);

  /// Takes `count` samples of every channel, interleaved, and appends what they become to `converted`; the last few are
  /// held back.
  [[nodiscard]] Expected<void> push(const std::int16_t* samples, std::int64_t count, std::vector<float>& converted);
  /// Appends the rest.
  [[nodiscard]] Expected<void> finish(std::vector<float>& converted);

 private:
  SoundConverter(const SoundFormat& from, const SoundFormat& to) : from_(from), to_(to) {}
  Expected<void> convert(const std::int16_t* samples, int count, std::vector<float>& converted);

  SoundFormat from_;
  SoundFormat to_;
  Resampler converter_;
  std::int64_t taken_ = 0;  // samples of every channel
  std::int64_t made_ = 0;
};

}  // namespace clipworks::engine
