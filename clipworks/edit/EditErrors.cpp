#include <clipworks/edit/EditErrors.h>

#include <cerrno>

namespace clipworks {
namespace {

ErrorCode codeOf(const engine::Error& error) {
  switch (error.kind) {
    case engine::ErrorKind::unreadable:
      return error.posixCode == ENOENT ? ErrorCode::notFound : ErrorCode::notReadable;
    case engine::ErrorKind::notMedia:
      return ErrorCode::notAMovie;
    case engine::ErrorKind::damaged:
      return ErrorCode::damaged;
    case engine::ErrorKind::unsupported:
    case engine::ErrorKind::noDevice:
    case engine::ErrorKind::deviceLost:
      return ErrorCode::unsupported;
    case engine::ErrorKind::tooLarge:
      return ErrorCode::tooLarge;
    case engine::ErrorKind::noEncoder:
      return ErrorCode::noEncoder;
    case engine::ErrorKind::unwritable:
      if (error.posixCode == ENOENT) return ErrorCode::notFound;
      return error.posixCode == ENOSPC || error.posixCode == EDQUOT ? ErrorCode::noSpace : ErrorCode::notWritable;
    case engine::ErrorKind::beyondLimit:
    case engine::ErrorKind::lengthLimit:
      return ErrorCode::limitReached;
    case engine::ErrorKind::cancelled:
      return ErrorCode::cancelled;
    case engine::ErrorKind::outOfMemory:
    case engine::ErrorKind::noThreads:
      return ErrorCode::noMemory;
    case engine::ErrorKind::internal:
      return ErrorCode::internal;
  }
  return ErrorCode::internal;
}

ErrorCode codeOf(AVError code) {
  switch (code) {
    case AVError::fileFailedToParse:
      return ErrorCode::notAMovie;
    case AVError::decodeFailed:
    case AVError::invalidSourceMedia:
      return ErrorCode::damaged;
    case AVError::operationNotSupportedForAsset:
    case AVError::invalidVideoComposition:
      return ErrorCode::unsupported;
    case AVError::encoderNotFound:
      return ErrorCode::noEncoder;
    case AVError::invalidTimeRange:
      return ErrorCode::badArgument;
    case AVError::operationCancelled:
      return ErrorCode::cancelled;
    case AVError::diskFull:
      return ErrorCode::noSpace;
    case AVError::maximumFileSizeReached:
      return ErrorCode::limitReached;
    default:
      return ErrorCode::internal;
  }
}

}  // namespace

std::string_view name(ErrorCode code) {
  switch (code) {
    case ErrorCode::notFound:
      return "notFound";
    case ErrorCode::notReadable:
      return "notReadable";
    case ErrorCode::notAMovie:
      return "notAMovie";
    case ErrorCode::unsupported:
      return "unsupported";
    case ErrorCode::damaged:
      return "damaged";
    case ErrorCode::noPictures:
      return "noPictures";
    case ErrorCode::noSound:
      return "noSound";
    case ErrorCode::badArgument:
      return "badArgument";
    case ErrorCode::tooLarge:
      return "tooLarge";
    case ErrorCode::noEncoder:
      return "noEncoder";
    case ErrorCode::notWritable:
      return "notWritable";
    case ErrorCode::noSpace:
      return "noSpace";
    case ErrorCode::noMemory:
      return "noMemory";
    case ErrorCode::busy:
      return "busy";
    case ErrorCode::limitReached:
      return "limitReached";
    case ErrorCode::cancelled:
      return "cancelled";
    case ErrorCode::internal:
      return "internal";
  }
  return "internal";
}

Error fromEngine(const engine::Error& error) { return {codeOf(error), error.sentence}; }

Error fromPlatform(const NSError& error) {
  const bool isOfMedia = error.domain() == AVFoundationErrorDomain;
  return {isOfMedia ? codeOf(static_cast<AVError>(error.code())) : ErrorCode::notReadable,
          error.localizedDescription()};
}

}  // namespace clipworks
