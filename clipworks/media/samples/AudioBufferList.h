#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

#include <clipworks/media/base/Export.h>

namespace clipworks {

/// Samples of one or more interleaved channels, somewhere in memory that another object owns.
struct AudioBuffer {
  std::uint32_t mNumberChannels = 0;
  std::uint32_t mDataByteSize = 0;
  void* mData = nullptr;
};

/// Room for a number of audio buffers. A value.
class CLIPWORKS_API AudioBufferList {
 public:
  /// `AudioBufferList.allocate(maximumBuffers:)`: that many empty ones.
  [[nodiscard]] static AudioBufferList allocate(std::size_t maximumBuffers) { return AudioBufferList(maximumBuffers); }
  /// `AudioBufferList.sizeInBytes(maximumBuffers:)`: what functions take for the size of a list of that many.
  [[nodiscard]] static std::size_t sizeInBytes(std::size_t maximumBuffers) {
    return sizeof(AudioBufferList) + maximumBuffers * sizeof(AudioBuffer);
  }

  /// How many there are.
  [[nodiscard]] std::size_t mNumberBuffers() const { return buffers_.size(); }
  AudioBuffer& operator[](std::size_t i) { return buffers_[i]; }
  const AudioBuffer& operator[](std::size_t i) const { return buffers_[i]; }

 private:
  explicit AudioBufferList(std::size_t maximumBuffers) : buffers_(maximumBuffers) {}
  std::vector<AudioBuffer> buffers_;
};

}  // namespace clipworks
