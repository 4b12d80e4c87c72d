#include <optional>
#include <string>
#include <utility>
#include <vector>

#include <CLI/CLI.hpp>

#include <app/StepCommand.h>
#include <clipworks/edit/Steps.h>
#include <clipworks/edit/TypedPlace.h>

namespace clipworks::app {
namespace {

class TrimCommand final : public StepCommand {
 public:
  std::string name() const override { return "trim"; }
  std::string participle() const override { return "trimmed"; }
  std::string purpose() const override { return "Keep a part of a clip, or several, in one new MP4 file"; }
  std::string notes() const override {
    return "Exact to the picture and to the sample of sound. Pictures are copied as they are coded wherever that can be; those\n"
           "that the first one needs come along hidden, and the part before the start is then in the file, not shown.\n"
           "Times are seconds, HH:MM:SS.mmm, or #N for the moment at which picture number N comes, the first being #0.\n\n"
           "Examples: clipworks trim clip.mp4 --from 2.5 --to 8\n"
           "          clipworks trim clip.mp4 --keep 0-2 --keep 1:10-1:15    two parts, one behind the other";
  }

  Outcome check() override {
    if (keepTexts_.empty() == (!fromText_ && !toText_))
      return wrongUse(keepTexts_.empty() ? "--from, --to or --keep is needed" : "--keep goes without --from and --to");
    if (keepTexts_.empty()) return add("--from", fromText_, "--to", toText_);
    for (const auto& text : keepTexts_) {
      const std::size_t dash = text.find('-');
      if (dash == std::string::npos) return wrongUse("--keep takes START-END, not \"" + text + "\"");
      if (const Outcome added = add("--keep", text.substr(0, dash), "--keep", text.substr(dash + 1)); !added)
        return added;
    }
    return {};
  }

  Result<Edit, Error> apply(const Edit& edit) const override {
    std::vector<CMTimeRange> ranges;
    for (const auto& [from, to] : parts_) {
      const auto start = timeOfPlace(edit, from);
      if (!start) return failure(start.error());
      const auto end = to ? timeOfPlace(edit, *to) : edit.duration();
      if (!end) return failure(end.error());
      ranges.push_back(CMTimeRange::fromTo(*start, *end));
    }
    return trimmed(edit, ranges);
  }

 protected:
  void addOptions(CLI::App& parser) override {
    parser.add_option("--from", fromText_, "Where it starts; default: at the start")->type_name("T");
    parser.add_option("--to", toText_, "Where it ends; default: at the end")->type_name("T");
    parser.add_option("--keep", keepTexts_, "A part from one time to another; as often as needed")
        ->type_name("T-T")
        ->allow_extra_args(false);
  }

 private:
  using Part = std::pair<TypedPlace, std::optional<TypedPlace>>;

  Outcome add(const std::string& fromName, const std::optional<std::string>& from, const std::string& toName,
              const std::optional<std::string>& to) {
    Part part{kCMTimeZero, std::nullopt};
    if (from) {
      const auto place = typedPlace(*from);
      if (!place) return wrongTime(fromName, *from);
      part.first = *place;
    }
    if (to) {
      part.second = typedPlace(*to);
      if (!part.second) return wrongTime(toName, *to);
    }
    parts_.push_back(part);
    return {};
  }

  static Outcome wrongTime(const std::string& option, const std::string& text) {
    return wrongUse(option + " takes seconds, HH:MM:SS.mmm or #N, not \"" + text + "\"");
  }

  std::optional<std::string> fromText_;
  std::optional<std::string> toText_;
  std::vector<std::string> keepTexts_;
  std::vector<Part> parts_;
};

const RegisteredCommand<TrimCommand> registration;

}  // namespace
}  // namespace clipworks::app
