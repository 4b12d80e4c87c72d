#include <clipworks/engine/output/VideoEncoder.h>

#include <algorithm>

#include <clipworks/engine/LibraryErrors.h>
#include <clipworks/engine/pictures/PlanarPictures.h>

namespace clipworks::engine {
namespace {

constexpr int highDefinitionLines = 720;

// A picture every ten seconds at least to start decoding from, at 30 a second.
constexpr int longestGroup = 300;

AVPixelFormat pixelFormatFor(const VideoEncoderSettings& settings) {
  return settings.codec == VideoCodec::hevc && settings.bitDepth > 8 ? AV_PIX_FMT_YUV420P10 : AV_PIX_FMT_YUV420P;
}

/// Nearly all of the buffer may come on top of the average, so short clips have a small one.
double bufferSeconds(double length) { return length > 0 ? std::clamp(length / 5, 0.25, 1.0) : 1.0; }

/// A buffer that is filled at just the average rate keeps the encoder closer to it than its own one-pass control, which
/// may be a fifth off after ten seconds.
void askFor(std::int64_t bitRate, AVCodecContext& context) {
  context.bit_rate = bitRate;
  context.rc_max_rate = bitRate;
}

void applyOptions(const VideoEncoderSettings& settings, AVCodecContext& context) {
  void* own = context.priv_data;
  av_opt_set(own, "preset", settings.speed.c_str(), 0);
  av_opt_set_int(own, "forced-idr", 1, 0);
  if (settings.averageBitRate > 0) {
    askFor(settings.averageBitRate, context);
    context.rc_buffer_size = static_cast<int>(static_cast<double>(settings.averageBitRate) * bufferSeconds(settings.length));
  } else {
    av_opt_set_double(own, "crf", settings.quality, 0);
  }
  if (settings.codec == VideoCodec::h264) {
    av_opt_set(own, "profile", "high", 0);
  } else {
    // Closed groups: a repeated run may follow any other. With bidirectional pictures that serve as references, two are
    // decoded ahead of their turn at most.
    av_opt_set(own, "x265-params", "log-level=none:open-gop=0:repeat-headers=0:bframes=4:b-pyramid=1", 0);
  }
}

}  // namespace

Colour completeColour(const AVCodecParameters& parameters) {
  const bool isMade = isMadeYUV(static_cast<AVPixelFormat>(parameters.format));
  return completeColour(parameters.width, parameters.height,
                        {parameters.color_primaries, parameters.color_trc,
                         isMade ? AVCOL_SPC_UNSPECIFIED : parameters.color_space,
                         !isMade && parameters.color_range == AVCOL_RANGE_JPEG});
}

Colour completeColour(int width, int height, const Colour& told) {
  const bool high = height >= highDefinitionLines || width >= 1280;
  const auto known = [](int value, int unspecified, int otherwise) { return value == unspecified ? otherwise : value; };
  Colour colour = told;
  colour.primaries = known(told.primaries, AVCOL_PRI_UNSPECIFIED, high ? AVCOL_PRI_BT709 : AVCOL_PRI_SMPTE170M);
  colour.transfer = known(told.transfer, AVCOL_TRC_UNSPECIFIED, high ? AVCOL_TRC_BT709 : AVCOL_TRC_SMPTE170M);
  colour.matrix = known(told.matrix, AVCOL_SPC_UNSPECIFIED, high ? AVCOL_SPC_BT709 : AVCOL_SPC_SMPTE170M);
  // That of wide primaries goes with no other: BT.2020, 10-bit and up.
  if (told.matrix == AVCOL_SPC_UNSPECIFIED && colour.primaries == AVCOL_PRI_BT2020) colour.matrix = AVCOL_SPC_BT2020_NCL;
  if (colour.matrix == AVCOL_SPC_RGB) colour.matrix = AVCOL_SPC_BT709;
  return colour;
}

void tag(AVFrame& frame, const Colour& colour) {
  frame.color_primaries = static_cast<AVColorPrimaries>(colour.primaries);
  frame.color_trc = static_cast<AVColorTransferCharacteristic>(colour.transfer);
  frame.colorspace = static_cast<AVColorSpace>(colour.matrix);
  frame.color_range = colour.fullRange ? AVCOL_RANGE_JPEG : AVCOL_RANGE_MPEG;
}

std::string VideoEncoder::libraryName(VideoCodec codec) { return codec == VideoCodec::h264 ? "libx264" : "libx265"; }

Expected<VideoEncoder> VideoEncoder::open(const VideoEncoderSettings& settings) {
  prepareLibraries();
  const std::string name = libraryName(settings.codec);
  const AVCodec* codec = avcodec_find_encoder_by_name(name.c_str());
  if (codec == nullptr) return failed(ErrorKind::noEncoder, "the encoder " + name + " is not installed");
  CodecContext context = owned<CodecContext>(avcodec_alloc_context3(codec));
  context->width = settings.width;
  context->height = settings.height;
  context->pix_fmt = pixelFormatFor(settings);
  context->time_base = AVRational{1, settings.timescale};
  context->framerate = AVRational{static_cast<int>(settings.frameRate.numerator),
                                  static_cast<int>(settings.frameRate.denominator)};
  context->sample_aspect_ratio = AVRational{static_cast<int>(settings.pixelAspect.numerator),
                                            static_cast<int>(settings.pixelAspect.denominator)};
  context->color_primaries = static_cast<AVColorPrimaries>(settings.colour.primaries);
  context->color_trc = static_cast<AVColorTransferCharacteristic>(settings.colour.transfer);
  context->colorspace = static_cast<AVColorSpace>(settings.colour.matrix);
  context->color_range = settings.colour.fullRange ? AVCOL_RANGE_JPEG : AVCOL_RANGE_MPEG;
  context->gop_size = longestGroup;
  context->flags |= AV_CODEC_FLAG_GLOBAL_HEADER;
  applyOptions(settings, *context);
  if (const int code = avcodec_open2(context.get(), codec, nullptr); code < 0) {
    return tl::make_unexpected(libraryError(code,
                                            "the encoder " + name + " does not take " + std::to_string(settings.width) +
                                                " × " + std::to_string(settings.height) + " pictures",
                                            ErrorKind::noEncoder));
  }
  VideoEncoder encoder(std::move(context));
  if (settings.averageBitRate > 0 && settings.codec == VideoCodec::h264) encoder.trim_.emplace(settings.averageBitRate);
  return encoder;
}

CodecParameters VideoEncoder::format() const {
  CodecParameters format = owned<CodecParameters>(avcodec_parameters_alloc());
  if (avcodec_parameters_from_context(format.get(), context_.get()) < 0) throw std::bad_alloc();
  return format;
}

int VideoEncoder::reorderDepth() const {
  // libx265's wrapper leaves the field empty; its streams say two (sps_max_num_reorder_pics) with the options above.
  constexpr int hevcDepth = 2;
  return context_->codec_id == AV_CODEC_ID_HEVC ? hevcDepth : context_->has_b_frames;
}

Expected<void> VideoEncoder::push(const Frame& picture, std::int64_t time, bool startsAnew) {
  if (trim_) askFor(trim_->wanted(), *context_);
  if (!firstTime_) firstTime_ = time;
  Frame frame = shareFrame(picture);
  frame->pts = time;
  frame->pict_type = startsAnew ? AV_PICTURE_TYPE_I : AV_PICTURE_TYPE_NONE;
  frame->key_frame = 0;
  frame->interlaced_frame = 0;
  frame->reordered_opaque = 0;  // libx265's wrapper copies any other value, and loses the copies of a run cut short
  if (const int code = avcodec_send_frame(context_.get(), frame.get()); code < 0) {
    return tl::make_unexpected(libraryError(code, "a picture cannot be encoded", ErrorKind::internal));
  }
  return {};
}

Expected<void> VideoEncoder::finish() {
  if (const int code = avcodec_send_frame(context_.get(), nullptr); code < 0 && code != AVERROR_EOF) {
    return tl::make_unexpected(libraryError(code, "the last pictures cannot be encoded", ErrorKind::internal));
  }
  return {};
}

Expected<std::optional<Packet>> VideoEncoder::pull() {
  Packet packet = makePacket();
  const int code = avcodec_receive_packet(context_.get(), packet.get());
  if (code == AVERROR(EAGAIN) || code == AVERROR_EOF) return std::nullopt;
  if (code < 0) return tl::make_unexpected(libraryError(code, "a picture cannot be encoded", ErrorKind::internal));
  if (trim_) trim_->coded(packet->size, av_q2d(context_->time_base) * static_cast<double>(packet->pts - *firstTime_));
  return packet;
}

}  // namespace clipworks::engine
