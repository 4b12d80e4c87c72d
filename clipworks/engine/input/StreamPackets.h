#pragma once

#include <cstdint>
#include <memory>
#include <string>

#include <clipworks/engine/Error.h>
#include <clipworks/engine/Handles.h>
#include <clipworks/engine/input/InputContext.h>
#include <clipworks/engine/input/StreamClock.h>

namespace clipworks::engine {

/// The coded packets of one stream in the order of the file, their times in ticks of the file's timeline. What a
/// container packs into one sample although the decoder takes one frame at a time (AMR: 3GPP TS 26.244, 6.5) comes
/// frame by frame; only the first of a sample then has a time. One thread at a time.
class StreamPackets {
 public:
  /// `input` is at its start; `clock` is the stream's.
  StreamPackets(InputContext input, int index, const StreamClock& clock);
  StreamPackets(StreamPackets&&) noexcept = default;
  StreamPackets& operator=(StreamPackets&&) noexcept = default;

  /// The next packet; false at the end, and where the content is too damaged to go on. Fails when the file itself
  /// cannot be read.
  [[nodiscard]] Expected<bool> read(AVPacket& packet);

  /// Goes to the last place before `ticks` from which decoding can start; false when the container does not allow it.
  [[nodiscard]] bool seek(std::int64_t ticks);

  /// Whether it seeks as well after it has read as when it was new, and quicker, since it has learned where packets
  /// are. Where times may begin again within a file (Ogg, MPEG streams), demuxers tell wrong ones behind a second seek.
  [[nodiscard]] bool seeksWhereItIs() const { return (input_->iformat->flags & AVFMT_TS_DISCONT) == 0; }

  [[nodiscard]] AVStream& stream() const { return *input_->streams[index_]; }

 private:
  struct CloseParser {
    void operator()(AVCodecParserContext* parser) const { av_parser_close(parser); }
  };
  Expected<bool> readSample(AVPacket& packet);
  Expected<bool> splitSample(AVPacket& packet);

  InputContext input_;
  int index_;
  StreamClock clock_;

  // Where samples are split.
  CodecContext parserContext_;
  std::unique_ptr<AVCodecParserContext, CloseParser> parser_;
  Packet sample_;
  int taken_ = 0;  // bytes of sample_
  bool isSampleOver_ = true;
  bool wasIdle_ = false;
};

}  // namespace clipworks::engine
