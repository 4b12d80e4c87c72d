#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <stop_token>
#include <vector>

#include <clipworks/engine/Error.h>
#include <clipworks/engine/Handles.h>
#include <clipworks/engine/input/MediaFile.h>
#include <clipworks/engine/input/StreamPackets.h>

namespace clipworks::engine {

/// Decodes the sound of one track by sample position on the media's own clock (encoder delay included: position 0 is
/// the first sample that the first packet decodes to). Exact after a jump too: decoding starts early enough for the
/// codec to settle. Positions without media are silence. One thread at a time.
class SoundReader {
 public:
  [[nodiscard]] static Expected<SoundReader> open(std::shared_ptr<const MediaFile> file, int stream);

  /// Hertz and channels of what `read` gives: those of the stream's facts.
  [[nodiscard]] int sampleRate() const { return facts_->sampleRate; }
  [[nodiscard]] int channels() const { return facts_->channels; }

  /// Whether sound lies after a jump where it lies without one, to the sample: the file's index says that packets
  /// follow each other evenly, as in most MP4 and QuickTime files.
  [[nodiscard]] bool jumpsExactly() const;

  /// For a file that does not jump exactly: decodes it from position `from` to `to` once, so that later jumps within
  /// find sound where it lies when all between is read in one go. Takes some 16 bytes for each packet. Fails with
  /// `cancelled` soon after a stop request.
  [[nodiscard]] Expected<void> learnPlaces(std::int64_t from, std::int64_t to, const std::stop_token& stop = {});

  /// Writes `count` samples of every channel from `position` on, interleaved, to `samples`. Cheapest in rising order.
  [[nodiscard]] Expected<void> read(std::int64_t position, std::int64_t count, float* samples);

 private:
  /// Where a packet's sound lies.
  struct Place {
    std::int64_t time = 0;  // of the packet, in ticks
    std::int64_t position = 0;
  };
  SoundReader(std::shared_ptr<const MediaFile> file, const StreamFacts& facts)
      : file_(std::move(file)), facts_(&facts) {}
  Expected<void> restart();
  void forgetDecoded();
  Expected<void> jumpTo(std::int64_t position);
  Expected<bool> decodeBlock();
  Expected<void> takeFrame(const Frame& frame);
  [[nodiscard]] std::int64_t placeOf(std::int64_t time);
  Expected<void> prepareConverter(const AVFrame& frame);

  std::shared_ptr<const MediaFile> file_;
  const StreamFacts* facts_;  // within file_
  std::optional<StreamPackets> packets_;
  CodecContext decoder_;
  Resampler converter_;  // sample format, and the rate where the decoder's differs from the stream's
  bool drained_ = false;
  bool anchored_ = false;      // end() follows the packets' times
  std::int64_t start_ = 0;     // position of block_'s first sample
  std::vector<float> block_;   // interleaved
  std::vector<Place> places_;  // with rising times
  bool isLearning_ = false;    // places_ is being filled

  [[nodiscard]] std::int64_t end() const {
    return start_ + static_cast<std::int64_t>(block_.size()) / facts_->channels;
  }
};

}  // namespace clipworks::engine
