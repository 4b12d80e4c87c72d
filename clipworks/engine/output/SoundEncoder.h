#pragma once

#include <cstdint>
#include <optional>
#include <vector>

#include <clipworks/engine/Error.h>
#include <clipworks/engine/Handles.h>

namespace clipworks::engine {

struct SoundEncoderSettings {
  int sampleRate = 48'000;  ///< hertz
  int channels = 2;
  std::int64_t bitRate = 0;  ///< bits a second, of all channels
};

/// AAC-LC. Takes interleaved samples in any portions; the coded samples' times count samples, the encoder's delay lies
/// before zero. One thread at a time.
class SoundEncoder {
 public:
  [[nodiscard]] static Expected<SoundEncoder> open(const SoundEncoderSettings& settings);

  [[nodiscard]] CodecParameters format() const;
  /// Samples in one coded sample: a frame of AAC-LC (ISO/IEC 14496-3, 4.5.1.1).
  static constexpr int samplesPerPacket = 1024;
  /// Samples that the encoder puts before the first.
  [[nodiscard]] int delay() const { return context_->initial_padding; }

  /// Takes `count` samples of every channel, interleaved: `samplesPerPacket` of them, fewer only the last time.
  [[nodiscard]] Expected<void> push(const float* samples, int count);
  [[nodiscard]] Expected<void> finish();
  /// The next coded sample; nothing when the encoder wants more, or has ended.
  [[nodiscard]] Expected<std::optional<Packet>> pull();

 private:
  explicit SoundEncoder(CodecContext context) : context_(std::move(context)) {}
  CodecContext context_;
  std::int64_t taken_ = 0;  // samples so far
};

}  // namespace clipworks::engine
