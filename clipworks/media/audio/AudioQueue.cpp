#include <clipworks/media/audio/AudioQueue.h>

namespace clipworks {

const DispatchQueue& audioQueue() {
  // Never destroyed: a recorder may answer until the very end of the process.
  static const auto* queue = new DispatchQueue(DispatchQueue::make("clipworks.audio"));
  return *queue;
}

}  // namespace clipworks
