#pragma once

#include <cstdint>
#include <memory>
#include <string>

#include <clipworks/engine/Error.h>
#include <clipworks/engine/FFmpeg.h>
#include <clipworks/engine/Handles.h>
#include <clipworks/engine/input/InputLimits.h>

namespace clipworks::engine {

/// The most pixels that a decoder may be told: decoders make room for whole blocks, so this is a little more than what
/// `limits` allow, and never more than `limits::maxPixels`.
[[nodiscard]] std::int64_t mostDecodedPixels(const InputLimits& limits);

/// Fails where pictures of `width` × `height`, in the file `name`, are beyond the limits: with `beyondLimit` where the
/// limit was set for this file, else with `tooLarge`.
[[nodiscard]] Expected<void> checkPixels(int width, int height, const InputLimits& limits, const std::string& name);

/// Reads in coded pictures how large they are, before any is decoded: a stream may change its size on the way, and a
/// decoder would only say that a picture is broken. Knows those codecs whose headers the library's parsers read, H.264,
/// HEVC, AV1, VP8 and MPEG-2 among them.
class PictureSizes {
 public:
  explicit PictureSizes(const AVCodecParameters& parameters);

  /// Fails as `checkPixels` does. Takes the samples of one stream in decoding order.
  [[nodiscard]] Expected<void> check(const AVPacket& sample, const InputLimits& limits, const std::string& name);

 private:
  struct Close {
    void operator()(AVCodecParserContext* parser) const { av_parser_close(parser); }
  };
  std::unique_ptr<AVCodecParserContext, Close> parser_;  // null where there is none
  CodecContext context_;
};

}  // namespace clipworks::engine
