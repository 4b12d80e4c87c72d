// The extension clipworks._clipworks: runs one of the program's commands inside the interpreter's process.

#include <pybind11/pybind11.h>
#include <pybind11/stl.h>
#include <unistd.h>

#include <chrono>
#include <exception>
#include <mutex>
#include <string>
#include <vector>

#include <app/Command.h>
#include <app/CommandLine.h>
#include <app/DamageSentence.h>
#include <clipworks/foundation/HEVCSupport.h>
#include <python/PythonHost.h>

namespace clipworks::python {
namespace {

namespace py = pybind11;

/// What became of a command. Texts are bytes: paths need not be UTF-8.
struct Ran {
  app::ExitCode code = app::ExitCode::done;
  std::string sentence;
  std::vector<std::string> outputs;
  std::string text;
  std::vector<std::string> warnings;
};

constexpr std::chrono::milliseconds lookInterval{100};

/// The library's directories, its codec and its main queue are the process's own, so commands run one after the other.
std::timed_mutex& oneAtATime() {
  static std::timed_mutex mutex;
  return mutex;
}

/// A process that was forked after the first call has the library's queues without their threads, and would wait for
/// ever.
bool isForked() {
  static const pid_t first = ::getpid();
  return ::getpid() != first;
}

app::Outcome runProgram(const std::vector<std::string>& arguments, PythonHost& host) {
  // Before any command withholds an encoder: the answer is remembered for the process.
  (void)HEVCSupport::hasHEVCHardwareEncoder();
  std::vector<const char*> argv{"clipworks"};
  for (const auto& argument : arguments) argv.push_back(argument.c_str());
  app::CommandLine commandLine;
  const auto command = commandLine.parse(static_cast<int>(argv.size()), argv.data());
  if (!command) return failure(command.error());
  if (*command == nullptr) return app::wrongUse("a command is needed");
  return app::runCommand(**command, {commandLine.options(), host, host});
}

/// Raises what the callback or a signal's handler raised.
Ran run(const std::vector<std::string>& arguments, py::object onProgress) {
  if (isForked()) {
    return {app::ExitCode::failed,
            "this process was forked from one that had used clipworks; start it by \"spawn\"",
            {},
            {},
            {}};
  }
  PythonHost host(onProgress);
  Ran ran;
  {
    const py::gil_scoped_release released;
    std::unique_lock turn(oneAtATime(), std::defer_lock);
    while (!turn.try_lock_for(lookInterval) && !host.isRequested()) {
    }
    const app::Outcome outcome = turn.owns_lock() ? runProgram(arguments, host) : app::Outcome();
    if (!outcome) ran = {outcome.error().code, outcome.error().sentence, {}, {}, {}};
    host.end();
  }
  if (host.raised() != nullptr) std::rethrow_exception(host.raised());
  ran.outputs = host.outputs();
  ran.text = host.text();
  for (const auto& [name, pictures] : host.damaged()) {
    ran.warnings.push_back(app::damageSentence(name, pictures) + "; what could be decoded is shown");
  }
  return ran;
}

py::list asBytes(const std::vector<std::string>& texts) {
  py::list list;
  for (const auto& text : texts) list.append(py::bytes(text));
  return list;
}

}  // namespace
}  // namespace clipworks::python

PYBIND11_MODULE(_clipworks, module) {
  namespace app = clipworks::app;
  using clipworks::python::Ran;

  module.doc() = "Runs the commands of the program clipworks; the package clipworks is what to use.";
  module.attr("version") = CLIPWORKS_VERSION;

  pybind11::enum_<app::ExitCode>(module, "ExitCode")
      .value("done", app::ExitCode::done)
      .value("failed", app::ExitCode::failed)
      .value("wrong_use", app::ExitCode::wrongUse)
      .value("interrupted", app::ExitCode::interrupted);
  pybind11::class_<Ran>(module, "Ran")
      .def_readonly("code", &Ran::code)
      .def_property_readonly("sentence", [](const Ran& ran) { return pybind11::bytes(ran.sentence); })
      .def_property_readonly("outputs", [](const Ran& ran) { return clipworks::python::asBytes(ran.outputs); })
      .def_property_readonly("warnings", [](const Ran& ran) { return clipworks::python::asBytes(ran.warnings); })
      .def_property_readonly("text", [](const Ran& ran) { return pybind11::bytes(ran.text); });
  module.def("run", &clipworks::python::run, pybind11::arg("arguments"), pybind11::arg("progress"),
             "Runs the command that `arguments` (bytes, as for the program) ask for, without the interpreter lock.");
}
