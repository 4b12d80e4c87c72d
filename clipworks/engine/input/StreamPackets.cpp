#include <clipworks/engine/input/StreamPackets.h>

#include <algorithm>
#include <utility>

namespace clipworks::engine {
namespace {

bool packsFrames(AVCodecID codec) { return codec == AV_CODEC_ID_AMR_NB || codec == AV_CODEC_ID_AMR_WB; }

}  // namespace

StreamPackets::StreamPackets(InputContext input, int index, const StreamClock& clock)
    : input_(std::move(input)), index_(index), clock_(clock) {
  input_.keepOnly(index);
  const AVCodecParameters& parameters = *stream().codecpar;
  if (!packsFrames(parameters.codec_id)) return;
  parser_.reset(av_parser_init(parameters.codec_id));
  parserContext_ = owned<CodecContext>(avcodec_alloc_context3(nullptr));
  avcodec_parameters_to_context(parserContext_.get(), &parameters);
  sample_ = makePacket();
}

Expected<bool> StreamPackets::read(AVPacket& packet) { return parser_ ? splitSample(packet) : readSample(packet); }

Expected<bool> StreamPackets::readSample(AVPacket& packet) {
  for (;;) {
    const auto got = input_.read(packet);
    if (!got || !*got) return got;
    if (packet.stream_index == index_) break;
    av_packet_unref(&packet);
  }
  packet.pts = clock_.ticks(packet.pts);
  packet.dts = clock_.ticks(packet.dts);
  packet.duration = clock_.ticksOf(packet.duration);
  return true;
}

Expected<bool> StreamPackets::splitSample(AVPacket& packet) {
  for (;;) {
    std::uint8_t* frame = nullptr;
    int bytes = 0;
    if (!isSampleOver_) {
      // With nothing left of a sample, the parser gives the last frame, which it held back.
      const int left = sample_->size - taken_;
      const int used =
          av_parser_parse2(parser_.get(), parserContext_.get(), &frame, &bytes,
                           left > 0 ? sample_->data + taken_ : nullptr, left, AV_NOPTS_VALUE, AV_NOPTS_VALUE, -1);
      isSampleOver_ = left <= 0;
      // The first call after that takes and gives nothing.
      const bool isIdle = left > 0 && used <= 0 && bytes <= 0;
      const bool isStuck = std::exchange(wasIdle_, isIdle) && isIdle;
      taken_ = isStuck ? sample_->size : taken_ + std::max(used, 0);
    } else {
      av_packet_unref(sample_.get());
      const auto got = readSample(*sample_);
      if (!got || !*got) return got;
      isSampleOver_ = false;
      taken_ = 0;
    }
    if (bytes <= 0) continue;
    if (av_new_packet(&packet, bytes) < 0) return failed(ErrorKind::outOfMemory, "out of memory while reading sound");
    std::copy(frame, frame + bytes, packet.data);
    packet.stream_index = index_;
    packet.pts = packet.dts = std::exchange(sample_->pts, AV_NOPTS_VALUE);
    return true;
  }
}

bool StreamPackets::seek(std::int64_t ticks) {
  isSampleOver_ = true;
  if (parser_) parser_.reset(av_parser_init(stream().codecpar->codec_id));
  return av_seek_frame(input_.get(), index_, clock_.units(ticks), AVSEEK_FLAG_BACKWARD) >= 0;
}

}  // namespace clipworks::engine
