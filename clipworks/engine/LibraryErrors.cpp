#include <clipworks/engine/LibraryErrors.h>

#include <array>
#include <cerrno>
#include <mutex>

#include <clipworks/engine/FFmpeg.h>
#include <clipworks/engine/Limits.h>

namespace clipworks::engine {

std::string libraryErrorText(int code) {
  std::array<char, AV_ERROR_MAX_STRING_SIZE> text{};
  av_strerror(code, text.data(), text.size());
  return text.data();
}

Error libraryError(int code, const std::string& what, ErrorKind otherwise) {
  ErrorKind kind = otherwise;
  int posixCode = 0;
  switch (code) {
    case AVERROR(ENOMEM):
      kind = ErrorKind::outOfMemory;
      break;
    case AVERROR_EXIT:
      kind = ErrorKind::cancelled;
      break;
    case AVERROR_DEMUXER_NOT_FOUND:
      kind = ErrorKind::notMedia;
      break;
    case AVERROR_DECODER_NOT_FOUND:
    case AVERROR_PATCHWELCOME:
      kind = ErrorKind::unsupported;
      break;
    case AVERROR_ENCODER_NOT_FOUND:
      kind = ErrorKind::noEncoder;
      break;
    case AVERROR(ENOSPC):
    case AVERROR(EIO):
    case AVERROR(EDQUOT):
    case AVERROR(EFBIG):
      posixCode = AVUNERROR(code);
      break;
    default:
      break;
  }
  return Error{kind, what + ": " + libraryErrorText(code), posixCode};
}

void prepareLibraries() {
  static std::once_flag once;
  std::call_once(once, [] {
    av_log_set_level(AV_LOG_QUIET);
    av_max_alloc(limits::maxAllocation);
  });
}

}  // namespace clipworks::engine
