#pragma once

#include <filesystem>
#include <optional>

#include <app/Limits.h>
#include <app/jobs/Job.h>
#include <clipworks/edit/MakeMovie.h>
#include <clipworks/edit/Plan.h>
#include <clipworks/media/asset/InputLimits.h>

namespace clipworks::app {

/// Whether the program gives up what clips never need before it reads one.
enum class ConfinementMode { automatic, required, off };

/// What holds for every command.
struct Options {
  /// Where results go; must exist.
  std::filesystem::path outputs = ".";
  /// The one new file's place, in place of a name in `outputs`.
  std::optional<std::filesystem::path> output;
  /// What is done, where it is a job; `output` is its own then.
  std::optional<Job> job;
  /// `output` may be there already.
  bool replacesFile = false;
  /// What would be done is told, and not done.
  bool planOnly = false;
  /// Where intermediate files go; edits make none, but it must exist.
  std::optional<std::filesystem::path> temp;
  /// Standard output holds JSON lines only.
  bool json = false;
  /// Why tracks were encoded is told.
  bool verbose = false;
  CodecChoice codec = CodecChoice::automatic;
  bool draft = false;
  /// Damaged pictures are a failure.
  bool strict = false;
  /// Results carry no date, place and device of the recording.
  bool stripMetadata = false;
  /// Whether results are compared with their plans.
  Verification verification = Verification::automatic;
  /// Nothing that is not shown stays in a movie.
  bool clean = false;
  ConfinementMode confinement = ConfinementMode::automatic;
  Limits limits{};
  /// What of the files is let in.
  InputLimits inputs{};
  /// That decode and encode at most; 0: as many as suit the processors.
  int threads = 0;
};

}  // namespace clipworks::app
