#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <vector>

#include <clipworks/engine/Error.h>
#include <clipworks/engine/Thread.h>
#include <clipworks/engine/output/SoundConverter.h>
#include <clipworks/engine/output/SoundEncoder.h>
#include <clipworks/engine/pipeline/BoundedQueue.h>
#include <clipworks/engine/pipeline/SharedMovie.h>

namespace clipworks::engine {

/// An instant: `value` / `timescale` seconds.
struct Instant {
  std::int64_t value = 0;
  std::int32_t timescale = 1;
};

/// Samples that belong together.
struct SoundPortion {
  SoundFormat format;
  std::vector<std::int16_t> samples;  ///< interleaved
  std::optional<Instant> start;       ///< nothing: right after the portion before it
};

/// Encodes the sound of one track of a movie as AAC on a thread of its own. All portions have the format of the first.
/// A portion that starts later than the one before it ends is preceded by silence, one that starts earlier loses its
/// beginning; up to 2 ms count as no difference. One thread pushes; `hasRoom` from any.
class SoundEncoding {
 public:
  /// Opens the encoder. `onFailure` is called once, at most, on the encoding thread.
  [[nodiscard]] static Expected<std::unique_ptr<SoundEncoding>> open(const SoundEncoderSettings& settings,
                                                                     std::shared_ptr<SharedMovie> movie,
                                                                     std::size_t track,
                                                                     std::function<void(const Error&)> onFailure);
  /// Drops what is under way.
  ~SoundEncoding();
  SoundEncoding(const SoundEncoding&) = delete;
  SoundEncoding& operator=(const SoundEncoding&) = delete;

  /// Where a first portion without a start lies, and what sound before it is cut off. Set before the first push.
  void setStart(const Instant& start) { start_ = start; }
  /// Whether `push` would return at once.
  [[nodiscard]] bool hasRoom() const { return portions_.hasRoom(); }
  /// False when the encoding has ended or failed.
  [[nodiscard]] bool push(SoundPortion portion) { return portions_.push(std::move(portion)); }
  /// No more sound will come.
  void finish() { portions_.finish(); }
  /// Waits until all is encoded and handed to the movie.
  void join() { thread_.join(); }

 private:
  SoundEncoding(const SoundEncoderSettings& settings, SoundEncoder encoder, std::shared_ptr<SharedMovie> movie,
                std::size_t track, std::function<void(const Error&)> onFailure);
  void run();
  Expected<void> encodeAll();
  Expected<void> begin(const SoundPortion& first);
  Expected<void> take(const SoundPortion& portion);
  Expected<void> skipTo(std::int64_t position);
  Expected<void> encode(bool isEnd);
  Expected<void> passOn();

  const SoundEncoderSettings settings_;
  const std::shared_ptr<SharedMovie> movie_;
  const std::size_t track_;
  const std::function<void(const Error&)> onFailure_;
  BoundedQueue<SoundPortion> portions_;
  Instant start_;  // set before the first push

  // Of the encoding thread.
  SoundEncoder encoder_;
  std::optional<SoundConverter> converter_;
  SoundFormat format_;            // of the portions
  std::int64_t position_ = 0;     // of the next sample, on the movie's timeline, at the portions' rate
  std::vector<float> converted_;  // and not encoded yet
  std::int64_t offset_ = 0;       // of the first sample, on the movie's timeline, at the encoder's rate

  Thread thread_;
};

}  // namespace clipworks::engine
