#pragma once

#include <filesystem>
#include <string>
#include <vector>

#include <app/Command.h>
#include <app/Workbench.h>

namespace clipworks::app {

/// A command that makes files out of files.
class EditingCommand : public Command {
 public:
  /// Checks, chooses the codec, edits, and tells the results.
  [[nodiscard]] Outcome run(const Program& program) final;

 protected:
  /// The files that are read, and never overwritten. The first one decides the codec.
  [[nodiscard]] virtual std::vector<std::filesystem::path> inputs() const = 0;
  /// Finds wrong use and unsuitable files, by looking only; nothing has been made yet.
  [[nodiscard]] virtual Outcome check() = 0;
  /// Fails in words when `file` cannot be read or has no pictures, which `work` ("cropping it") needs.
  [[nodiscard]] static Outcome checkPictures(const std::filesystem::path& file, const std::string& work);
  /// The names that the results will have, as far as they are known; none of them may be an input's.
  [[nodiscard]] virtual std::vector<std::string> resultNames() const { return {}; }
  /// Runs the operation and delivers its files.
  [[nodiscard]] virtual Outcome edit(Workbench& bench) = 0;
};

}  // namespace clipworks::app
