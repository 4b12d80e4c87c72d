#pragma once

#include <filesystem>
#include <functional>
#include <optional>
#include <string>
#include <vector>

#include <nlohmann/json_fwd.hpp>

#include <app/Failure.h>

namespace clipworks::app {

/// A job as the page may ask for it: one whose files are names, and whose steps and options are of a table.
struct PageJob {
  /// Of the files that the page may name, where they are.
  using FindFile = std::function<std::optional<std::filesystem::path>(const std::string& name)>;

  std::vector<std::filesystem::path> files;  ///< the clip, and those that are joined to it
  std::string out;                           ///< the new file's name without its ending, as wanted
  std::string ending;                        ///< of the new file, by its last step
  std::vector<std::string>
      words;  ///< of the program; without its name, and without the new file, which goes before them

  /// Fails with one sentence for anything else.
  [[nodiscard]] static Result<PageJob, Failure> parse(nlohmann::json object, const FindFile& find);
};

}  // namespace clipworks::app
