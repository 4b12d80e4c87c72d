#pragma once

#include <filesystem>
#include <functional>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include <app/Awaited.h>
#include <app/Command.h>
#include <app/PrivateDirectories.h>
#include <app/SessionWatch.h>
#include <clipworks/media/asset/DamagedMedia.h>
#include <clipworks/media/base/URL.h>

namespace clipworks::app {

/// What an editing command works with: it waits for operations, shows how far they are, and brings their files into
/// place. Used on the main thread, which it makes the main queue's.
class Workbench {
 public:
  /// Points the library at private directories. Fails with a sentence when they cannot be made.
  [[nodiscard]] static Result<std::unique_ptr<Workbench>, Failure> make(const Program& program,
                                                                        std::vector<std::filesystem::path> inputs);
  Workbench(const Workbench&) = delete;
  Workbench& operator=(const Workbench&) = delete;

  /// Waits until the operation that holds `awaited`'s closure has reported or dropped it. Its value; or, when it
  /// failed, said nothing or was interrupted, why: `what` ("a.mp4 could not be looped") with the reason behind it,
  /// `askWhy`'s where the platform has told none.
  template <class Value, class Error>
  [[nodiscard]] Result<Value, Failure> wait(const Awaited<Result<Value, Error>>& awaited, const std::string& what,
                                            const std::function<std::string()>& askWhy = nullptr) {
    pumpUntil([&awaited] { return awaited.isOver(); });
    if (interruption_.isRequested()) return failure(interrupted());
    const auto reported = awaited.value();
    if (!reported) return failure(silence(what));
    if (!*reported) return failure(failureWithReason(what, askWhy));
    reporter_.progress(stageEnd_);
    return **reported;
  }

  /// What follows counts as the work from `from` to `to`; the whole is from 0 to 1, which is how it begins.
  void enterStage(double from, double to);
  /// Tells how far the work is where no export session does, from 0 to 1. Any thread.
  void report(double progress) { reporter_.progress(progress); }

  /// A line for people about what was done so far.
  void tell(std::string_view line) { reporter_.note(line); }
  /// One of several inputs failed; the others go on.
  void warn(const std::filesystem::path& input, std::string_view sentence) { reporter_.inputFailed(input, sentence); }

  /// Refuses, as early as possible, a result of that name that would replace an input.
  [[nodiscard]] Outcome checkName(const std::string& fileName) const;

  /// A copy of what an operation made, as a file of that name, that carries what `recording` says of itself, unless no
  /// result shall. Nothing is encoded again.
  [[nodiscard]] Result<URL, Failure> withMetadataOf(const std::filesystem::path& recording, const URL& made,
                                                    const std::string& fileName);

  /// Checks that the file can be read, moves it into place and tells its path. Refuses where work is strict and
  /// pictures of `input`, or of any input when none is named, are damaged.
  [[nodiscard]] Outcome deliver(const URL& made, const std::filesystem::path& input = {});
  /// The same for a file that is known to be whole.
  [[nodiscard]] Outcome deliverWhole(const URL& made, const std::filesystem::path& input = {});
  /// Tells of the damaged pictures of all inputs, at the end.
  void tellDamage() const;

 private:
  Workbench(const Program& program, std::vector<std::filesystem::path> inputs,
            std::unique_ptr<PrivateDirectories> directories);

  void pumpUntil(const std::function<bool()>& isOver);
  [[nodiscard]] static Failure interrupted();
  [[nodiscard]] Failure failureWithReason(const std::string& what,
                                          const std::function<std::string()>& askWhy = nullptr) const;
  [[nodiscard]] Failure silence(const std::string& what) const;

  Reporter& reporter_;
  Interruption& interruption_;
  std::vector<std::filesystem::path> inputs_;
  std::unique_ptr<PrivateDirectories> directories_;
  bool isStrict_;
  SessionWatch watch_;
  DamageWatch damage_;
  double stageStart_ = 0;
  double stageEnd_ = 1;
};

}  // namespace clipworks::app
