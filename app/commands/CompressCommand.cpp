#include <algorithm>
#include <cstdint>
#include <filesystem>
#include <string>
#include <system_error>
#include <utility>
#include <vector>

#include <fmt/format.h>
#include <CLI/CLI.hpp>

#include <app/CompressingCommand.h>
#include <clipworks/media/asset/AVAsset.h>

namespace clipworks::app {
namespace {

// So that a clip without a length counts for something.
constexpr double leastSeconds = 0.1;

/// What one FILE of the command line is.
struct Source {
  std::filesystem::path file;
  /// For the share of the work that it is.
  double seconds = 0;
  /// Why it cannot be compressed; found before anything ran.
  Outcome fit;

  [[nodiscard]] std::string name() const { return file.filename().string(); }
};

/// `24.1 MB`, in powers of 1000.
std::string sizeOf(const std::filesystem::path& file) {
  std::error_code error;
  const auto bytes = std::filesystem::file_size(file, error);
  if (error) return "an unknown size";
  const auto size = static_cast<double>(bytes);
  if (size >= 1e9) return fmt::format("{:.2f} GB", size / 1e9);
  return size >= 1e6 ? fmt::format("{:.1f} MB", size / 1e6) : fmt::format("{:.1f} kB", size / 1e3);
}

class CompressCommand final : public CompressingCommand {
 public:
  std::string name() const override { return "compress"; }
  std::string purpose() const override { return "Encode clips anew, smaller, each in a new MP4 file"; }
  std::string notes() const override {
    return "Pictures become H.264 of the preset's height, sound AAC; pictures smaller than the preset are enlarged. The\n"
           "new files get names of their own, told in the order of the clips. Clips that cannot be compressed are named,\n"
           "the others are written, and the exit code is 1.\n\n"
           "Example: clipworks --outputs small compress a.mp4 b.mov --preset 480p\n"
           "\"clipworks --help\" tells the options that hold for every command, and the exit codes.";
  }
  void configure(CLI::App& parser) override {
    parser.add_option("FILE", files_, "The clips")->type_name("")->required();
    addSettings(parser);
  }

 protected:
  std::vector<std::filesystem::path> inputs() const override { return {files_.begin(), files_.end()}; }

  Outcome check() override {
    if (const Outcome parsed = parseSettings(); !parsed) return parsed;
    for (const auto& file : files_) sources_.push_back({file, secondsOf(file), checkVideo(file)});
    return files_.size() == 1 ? sources_.front().fit : Outcome();
  }

  Outcome edit(Workbench& bench) override {
    double whole = 0;
    for (const auto& source : sources_) {
      if (source.fit) {
        whole += source.seconds;
      } else if (sources_.size() > 1) {
        fail(bench, source, source.fit.error().sentence);
      }
    }
    double done = 0;
    std::vector<std::pair<const Source*, URL>> results;
    for (const auto& source : sources_) {
      if (!source.fit) continue;
      bench.enterStage(done / whole, (done + source.seconds) / whole);
      done += source.seconds;
      const auto made = compressOne(bench, source);
      if (made) {
        results.emplace_back(&source, *made);
        bench.tell(fmt::format("{}: {}, now {}: {}", source.name(), sizeOf(source.file), sizeOf(made->path()),
                               made->lastPathComponent()));
        continue;
      }
      if (sources_.size() == 1 || made.error().code == ExitCode::interrupted) return failure(made.error());
      fail(bench, source, made.error().sentence);
    }
    return deliverAll(bench, results);
  }

 private:
  static double secondsOf(const std::filesystem::path& file) {
    return std::max(AVAsset::make(URL(file))->duration().seconds(), leastSeconds);
  }

  /// Each in a batch of its own: a longer batch does not tell which of its videos failed.
  Result<URL, Failure> compressOne(Workbench& bench, const Source& source) const {
    const auto compressor = VideoCompressorUtils::make();
    Awaited<Result<std::vector<URL>, VideoCompressorUtils::CompressionError>> compressed;
    compressor->compress({URL(source.file)}, parameters(), compressed.closure());
    const auto made = bench.wait(compressed, source.name() + " could not be compressed");
    if (!made) return failure(made.error());
    return made->front();
  }

  /// At the very end, so that an interrupted run leaves nothing.
  Outcome deliverAll(Workbench& bench, const std::vector<std::pair<const Source*, URL>>& results) {
    for (const auto& [source, made] : results) {
      const Outcome delivered = bench.deliver(made, source->file);
      if (delivered) continue;
      if (sources_.size() == 1) return delivered;
      fail(bench, *source, delivered.error().sentence);
    }
    if (failedNames_.empty()) return {};
    return failed(fmt::format("{} of {} files could not be compressed: {}", failedNames_.size(), sources_.size(),
                              fmt::join(failedNames_, ", ")));
  }

  void fail(Workbench& bench, const Source& source, const std::string& sentence) {
    failedNames_.push_back(source.name());
    bench.warn(source.file, sentence);
  }

  std::vector<std::string> files_;
  std::vector<Source> sources_;
  std::vector<std::string> failedNames_;
};

const RegisteredCommand<CompressCommand> registration;

}  // namespace
}  // namespace clipworks::app
