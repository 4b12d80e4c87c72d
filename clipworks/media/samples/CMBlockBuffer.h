#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <vector>

#include <clipworks/media/base/Export.h>

namespace clipworks {

/// Status of the sample functions: 0 is success.
using OSStatus = std::int32_t;
inline constexpr OSStatus noErr = 0;
inline constexpr OSStatus kCMBlockBufferBadOffsetParameterErr = -12704;
inline constexpr OSStatus kCMBlockBufferBadLengthParameterErr = -12705;

/// Bytes of samples, in one piece, aligned to 16. Not thread-safe.
class CLIPWORKS_API CMBlockBuffer {
 public:
  /// A copy of `length` bytes; `source` may be null for zeros.
  [[nodiscard]] static std::shared_ptr<CMBlockBuffer> make(const void* source, std::size_t length);

  /// The bytes, for reading and writing.
  [[nodiscard]] std::byte* dataPointer() { return bytes_.data(); }
  [[nodiscard]] const std::byte* dataPointer() const { return bytes_.data(); }
  /// How many there are.
  [[nodiscard]] std::size_t dataLength() const { return bytes_.size(); }

 private:
  CMBlockBuffer() = default;
  std::vector<std::byte> bytes_;  // the allocator aligns what is large enough to 16 bytes
};

/// Overwrites `dataLength` bytes from `offsetIntoDestination` on with those at `sourceBytes`. Fails, and changes
/// nothing, when the range is not within the buffer.
[[nodiscard]] CLIPWORKS_API OSStatus CMBlockBufferReplaceDataBytes(const void* sourceBytes,
                                                                   CMBlockBuffer& destinationBuffer,
                                                                   std::size_t offsetIntoDestination,
                                                                   std::size_t dataLength);

}  // namespace clipworks
