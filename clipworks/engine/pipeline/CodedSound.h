#pragma once

#include <memory>
#include <mutex>
#include <optional>
#include <stop_token>
#include <vector>

#include <clipworks/engine/Error.h>
#include <clipworks/engine/Handles.h>
#include <clipworks/engine/Thread.h>
#include <clipworks/engine/pipeline/BoundedQueue.h>
#include <clipworks/engine/pipeline/ExportJob.h>
#include <clipworks/engine/pipeline/ParallelSoundEncoding.h>

namespace clipworks::engine {

/// The stage of a track of sound: gives its coded samples, copied on a thread, or mixed and encoded on several. Times
/// count samples; the encoder's delay lies before zero. `open`, `next` and `format` on one thread, `abandon` on any.
class CodedSound {
 public:
  explicit CodedSound(const SoundJob& job);
  CodedSound(const CodedSound&) = delete;
  CodedSound& operator=(const CodedSound&) = delete;
  ~CodedSound();

  /// The job must outlive this.
  [[nodiscard]] Expected<void> open();
  [[nodiscard]] const AVCodecParameters& format() const { return *format_; }
  [[nodiscard]] Expected<std::optional<Packet>> next();
  void abandon();

 private:
  /// Sound that is mixed in one go.
  struct Part {
    ParallelSoundEncoding::Sections sections;
    std::unique_ptr<ParallelSoundEncoding> encoding;
    Thread mixing;  // ends before what it fills
  };

  Expected<void> copyAll();
  Expected<void> mixAll(const Part& part);

  const SoundJob& job_;
  CodecParameters format_;
  BoundedQueue<Packet> copied_;
  Thread copying_;
  std::stop_source abandoned_;
  std::mutex mutex_;         // between abandon() and the parts
  std::vector<Part> parts_;  // set once, by open(); none when the track is copied
  std::size_t part_ = 0;     // the one whose turn it is
};

}  // namespace clipworks::engine
