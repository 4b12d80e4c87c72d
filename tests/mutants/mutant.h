#pragma once

#include <fcntl.h>
#include <unistd.h>

#include <cstdlib>
#include <string>
#include <type_traits>

// Included in front of every file of the copy that tests/mutants/run builds.
namespace mutants {

/// The mutant that this process is to be, by $MUTANT; 0: none.
inline const int active = std::getenv("MUTANT") == nullptr ? 0 : std::atoi(std::getenv("MUTANT"));

/// Where a process without a mutant leaves an empty file for each one whose code made a difference, by $MUTANT_TRACE.
inline const char* const trace = std::getenv("MUTANT_TRACE");

inline void note(int number) {
  const int file =
      open((std::string(trace) + "/" + std::to_string(number)).c_str(), O_CREAT | O_WRONLY | O_CLOEXEC, 0666);
  if (file >= 0) close(file);
}

/// Whether a statement is to be replaced by the faulty one.
inline bool replaces(int number) {
  if (trace != nullptr) note(number);
  return active == number;
}

template <class Code, class Faulty>
auto pick(int number, Code code, Faulty faulty) {
  using Value = std::common_type_t<std::invoke_result_t<Code>, std::invoke_result_t<Faulty>>;
  if (active == number) return static_cast<Value>(faulty());
  auto value = static_cast<Value>(code());
  if (trace != nullptr && value != static_cast<Value>(faulty())) note(number);
  return value;
}

}  // namespace mutants
