#pragma once

#include <cstdint>
#include <optional>
#include <thread>
#include <vector>

#include <clipworks/engine/Error.h>
#include <clipworks/engine/Handles.h>
#include <clipworks/engine/pipeline/BoundedQueue.h>
#include <clipworks/engine/pipeline/ExportJob.h>

namespace clipworks::engine {

/// The stage of a track of sound: gives its coded samples, copied, or mixed and encoded on a thread each. Times count
/// samples; the encoder's delay lies before zero. `open`, `next` and `format` on one thread, `abandon` on any.
class CodedSound {
 public:
  explicit CodedSound(const SoundJob& job);
  CodedSound(const CodedSound&) = delete;
  CodedSound& operator=(const CodedSound&) = delete;
  ~CodedSound();

  /// The job must outlive this.
  [[nodiscard]] Expected<void> open();
  [[nodiscard]] const AVCodecParameters& format() const { return *format_; }
  [[nodiscard]] Expected<std::optional<Packet>> next() { return coded_.pop(); }
  void abandon();

 private:
  void copy();
  void mix();
  void encode();
  Expected<void> copyAll();
  Expected<void> mixAll();
  Expected<void> encodeAll();
  Expected<void> passOn();

  const SoundJob& job_;
  CodecParameters format_;
  std::optional<SoundEncoder> encoder_;
  BoundedQueue<std::vector<float>> mixed_;  // interleaved, as many as the encoder takes at once
  BoundedQueue<Packet> coded_;
  std::jthread mixing_;
  std::jthread coding_;
};

}  // namespace clipworks::engine
