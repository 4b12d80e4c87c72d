#pragma once

#include <cstdint>
#include <filesystem>
#include <fstream>
#include <optional>
#include <string>
#include <unordered_set>
#include <vector>

#include <app/Failure.h>

namespace clipworks::app {

/// One line of a list of jobs.
struct ListedJob {
  std::int64_t line = 0;  ///< from 1 on
  std::string text;
};

/// Jobs, a line of JSON each, read one after the other: a list may be longer than memory. One thread at a time.
class JobList {
 public:
  /// Of a file, or of standard input for "-", whose length nobody knows.
  [[nodiscard]] static Result<JobList, Failure> open(const std::string& place);

  /// Jobs that compress each clip that lies in `directory` into `outputs`, by the names of their files. `options` are
  /// JSON: the keys of the step "compress". Fails where there is no clip.
  [[nodiscard]] static Result<JobList, Failure> compressing(const std::filesystem::path& directory,
                                                            const std::filesystem::path& outputs,
                                                            const std::string& options);

  /// The next one; nothing at the end. Empty lines are none.
  [[nodiscard]] std::optional<ListedJob> next();
  /// How many there are; nothing where that is not known.
  [[nodiscard]] std::optional<std::int64_t> count() const { return count_; }

 private:
  std::optional<std::int64_t> count_;
  bool isStandardInput_ = false;
  std::ifstream file_;
  std::vector<std::string> lines_;  // in place of a file
  std::int64_t line_ = 0;
};

/// Finds what two jobs would both make.
class OutputNames {
 public:
  /// False where the output was taken before.
  [[nodiscard]] bool take(const std::filesystem::path& output);

 private:
  std::unordered_set<std::uint64_t> taken_;  // digests of paths: there may be millions
};

}  // namespace clipworks::app
