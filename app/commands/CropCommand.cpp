#include <algorithm>
#include <array>
#include <optional>
#include <string>
#include <string_view>

#include <CLI/CLI.hpp>

#include <app/ParseNumber.h>
#include <app/StepCommand.h>
#include <clipworks/edit/Steps.h>

namespace clipworks::app {
namespace {

/// X,Y,W,H; nothing for anything else.
std::optional<CGRect> rectangle(std::string_view text) {
  std::array<double, 4> sides{};
  for (std::size_t i = 0; i < sides.size(); ++i) {
    const std::size_t comma = i + 1 < sides.size() ? text.find(',') : text.size();
    if (comma == std::string_view::npos) return std::nullopt;
    const auto side = parseNumber(text.substr(0, comma));
    if (!side) return std::nullopt;
    sides[i] = *side;
    text.remove_prefix(std::min(comma + 1, text.size()));
  }
  return CGRect(sides[0], sides[1], sides[2], sides[3]);
}

class CropCommand final : public StepCommand {
 public:
  std::string name() const override { return "crop"; }
  std::string participle() const override { return "cropped"; }
  std::string purpose() const override { return "Cut a rectangle out of a clip, in a new MP4 file"; }
  std::string notes() const override {
    return "The rectangle counts in pixels of the picture as it is seen, upright. The pictures are encoded anew, as H.264\n"
           "unless --codec hevc is given, each at its own time.\n\n"
           "Example: clipworks crop landscape_1080p.mp4 --rect 420,0,1080,1080    the middle square";
  }

  Outcome check() override {
    const auto parsed = rectangle(rectText_);
    if (!parsed) return wrongUse("--rect takes four numbers X,Y,W,H, not \"" + rectText_ + "\"");
    rect_ = *parsed;
    if (!(rect_.size.width > 0) || !(rect_.size.height > 0))
      return wrongUse("--rect needs a width and a height above 0");
    return {};
  }

  Result<Edit, Error> apply(const Edit& edit) const override { return cropped(edit, rect_); }

 protected:
  void addOptions(CLI::App& parser) override {
    parser.add_option("--rect", rectText_, "Left and top corner, width and height, in pixels")
        ->type_name("X,Y,W,H")
        ->required();
  }

 private:
  std::string rectText_;
  CGRect rect_;
};

const RegisteredCommand<CropCommand> registration;

}  // namespace
}  // namespace clipworks::app
