#pragma once

#include <filesystem>
#include <optional>
#include <string>
#include <vector>

#include <app/Command.h>
#include <clipworks/edit/Edit.h>
#include <clipworks/edit/Error.h>
#include <clipworks/edit/TakePicture.h>

namespace clipworks::app {

/// A command that does something to a clip: one step of an edit. Several make one movie, joined by "then"; the first
/// names the file.
class StepCommand : public Command {
 public:
  /// From now on the command stands behind another one, and takes no file. Before `configure`.
  void follow() { follows_ = true; }

  void configure(CLI::App& parser) final;
  /// The edit of this step alone.
  [[nodiscard]] Outcome run(const Program& program) final;

  [[nodiscard]] Needs needs() const override;

  /// Those that one movie each is made of, as typed; none where the command follows another.
  [[nodiscard]] std::vector<std::filesystem::path> files() const;
  /// How much of its file the command sees where it is the first.
  [[nodiscard]] virtual Edit::Extent extent() const { return Edit::Extent::movie; }
  /// What the steps are done to, where the command is the first.
  [[nodiscard]] virtual Result<Edit, Error> open(const std::filesystem::path& file, const InputLimits& limits) const;
  /// Finds wrong use, by the words alone; before `apply`.
  [[nodiscard]] virtual Outcome check() { return {}; }
  [[nodiscard]] virtual Result<Edit, Error> apply(const Edit& edit) const = 0;
  /// What has been done to a clip then, for its name: "looped".
  [[nodiscard]] virtual std::string participle() const = 0;
  /// The result's name without its ending, where one was typed.
  [[nodiscard]] virtual std::optional<std::string> givenName() const { return std::nullopt; }
  /// The ending that the step asks for; empty for any.
  [[nodiscard]] virtual std::string extension() const { return ""; }
  /// What pictures are taken of the edit in place of a movie; nothing for most.
  struct Pictures {
    std::vector<CMTime> times;
    StillFormat format = StillFormat::jpg;
    /// Columns and rows of one sheet in place of single pictures; none where 0.
    int columns = 0;
    int rows = 0;
  };
  [[nodiscard]] virtual Result<std::optional<Pictures>, Error> pictures(const Edit&) const { return std::nullopt; }
  /// Whether no other step can follow.
  [[nodiscard]] virtual bool isLast() const { return false; }
  /// Whether people want to know how much smaller the file has become.
  [[nodiscard]] virtual bool tellsSizes() const { return false; }

 protected:
  virtual void addOptions(CLI::App& parser) = 0;
  /// How many files a command takes, and what for.
  enum class Files {
    one,
    each,   ///< several, for a movie each
    asOne,  ///< several, for one movie; behind another command, too
  };
  [[nodiscard]] virtual Files takesFiles() const { return Files::one; }
  /// Of `Files::asOne`, those that are not the edit that `apply` gets.
  [[nodiscard]] std::vector<std::filesystem::path> otherFiles() const;

 private:
  bool follows_ = false;
  std::vector<std::string> files_;
};

}  // namespace clipworks::app
