#include <clipworks/engine/input/PictureDecoder.h>

#include <algorithm>
#include <new>

#include <clipworks/engine/LibraryErrors.h>
#include <clipworks/engine/Limits.h>
#include <clipworks/engine/Processors.h>
#include <clipworks/engine/input/ColorTags.h>
#include <clipworks/engine/input/KnownFormats.h>
#include <clipworks/engine/pictures/Colour.h>

namespace clipworks::engine {
namespace {

bool setExtradata(AVCodecParameters& parameters, const std::vector<std::uint8_t>& bytes) {
  av_freep(&parameters.extradata);
  parameters.extradata_size = 0;
  parameters.extradata = static_cast<std::uint8_t*>(av_mallocz(bytes.size() + AV_INPUT_BUFFER_PADDING_SIZE));
  if (parameters.extradata == nullptr) return false;
  std::copy(bytes.begin(), bytes.end(), parameters.extradata);
  parameters.extradata_size = static_cast<int>(bytes.size());
  return true;
}

// Grey that does not tell its range is luma like that of other pictures in some codecs; elsewhere it comes from
// computers.
bool isGreyFull(const AVCodecParameters& p) {
  if (p.color_range != AVCOL_RANGE_UNSPECIFIED) return p.color_range == AVCOL_RANGE_JPEG;
  return p.codec_id != AV_CODEC_ID_H264 && p.codec_id != AV_CODEC_ID_HEVC && p.codec_id != AV_CODEC_ID_VP9 &&
         p.codec_id != AV_CODEC_ID_AV1;
}

}  // namespace

Expected<CodecContext> openDecoder(const MediaFile& file, const AVCodecParameters& parameters, AVRational timeBase,
                                   int threads, std::optional<int> x264Build) {
  const std::string& name = file.name();
  const auto found = decoderFor(parameters, file.limits(), name);
  if (!found) return tl::make_unexpected(found.error());
  const AVCodec* codec = *found;
  CodecContext decoder = owned<CodecContext>(avcodec_alloc_context3(codec));
  if (const int code = avcodec_parameters_to_context(decoder.get(), &parameters); code < 0) {
    return tl::make_unexpected(libraryError(code, name + " cannot be decoded"));
  }
  decoder->pkt_timebase = timeBase;
  decoder->thread_count = coderThreads(threads);
  decoder->thread_type = FF_THREAD_FRAME | FF_THREAD_SLICE;
  decoder->max_pixels = mostDecodedPixels(file.limits());
  if (!file.limits().takesAnyCodec) av_opt_set(decoder.get(), "codec_whitelist", knownDecoders().c_str(), 0);
  decoder->flags |= AV_CODEC_FLAG_UNALIGNED;      // the stream's own cropping, to the pixel
  decoder->flags2 |= AV_CODEC_FLAG2_SKIP_MANUAL;  // encoder delay is taken off by our own segments
  if (x264Build) av_opt_set_int(decoder->priv_data, "x264_build", *x264Build, 0);
  const int code = avcodec_open2(decoder.get(), codec, nullptr);
  // Where the system allows no more threads: slower, on this one.
  if (code == AVERROR(EAGAIN) && threads != 1) return openDecoder(file, parameters, timeBase, 1, x264Build);
  if (code < 0) {
    return tl::make_unexpected(libraryError(code, name + " cannot be decoded", ErrorKind::unsupported));
  }
  return decoder;
}

PictureDecoder::PictureDecoder(std::shared_ptr<const MediaFile> file, int stream, int threads,
                               CodedPictureReader samples)
    : file_(std::move(file)),
      stream_(stream),
      threads_(threads),
      samples_(std::move(samples)),
      matrix_(completeColour(file_->parameters(stream_)).matrix),
      isGreyFull_(isGreyFull(file_->parameters(stream_))),
      size_(file_->stream(stream_).codedWidth, file_->stream(stream_).codedHeight,
            {static_cast<int>(file_->stream(stream_).pixelAspect.numerator),
             static_cast<int>(file_->stream(stream_).pixelAspect.denominator)}) {}

Expected<PictureDecoder> PictureDecoder::open(std::shared_ptr<const MediaFile> file, int stream, int threads) {
  auto samples = CodedPictureReader::open(file, stream);
  if (!samples) return tl::make_unexpected(samples.error());
  if (samples->table().pictureCount() == 0) return failed(ErrorKind::damaged, file->name() + " has no pictures");
  PictureDecoder decoder(std::move(file), stream, threads, std::move(*samples));
  if (auto opened = decoder.openFor(decoder.table().parametersFor(0)); !opened) {
    return tl::make_unexpected(opened.error());
  }
  return decoder;
}

Expected<void> PictureDecoder::openFor(const CodecChange* change) {
  parameters_ = owned<CodecParameters>(avcodec_parameters_alloc());
  if (avcodec_parameters_copy(parameters_.get(), &file_->parameters(stream_)) < 0) throw std::bad_alloc();
  if (change != nullptr && !setExtradata(*parameters_, *change->bytes)) throw std::bad_alloc();
  std::optional<int> build;
  if (parameters_->codec_id == AV_CODEC_ID_H264) {
    // A first sample that cannot be read tells nothing; whoever needs it will hear of that.
    const auto first = samples_.read(change == nullptr ? 0 : change->sample);
    if (first) build = x264BuildIn(**first);
  }
  auto decoder = openDecoder(*file_, *parameters_, AVRational{1, file_->stream(stream_).timescale}, threads_, build);
  if (!decoder) return tl::make_unexpected(decoder.error());
  decoder_ = std::move(*decoder);
  decoder_->skip_loop_filter = leftOutFilters_;
  disposable_.emplace(*parameters_);
  if (file_->limits().mostPixels < limits::maxPixels) sizes_.emplace(*parameters_);
  codec_ = change;
  palette_ = nullptr;
  return {};
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
  changes_ = false;
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
    if (code == AVERROR_EOF) {
      if (!changes_ || drained_) return std::nullopt;
      changes_ = false;
      if (auto opened = openFor(table().parametersFor(nextSample_)); !opened) {
        return tl::make_unexpected(opened.error());
      }
      continue;
    }
    if (code == AVERROR(ENOMEM)) return tl::make_unexpected(libraryError(code, name() + " cannot be decoded"));
    if (code == AVERROR(EAGAIN)) {
      if (nextSample_ >= end) {
        drain();
      } else if (table().parametersFor(nextSample_) != codec_) {
        changes_ = true;
        avcodec_send_packet(decoder_.get(), nullptr);
      } else if (auto fed = feed(isNotNeeded); !fed) {
        return tl::make_unexpected(fed.error());
      }
      continue;
    }
    const bool isDamaged = code != 0 || frame->decode_error_flags != 0 || (frame->flags & AV_FRAME_FLAG_CORRUPT) != 0;
    sawDamage_ = sawDamage_ || isDamaged;
    if (code != 0) continue;  // one broken picture
    if (const auto sample = sampleOf(*frame)) {
      takeOut(*sample);
      auto picture = finished(std::move(frame));
      if (!picture) return tl::make_unexpected(picture.error());
      return Picture{*sample, std::move(*picture), isDamaged};
    }
    av_frame_unref(frame.get());
  }
}

