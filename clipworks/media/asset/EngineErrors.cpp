#include <clipworks/media/asset/EngineErrors.h>

#include <cerrno>

namespace clipworks {
namespace {

AVError codeFor(const engine::Error& error) {
  switch (error.kind) {
    case engine::ErrorKind::notMedia:
    case engine::ErrorKind::tooLarge:
      return AVError::fileFailedToParse;
    case engine::ErrorKind::damaged:
    case engine::ErrorKind::unreadable:
      return AVError::invalidSourceMedia;
    case engine::ErrorKind::unsupported:
      return AVError::operationNotSupportedForAsset;
    case engine::ErrorKind::noEncoder:
      return AVError::encoderNotFound;
    case engine::ErrorKind::unwritable:
      if (error.posixCode == EEXIST) return AVError::fileAlreadyExists;
      return error.posixCode == ENOSPC || error.posixCode == EDQUOT ? AVError::diskFull : AVError::exportFailed;
    case engine::ErrorKind::beyondLimit:
    case engine::ErrorKind::lengthLimit:
      return AVError::maximumFileSizeReached;
    case engine::ErrorKind::noDevice:
      return AVError::deviceNotConnected;
    case engine::ErrorKind::deviceLost:
      return AVError::deviceWasDisconnected;
    case engine::ErrorKind::cancelled:
      return AVError::operationCancelled;
    case engine::ErrorKind::outOfMemory:
      return AVError::outOfMemory;
    case engine::ErrorKind::noThreads:
      return AVError::exportFailed;
    case engine::ErrorKind::internal:
      return AVError::unknown;
  }
  return AVError::unknown;
}

}  // namespace

NSError errorFromEngine(const engine::Error& error) {
  if (error.posixCode == 0) return makeError(codeFor(error), error.sentence);
  return makeError(codeFor(error), error.sentence, makePosixError(error.posixCode, error.sentence));
}

}  // namespace clipworks
