#pragma once

#include <chrono>
#include <filesystem>
#include <functional>
#include <future>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <clipworks/media/composition/AVMutableComposition.h>
#include <clipworks/media/export/AVAssetExportSession.h>

#include <tests/support/BarCodeClip.h>
#include <tests/support/MediaJudge.h>
#include <tests/support/RunProgram.h>
#include <tests/support/TemporaryDirectory.h>

// What tests of exports share, and the headers that all of them need.

namespace clipworks::test {

/// The longest that a test waits for anything; far more than is needed, for slow machines and sanitizers.
inline constexpr std::chrono::seconds patience{100};

/// Waits for a session's completion handler.
class Completion {
 public:
  /// To be given to the session, once.
  [[nodiscard]] std::function<void()> handler();
  /// False when it was not called in time.
  [[nodiscard]] bool wait();

 private:
  std::shared_ptr<std::promise<void>> called_ = std::make_shared<std::promise<void>>();
};

/// Gives the processor away until `happened`; false when it has not in time.
[[nodiscard]] bool waitUntil(const std::function<bool()>& happened);

/// How an export ended.
struct Exported {
  AVAssetExportSessionStatus status = AVAssetExportSessionStatus::unknown;
  std::optional<NSError> error;
  std::vector<ExportedTrack> tracks;

  /// Empty when it completed; else what it ended with.
  [[nodiscard]] std::string failure() const;
};

/// Exports `asset` to `path` and waits for the end.
[[nodiscard]] Exported exportAsset(const std::shared_ptr<AVAsset>& asset, std::string_view preset,
                                   const std::filesystem::path& path,
                                   const std::function<void(AVAssetExportSession&)>& configure = {});

/// The whole clip `count` times in a row: its first track of pictures with its transform, and its first of sound where
/// there is one.
[[nodiscard]] std::shared_ptr<AVMutableComposition> loopOf(const std::filesystem::path& clip, int count);

/// A stretch of a clip, in milliseconds.
struct Part {
  std::filesystem::path clip;
  std::int64_t from;
  std::int64_t to;
};

/// The pictures of `parts` one after another on one track, or their sound.
[[nodiscard]] std::shared_ptr<AVMutableComposition> cutOf(const std::vector<Part>& parts,
                                                          AVMediaType type = AVMediaTypeVideo);

/// The length of an MP4 or QuickTime file by its movie header, of others by ffprobe; in seconds.
[[nodiscard]] double lengthOf(const std::filesystem::path& clip);

/// What `clip`'s pictures, at their `times`, make when it plays `count` times in a row.
[[nodiscard]] std::vector<SeenPicture> loopedPictures(const std::vector<double>& times, double length, int count);

/// Fails the test for each picture that is another, or more than `tolerance` seconds away from its time.
void expectPictures(const std::vector<SeenPicture>& got, const std::vector<SeenPicture>& expected, double tolerance);

/// The names in a directory.
[[nodiscard]] std::vector<std::string> filesIn(const std::filesystem::path& directory);

}  // namespace clipworks::test
