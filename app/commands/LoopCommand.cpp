#include <charconv>
#include <cstdint>
#include <string>

#include <fmt/format.h>
#include <CLI/CLI.hpp>

#include <app/EditingCommand.h>
#include <clipworks/looper/VideoLooperUtils.h>
#include <clipworks/media/asset/AVAsset.h>

namespace clipworks::app {
namespace {

// More is a mistake, and would be hours of work before it is seen as one.
constexpr std::int64_t mostCopies = 100'000;
constexpr double mostHours = 1000;

/// A count as it was typed: digits and perhaps a sign, of any length.
bool isWholeNumber(std::string_view text) {
  if (text.starts_with('-') || text.starts_with('+')) text.remove_prefix(1);
  return !text.empty() && text.find_first_not_of("0123456789") == std::string_view::npos;
}

class LoopCommand final : public EditingCommand {
 public:
  std::string name() const override { return "loop"; }
  std::string purpose() const override { return "Play a clip a number of times in a row, in one new MP4 file"; }
  std::string notes() const override {
    return "The clip needs pictures and sound. The new file gets a name of its own.\n\n"
           "Example: clipworks --outputs results loop clip.mp4 --count 3\n"
           "\"clipworks --help\" tells the options that hold for every command, and the exit codes.";
  }
  void configure(CLI::App& parser) override {
    parser.add_option("FILE", file_, "The clip")->type_name("")->required();
    parser.add_option("--count", countText_, fmt::format("How often it is played, from 1 to {}", mostCopies))
        ->type_name("N")
        ->required();
  }

 protected:
  std::vector<std::filesystem::path> inputs() const override { return {file_}; }

  Outcome check() override {
    if (const Outcome parsed = parseCount(); !parsed) return parsed;
    const auto asset = AVAsset::make(URL(file_));
    const std::string clip = clipName();
    if (asset->tracks().empty()) return failed(asset->loadError());
    if (asset->tracks(AVMediaTypeVideo).empty()) return failed(clip + " has no video track; looping needs one");
    if (asset->tracks(AVMediaTypeAudio).empty()) return failed(clip + " has no sound track; looping needs one");
    const double seconds = asset->duration().seconds();
    if (!(seconds > 0)) return failed(clip + " has no length");
    if (seconds * static_cast<double>(count_) > mostHours * 3600) {
      return wrongUse(fmt::format("{} played {} times would be longer than {:.0f} hours", clip, count_, mostHours));
    }
    return {};
  }

  Outcome edit(Workbench& bench) override {
    const std::string what = clipName() + " could not be looped";
    const auto looper = VideoLooperUtils::make(URL(file_));
    bool isComposed = false;
    looper->createLoopComposition(count_, [&isComposed](const auto& result) { isComposed = result.has_value(); });
    if (!isComposed) return failed(what + ": it has changed and lacks pictures or sound now");
    Awaited<Result<URL, VideoLooperError>> exported;
    looper->exportCurrentComposition(exported.closure());
    const auto made = bench.wait(exported, what);
    return made ? bench.deliver(*made) : failure(made.error());
  }

 private:
  std::string clipName() const { return std::filesystem::path(file_).filename().string(); }

  Outcome parseCount() {
    if (!isWholeNumber(countText_)) return wrongUse("--count takes a whole number, not \"" + countText_ + "\"");
    const char* digits = countText_.data() + (countText_.starts_with('+') ? 1 : 0);
    const auto [end, error] = std::from_chars(digits, countText_.data() + countText_.size(), count_);
    const bool isNegative = countText_.starts_with('-');
    const bool isTooLong = error != std::errc();
    if (isNegative || (!isTooLong && count_ < 1)) return wrongUse("--count must be at least 1");
    if (isTooLong || count_ > mostCopies) return wrongUse(fmt::format("--count must be at most {}", mostCopies));
    return {};
  }

  std::string file_;
  std::string countText_;
  std::int64_t count_ = 0;
};

const RegisteredCommand<LoopCommand> registration;

}  // namespace
}  // namespace clipworks::app
