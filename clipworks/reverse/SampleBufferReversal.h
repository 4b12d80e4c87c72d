#pragma once

#include <memory>
#include <vector>

#include <clipworks/media/base/Export.h>
#include <clipworks/media/samples/CMSampleBuffer.h>

namespace clipworks {

/// `reverse(timingInfo:)` of a buffer of 16-bit PCM: its values in reverse order, one by one, whatever channels they
/// belong to, so that left and right change places; with the timing records given. The values are turned round in the
/// buffer's own memory, which the new one shares. An odd last byte stays where it is, and so does a single one; an
/// empty block stays empty. A buffer without a block of memory aborts. Null when the bytes cannot be overwritten; the
/// given buffer itself when no new one can be made of them.
[[nodiscard]] CLIPWORKS_API std::shared_ptr<CMSampleBuffer> reverse(const std::shared_ptr<CMSampleBuffer>& sampleBuffer,
                                                                    const std::vector<CMSampleTimingInfo>& timingInfo);

}  // namespace clipworks
