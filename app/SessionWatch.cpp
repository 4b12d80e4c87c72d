#include <app/SessionWatch.h>

#include <algorithm>
#include <array>

#include <clipworks/media/base/PrintedLines.h>

namespace clipworks::app {
namespace {

// What operations print before the reason of a failure.
constexpr std::array<std::string_view, 3> failedMarks = {"FAILED: ", "Failed: ", "ERROR: "};

template <class Live>
void remember(std::vector<std::shared_ptr<Live>>& known, const std::vector<std::shared_ptr<Live>>& live) {
  for (const auto& one : live) {
    if (std::find(known.begin(), known.end(), one) == known.end()) known.push_back(one);
  }
}

}  // namespace

SessionWatch::SessionWatch(Reporter& reporter) : reporter_(reporter) {
  setPrintedLineSink([this](std::string_view line) { takeLine(line); });
}

SessionWatch::~SessionWatch() {
  // Standard output belongs to the results: a late line must not get there.
  setPrintedLineSink([](std::string_view) {});
}

void SessionWatch::takeLine(std::string_view line) {
  // What an operation tells of has ended, but is still listed while the operation prints.
  look();
  for (const std::string_view mark : failedMarks) {
    if (!line.starts_with(mark)) continue;
    const std::lock_guard lock(mutex_);
    if (failedLine_.empty()) failedLine_ = line.substr(mark.size());
  }
  reporter_.log(line);
}

void SessionWatch::look() {
  const auto liveSessions = AVAssetExportSession::liveSessions();
  const auto liveWriters = AVAssetWriter::liveWriters();
  const std::lock_guard lock(mutex_);
  remember(sessions_, liveSessions);
  remember(writers_, liveWriters);
}

void SessionWatch::startAfresh() {
  const std::lock_guard lock(mutex_);
  sessions_.clear();
  writers_.clear();
  failedLine_.clear();
}

std::optional<double> SessionWatch::progress() const {
  const std::lock_guard lock(mutex_);
  if (sessions_.empty()) return std::nullopt;
  return static_cast<double>(sessions_.back()->progress());
}

bool SessionWatch::cancel() {
  const auto live = AVAssetExportSession::liveSessions();
  for (const auto& session : live) session->cancelExport();
  return !live.empty();
}

std::string SessionWatch::reason() const {
  const std::lock_guard lock(mutex_);
  for (const auto& session : sessions_) {
    if (session->status() != AVAssetExportSessionStatus::failed) continue;
    if (const auto error = session->error()) return error->localizedDescription();
  }
  for (const auto& writer : writers_) {
    if (const auto error = writer->error()) return error->localizedDescription();
  }
  return failedLine_;
}

}  // namespace clipworks::app
