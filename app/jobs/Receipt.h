#pragma once

#include <chrono>
#include <cstdint>
#include <ctime>
#include <filesystem>
#include <memory>
#include <optional>
#include <stop_token>
#include <string>
#include <vector>

#include <nlohmann/json.hpp>

#include <app/Failure.h>
#include <app/jobs/Digest.h>
#include <app/jobs/Job.h>
#include <clipworks/edit/MakeMovie.h>
#include <clipworks/engine/output/NewFiles.h>

namespace clipworks::app {

/// What a receipt tells of a new movie.
[[nodiscard]] nlohmann::ordered_json factsOf(const MovieReport& report);

/// What a job has made so far.
struct JobOutputs;

/// Tells that a job was done, and what became of it: a file beside the job's output, "b.mp4.receipt.json", that is
/// written last. One object a run; one thread at a time, but for what `watched` gives.
class Receipt {
 public:
  /// How names of receipts end.
  static constexpr const char* ending = ".receipt.json";

  /// Reads an older one, where there is one; nothing else.
  Receipt(const Job& job, std::vector<std::filesystem::path> inputs);
  ~Receipt();
  Receipt(const Receipt&) = delete;
  Receipt& operator=(const Receipt&) = delete;

  [[nodiscard]] const std::filesystem::path& path() const { return path_; }
  /// What `doneBefore` reads beside the inputs.
  [[nodiscard]] const std::vector<std::filesystem::path>& olderOutputs() const { return olderOutputs_; }
  /// Whether the output's name was free in the beginning.
  [[nodiscard]] bool wasFree() const { return wasFree_; }

  /// Whether the output came there so little ago that its receipt may be under way.
  [[nodiscard]] bool mayComeSoon() const;

  /// The job's outputs, where the older receipt is of the same job over the same bytes, and they are as they were made;
  /// none where the job is to be done. Reads all of them, and the inputs. Once, before the work.
  [[nodiscard]] std::vector<std::filesystem::path> doneBefore(const std::stop_token& stop);

  /// Makes the files of the job by `files`, and notes what they hold as they get their names.
  [[nodiscard]] std::shared_ptr<engine::NewFiles> watched(std::shared_ptr<engine::NewFiles> files);

  /// Writes it, with `facts` beside its own. Fails with "try again" where an input was changed meanwhile, or an output
  /// was replaced. After a failure what the job has made is gone, but for what others have put in its place.
  [[nodiscard]] Outcome leave(engine::NewFiles& files, const nlohmann::ordered_json& facts) const;

 private:
  struct Input {
    std::filesystem::path path;
    std::optional<Digest> digest;  // nothing: it could not be read
    std::int64_t time = 0;         // of its last change, in nanoseconds since 1970
  };
  [[nodiscard]] Outcome write(engine::NewFiles& files, const nlohmann::ordered_json& facts) const;
  [[nodiscard]] bool matches(const nlohmann::json& told, const std::optional<Digest>& found) const;

  const Job& job_;
  const std::filesystem::path path_;
  const std::filesystem::path directory_;
  const bool wasFree_;
  const std::time_t started_ = std::time(nullptr);  // seconds since 1970
  const std::chrono::steady_clock::time_point start_ = std::chrono::steady_clock::now();
  std::vector<Input> inputs_;
  nlohmann::json older_;
  std::vector<std::filesystem::path> olderOutputs_;
  const std::shared_ptr<JobOutputs> outputs_;
};

}  // namespace clipworks::app
