#pragma once

#include <memory>
#include <string>

#include <clipworks/media/base/Export.h>

namespace clipworks {

/// A failure of the platform: a domain, a code within it, one sentence for people that says what failed and
/// where, and the failure below it when there was one. An immutable value, cheap to copy.
class CLIPWORKS_API NSError {
 public:
  NSError() = default;
  /// An error on its own. `sentence` is for people, on one line.
  NSError(std::string domain, int code, std::string sentence);
  /// An error that another one led to.
  NSError(std::string domain, int code, std::string sentence, const NSError& underlyingError);

  /// Whose codes these are.
  [[nodiscard]] const std::string& domain() const { return domain_; }
  /// Which failure it is, within the domain.
  [[nodiscard]] int code() const { return code_; }

  /// The sentence for people, on one line.
  [[nodiscard]] const std::string& localizedDescription() const { return sentence_; }

  /// The full rendering, on one line: domain, code, sentence, and the same of the errors below.
  [[nodiscard]] std::string description() const;

  /// The failure below this one; null when there is none.
  [[nodiscard]] const NSError* underlyingError() const { return underlying_.get(); }

 private:
  std::string domain_;
  int code_ = 0;
  std::string sentence_;
  std::shared_ptr<const NSError> underlying_;
};

/// Domain of errors about media: opening, composing, exporting. Codes: `AVError`.
inline constexpr const char* AVFoundationErrorDomain = "AVFoundationErrorDomain";
/// Domain of errors about files. Codes are those of `errno`.
inline constexpr const char* NSPOSIXErrorDomain = "NSPOSIXErrorDomain";

/// Codes of `AVFoundationErrorDomain`.
enum class AVError : int {
  unknown = -11800,
  outOfMemory = -11801,
  diskFull = -11807,
  deviceWasDisconnected = -11808,
  maximumFileSizeReached = -11811,
  fileAlreadyExists = -11823,
  fileFailedToParse = -11829,
  decodeFailed = -11821,
  deviceNotConnected = -11814,
  exportFailed = -11820,
  encoderNotFound = -11834,
  invalidSourceMedia = -11828,
  invalidVideoComposition = -11841,
  operationNotSupportedForAsset = -11838,
  noLongerPlayable = -11867,
  operationCancelled = -11878,
  invalidTimeRange = -11846,
};

/// An error of `AVFoundationErrorDomain`.
[[nodiscard]] CLIPWORKS_API NSError makeError(AVError code, std::string sentence);
[[nodiscard]] CLIPWORKS_API NSError makeError(AVError code, std::string sentence, const NSError& underlyingError);
/// An error of `NSPOSIXErrorDomain` with the text of `errno`'s value `code` behind `what`.
[[nodiscard]] CLIPWORKS_API NSError makePosixError(int code, const std::string& what);

}  // namespace clipworks
