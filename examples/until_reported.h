#pragma once

// The main queue belongs to the host: nothing that arrives on it runs until somebody runs it.

#include <iostream>

#include <clipworks/clipworks.h>

/// Calls `start` with a completion, runs the main queue until that has been called, prints the path that it got, and
/// returns what the program ends with.
template <class Start>
int untilReported(Start start) {
  int exitCode = 1;
  start([&](const auto& result) {
    if (result) {
      std::cout << result->path().string() << '\n';
      exitCode = 0;
    }
    clipworks::DispatchQueue::main().stop();
  });
  clipworks::DispatchQueue::main().run();
  return exitCode;
}
