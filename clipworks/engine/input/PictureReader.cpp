#include <clipworks/engine/input/PictureReader.h>

#include <clipworks/engine/LibraryErrors.h>
#include <clipworks/engine/Limits.h>

namespace clipworks::engine {

Expected<CodecContext> openDecoder(const AVCodecParameters& parameters, AVRational timeBase, int threads,
                                   const std::string& name) {
  const AVCodec* codec = avcodec_find_decoder(parameters.codec_id);
  if (codec == nullptr) {
    return failed(ErrorKind::unsupported,
                  name + " is coded as " + avcodec_get_name(parameters.codec_id) + ", which nothing here decodes");
  }
  CodecContext decoder = owned<CodecContext>(avcodec_alloc_context3(codec));
  if (const int code = avcodec_parameters_to_context(decoder.get(), &parameters); code < 0) {
    return tl::make_unexpected(libraryError(code, name + " cannot be decoded"));
  }
  decoder->pkt_timebase = timeBase;
  decoder->thread_count = threads;
  decoder->thread_type = FF_THREAD_FRAME | FF_THREAD_SLICE;
  decoder->max_pixels = limits::maxPixels;
  decoder->flags2 |= AV_CODEC_FLAG2_SKIP_MANUAL;  // encoder delay is taken off by our own segments
  if (const int code = avcodec_open2(decoder.get(), codec, nullptr); code < 0) {
    return tl::make_unexpected(libraryError(code, name + " cannot be decoded", ErrorKind::unsupported));
  }
  return decoder;
}

Expected<PictureReader> PictureReader::open(std::shared_ptr<const MediaFile> file, int stream) {
  auto samples = SampleReader::open(file, stream);
  if (!samples) return tl::make_unexpected(samples.error());
  if (samples->table().pictureCount() == 0) return failed(ErrorKind::damaged, file->name() + " has no pictures");
  auto decoder = openDecoder(file->parameters(stream), AVRational{1, file->stream(stream).timescale}, 0, file->name());
  if (!decoder) return tl::make_unexpected(decoder.error());
  return PictureReader(std::move(file), stream, std::move(*samples), std::move(*decoder));
}

void PictureReader::startAt(std::uint32_t sample) {
  if (running_ || drained_) avcodec_flush_buffers(decoder_.get());
  nextSample_ = sample;
  running_ = true;
  drained_ = false;
  current_.reset();
  ahead_.reset();
}

std::int64_t PictureReader::shownTime(const Frame& frame) const {
  return frame->pts != AV_NOPTS_VALUE ? frame->pts : frame->best_effort_timestamp;
}

Expected<Frame> PictureReader::picture(std::size_t picture) {
  const std::int64_t wanted = table().timeOfPicture(picture);
  const std::uint32_t access = table().accessPointFor(picture);
  const bool behind = current_ != nullptr && shownTime(current_) > wanted;
  // Samples up to nextSample_ are in the decoder already; starting again pays only where an access point lies beyond.
  if (!running_ || behind || access > nextSample_) startAt(access);

  while (ahead_ == nullptr || shownTime(ahead_) <= wanted) {
    if (ahead_ != nullptr) current_ = std::move(ahead_);
    if (current_ != nullptr && shownTime(current_) == wanted) break;
    auto more = decodeMore();
    if (!more) return tl::make_unexpected(more.error());
    if (!*more) break;
  }
  const Frame& shown = current_ != nullptr ? current_ : ahead_;
  if (shown == nullptr) return failed(ErrorKind::damaged, file_->name() + " holds pictures that cannot be decoded");
  if (shownTime(shown) != wanted) ++replaced_;
  return shareFrame(shown);
}

// Brings the next decoded picture into ahead_; false at the end of the track.
Expected<bool> PictureReader::decodeMore() {
  Frame frame = makeFrame();
  for (;;) {
    const int code = avcodec_receive_frame(decoder_.get(), frame.get());
    if (code == 0) {
      if (frame->width > limits::maxPictureSide || frame->height > limits::maxPictureSide) {
        return failed(ErrorKind::tooLarge, file_->name() + " has pictures that are too large");
      }
      ahead_ = std::move(frame);
      return true;
    }
    if (code == AVERROR_EOF) return false;
    if (code == AVERROR(ENOMEM)) return tl::make_unexpected(libraryError(code, file_->name() + " cannot be decoded"));
    if (code != AVERROR(EAGAIN)) continue;  // one broken picture; its place is taken by the one before
    if (auto fed = feed(); !fed) return tl::make_unexpected(fed.error());
  }
}

Expected<void> PictureReader::feed() {
  if (nextSample_ >= table().samples().size()) {
    if (drained_) return {};
    drained_ = true;
    avcodec_send_packet(decoder_.get(), nullptr);
    return {};
  }
  auto packet = samples_.read(nextSample_);
  if (!packet) return tl::make_unexpected(packet.error());
  ++nextSample_;
  const int code = avcodec_send_packet(decoder_.get(), packet->get());
  if (code == AVERROR(ENOMEM)) return tl::make_unexpected(libraryError(code, file_->name() + " cannot be decoded"));
  return {};  // other failures cost this picture only
}

}  // namespace clipworks::engine
