#pragma once

#include <string>

#include <clipworks/engine/Error.h>
#include <clipworks/engine/FFmpeg.h>
#include <clipworks/engine/input/InputLimits.h>

namespace clipworks::engine {

/// The demuxers that read files, as `format_whitelist` takes them: names between commas. There are no others.
[[nodiscard]] const char* knownContainers();

/// The decoders that are used when a file may not use any, as `codec_whitelist` takes them: names between commas.
/// Thread-safe.
[[nodiscard]] const std::string& knownDecoders();

/// The decoder for the stream of `parameters` in the file `name`. Fails with `unsupported` where `limits` do not let
/// its codec in, and where there is none.
[[nodiscard]] Expected<const AVCodec*> decoderFor(const AVCodecParameters& parameters, const InputLimits& limits,
                                                  const std::string& name);

}  // namespace clipworks::engine
