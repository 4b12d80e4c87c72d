#pragma once

#include <filesystem>
#include <string>
#include <string_view>
#include <vector>

#include <app/Failure.h>

namespace clipworks::app {

/// Work as data: a line of JSON that says the same as the words of a command line.
///
///     {"in": "a.mp4", "steps": [{"step": "trim", "from": 1, "to": 2.5}, {"step": "compress", "preset": "480p"}],
///      "out": "b.mp4", "codec": "hevc", "id": 7}
///
/// "in" is a path or a list of paths. The keys of a step are its command's options without the dashes, and "in" for the
/// files that a later step takes; those beside "in", "steps", "out" and "id" are options that hold for every command. A
/// value is a text or a number, true for a flag (false leaves it out), or a list for what may be repeated. "id" is the
/// queue's own, and no part of the job.
struct Job {
  /// On one line and in one order, without "id": two jobs are the same where this is.
  std::string text;
  /// As it was given; empty where it was none.
  std::string id;
  std::filesystem::path output;
  /// The words of each step; those of the first begin with the options that hold for every command.
  std::vector<std::vector<std::string>> commands;
  /// Whether the receipt is to have SHA-256, too.
  bool wantsSHA256 = false;

  /// Fails with wrong use where the text is no job. Whether its steps and options exist is found by who parses the
  /// words.
  [[nodiscard]] static Result<Job, Failure> parse(std::string_view text);
  /// From a file, from standard input for "-", or `place` itself where it begins with "{".
  [[nodiscard]] static Result<Job, Failure> read(const std::string& place);
};

}  // namespace clipworks::app
