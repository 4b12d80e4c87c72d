#include <clipworks/engine/output/SoundEncoder.h>

#include <clipworks/engine/LibraryErrors.h>

namespace clipworks::engine {
namespace {

// Where the encoder's rate control begins. At its own start, 120, a tone of 440 Hz has 33 to 53 dB above the noise for
// three seconds until the step has come down, then 63; from here on it has 63 at once, in as many bytes (96 kb/s).
constexpr int firstStep = 3;

// Intensity stereo codes both channels of a band as one. From which pitch on it does so follows the step, so with a low
// one it would be from a few hundred hertz on, and little be left of what makes left and right differ.
constexpr std::int64_t intensityStereo = 0;

}  // namespace

Expected<SoundEncoder> SoundEncoder::open(const SoundEncoderSettings& settings) {
  prepareLibraries();
  const AVCodec* codec = avcodec_find_encoder(AV_CODEC_ID_AAC);
  if (codec == nullptr) return failed(ErrorKind::noEncoder, "no AAC encoder is installed");
  CodecContext context = owned<CodecContext>(avcodec_alloc_context3(codec));
  context->sample_rate = settings.sampleRate;
  context->sample_fmt = AV_SAMPLE_FMT_FLTP;
  context->bit_rate = settings.bitRate;
  context->global_quality = firstStep;
  context->time_base = AVRational{1, settings.sampleRate};
  context->flags |= AV_CODEC_FLAG_GLOBAL_HEADER;
  av_channel_layout_default(&context->ch_layout, settings.channels);
  av_opt_set_int(context->priv_data, "aac_is", intensityStereo, 0);
  if (const int code = avcodec_open2(context.get(), codec, nullptr); code < 0) {
    return tl::make_unexpected(libraryError(code,
                                            "the AAC encoder does not take " + std::to_string(settings.sampleRate) +
                                                " Hz with " + std::to_string(settings.channels) + " channels",
                                            ErrorKind::noEncoder));
  }
  if (context->frame_size != samplesPerPacket)
    return failed(ErrorKind::noEncoder, "the AAC encoder has frames of another length");
  return SoundEncoder(std::move(context));
}

CodecParameters SoundEncoder::format() const {
  CodecParameters format = owned<CodecParameters>(avcodec_parameters_alloc());
  if (avcodec_parameters_from_context(format.get(), context_.get()) < 0) throw std::bad_alloc();
  return format;
}

Expected<void> SoundEncoder::push(const float* samples, int count) {
  Frame frame = makeFrame();
  frame->nb_samples = count;
  frame->format = AV_SAMPLE_FMT_FLTP;
  frame->sample_rate = context_->sample_rate;
  frame->pts = taken_;
  av_channel_layout_copy(&frame->ch_layout, &context_->ch_layout);
  if (av_frame_get_buffer(frame.get(), 0) < 0)
    return failed(ErrorKind::outOfMemory, "out of memory while encoding sound");
  const int channels = context_->ch_layout.nb_channels;
  for (int channel = 0; channel < channels; ++channel) {
    auto* plane = reinterpret_cast<float*>(frame->extended_data[channel]);
    for (int i = 0; i < count; ++i) plane[i] = samples[i * channels + channel];
  }
  taken_ += count;
  if (const int code = avcodec_send_frame(context_.get(), frame.get()); code < 0) {
    return tl::make_unexpected(libraryError(code, "the sound cannot be encoded", ErrorKind::internal));
  }
  return {};
}

Expected<void> SoundEncoder::finish() {
  if (const int code = avcodec_send_frame(context_.get(), nullptr); code < 0 && code != AVERROR_EOF) {
    return tl::make_unexpected(libraryError(code, "the end of the sound cannot be encoded", ErrorKind::internal));
  }
  return {};
}

Expected<std::optional<Packet>> SoundEncoder::pull() {
  Packet packet = makePacket();
  const int code = avcodec_receive_packet(context_.get(), packet.get());
  if (code == AVERROR(EAGAIN) || code == AVERROR_EOF) return std::nullopt;
  if (code < 0) return tl::make_unexpected(libraryError(code, "the sound cannot be encoded", ErrorKind::internal));
  return packet;
}

}  // namespace clipworks::engine
