#pragma once

#include <functional>
#include <string>
#include <utility>

#include <clipworks/media/base/Data.h>
#include <clipworks/media/base/Export.h>
#include <clipworks/media/base/Result.h>

namespace clipworks {

/// Why a picture could not be converted.
class CLIPWORKS_API ConverterError {
 public:
  /// Kinds of failures.
  enum class Code {
    /// The converter has no image.
    noImage,
    /// The format does not hold such a picture: its size, as a rule.
    unsupportedImage,
    /// Anything else: no encoder, no memory.
    encodingFailed,
  };

  /// `sentence` is for people, without a full stop.
  ConverterError(Code code, std::string sentence) : code_(code), sentence_(std::move(sentence)) {}

  /// Which kind it is.
  [[nodiscard]] Code code() const { return code_; }
  /// One sentence for people, without a full stop.
  [[nodiscard]] const std::string& localizedDescription() const { return sentence_; }

 private:
  Code code_;
  std::string sentence_;
};

/// Makes a still image file, in memory, out of a picture.
class CLIPWORKS_API Converter {
 public:
  /// Takes the file's bytes, or why there are none.
  using Completion = std::function<void(Result<Data, ConverterError>)>;

  virtual ~Converter() = default;
  Converter(const Converter&) = delete;
  Converter& operator=(const Converter&) = delete;

  /// Of the format's files, without the dot.
  [[nodiscard]] virtual std::string fileExtension() const = 0;
  /// Encodes the image and calls `onComplete` once. It may come on any thread, also before the call returns.
  virtual void convert(const Completion& onComplete) = 0;

 protected:
  Converter() = default;
};

}  // namespace clipworks
