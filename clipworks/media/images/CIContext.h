#pragma once

#include <memory>

#include <clipworks/media/base/Export.h>

namespace clipworks {

/// A place to render images in. Images here are rendered where they are asked for, so it has nothing to hold yet; it
/// marks who would. Immutable.
class CLIPWORKS_API CIContext final {
 public:
  /// `CIContext()`.
  [[nodiscard]] static std::shared_ptr<CIContext> make() { return std::shared_ptr<CIContext>(new CIContext()); }
  CIContext(const CIContext&) = delete;
  CIContext& operator=(const CIContext&) = delete;

 private:
  CIContext() = default;
};

}  // namespace clipworks
