#include <map>
#include <string>

#include <CLI/CLI.hpp>

#include <app/StepCommand.h>
#include <clipworks/edit/Steps.h>

namespace clipworks::app {
namespace {

const std::map<std::string, Turn> turns{{"right", Turn::right}, {"left", Turn::left}, {"half", Turn::half}};

class RotateCommand final : public StepCommand {
 public:
  std::string name() const override { return "rotate"; }
  std::string participle() const override { return "turned"; }
  std::string purpose() const override { return "Turn a clip by a quarter or half turn, in a new MP4 file"; }
  std::string notes() const override {
    return "The pictures are encoded anew, as H.264 unless --codec hevc is given, upright, each at its own time. With\n"
           "--lossless they stay as they are coded, and the file says how players are to turn them, which takes no time.\n\n"
           "Example: clipworks --outputs results rotate clip.mp4 --by left";
  }

  Result<Edit, Error> apply(const Edit& edit) const override {
    return isLossless_ ? turnedByHeader(edit, turns.at(by_)) : turned(edit, turns.at(by_));
  }

 protected:
  void addOptions(CLI::App& parser) override {
    parser.add_option("--by", by_, "How it is turned: right, the default, is clockwise")
        ->type_name("right|left|half")
        ->check([](const std::string& word) {
          return turns.contains(word) ? "" : "takes right, left or half, not \"" + word + "\"";
        });
    parser.add_flag("--lossless", isLossless_, "Only write into the file how it is to be turned");
  }

 private:
  bool isLossless_ = false;
  std::string by_ = "right";
};

const RegisteredCommand<RotateCommand> registration;

}  // namespace
}  // namespace clipworks::app
