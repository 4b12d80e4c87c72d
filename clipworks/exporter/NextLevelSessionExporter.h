#pragma once

#include <condition_variable>
#include <cstddef>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>

#include <clipworks/media/asset/AVAsset.h>
#include <clipworks/media/asset/AVMediaTypes.h>
#include <clipworks/media/base/Export.h>
#include <clipworks/media/base/NSError.h>
#include <clipworks/media/base/Result.h>
#include <clipworks/media/base/SettingsDictionary.h>
#include <clipworks/media/base/URL.h>
#include <clipworks/media/export/AVAssetExportSession.h>
#include <clipworks/media/time/CMTimeRange.h>

namespace clipworks {

/// Encodes an asset anew, pictures and sound each as a dictionary of settings says. Pictures come out upright, every
/// one at its own time, in the size that the settings name; sound at the named rate and number of channels. An asset
/// without sound gives a file without. The date, the place and the device of the recording are kept.
///
/// Configure it on one thread, then export once. The exporter keeps itself alive from then until its completion handler
/// has been called and destroyed. An asset that is a file is let go and opened again when the export starts, so that
/// many exporters may be prepared without holding many files open.
class CLIPWORKS_API NextLevelSessionExporter : public std::enable_shared_from_this<NextLevelSessionExporter> {
 public:
  /// Nobody draws into the pictures: there is no such handler but null.
  using RenderHandler = std::nullptr_t;
  /// Takes how much is done, from 0 to 1, never falling.
  using ProgressHandler = std::function<void(float)>;
  /// Takes `completed` or `cancelled`, or why it failed.
  using CompletionHandler = std::function<void(Result<AVAssetExportSessionStatus, NSError>)>;

  /// `NextLevelSessionExporter(withAsset:)`.
  [[nodiscard]] static std::shared_ptr<NextLevelSessionExporter> make(const std::shared_ptr<AVAsset>& asset);
  NextLevelSessionExporter(const NextLevelSessionExporter&) = delete;
  NextLevelSessionExporter& operator=(const NextLevelSessionExporter&) = delete;

  /// MPEG-4 (the default) or QuickTime movie.
  void setOutputFileType(AVFileType outputFileType) { outputFileType_ = outputFileType; }
  /// Where the file goes. Its directory must exist; a file of that name must not.
  void setOutputURL(URL outputURL) { outputURL_ = std::move(outputURL); }
  /// The part of the asset that is exported, from 0 on in the file; all of it unless set.
  void setTimeRange(const CMTimeRange& timeRange) { timeRange_ = timeRange; }
  /// `videoOutputConfiguration`: codec, width, height, scaling mode, and compression properties with the average bit
  /// rate and the profile (SettingsKeys.h). An asset with pictures needs it.
  void setVideoOutputConfiguration(SettingsDictionary configuration) { videoConfiguration_ = std::move(configuration); }
  /// `audioOutputConfiguration`: format (AAC), bit rate, channels and sample rate. An asset with sound needs it.
  void setAudioOutputConfiguration(SettingsDictionary configuration) { audioConfiguration_ = std::move(configuration); }

  /// `export(renderHandler:progressHandler:completionHandler:)`. Returns at once. Handlers come on a thread of the
  /// exporter, one at a time; the completion once, after the last progress. A setting that is unknown or cannot be
  /// had fails the export with a sentence that names its key. Where the system allows no more threads, the completion
  /// comes on the calling thread, with that failure, before this returns. A second call on one exporter aborts.
  void exportAsynchronously(RenderHandler renderHandler, ProgressHandler progressHandler,
                            CompletionHandler completionHandler);

  /// Ends a running export without a file; it completes as `cancelled`. Before the start: the export then ends at once.
  /// From any thread.
  void cancelExport();

 private:
  explicit NextLevelSessionExporter(std::shared_ptr<AVAsset> asset) : asset_(std::move(asset)) {}
  using Outcome = Result<AVAssetExportSessionStatus, NSError>;
  Outcome carryOut(const ProgressHandler& progressHandler);
  void end(const Outcome& outcome);
  [[nodiscard]] Result<std::shared_ptr<AVAssetExportSession>, NSError> makeSession() const;
  void run(AVAssetExportSession& session, const ProgressHandler& progressHandler);

  std::shared_ptr<AVAsset> asset_;
  AVFileType outputFileType_ = AVFileTypeMPEG4;
  std::optional<URL> outputURL_;
  std::optional<CMTimeRange> timeRange_;
  SettingsDictionary videoConfiguration_;
  SettingsDictionary audioConfiguration_;
  ProgressHandler progressHandler_;  // once it has started, as the next
  CompletionHandler completionHandler_;

  std::mutex mutex_;
  std::condition_variable ended_;
  bool hasStarted_ = false;  // guarded by mutex_, like all below
  bool isCancelled_ = false;
  bool sessionEnded_ = false;
  std::shared_ptr<AVAssetExportSession> session_;  // while it exports
};

}  // namespace clipworks
