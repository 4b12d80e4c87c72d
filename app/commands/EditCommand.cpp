#include <string>

#include <CLI/CLI.hpp>
#include <nlohmann/json.hpp>

#include <app/StepCommand.h>

namespace clipworks::app {
namespace {

/// Makes the movie of an edit that a host has made: not for people.
class EditCommand final : public StepCommand {
 public:
  std::string name() const override { return "edit"; }
  std::string participle() const override { return "edited"; }
  std::string purpose() const override { return "Make the movie of an edit that is written as JSON"; }
  std::string notes() const override { return ""; }
  bool isPrivate() const override { return true; }

  Needs needs() const override {
    Needs needs = StepCommand::needs();
    needs.inputs.clear();
    const auto edit = nlohmann::json::parse(text(), nullptr, false);
    if (!edit.is_object() || !edit.contains("sources") || !edit["sources"].is_array()) return needs;
    for (const auto& source : edit["sources"]) {
      if (source.is_object() && source.contains("path") && source["path"].is_string())
        needs.inputs.emplace_back(source["path"].get<std::string>());
    }
    return needs;
  }

  /// The edit says with which limits its files are opened.
  Result<Edit, Error> open(const std::filesystem::path&, const InputLimits&) const override {
    return Edit::fromJson(text());
  }
  Result<Edit, Error> apply(const Edit& edit) const override { return edit; }

 protected:
  void addOptions(CLI::App&) override {}

 private:
  [[nodiscard]] std::string text() const { return files().front().native(); }
};

const RegisteredCommand<EditCommand> registration;

}  // namespace
}  // namespace clipworks::app
