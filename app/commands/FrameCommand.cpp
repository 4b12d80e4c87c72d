#include <cmath>
#include <cstdint>
#include <cstdio>
#include <map>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include <fmt/format.h>
#include <CLI/CLI.hpp>

#include <app/OutputName.h>
#include <app/StepCommand.h>
#include <clipworks/edit/Steps.h>
#include <clipworks/edit/TypedPlace.h>

namespace clipworks::app {
namespace {

// More would be a mistake: an hour at thirty pictures a second.
constexpr double mostPictures = 108'000;

const std::map<std::string, StillFormat> formats{
    {"jpg", StillFormat::jpg}, {"png", StillFormat::png}, {"heic", StillFormat::heic}};

class FrameCommand final : public StepCommand {
 public:
  std::string name() const override { return "frame"; }
  std::string participle() const override { return "frame"; }
  std::string purpose() const override { return "Save pictures of a clip as JPEG, PNG or HEIC files"; }
  std::string notes() const override {
    return "The picture on screen at that time, upright and at full size; the clip's end stands for its last picture.\n"
           "Pictures are counted from #0, the first. HDR comes as standard range. Date, place and device are kept.\n"
           "Several pictures are numbered in the order in which they were asked for.\n\n"
           "Examples: clipworks frame clip.mp4 --at 2.5\n"
           "          clipworks frame clip.mp4 --at 00:01:02.500 --format png --name kick-off\n"
           "          clipworks frame clip.mp4 --every 10     one picture for every ten seconds\n"
           "          clipworks frame clip.mp4 --sheet 4x3    twelve of them on one sheet\n"
           "          clipworks frame clip.mp4 --at=#123      with \"=\": behind a space, # begins a shell's remark";
  }

  Outcome check() override {
    if (name_) {
      if (const Outcome named = checkOutputName(*name_); !named) return named;
    }
    if (atTexts_.empty() && !every_ && !sheetText_) return wrongUse("--at, --every or --sheet is needed");
    for (const auto& text : atTexts_) {
      const auto place = typedPlace(text);
      if (!place) return wrongUse("--at takes seconds, HH:MM:SS.mmm or #N, not \"" + text + "\"");
      places_.push_back(*place);
    }
    if (sheetText_) {
      if (!atTexts_.empty() || every_)
        return wrongUse("--sheet chooses the times itself; it goes without --at and --every");
      char rest = 0;
      if (std::sscanf(sheetText_->c_str(), "%2dx%2d%c", &columns_, &rows_, &rest) != 2 || columns_ < 1 || rows_ < 1)
        return wrongUse("--sheet takes COLUMNSxROWS, such as 4x3, not \"" + *sheetText_ + "\"");
    }
    if (every_ && !(std::isfinite(*every_) && *every_ > 0)) return wrongUse("--every takes seconds, more than 0");
    return {};
  }

  Result<Edit, Error> apply(const Edit& edit) const override { return edit; }

  Result<std::optional<Pictures>, Error> pictures(const Edit& edit) const override {
    if (!edit.hasPictures())
      return Pictures{{kCMTimeZero}, formats.at(format_), columns_, rows_};  // which tells that there is none
    Pictures wanted{{}, formats.at(format_), columns_, rows_};
    for (const TypedPlace& place : places_) {
      const auto time = timeOfPlace(edit, place);
      if (!time) return failure(time.error());
      wanted.times.push_back(*time);
    }
    if (every_) {
      const double seconds = edit.duration().seconds();
      if (seconds / *every_ > mostPictures)
        return failure(Error{ErrorCode::badArgument, "--every asks for more than 108000 pictures"});
      for (std::int64_t i = 0; static_cast<double>(i) * *every_ < seconds; ++i)
        wanted.times.push_back(exactSeconds(static_cast<double>(i) * *every_));
    }
    return wanted;
  }

  std::optional<std::string> givenName() const override { return name_; }
  std::string extension() const override { return "." + format_; }
  bool isLast() const override { return true; }

 protected:
  void addOptions(CLI::App& parser) override {
    parser.add_option("--at", atTexts_, "When: seconds, HH:MM:SS.mmm, or #N for picture number N;\nas often as needed")
        ->type_name("T")
        ->allow_extra_args(false);
    parser.add_option("--every", every_, "A picture for every S seconds, from the first one on")->type_name("S");
    parser.add_option("--sheet", sheetText_, "One sheet of pictures from all over the clip, with their times")
        ->type_name("COLUMNSxROWS");
    parser.add_option("--format", format_, "Of the new files; default: jpg")
        ->type_name("jpg|png|heic")
        ->check([](const std::string& name) {
          return formats.contains(name) ? "" : "takes jpg, png or heic, not \"" + name + "\"";
        });
    parser.add_option("--name", name_, "The new file's name without its ending")->type_name("NAME");
  }

 private:
  std::vector<std::string> atTexts_;
  std::vector<TypedPlace> places_;
  std::optional<double> every_;
  std::optional<std::string> sheetText_;
  int columns_ = 0;
  int rows_ = 0;
  std::string format_ = "jpg";
  std::optional<std::string> name_;
};

const RegisteredCommand<FrameCommand> registration;

}  // namespace
}  // namespace clipworks::app
