#pragma once

#include <memory>

#include <clipworks/reverse/VideoReverseConverter.h>

namespace clipworks {

/// The picture half of a reversal, from its work item on: two passes over the video, one that only collects the times
/// of its pictures, and one that takes its pictures in reverse order and writes them at the collected times. The
/// converter lives until the last picture is written.
void reversePictures(const std::shared_ptr<VideoReverseConverter>& converter,
                     const VideoReverseConverter::Completion& onComplete);

}  // namespace clipworks
