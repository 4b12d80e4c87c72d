#include <clipworks/engine/input/PictureDecoder.h>

#include <algorithm>

#include <clipworks/engine/LibraryErrors.h>
#include <clipworks/engine/Limits.h>
#include <clipworks/engine/input/ColorTags.h>

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
  decoder->flags |= AV_CODEC_FLAG_UNALIGNED;      // the stream's own cropping, to the pixel
  decoder->flags2 |= AV_CODEC_FLAG2_SKIP_MANUAL;  // encoder delay is taken off by our own segments
  const int code = avcodec_open2(decoder.get(), codec, nullptr);
  // Where the system allows no more threads: slower, on this one.
  if (code == AVERROR(EAGAIN) && threads != 1) return openDecoder(parameters, timeBase, 1, name);
  if (code < 0) {
    return tl::make_unexpected(libraryError(code, name + " cannot be decoded", ErrorKind::unsupported));
  }
  return decoder;
}

Expected<PictureDecoder> PictureDecoder::open(std::shared_ptr<const MediaFile> file, int stream) {
  auto samples = SampleReader::open(file, stream);
  if (!samples) return tl::make_unexpected(samples.error());
  if (samples->table().pictureCount() == 0) return failed(ErrorKind::damaged, file->name() + " has no pictures");
  auto decoder = openDecoder(file->parameters(stream), AVRational{1, file->stream(stream).timescale}, 0, file->name());
  if (!decoder) return tl::make_unexpected(decoder.error());
  return PictureDecoder(std::move(file), stream, std::move(*samples), std::move(*decoder));
}

void PictureDecoder::startAt(std::uint32_t sample) {
  stop();
  nextSample_ = sample;
  running_ = true;
}

void PictureDecoder::stop() {
  if (running_) avcodec_flush_buffers(decoder_.get());
  running_ = false;
  drained_ = false;
  leftOut_ = false;
  underWay_.clear();
}

void PictureDecoder::drain() {
  if (drained_) return;
  drained_ = true;
  avcodec_send_packet(decoder_.get(), nullptr);
}

bool PictureDecoder::reaches(std::uint32_t sample) const {
  if (running_ && !drained_ && sample >= nextSample_) return true;
  return std::find(underWay_.begin(), underWay_.end(), sample) != underWay_.end();
}

Expected<std::optional<PictureDecoder::Picture>> PictureDecoder::next(std::uint32_t end,
                                                                      const IsNotNeeded& isNotNeeded) {
  Frame frame = makeFrame();
  for (;;) {
    const int code = avcodec_receive_frame(decoder_.get(), frame.get());
    if (code == AVERROR_EOF) return std::nullopt;
    if (code == AVERROR(ENOMEM)) return tl::make_unexpected(libraryError(code, name() + " cannot be decoded"));
    if (code == AVERROR(EAGAIN)) {
      if (nextSample_ >= end) {
        drain();
      } else if (auto fed = feed(isNotNeeded); !fed) {
        return tl::make_unexpected(fed.error());
      }
      continue;
    }
    sawDamage_ =
        sawDamage_ || code != 0 || frame->decode_error_flags != 0 || (frame->flags & AV_FRAME_FLAG_CORRUPT) != 0;
    if (code != 0) continue;  // one broken picture
    if (frame->width > limits::maxPictureSide || frame->height > limits::maxPictureSide) {
      return failed(ErrorKind::tooLarge, name() + " has pictures that are too large");
    }
    dropUnknownColors(*frame);
    if (const auto sample = sampleOf(*frame)) {
      takeOut(*sample);
      if (auto completed = file_->completeMastering(stream_, *frame); !completed)
        return tl::make_unexpected(completed.error());
      return Picture{*sample, std::move(frame)};
    }
    av_frame_unref(frame.get());
  }
}

Expected<void> PictureDecoder::feed(const IsNotNeeded& isNotNeeded) {
  auto packet = samples_.read(nextSample_);
  if (!packet) return tl::make_unexpected(packet.error());
  const std::uint32_t sample = nextSample_++;
  // Asked about every picture, since parameter sets on the way count.
  if (disposable_.isDisposable(**packet) && !sawDamage_ && isNotNeeded(sample)) {
    leftOut_ = true;
    return {};
  }
  ++samplesDecoded_;
  (*packet)->pos = sample;  // comes back as the picture's pkt_pos
  const int code = avcodec_send_packet(decoder_.get(), packet->get());
  if (code == AVERROR(ENOMEM)) return tl::make_unexpected(libraryError(code, name() + " cannot be decoded"));
  sawDamage_ = sawDamage_ || code < 0;  // which costs this picture only
  if (code >= 0) underWay_.push_back(sample);
  return {};
}

std::optional<std::uint32_t> PictureDecoder::sampleOf(const AVFrame& frame) const {
  const auto count = static_cast<std::int64_t>(table().samples().size());
  if (frame.pkt_pos < 0 || frame.pkt_pos >= count) return std::nullopt;
  return static_cast<std::uint32_t>(frame.pkt_pos);
}

// Also of those shown before it, which did not decode.
void PictureDecoder::takeOut(std::uint32_t sample) {
  const auto& samples = table().samples();
  std::erase_if(underWay_, [&](std::uint32_t other) {
    return other == sample || samples[other].presentation < samples[sample].presentation;
  });
}

}  // namespace clipworks::engine
