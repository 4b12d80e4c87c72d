#pragma once

#include <atomic>
#include <cstdint>
#include <filesystem>
#include <functional>
#include <memory>
#include <mutex>
#include <string>

#include <clipworks/engine/Error.h>
#include <clipworks/engine/output/OutputFile.h>
#include <clipworks/engine/pipeline/ExportJob.h>

namespace clipworks::engine {

class CodedPictures;
class DamagedPictures;
class CodedSound;

/// What came out of an export beside the file.
struct ExportReport {
  std::int64_t replacedPictures = 0;               ///< stand-ins for pictures that did not decode
  std::shared_ptr<const DamagedPictures> damaged;  ///< of the pictures that were encoded; null when none were
  std::filesystem::path path;                      ///< of the file
  std::int64_t bytes = 0;                          ///< of the file
};

/// Carries out one job. Stages, each on its own thread, joined by bounded queues:
///
///     samples ─> decoder ─> converter + encoder ─┐
///                                                ├─> interleaver + muxer ─> file   (the thread that calls `run`)
///     packets ─> decoder + mixer ─> encoders ────┘
///
/// A run of pictures that plays again is read back from the file being written. `run` once; `cancel` and `progress`
/// from any thread.
class ExportRun {
 public:
  explicit ExportRun(ExportJob job);
  ExportRun(const ExportRun&) = delete;
  ExportRun& operator=(const ExportRun&) = delete;
  ~ExportRun();

  /// Called on the thread that calls `run`: how far the slower track has been written, from 0 to 1, and how many
  /// pictures were. What it throws ends the run.
  using OnProgress = std::function<void(double share, std::int64_t pictures)>;

  /// Blocks until the file is whole under its name, or nothing is left of it.
  [[nodiscard]] Expected<ExportReport> run(const OnProgress& onProgress = nullptr);

  /// Makes `run` end with `cancelled` soon.
  void cancel();

  /// From 0 to 1, never falling: how far the slower track has been written.
  [[nodiscard]] float progress() const { return progress_.load(std::memory_order_relaxed); }

 private:
  Expected<ExportReport> write(const OnProgress& onProgress);
  Expected<void> verifyFile();
  bool isCancelled();
  void report(double share);

  const ExportJob job_;
  std::atomic<float> progress_ = 0.0F;
  std::mutex mutex_;                         // between cancel() and the members below
  bool cancelled_ = false;                   // guarded by mutex_
  std::unique_ptr<OutputFile> file_;         // created under mutex_
  std::unique_ptr<CodedPictures> pictures_;  // created under mutex_
  std::unique_ptr<CodedSound> sound_;        // created under mutex_
};

}  // namespace clipworks::engine
