#include <clipworks/engine/output/VideoEncoder.h>

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <optional>

#include <clipworks/engine/LibraryErrors.h>
#include <clipworks/engine/Memory.h>
#include <clipworks/engine/Processors.h>
#include <clipworks/engine/Thread.h>

namespace clipworks::engine {
namespace {

// A picture every thirty seconds to start decoding from, at 30 a second, where each costs as much as all that moves
// between them.
constexpr int longestStillGroup = 900;
/// Pictures that are decoded ahead of their turn with the encoders' usual options.
constexpr int usualDepth = 2;

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

/// libx264 gives the time base of the pictures' times for the rate in the stream (ITU-T H.264, E.2.1, num_units_in_tick
/// and time_scale), since it allows variable rates; players take it for tens of thousands of pictures a second. A tick
/// is half a picture. Written anew in the parameter sets, which are nowhere else.
Expected<CodecParameters> withPictureRate(CodecParameters format, const Fraction& rate) {
  AVBSFContext* made = nullptr;
  const AVBitStreamFilter* kind = av_bsf_get_by_name("h264_metadata");
  if (kind == nullptr || av_bsf_alloc(kind, &made) < 0)
    return failed(ErrorKind::noEncoder, "the filter h264_metadata is not installed");
  const BitStreamFilter filter(made);
  const AVRational ticks{static_cast<int>(2 * rate.numerator), static_cast<int>(rate.denominator)};
  if (avcodec_parameters_copy(filter->par_in, format.get()) < 0) throw std::bad_alloc();
  av_opt_set_q(filter->priv_data, "tick_rate", ticks, 0);
  if (const int code = av_bsf_init(filter.get()); code < 0) {
    return tl::make_unexpected(libraryError(code, "the encoder's parameters cannot be read", ErrorKind::internal));
  }
  if (avcodec_parameters_copy(format.get(), filter->par_out) < 0) throw std::bad_alloc();
  return format;
}

Expected<CodecParameters> formatOf(const AVCodecContext& context, const Fraction& rate) {
  CodecParameters format = owned<CodecParameters>(avcodec_parameters_alloc());
  if (avcodec_parameters_from_context(format.get(), &context) < 0) throw std::bad_alloc();
  if (context.codec_id != AV_CODEC_ID_H264) return format;
  return withPictureRate(std::move(format), rate);
}

void setQuality(double quality, AVCodecContext& context) { av_opt_set_double(context.priv_data, "crf", quality, 0); }

/// What keeps the average, where the library lets it be changed on the way: H.264's.
std::optional<StillBudget> stillBudget(const VideoEncoderSettings& settings) {
  const std::int64_t pixels = std::int64_t{settings.width} * settings.height;
  const bool suits = settings.codec == VideoCodec::h264 && settings.averageBitRate > 0 &&
                     StillBudget::suits(settings.averageBitRate, pixels);
  return suits ? std::optional<StillBudget>(std::in_place, settings.averageBitRate, pixels) : std::nullopt;
}

template <class Structure>
std::optional<Structure> factOf(const HDRMetadata& facts, AVPacketSideDataType kind) {
  const auto found = facts.find(kind);
  if (found == facts.end() || found->second.size() < sizeof(Structure)) return std::nullopt;
  Structure fact{};
  std::memcpy(&fact, found->second.data(), sizeof fact);
  return fact;
}

/// As libx265 wants to be told: chromaticities in 1/50000, luminances in 1/10000 cd/m², as ITU-T H.265, D.3.28 codes
/// them.
std::string lightParameters(const HDRMetadata& facts) {
  const auto units = [](AVRational value, int unit) {
    const double number = value.den == 0 ? 0 : av_q2d(value) * unit;
    return std::to_string(std::llround(std::clamp(number, 0.0, 4294967295.0)));
  };
  const auto pair = [&](const char* name, AVRational first, AVRational second, int unit) {
    return name + ("(" + units(first, unit)) + "," + units(second, unit) + ")";
  };
  std::string parameters;
  const auto mastering = factOf<AVMasteringDisplayMetadata>(facts, AV_PKT_DATA_MASTERING_DISPLAY_METADATA);
  if (mastering && mastering->has_primaries != 0 && mastering->has_luminance != 0) {
    constexpr int chromaticity = 50'000;
    const auto& [red, green, blue] = mastering->display_primaries;
    parameters += ":master-display=" + pair("G", green[0], green[1], chromaticity) +
                  pair("B", blue[0], blue[1], chromaticity) + pair("R", red[0], red[1], chromaticity) +
                  pair("WP", mastering->white_point[0], mastering->white_point[1], chromaticity) +
                  pair("L", mastering->max_luminance, mastering->min_luminance, 10'000);
  }
  if (const auto level = factOf<AVContentLightMetadata>(facts, AV_PKT_DATA_CONTENT_LIGHT_LEVEL)) {
    parameters += ":max-cll=" + std::to_string(level->MaxCLL) + "," + std::to_string(level->MaxFALL);
  } else if (!parameters.empty()) {
    parameters += ":cll=0";
  }
  return parameters;
}

/// libx265 counts the machine's processors for each of both, whatever the other is.
std::string poolParameters(int threads) {
  const int pictures = threads >= 16 ? 5 : threads >= 8 ? 3 : threads >= 4 ? 2 : 1;  // as it chooses by itself
  return ":pools=" + std::to_string(threads) + ":frame-threads=" + std::to_string(pictures);
}

void applyOptions(const VideoEncoderSettings& settings, const std::optional<StillBudget>& budget,
                  AVCodecContext& context) {
  void* own = context.priv_data;
  av_opt_set(own, "preset", settings.speed.c_str(), 0);
  av_opt_set_int(own, "forced-idr", 1, 0);
  const int threads = coderThreads(settings.threads);
  if (threads > 0) context.thread_count = threads;
  context.gop_size = budget ? longestStillGroup : settings.longestGroup;
  if (budget) {
    setQuality(budget->quality(), context);
  } else if (settings.averageBitRate > 0) {
    askFor(settings.averageBitRate, context);
    context.rc_buffer_size =
        static_cast<int>(static_cast<double>(settings.averageBitRate) * bufferSeconds(settings.length));
  } else {
    setQuality(settings.quality, context);
  }
  const int depth = settings.amongCopies ? std::min(settings.amongCopies->reorderDepth, usualDepth) : usualDepth;
  if (settings.codec == VideoCodec::h264) {
    const int profile = settings.amongCopies ? settings.amongCopies->profile : FF_PROFILE_H264_HIGH;
    av_opt_set(own, "profile",
               profile == FF_PROFILE_H264_BASELINE ? "baseline"
               : profile == FF_PROFILE_H264_MAIN   ? "main"
                                                   : "high",
               0);
    if (depth == 0) context.max_b_frames = 0;
    if (depth == 1) av_opt_set(own, "b-pyramid", "none", 0);
    if (settings.amongCopies) {
      av_opt_set(own, "x264-params", ("sps-id=" + std::to_string(settings.amongCopies->parameterSetNumber)).c_str(), 0);
    }
  } else {
    // Closed groups: a repeated run may follow any other. With bidirectional pictures that serve as references, two are
    // decoded ahead of their turn at most.
    const std::string parameters = std::string("log-level=none:open-gop=0:repeat-headers=0:bframes=") +
                                   (depth > 0 ? "4" : "0") + ":b-pyramid=" + (depth > 1 ? "1" : "0") +
                                   lightParameters(settings.hdrMetadata) + (threads > 0 ? poolParameters(threads) : "");
    av_opt_set(own, "x265-params", parameters.c_str(), 0);
  }
}

/// Whether an encoder that fails, and does not say why, would have the memory that it holds.
bool hasMemoryFor(int width, int height) {
  constexpr int mostSide = 16'384;  // beyond, that is not the reason
  constexpr std::size_t pictures = 60;
  constexpr std::size_t stacks = 64 << 20;  // of its threads, 8 MiB each by default
  if (std::max(width, height) > mostSide) return true;
  const auto pixels = static_cast<std::size_t>(width) * static_cast<std::size_t>(height);
  return hasMemory(stacks + pictures * pixels * 3 / 2);
}

Error encodingError(int code, const std::string& what, const AVCodecContext& context) {
  const ErrorKind kind = hasMemoryFor(context.width, context.height) ? ErrorKind::internal : ErrorKind::outOfMemory;
  return libraryError(code, what, kind);
}

}  // namespace

Fraction nominalRate(double picturesPerSecond) {
  const double rate = std::clamp(picturesPerSecond, 1.0, 1000.0);
  const double broadcast = std::round(rate * 1.001);
  if (std::lround(rate * 1000) == std::lround(broadcast * 1000 / 1.001)) return {std::lround(broadcast) * 1000, 1001};
  return {std::lround(rate * 1000), 1000};
}

std::string VideoEncoder::libraryName(VideoCodec codec) { return codec == VideoCodec::h264 ? "libx264" : "libx265"; }

Expected<VideoEncoder> VideoEncoder::open(const VideoEncoderSettings& asked) {
  prepareLibraries();
  VideoEncoderSettings settings = asked;
  if (asked.averageBitRate > 0) settings.averageBitRate = std::clamp(asked.averageBitRate, leastBitRate, mostBitRate);
  const auto budget = stillBudget(settings);
  const std::string name = libraryName(settings.codec);
  const AVCodec* codec = avcodec_find_encoder_by_name(name.c_str());
  if (codec == nullptr) return failed(ErrorKind::noEncoder, "the encoder " + name + " is not installed");
  CodecContext context = owned<CodecContext>(avcodec_alloc_context3(codec));
  context->width = settings.width;
  context->height = settings.height;
  context->pix_fmt = pixelFormatFor(settings);
  context->time_base = AVRational{1, settings.timescale};
  context->framerate =
      AVRational{static_cast<int>(settings.frameRate.numerator), static_cast<int>(settings.frameRate.denominator)};
  context->sample_aspect_ratio =
      AVRational{static_cast<int>(settings.pixelAspect.numerator), static_cast<int>(settings.pixelAspect.denominator)};
  context->color_primaries = static_cast<AVColorPrimaries>(settings.colour.primaries);
  context->color_trc = static_cast<AVColorTransferCharacteristic>(settings.colour.transfer);
  context->colorspace = static_cast<AVColorSpace>(settings.colour.matrix);
  context->color_range = settings.colour.fullRange ? AVCOL_RANGE_JPEG : AVCOL_RANGE_MPEG;
  context->flags |= AV_CODEC_FLAG_GLOBAL_HEADER;
  applyOptions(settings, budget, *context);
  const auto start = EncoderStart::begin(coderThreads(settings.threads));
  if (!start) return tl::make_unexpected(start.error());
  if (const int code = avcodec_open2(context.get(), codec, nullptr); code < 0) {
    const std::string size = std::to_string(settings.width) + " × " + std::to_string(settings.height) + " pictures";
    if (!hasMemoryFor(settings.width, settings.height))
      return failed(ErrorKind::outOfMemory, "there is no memory for encoding " + size);
    return tl::make_unexpected(
        libraryError(code, "the encoder " + name + " does not take " + size, ErrorKind::noEncoder));
  }
  auto format = formatOf(*context, settings.frameRate);
  if (!format) return tl::make_unexpected(format.error());
  VideoEncoder encoder(std::move(context), std::move(*format));
  encoder.budget_ = budget;
  const bool trims = settings.averageBitRate > 0 && settings.codec == VideoCodec::h264 && !budget;
  if (trims) encoder.trim_.emplace(settings.averageBitRate);
  return encoder;
}

void VideoEncoder::adjustRate() {
  if (trim_) askFor(trim_->wanted(), *context_);
  if (budget_) setQuality(budget_->quality(), *context_);
}

CodecParameters VideoEncoder::format() const {
  CodecParameters format = owned<CodecParameters>(avcodec_parameters_alloc());
  if (avcodec_parameters_copy(format.get(), format_.get()) < 0) throw std::bad_alloc();
  return format;
}

int VideoEncoder::reorderDepth() const {
  // libx265's wrapper leaves the field empty; its streams say so many (sps_max_num_reorder_pics) with the options
  // above.
  return context_->codec_id == AV_CODEC_ID_HEVC ? usualDepth : context_->has_b_frames;
}

Expected<void> VideoEncoder::push(const Frame& picture, std::int64_t time, bool startsAnew) {
  adjustRate();
  if (!firstTime_) firstTime_ = time;
  Frame frame = shareFrame(picture);
  frame->pts = time;
  frame->pict_type = startsAnew ? AV_PICTURE_TYPE_I : AV_PICTURE_TYPE_NONE;
  frame->key_frame = 0;
  frame->interlaced_frame = 0;
  frame->reordered_opaque = 0;  // libx265's wrapper copies any other value, and loses the copies of a run cut short
  if (const int code = avcodec_send_frame(context_.get(), frame.get()); code < 0) {
    return tl::make_unexpected(encodingError(code, "a picture cannot be encoded", *context_));
  }
  return {};
}

Expected<void> VideoEncoder::finish() {
  if (const int code = avcodec_send_frame(context_.get(), nullptr); code < 0 && code != AVERROR_EOF) {
    return tl::make_unexpected(encodingError(code, "the last pictures cannot be encoded", *context_));
  }
  return {};
}

Expected<std::optional<Packet>> VideoEncoder::pull() {
  Packet packet = makePacket();
  const int code = avcodec_receive_packet(context_.get(), packet.get());
  if (code == AVERROR(EAGAIN) || code == AVERROR_EOF) return std::nullopt;
  if (code < 0) return tl::make_unexpected(encodingError(code, "a picture cannot be encoded", *context_));
  const double seconds = av_q2d(context_->time_base) * static_cast<double>(packet->pts - *firstTime_);
  if (trim_) trim_->coded(packet->size, seconds);
  if (budget_) budget_->coded(packet->size, seconds);
  return packet;
}

}  // namespace clipworks::engine
