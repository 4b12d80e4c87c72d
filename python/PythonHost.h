#pragma once

#include <pybind11/pybind11.h>

#include <atomic>
#include <exception>
#include <filesystem>
#include <string>
#include <utility>
#include <vector>

#include <app/Interruption.h>
#include <app/Reporter.h>

namespace clipworks::python {

/// One run of a command on behalf of Python code: keeps what it made, calls back with its progress, and asks it to stop
/// when the callback raises or a signal's handler does (Ctrl-C).
///
/// Made and used by the thread that runs the command, without the interpreter lock, which is taken only to call back;
/// `progress` comes from any thread, and is called back on this one.
class PythonHost final : public app::Reporter, public app::Interruption {
 public:
  /// `onProgress` is called with numbers from 0 to 1, or is None. It has to outlive this object.
  explicit PythonHost(pybind11::object& onProgress) : onProgress_(onProgress) {}

  void log(std::string_view) override {}
  void progress(double value) override { progress_ = value; }
  void status(std::string_view) override {}
  void note(std::string_view) override {}
  void output(const std::filesystem::path& path) override { outputs_.push_back(path.string()); }
  void done() override {}
  void damaged(const std::string& fileName, std::int64_t pictures) override {
    damaged_.emplace_back(fileName, pictures);
  }
  void warning(std::string_view) override {}
  void inputFailed(const std::filesystem::path&, std::string_view) override {}
  void text(std::string_view text) override { text_ += text; }
  void keepEventsOff() override {}

  void defer() override {}
  /// Calls back, too: this is what a command that waits keeps asking.
  [[nodiscard]] bool isRequested() override;
  [[nodiscard]] bool endsProcess() const override { return false; }

  /// After the command: calls back for the last time.
  void end() { (void)isRequested(); }

  /// What the command made; after it.
  [[nodiscard]] const std::vector<std::string>& outputs() const { return outputs_; }
  [[nodiscard]] const std::string& text() const { return text_; }
  /// Names of files with damaged pictures, and how many.
  [[nodiscard]] const std::vector<std::pair<std::string, std::int64_t>>& damaged() const { return damaged_; }
  /// What was raised while the command ran; null when nothing was.
  [[nodiscard]] std::exception_ptr raised() const { return raised_; }

 private:
  void callBack();

  pybind11::object& onProgress_;
  std::atomic<double> progress_ = -1;
  double toldProgress_ = -1;
  std::exception_ptr raised_;
  std::vector<std::string> outputs_;
  std::string text_;
  std::vector<std::pair<std::string, std::int64_t>> damaged_;
};

}  // namespace clipworks::python
