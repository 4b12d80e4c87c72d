#include <charconv>
#include <cstdint>
#include <string>
#include <string_view>

#include <CLI/CLI.hpp>

#include <app/StepCommand.h>
#include <clipworks/edit/Steps.h>

namespace clipworks::app {
namespace {

/// A count as it was typed: digits and perhaps a sign, of any length.
bool isWholeNumber(std::string_view text) {
  if (text.starts_with('-') || text.starts_with('+')) text.remove_prefix(1);
  return !text.empty() && text.find_first_not_of("0123456789") == std::string_view::npos;
}

class LoopCommand final : public StepCommand {
 public:
  std::string name() const override { return "loop"; }
  std::string participle() const override { return "looped"; }
  std::string purpose() const override { return "Play a clip a number of times in a row, in one new MP4 file"; }
  std::string notes() const override {
    return "The clip needs pictures and sound.\n\n"
           "Example: clipworks --outputs results loop clip.mp4 --count 3";
  }

  Outcome check() override {
    if (!isWholeNumber(countText_)) return wrongUse("--count takes a whole number, not \"" + countText_ + "\"");
    const char* digits = countText_.data() + (countText_.starts_with('+') ? 1 : 0);
    const auto [end, error] = std::from_chars(digits, countText_.data() + countText_.size(), count_);
    if (error == std::errc()) return {};
    count_ = countText_.starts_with('-') ? INT64_MIN : INT64_MAX;  // of any length: more than is allowed
    return {};
  }

  Result<Edit, Error> apply(const Edit& edit) const override { return looped(edit, count_); }

 protected:
  void addOptions(CLI::App& parser) override {
    parser.add_option("--count", countText_, "How often it is played, from 1 to 100000")->type_name("N")->required();
  }

 private:
  std::string countText_;
  std::int64_t count_ = 0;
};

const RegisteredCommand<LoopCommand> registration;

}  // namespace
}  // namespace clipworks::app
