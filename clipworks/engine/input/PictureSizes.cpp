#include <clipworks/engine/input/PictureSizes.h>

#include <algorithm>
#include <new>

namespace clipworks::engine {

std::int64_t mostDecodedPixels(const InputLimits& limits) {
  constexpr std::int64_t largestBlock = 128;  // of AV1
  constexpr std::int64_t slack = largestBlock * (2 * limits::maxPictureSide + largestBlock);
  if (limits.mostPixels >= limits::maxPixels - slack) return limits::maxPixels;
  return std::max<std::int64_t>(limits.mostPixels, 0) + slack;
}

Expected<void> checkPixels(int width, int height, const InputLimits& limits, const std::string& name) {
  const std::int64_t pixels = std::int64_t{width} * height;
  const std::int64_t most = std::min(limits.mostPixels, limits::maxPixels);
  if (pixels <= most) return {};
  return failed(most < limits::maxPixels ? ErrorKind::beyondLimit : ErrorKind::tooLarge,
                name + " shows pictures of " + std::to_string(width) + " × " + std::to_string(height) + " pixels, " +
                    std::to_string(pixels) + " of them; " + std::to_string(most) + " are allowed");
}

PictureSizes::PictureSizes(const AVCodecParameters& parameters)
    : parser_(av_parser_init(parameters.codec_id)), context_(owned<CodecContext>(avcodec_alloc_context3(nullptr))) {
  if (avcodec_parameters_to_context(context_.get(), &parameters) < 0) throw std::bad_alloc();
  if (parser_) parser_->flags |= PARSER_FLAG_COMPLETE_FRAMES;
}

Expected<void> PictureSizes::check(const AVPacket& sample, const InputLimits& limits, const std::string& name) {
  if (!parser_) return {};
  std::uint8_t* picture = nullptr;
  int bytes = 0;
  av_parser_parse2(parser_.get(), context_.get(), &picture, &bytes, sample.data, sample.size, AV_NOPTS_VALUE,
                   AV_NOPTS_VALUE, -1);
  if (parser_->width > 0 && parser_->height > 0) return checkPixels(parser_->width, parser_->height, limits, name);
  return {};
}

}  // namespace clipworks::engine
