#pragma once

namespace clipworks {

/// Quality-of-service class of work on a global queue: what the work is for. Every class is served by the same threads
/// in the same order here, so that no class can starve another; the names are kept for callers.
enum class DispatchQoS {
  userInteractive,
  userInitiated,
  utility,
  background,
  default_,  // NOLINT(readability-identifier-naming): the plain word is the language's
};

}  // namespace clipworks
