#include <clipworks/media/base/NSError.h>

#include <system_error>
#include <utility>

namespace clipworks {

namespace {

std::string onOneLine(std::string text) {
  for (char& character : text) {
    if (character == '\n' || character == '\r') character = ' ';
  }
  return text;
}

}  // namespace

NSError::NSError(std::string domain, int code, std::string sentence)
    : domain_(onOneLine(std::move(domain))), code_(code), sentence_(onOneLine(std::move(sentence))) {}

NSError::NSError(std::string domain, int code, std::string sentence, const NSError& underlyingError)
    : NSError(std::move(domain), code, std::move(sentence)) {
  underlying_ = std::make_shared<const NSError>(underlyingError);
}

std::string NSError::description() const {
  std::string text;
  for (const NSError* error = this; error != nullptr; error = error->underlyingError()) {
    if (error != this) text += ", caused by: ";
    text += "Error Domain=" + error->domain_ + " Code=" + std::to_string(error->code_) + " \"" + error->sentence_ + '"';
  }
  return text;
}

NSError makeError(AVError code, std::string sentence) {
  return {AVFoundationErrorDomain, static_cast<int>(code), std::move(sentence)};
}

NSError makeError(AVError code, std::string sentence, const NSError& underlyingError) {
  return {AVFoundationErrorDomain, static_cast<int>(code), std::move(sentence), underlyingError};
}

NSError makePosixError(int code, const std::string& what) {
  return {NSPOSIXErrorDomain, code, what + ": " + std::generic_category().message(code)};
}

}  // namespace clipworks
