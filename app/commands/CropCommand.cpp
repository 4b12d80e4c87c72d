#include <algorithm>
#include <array>
#include <cmath>
#include <optional>
#include <string>
#include <string_view>

#include <fmt/format.h>
#include <CLI/CLI.hpp>

#include <app/EditingCommand.h>
#include <app/ParseNumber.h>
#include <clipworks/media/asset/AVAsset.h>
#include <clipworks/rotate/VideoRotateUtils.h>

namespace clipworks::app {
namespace {

// No more pixels a side are rendered.
constexpr double largestSide = 16'384;

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

class CropCommand final : public EditingCommand {
 public:
  std::string name() const override { return "crop"; }
  std::string purpose() const override { return "Cut a rectangle out of a clip, in a new MP4 file"; }
  std::string notes() const override {
    return "The rectangle counts in units of your own: in a portrait clip W stands for the whole width, in any other H\n"
           "for the whole height, and the other side follows. With W (or H) as the clip's own size in pixels, units are\n"
           "pixels. The pictures are encoded anew, as H.264 unless --codec hevc is given, at the clip's rate without its\n"
           "fraction. The new file gets a name of its own.\n\n"
           "Example: clipworks crop landscape_1080p.mp4 --rect 420,0,1080,1080    the middle square\n"
           "\"clipworks --help\" tells the options that hold for every command, and the exit codes.";
  }
  void configure(CLI::App& parser) override {
    parser.add_option("FILE", file_, "The clip")->type_name("")->required();
    parser.add_option("--rect", rectText_, "Left and top corner, width and height")->type_name("X,Y,W,H")->required();
  }

 protected:
  std::vector<std::filesystem::path> inputs() const override { return {file_}; }

  Outcome check() override {
    const auto parsed = rectangle(rectText_);
    if (!parsed) return wrongUse("--rect takes four numbers X,Y,W,H, not \"" + rectText_ + "\"");
    rect_ = *parsed;
    if (!(rect_.size.width > 0) || !(rect_.size.height > 0))
      return wrongUse("--rect needs a width and a height above 0");
    if (const Outcome fit = checkPictures(file_, "cropping it"); !fit) return fit;
    const auto track = AVAsset::make(URL(file_))->tracks(AVMediaTypeVideo).front();
    return checkAgainst(CGSizeApplyAffineTransform(track->naturalSize(), track->preferredTransform()));
  }

  Outcome edit(Workbench& bench) override {
    Awaited<Result<URL, VideoRotateUtils::RotateError>> cropped;
    VideoRotateUtils::make()->cropVideo(URL(file_), rect_, cropped.closure());
    const auto made = bench.wait(cropped, clipName() + " could not be cropped");
    return made ? bench.deliver(*made) : failure(made.error());
  }

 private:
  std::string clipName() const { return std::filesystem::path(file_).filename().string(); }

  /// The rectangle has to lie within the picture that is shown, but for what rounding takes.
  Outcome checkAgainst(const CGSize& displayed) const {
    const double width = std::abs(displayed.width);
    const double height = std::abs(displayed.height);
    const double scale = width < height ? width / rect_.size.width : height / rect_.size.height;
    const double left = rect_.origin.x * scale;
    const double top = rect_.origin.y * scale;
    const double right = left + rect_.size.width * scale;
    const double bottom = top + rect_.size.height * scale;
    if (right - left > largestSide || bottom - top > largestSide) return wrongUse("--rect asks for too large pictures");
    constexpr double slack = 0.5;
    if (left < -slack || top < -slack || right > width + slack || bottom > height + slack) {
      return wrongUse(
          fmt::format("--rect reaches out of the picture: {} shows {:.0f} × {:.0f} pixels, the rectangle is "
                      "{:.0f} × {:.0f} of them from ({:.0f}, {:.0f}) on",
                      clipName(), width, height, right - left, bottom - top, left, top));
    }
    return {};
  }

  std::string file_;
  std::string rectText_;
  CGRect rect_;
};

const RegisteredCommand<CropCommand> registration;

}  // namespace
}  // namespace clipworks::app
