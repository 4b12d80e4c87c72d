#include <app/Reporter.h>

#include <unistd.h>

#include <cstdio>

#include <fmt/format.h>
#include <nlohmann/json.hpp>

#include <app/Printable.h>
#include <app/ProgressLine.h>

namespace clipworks::app {
namespace {

constexpr double progressStep = 0.001;

/// Bytes that are not UTF-8 become the replacement character.
std::string jsonLine(const nlohmann::ordered_json& event) {
  return event.dump(-1, ' ', false, nlohmann::ordered_json::error_handler_t::replace) + '\n';
}

nlohmann::ordered_json pathsOf(const std::vector<std::filesystem::path>& files) {
  auto paths = nlohmann::ordered_json::array();
  for (const auto& file : files) paths.push_back(file.string());
  return paths;
}

void writeError(std::string_view text) {
  // Nowhere is left to tell that standard error cannot be written.
  (void)std::fwrite(text.data(), 1, text.size(), stderr);
}

}  // namespace

Reporter::Reporter(const Options& options)
    : json_(options.json), verbose_(options.verbose), showsBar_(!options.json && ::isatty(STDERR_FILENO) == 1) {}

void Reporter::log(std::string_view line) {
  if (!verbose_) return;
  const std::lock_guard lock(mutex_);
  clearBar();
  writeOut(json_ ? jsonLine({{"event", "log"}, {"line", line}}) : std::string(line) + '\n');
}

void Reporter::progress(double value) {
  const std::lock_guard lock(mutex_);
  if (value < shownProgress_ + progressStep && !(value >= 1 && shownProgress_ < 1)) {
    // The bar's time left runs on between two steps.
    if (!barIsShown_) return;
    value = shownProgress_;
  }
  const bool isNew = value > shownProgress_;
  shownProgress_ = value;
  if (json_ && isNew) {
    writeOut(jsonLine({{"event", "progress"}, {"value", value}}));
  } else if (showsBar_) {
    const auto elapsed = std::chrono::steady_clock::now() - start_;
    const auto milliseconds = std::chrono::duration_cast<std::chrono::milliseconds>(elapsed);
    writeError(fmt::format("\r{}\x1b[K", progressLine(value, milliseconds)));
    barIsShown_ = true;
  }
}

void Reporter::status(std::string_view line) {
  const std::lock_guard lock(mutex_);
  if (!showsBar_) return;
  writeError(fmt::format("\r{}\x1b[K", line));
  barIsShown_ = true;
}

void Reporter::note(std::string_view line) {
  const std::lock_guard lock(mutex_);
  clearBar();
  writeError(fmt::format("{}\n", printable(line)));
}

void Reporter::output(const std::filesystem::path& path) {
  const std::lock_guard lock(mutex_);
  clearBar();
  outputs_.push_back(path);
  if (!json_) writeOut(path.string() + '\n');
}

void Reporter::event(const nlohmann::ordered_json& event) {
  const std::lock_guard lock(mutex_);
  if (json_) writeOut(jsonLine(event));
}

void Reporter::receipt(const std::filesystem::path& path, bool isOld) {
  const std::lock_guard lock(mutex_);
  receipt_ = path.string();
  isSkipped_ = isOld;
}

void Reporter::done() {
  const std::lock_guard lock(mutex_);
  clearBar();
  if (!json_) return;
  nlohmann::ordered_json event{{"event", "done"}, {"outputs", pathsOf(outputs_)}};
  event["confinement"] = {{"landlock", confinement_.landlock}, {"seccomp", confinement_.systemCalls}};
  if (!receipt_.empty()) {
    event["receipt"] = receipt_;
    event["skipped"] = isSkipped_;
  }
  for (const auto& media : damaged_) {
    event["damagedPictures"].push_back({{"file", media.fileName}, {"pictures", media.pictures}});
  }
  writeOut(jsonLine(event));
}

void Reporter::confined(const Confinement& confinement) {
  const std::lock_guard lock(mutex_);
  confinement_ = confinement;
}

void Reporter::failed(const Failure& failure) {
  const std::lock_guard lock(mutex_);
  clearBar();
  writeSentence(failure.sentence);
  if (json_ && hasEvents_) writeOut(jsonLine(errorEvent(failure)));
}

nlohmann::ordered_json Reporter::errorEvent(const Failure& failure) const {
  nlohmann::ordered_json event{{"event", "error"}, {"message", printable(failure.sentence)}};
  if (failure.cause) event["code"] = name(*failure.cause);
  for (const auto& [path, reason] : failedInputs_) {
    event["failed"].push_back({{"input", path.string()}, {"message", printable(reason)}});
  }
  if (!outputs_.empty()) event["outputs"] = pathsOf(outputs_);
  return event;
}

void Reporter::damaged(const DamagedMedia& media) {
  warning(media.sentence() + "; what could be decoded is shown");
  const std::lock_guard lock(mutex_);
  damaged_.push_back(media);
}

void Reporter::warning(std::string_view sentence) {
  const std::lock_guard lock(mutex_);
  clearBar();
  writeSentence(sentence);
}

void Reporter::inputFailed(const std::filesystem::path& input, std::string_view sentence) {
  warning(sentence);
  const std::lock_guard lock(mutex_);
  failedInputs_.push_back({input, std::string(sentence)});
}

void Reporter::text(std::string_view text) {
  const std::lock_guard lock(mutex_);
  clearBar();
  writeOut(text);
}

void Reporter::keepEventsOff() {
  const std::lock_guard lock(mutex_);
  hasEvents_ = false;
}

bool Reporter::isWritten() const {
  const std::lock_guard lock(mutex_);
  return isWritten_;
}

void Reporter::writeOut(std::string_view text) {
  const bool written = std::fwrite(text.data(), 1, text.size(), stdout) == text.size() && std::fflush(stdout) == 0;
  isWritten_ = isWritten_ && written;
}

void Reporter::writeSentence(std::string_view sentence) {
  writeError(fmt::format("clipworks: {}\n", printable(sentence)));
}

void Reporter::clearBar() {
  if (!barIsShown_) return;
  writeError("\r\x1b[K");
  barIsShown_ = false;
}

}  // namespace clipworks::app
