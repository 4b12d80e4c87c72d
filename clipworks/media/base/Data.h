#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <utility>
#include <vector>

#include <clipworks/media/base/Export.h>
#include <clipworks/media/base/NSError.h>
#include <clipworks/media/base/Result.h>
#include <clipworks/media/base/URL.h>

namespace clipworks {

/// Bytes in memory. A value; copies copy them.
class CLIPWORKS_API Data {
 public:
  Data() = default;
  /// Takes the bytes over.
  explicit Data(std::vector<std::uint8_t> bytes) : bytes_(std::move(bytes)) {}

  /// How many bytes there are.
  [[nodiscard]] std::size_t count() const { return bytes_.size(); }
  /// The bytes, as long as this lives unchanged.
  [[nodiscard]] std::span<const std::uint8_t> bytes() const { return bytes_; }

  /// `write(to:options:)` without options: writes all bytes to a file, which replaces one of that name in one step.
  /// The file has no name until it is whole, so that the name is never that of a part, even after a kill. Fails with
  /// an error of `NSPOSIXErrorDomain`, and leaves an old file alone then. Any thread.
  [[nodiscard]] Result<void, NSError> write(const URL& to) const;

  friend bool operator==(const Data&, const Data&) = default;

 private:
  std::vector<std::uint8_t> bytes_;
};

}  // namespace clipworks
