#include <app/SessionWatch.h>

#include <algorithm>

#include <clipworks/media/base/PrintedLines.h>

namespace clipworks::app {
namespace {

// Operations differ in the case.
constexpr std::string_view failedMarks[] = {"FAILED: ", "Failed: "};

}  // namespace

SessionWatch::SessionWatch(Reporter& reporter) : reporter_(reporter) {
  setPrintedLineSink([this](std::string_view line) { takeLine(line); });
}

SessionWatch::~SessionWatch() {
  // Standard output belongs to the results: a late line must not get there.
  setPrintedLineSink([](std::string_view) {});
}

void SessionWatch::takeLine(std::string_view line) {
  // The session that an operation tells of has ended, but is still listed while the operation prints.
  look();
  for (const auto mark : failedMarks) {
    if (!line.starts_with(mark)) continue;
    const std::lock_guard lock(mutex_);
    if (failedLine_.empty()) failedLine_ = line.substr(mark.size());
  }
  reporter_.log(line);
}

void SessionWatch::look() {
  const auto live = AVAssetExportSession::liveSessions();
  const std::lock_guard lock(mutex_);
  for (const auto& session : live) {
    if (std::find(sessions_.begin(), sessions_.end(), session) == sessions_.end()) sessions_.push_back(session);
  }
}

std::optional<double> SessionWatch::progress() const {
  const std::lock_guard lock(mutex_);
  if (sessions_.empty()) return std::nullopt;
  return static_cast<double>(sessions_.back()->progress());
}

void SessionWatch::cancel() {
  for (const auto& session : AVAssetExportSession::liveSessions()) session->cancelExport();
}

std::string SessionWatch::reason() const {
  const std::lock_guard lock(mutex_);
  for (const auto& session : sessions_) {
    if (session->status() != AVAssetExportSessionStatus::failed) continue;
    if (const auto error = session->error()) return error->localizedDescription();
  }
  return failedLine_;
}

}  // namespace clipworks::app
