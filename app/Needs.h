#pragma once

#include <filesystem>
#include <optional>
#include <string>
#include <vector>

namespace clipworks::app {

/// What a command needs of the system; everything else may be taken from the process before it runs.
struct Needs {
  std::vector<std::filesystem::path> inputs{};
  /// Makes new files where the options say.
  bool makesFiles = false;
  /// Of a name that was typed: new files whose names begin so replace older ones.
  std::optional<std::string> replacedName{};
  /// Records or plays, and makes its files itself.
  bool usesSoundServer = false;
  /// Reads no file from outside, and must see the system as it is.
  bool isTrusted = false;
};

}  // namespace clipworks::app
