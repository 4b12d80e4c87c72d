#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdint>
#include <filesystem>
#include <memory>
#include <optional>
#include <string>
#include <utility>

#include <fmt/format.h>
#include <CLI/CLI.hpp>

#include <app/Awaited.h>
#include <app/Command.h>
#include <app/EnterKey.h>
#include <app/LevelLine.h>
#include <app/ParseNumber.h>
#include <app/PieceArgument.h>
#include <clipworks/filedeck/FileSystem.h>
#include <clipworks/media/asset/AVAsset.h>
#include <clipworks/media/audio/AVAudioSession.h>
#include <clipworks/media/dispatch/DispatchQueue.h>
#include <clipworks/narration/VideoNarrationUtils.h>

namespace clipworks::app {
namespace {

using Clock = std::chrono::steady_clock;
using Finish = Result<NarrationPiece, NarrationError>;

constexpr std::int32_t startTimescale = 1'000'000;
constexpr std::chrono::milliseconds lookInterval{50};
// What the file's counters hold.
constexpr double mostHours = 24;

/// Hands on what the recording becomes.
class Listener final : public VideoNarrationUtilsDelegate {
 public:
  explicit Listener(std::function<void(const Finish&)> onFinish) : onFinish_(std::move(onFinish)) {}
  void narrationDidFinish(const Finish& result) override { onFinish_(result); }

 private:
  std::function<void(const Finish&)> onFinish_;
};

/// The sound until a failure is kept; a file without any is not.
std::string whatIsLeft(const std::filesystem::path& file) {
  if (!AVAsset::make(URL(file))->tracks().empty()) return "; the sound until then is in " + file.string();
  std::error_code ignored;
  std::filesystem::remove(file, ignored);
  return "";
}

// A recording is written where it stays, as it comes: whatever ends the program, its sound can be found there.
class RecordCommand final : public Command {
 public:
  std::string name() const override { return "record"; }
  std::string purpose() const override { return "Record a piece of narration with the microphone"; }
  std::string notes() const override {
    return "Enter, Ctrl-C or the time given with --for ends the recording, and keeps it. The file gets a name of its own;\n"
           "the argument that \"narrate\" takes for it goes to standard error.\n\n"
           "Example: clipworks --outputs results record --at 5\n"
           "\"clipworks --help\" tells the options that hold for every command, and the exit codes.";
  }
  void configure(CLI::App& parser) override {
    parser.add_option("--at", atText_, "The second of the video at which the piece starts")->type_name("S")->required();
    parser.add_option("--for", forText_, "How many seconds are recorded; otherwise until it is ended")->type_name("S");
  }

  Needs needs() const override {
    Needs needs;
    needs.usesSoundServer = true;
    return needs;
  }

  Outcome run(const Program& program) override {
    if (program.options.planOnly) return wrongUse("a recording cannot be planned; --plan goes with edits");
    if (program.options.output) return wrongUse("a recording gets a name of its own; --output goes with edits");
    if (const Outcome checked = check(program.options.outputs); !checked) return checked;
    // From here on Ctrl-C only ends the recording.
    program.interruption.defer();
    FileSystem::shared().setOutputsURL(URL(program.options.outputs));
    Awaited<Finish> finished;
    const auto listener = std::make_shared<Listener>(finished.closure());
    const auto narration = VideoNarrationUtils::make();
    if (!narration->startNarration(CMTime(at_, startTimescale), listener))
      return failed(whyNotStarted(program.options.outputs));
    const auto recorder = narration->audioRecorder();
    if (recorder == nullptr) return failed("the recording failed as soon as it had started");
    wait(program, *narration, *recorder, finished);
    return report(program.reporter, *recorder, finished.value());
  }

 private:
  Outcome check(const std::filesystem::path& outputs) {
    const auto at = parseNumber(atText_);
    if (!at || *at < 0 || *at > mostHours * 3600) {
      return wrongUse(fmt::format("--at takes seconds, from 0 to {:.0f}", mostHours * 3600));
    }
    at_ = *at;
    if (forText_) {
      const auto length = parseNumber(*forText_);
      if (!length || *length <= 0 || *length > mostHours * 3600) {
        return wrongUse(fmt::format("--for takes seconds, more than 0 and at most {:.0f}", mostHours * 3600));
      }
      length_ = std::chrono::duration<double>(*length);
    }
    std::error_code unknown;
    if (!std::filesystem::exists(outputs, unknown)) {
      return failed("the outputs directory " + outputs.string() + " does not exist");
    }
    return {};
  }

  static std::string whyNotStarted(const std::filesystem::path& outputs) {
    const auto active = AVAudioSession::sharedInstance().setActive(true, 0);
    if (!active) return "nothing can be recorded: " + active.error().localizedDescription();
    return "no recording can be started in the outputs directory " + outputs.string();
  }

  void wait(const Program& program, VideoNarrationUtils& narration, AVAudioRecorder& recorder,
            const Awaited<Finish>& finished) const {
    const auto start = Clock::now();
    EnterKey enter;
    while (!finished.isOver()) {
      const auto passed = Clock::now() - start;
      const bool isLongEnough = length_ && passed >= *length_;
      if (isLongEnough || program.interruption.isRequested() || enter.wasPressed()) narration.finishNarration();
      recorder.updateMeters();
      const double level = std::max(recorder.peakPower(0), recorder.peakPower(1));
      program.reporter.status(levelLine(recorder.currentTime(), level) + "  Enter ends the recording");
      auto interval = std::chrono::duration_cast<std::chrono::nanoseconds>(lookInterval);
      if (length_ && !isLongEnough) {
        interval = std::min(interval, std::chrono::duration_cast<std::chrono::nanoseconds>(*length_ - passed));
      }
      DispatchQueue::main().runOne(interval);
    }
  }

  Outcome report(Reporter& reporter, const AVAudioRecorder& recorder, const std::optional<Finish>& finish) const {
    const std::filesystem::path file = recorder.url().path().lexically_normal();
    if (!finish || !*finish) {
      const auto error = recorder.error();
      return failed("the recording failed: " + (error ? error->localizedDescription() : "no reason is known") +
                    whatIsLeft(file));
    }
    const auto asset = AVAsset::make(URL(file));
    if (asset->tracks().empty()) return failed("the recording cannot be read back: " + asset->loadError());
    reporter.output(file);
    reporter.note("--piece " + shellWord(file.string() + "@" + atText_));
    reporter.done();
    return {};
  }

  std::string atText_;
  std::optional<std::string> forText_;
  double at_ = 0;
  std::optional<std::chrono::duration<double>> length_;
};

const RegisteredCommand<RecordCommand> registration;

}  // namespace
}  // namespace clipworks::app
