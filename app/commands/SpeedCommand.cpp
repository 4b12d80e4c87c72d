#include <algorithm>
#include <cmath>
#include <optional>
#include <string>
#include <vector>

#include <fmt/format.h>
#include <CLI/CLI.hpp>

#include <app/OutputName.h>
#include <app/StepCommand.h>
#include <clipworks/edit/Steps.h>

namespace clipworks::app {
namespace {

class SpeedCommand final : public StepCommand {
 public:
  std::string name() const override { return "speed"; }
  std::string participle() const override { return "retimed"; }
  std::string purpose() const override { return "Slow down or speed up stretches of a clip, in one new MP4 file"; }
  std::string notes() const override {
    return "The clip needs pictures and sound; the sound keeps its pitch. With --from, --to and --ratio given several\n"
           "times, several stretches change; all times are those of the clip as it is given, and stretches must not\n"
           "overlap.\n\n"
           "Example, seconds 2 to 4 at half speed: clipworks speed clip.mp4 --from 2 --to 4 --ratio 2";
  }

  Outcome check() override {
    if (name_) {
      if (const Outcome named = checkOutputName(*name_); !named) return named;
    }
    if (from_.size() != to_.size() || from_.size() != ratio_.size())
      return wrongUse("each stretch needs --from, --to and --ratio");
    for (std::size_t i = 0; i < from_.size(); ++i) {
      if (!std::isfinite(from_[i]) || !std::isfinite(to_[i])) return wrongUse("--from and --to take seconds");
      if (!std::isfinite(ratio_[i]) || ratio_[i] <= 0) return wrongUse("--ratio must be more than 0, and not infinite");
      if (from_[i] < 0) return wrongUse("--from must not be negative");
      if (from_[i] >= to_[i]) return wrongUse("--from must come before --to");
      stretches_.push_back({from_[i], to_[i], ratio_[i]});
    }
    std::sort(stretches_.begin(), stretches_.end(), [](const auto& a, const auto& b) { return a.from > b.from; });
    for (std::size_t i = 1; i < stretches_.size(); ++i) {
      if (stretches_[i].to > stretches_[i - 1].from) {
        return wrongUse(
            fmt::format("the stretches from {} and from {} overlap", stretches_[i].from, stretches_[i - 1].from));
      }
    }
    return {};
  }

  /// The last one first, so that none moves those before it.
  Result<Edit, Error> apply(const Edit& edit) const override {
    Result<Edit, Error> changed = quality_ == "low" ? madeSmall(edit) : edit;
    for (const auto& stretch : stretches_) {
      if (!changed) return changed;
      changed =
          retimed(*changed, CMTimeRange::fromTo(exactSeconds(stretch.from), exactSeconds(stretch.to)), stretch.ratio);
    }
    return changed;
  }

  std::optional<std::string> givenName() const override { return name_; }

 protected:
  void addOptions(CLI::App& parser) override {
    parser.add_option("--from", from_, "Where the stretch starts, in seconds")
        ->type_name("S")
        ->allow_extra_args(false)
        ->required();
    parser.add_option("--to", to_, "Where it ends, in seconds")->type_name("S")->allow_extra_args(false)->required();
    parser.add_option("--ratio", ratio_, "How many times as long it lasts: 2 is half the speed, 0.5 double the speed")
        ->type_name("R")
        ->allow_extra_args(false)
        ->required();
    parser.add_option("--quality", quality_, "low (small pictures), or high, the default")
        ->type_name("low|high")
        ->check(CLI::IsMember({"low", "high"}).description(""));
    parser.add_option("--name", name_, "The new file's name without \".mp4\"")->type_name("NAME");
  }

 private:
  struct Stretch {
    double from = 0;
    double to = 0;
    double ratio = 1;
  };
  std::vector<double> from_;
  std::vector<double> to_;
  std::vector<double> ratio_;
  std::vector<Stretch> stretches_;
  std::string quality_ = "high";
  std::optional<std::string> name_;
};

const RegisteredCommand<SpeedCommand> registration;

}  // namespace
}  // namespace clipworks::app
