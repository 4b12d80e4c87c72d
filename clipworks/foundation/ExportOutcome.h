#pragma once

#include <string>
#include <string_view>

#include <clipworks/media/base/PrintedLines.h>
#include <clipworks/media/base/PrintedText.h>
#include <clipworks/media/base/Result.h>
#include <clipworks/media/base/URL.h>
#include <clipworks/media/export/AVAssetExportSession.h>

namespace clipworks {

/// What an operation reports of a session that has ended: `url` when it completed, else `Error::generic`. A failure is
/// printed, `failedMark` with the reason behind it; anything else that is not completed ends without a word.
template <class Error>
[[nodiscard]] Result<URL, Error> exportOutcome(const AVAssetExportSession& session, const URL& url,
                                               std::string_view failedMark) {
  if (session.status() == AVAssetExportSessionStatus::completed) return url;
  if (session.status() == AVAssetExportSessionStatus::failed) {
    printLine(std::string(failedMark) + printedOptional(session.error()));
  }
  return failure(Error::generic);
}

}  // namespace clipworks
