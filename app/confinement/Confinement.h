#pragma once

#include <memory>
#include <string>

#include <app/Failure.h>
#include <app/Needs.h>
#include <app/Options.h>

namespace clipworks::app {

/// What keeps a process from doing what clips never need.
struct Confinement {
  int landlock = 0;          ///< version of the kernel's interface that holds; 0: files are not restricted
  bool systemCalls = false;  ///< calls to the kernel are filtered
  bool isSurvived = true;    ///< false: an outer filter would end the process for asking

  [[nodiscard]] bool isWhole() const { return landlock > 0 && systemCalls; }
  [[nodiscard]] bool isNothing() const { return landlock == 0 && !systemCalls; }
  /// What lacks, as a part of a sentence; empty where nothing does.
  [[nodiscard]] std::string lacks() const;
};

/// What this system offers. Asks in another process.
[[nodiscard]] Confinement availableConfinement();

/// A process that is confined as far as the system allows.
struct Confined {
  Confinement confinement;
  /// Makes the new files of the process, also where it can make none itself.
  std::shared_ptr<engine::NewFiles> files;
};

/// Takes from this process, for good, everything but `needs`; see docs/security.md. Before there are other threads, and
/// before an input is read. Fails where `options` require what the system has not.
[[nodiscard]] Result<Confined, Failure> confine(const Needs& needs, const Options& options);

}  // namespace clipworks::app
