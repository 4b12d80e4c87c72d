#include <cmath>
#include <cstdint>
#include <optional>
#include <string>

#include <fmt/format.h>
#include <CLI/CLI.hpp>

#include <app/EditingCommand.h>
#include <app/OutputName.h>
#include <clipworks/media/asset/AVAsset.h>
#include <clipworks/speed/VideoSpeedConverter.h>

namespace clipworks::app {
namespace {

// More is a mistake, and would be hours of work before it is seen as one.
constexpr double mostHours = 1000;

// Lengths are shown with three digits, so what is typed may lie a little behind the end.
constexpr double shownDigit = 0.001;

class SpeedCommand final : public EditingCommand {
 public:
  std::string name() const override { return "speed"; }
  std::string purpose() const override { return "Slow down or speed up one stretch of a clip, in one new MP4 file"; }
  std::string notes() const override {
    return "The clip needs pictures and sound; the sound keeps its pitch.\n\n"
           "Example, seconds 2 to 4 at half speed: clipworks --outputs results speed clip.mp4 --from 2 --to 4 --ratio 2\n"
           "\"clipworks --help\" tells the options that hold for every command, and the exit codes.";
  }
  void configure(CLI::App& parser) override {
    parser.add_option("FILE", file_, "The clip")->type_name("")->required();
    parser.add_option("--from", from_, "Where the stretch starts, in seconds")->type_name("S")->required();
    parser.add_option("--to", to_, "Where it ends, in seconds")->type_name("S")->required();
    parser.add_option("--ratio", ratio_, "How many times as long it lasts: 2 is half the speed, 0.5 double the speed")
        ->type_name("R")
        ->required();
    parser.add_option("--quality", quality_, "low (small pictures), or high, the default")
        ->type_name("low|high")
        ->check(CLI::IsMember({"low", "high"}).description(""));
    parser.add_option("--name", name_, "The new file's name without \".mp4\"; one of its own when not given")
        ->type_name("NAME");
  }

 protected:
  std::vector<std::filesystem::path> inputs() const override { return {file_}; }

  Outcome check() override {
    if (const Outcome named = name_ ? checkOutputName(*name_) : Outcome(); !named) return named;
    if (const Outcome checked = checkNumbers(); !checked) return checked;
    const auto asset = AVAsset::make(URL(file_));
    const std::string clip = clipName();
    if (asset->tracks().empty()) return failed(asset->loadError());
    if (asset->tracks(AVMediaTypeVideo).empty()) return failed(clip + " has no video track; a speed change needs one");
    if (asset->tracks(AVMediaTypeAudio).empty()) return failed(clip + " has no sound track; a speed change needs one");
    return checkAgainst(asset->duration());
  }

  Outcome edit(Workbench& bench) override {
    const auto converter = VideoSpeedConverter::make(URL(file_));
    const auto quality =
        quality_ == "low" ? VideoSpeedConverter::ConversionQuality::low : VideoSpeedConverter::ConversionQuality::high;
    Awaited<Result<URL, VideoSpeedConverter::ConversionError>> exported;
    converter->applySpeedChange(from_, to_, ratio_, name_, quality, exported.closure());
    const auto made = bench.wait(exported, "the speed of " + clipName() + " could not be changed");
    return made ? bench.deliver(*made) : failure(made.error());
  }

 private:
  std::string clipName() const { return std::filesystem::path(file_).filename().string(); }

  Outcome checkNumbers() const {
    if (!std::isfinite(from_) || !std::isfinite(to_)) return wrongUse("--from and --to take seconds");
    if (!std::isfinite(ratio_) || ratio_ <= 0) return wrongUse("--ratio must be more than 0, and not infinite");
    if (from_ < 0) return wrongUse("--from must not be negative");
    if (from_ >= to_) return wrongUse("--from must come before --to");
    return {};
  }

  Outcome checkAgainst(const CMTime& duration) const {
    const double seconds = duration.seconds();
    if (!(seconds > 0)) return failed(clipName() + " has no length");
    if (to_ > seconds + shownDigit || from_ >= seconds) {
      return wrongUse(fmt::format("{} ends at {:.3f} seconds, so the stretch from {} to {} is not in it", clipName(),
                                  seconds, from_, to_));
    }
    const double length = (to_ - from_) * ratio_;
    if (length * duration.timescale < 0.5)
      return wrongUse("--ratio is so small that nothing of the stretch would be left");
    if (length > mostHours * 3600)
      return wrongUse(fmt::format("the stretch would be longer than {:.0f} hours", mostHours));
    return {};
  }

  std::string file_;
  double from_ = 0;
  double to_ = 0;
  double ratio_ = 1;
  std::string quality_ = "high";
  std::optional<std::string> name_;
};

const RegisteredCommand<SpeedCommand> registration;

}  // namespace
}  // namespace clipworks::app
