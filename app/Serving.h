#pragma once

#include <functional>
#include <string>
#include <vector>

namespace clipworks::app {

/// Runs the program with these words, the first of which is its name.
using RunProgram = std::function<int(const std::vector<std::string>& words)>;

/// Serves a host, which sends jobs to standard input, a line of JSON each:
///
///     {"job": 1, "arguments": ["loop", "clip.mp4", "--count", "2", "-o", "out.mp4"], "directory": "/srv"}
///     {"cancel": 1}
///
/// One job at a time, each in a process of its own, a copy of this one, which has loaded what it needs and read no
/// file: it confines itself as the program does, and what becomes of it touches no other job. Its events go to standard
/// output as with --json, and behind them the end, with the exit code, and the signal where one ended it:
///
///     {"event": "ended", "job": 1, "code": 0}
///     {"event": "ended", "job": 1, "signal": 11}
///
/// Ends when standard input does; a job that runs is cancelled then. Returns the exit code. Before there are threads.
[[nodiscard]] int serveJobs(const RunProgram& run);

}  // namespace clipworks::app
