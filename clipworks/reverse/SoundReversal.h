#pragma once

#include <clipworks/reverse/VideoReverseConverter.h>

namespace clipworks {

/// The sound half of a reversal, from its work item on: reads all of the video's sound into memory, and writes its
/// buffers last first, each reversed. Blocks until all is handed to the writer.
void reverseSound(const URL& videoURL, const VideoReverseConverter::Completion& onComplete);

}  // namespace clipworks
