#include <clipworks/media/samples/CMBlockBuffer.h>

#include <cstring>

namespace clipworks {

static_assert(__STDCPP_DEFAULT_NEW_ALIGNMENT__ >= 16, "block buffers are aligned to 16 bytes");

std::shared_ptr<CMBlockBuffer> CMBlockBuffer::make(const void* source, std::size_t length) {
  std::shared_ptr<CMBlockBuffer> buffer(new CMBlockBuffer());
  buffer->bytes_.resize(length);
  if (source != nullptr && length > 0) std::memcpy(buffer->bytes_.data(), source, length);
  return buffer;
}

OSStatus CMBlockBufferReplaceDataBytes(const void* sourceBytes, CMBlockBuffer& destinationBuffer,
                                       std::size_t offsetIntoDestination, std::size_t dataLength) {
  if (offsetIntoDestination > destinationBuffer.dataLength()) return kCMBlockBufferBadOffsetParameterErr;
  if (dataLength > destinationBuffer.dataLength() - offsetIntoDestination) return kCMBlockBufferBadLengthParameterErr;
  if (dataLength > 0) std::memcpy(destinationBuffer.dataPointer() + offsetIntoDestination, sourceBytes, dataLength);
  return noErr;
}

}  // namespace clipworks
