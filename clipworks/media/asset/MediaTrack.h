#pragma once

#include <memory>

#include <clipworks/engine/input/MediaFile.h>

namespace clipworks {

/// The coded media behind a file's track: which stream of which open file. Immutable; what the platform's renderers
/// hand to the engine.
class MediaTrack {
 public:
  MediaTrack(std::shared_ptr<const engine::MediaFile> file, int stream) : file_(std::move(file)), stream_(stream) {}

  [[nodiscard]] const std::shared_ptr<const engine::MediaFile>& file() const { return file_; }
  [[nodiscard]] int stream() const { return stream_; }
  [[nodiscard]] const engine::StreamFacts& facts() const { return file_->stream(stream_); }

 private:
  std::shared_ptr<const engine::MediaFile> file_;
  int stream_;
};

}  // namespace clipworks