Expected<Frame> PictureDecoder::finished(Frame frame) {
  if (frame->width > limits::maxPictureSide || frame->height > limits::maxPictureSide) {
    return failed(ErrorKind::tooLarge, name() + " has pictures that are too large");
  }
  if (auto fit = checkPixels(frame->width, frame->height, file_->limits(), name()); !fit) {
    return tl::make_unexpected(fit.error());
  }
  dropUnknownColors(*frame);
  if (auto completed = file_->completeMastering(stream_, *frame); !completed) {
    return tl::make_unexpected(completed.error());
  }
  auto planar = planar_.convert(frame, matrix_, isGreyFull_);
  return planar ? size_.fit(*planar) : std::move(planar);
}

Expected<void> PictureDecoder::feed(const IsNotNeeded& isNotNeeded) {
  auto packet = samples_.read(nextSample_);
  if (!packet) return tl::make_unexpected(packet.error());
  if (sizes_) {
    if (auto fit = sizes_->check(**packet, file_->limits(), name()); !fit) return fit;
  }
  const std::uint32_t sample = nextSample_++;
  // Asked about every picture, since parameter sets on the way count.
  if (disposable_->isDisposable(**packet) && !sawDamage_ && isNotNeeded(sample)) {
    leftOut_ = true;
    return {};
  }
  if (const auto* palette = table().paletteFor(sample); palette != nullptr && palette != palette_) {
    std::uint8_t* place = av_packet_new_side_data(packet->get(), AV_PKT_DATA_PALETTE, palette->bytes->size());
    if (place == nullptr) throw std::bad_alloc();
    std::copy(palette->bytes->begin(), palette->bytes->end(), place);
    palette_ = palette;
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
