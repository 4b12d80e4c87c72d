#pragma once

#include <cstdint>
#include <deque>
#include <memory>
#include <optional>

#include <clipworks/engine/Error.h>
#include <clipworks/engine/Handles.h>
#include <clipworks/engine/input/MediaFile.h>
#include <clipworks/engine/input/SampleReader.h>

namespace clipworks::engine {

/// Decodes pictures of one track by their number in the order of presentation. Exact: decoding starts at the access
/// point that the picture needs, what comes before it is decoded and dropped. Asked in rising order it decodes every
/// sample once. A picture that does not decode is replaced by the one before it, the first by the one after.
/// One thread at a time; the decoder has threads of its own.
class PictureReader {
 public:
  [[nodiscard]] static Expected<PictureReader> open(std::shared_ptr<const MediaFile> file, int stream);

  [[nodiscard]] const SampleTable& table() const { return samples_.table(); }

  /// Picture number `picture`, shared with the reader's memory of it. Fails with `damaged` when nothing decodes.
  [[nodiscard]] Expected<Frame> picture(std::size_t picture);

  /// How many of the pictures handed out stand in for one that did not decode.
  [[nodiscard]] std::int64_t replacedPictures() const { return replaced_; }

 private:
  PictureReader(std::shared_ptr<const MediaFile> file, int stream, SampleReader samples, CodecContext decoder)
      : file_(std::move(file)), stream_(stream), samples_(std::move(samples)), decoder_(std::move(decoder)) {}
  void startAt(std::uint32_t sample);
  Expected<bool> decodeMore();
  Expected<void> feed();
  [[nodiscard]] std::int64_t shownTime(const Frame& frame) const;

  std::shared_ptr<const MediaFile> file_;
  int stream_;
  SampleReader samples_;
  CodecContext decoder_;
  std::uint32_t nextSample_ = 0;
  bool running_ = false;    // the decoder holds a run of samples up to nextSample_
  bool drained_ = false;    // the end was signalled to it
  Frame current_;           // the last picture handed out or passed
  Frame ahead_;             // the first decoded one after it
  std::int64_t replaced_ = 0;
};

/// Opens a decoder for `parameters` that may use `threads` threads (0: as many as there are processors).
[[nodiscard]] Expected<CodecContext> openDecoder(const AVCodecParameters& parameters, AVRational timeBase, int threads,
                                                 const std::string& name);

}  // namespace clipworks::engine
