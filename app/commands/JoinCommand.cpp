#include <cstdio>
#include <filesystem>
#include <optional>
#include <string>
#include <vector>

#include <CLI/CLI.hpp>

#include <app/StepCommand.h>
#include <clipworks/edit/Steps.h>

namespace clipworks::app {
namespace {

class JoinCommand final : public StepCommand {
 public:
  std::string name() const override { return "join"; }
  std::string participle() const override { return "joined"; }
  std::string purpose() const override { return "Play clips one behind the other, in one new MP4 file"; }
  std::string notes() const override {
    return "Clips that are coded alike are copied. Others are brought to the look of the first: its size, upright, whole with\n"
           "black beside; its colours, of standard range unless all have the same high one. A clip without sound is silent,\n"
           "one without pictures black. Date, place and device are those of the first.\n\n"
           "Examples: clipworks join first.mp4 second.mp4 third.mp4\n"
           "          clipworks join wide.mp4 tall.mp4 --size 1080x1080 --fill";
  }

  Outcome check() override {
    if (!sizeText_) return {};
    int width = 0;
    int height = 0;
    char rest = 0;
    if (std::sscanf(sizeText_->c_str(), "%5dx%5d%c", &width, &height, &rest) != 2 || width < 2 || height < 2)
      return wrongUse("--size takes WIDTHxHEIGHT in pixels, such as 1280x720, not \"" + *sizeText_ + "\"");
    look_.size = CGSize(width, height);
    return {};
  }

  Result<Edit, Error> apply(const Edit& edit) const override {
    std::vector<Edit> edits{edit};
    for (const auto& file : otherFiles()) {
      auto other = Edit::open(file, Edit::Extent::movie, edit.limits());
      if (!other) return other;
      edits.push_back(std::move(*other));
    }
    return joined(edits, look_);
  }

 protected:
  Files takesFiles() const override { return Files::asOne; }
  void addOptions(CLI::App& parser) override {
    parser.add_option("--size", sizeText_, "Of the result, in pixels; default: that of the first clip")
        ->type_name("WIDTHxHEIGHT");
    parser.add_flag("--fill", look_.fills, "Fill it with each clip, cut at two sides, instead of showing all of it");
  }

 private:
  std::optional<std::string> sizeText_;
  JoinLook look_;
};

const RegisteredCommand<JoinCommand> registration;

}  // namespace
}  // namespace clipworks::app
