#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include <clipworks/media/asset/AVAsset.h>
#include <clipworks/media/asset/DamagedMedia.h>
#include <clipworks/media/base/Export.h>
#include <clipworks/media/base/NSError.h>
#include <clipworks/media/base/URL.h>
#include <clipworks/media/composition/AVMutableAudioMix.h>
#include <clipworks/media/composition/AVMutableVideoComposition.h>
#include <clipworks/media/export/EncoderAvailability.h>

namespace clipworks {

/// H.264 High at visually transparent quality.
inline constexpr std::string_view AVAssetExportPresetHighestQuality = "AVAssetExportPresetHighestQuality";
/// HEVC Main, or Main 10 for 10-bit sources, at visually transparent quality.
inline constexpr std::string_view AVAssetExportPresetHEVCHighestQuality = "AVAssetExportPresetHEVCHighestQuality";
/// H.264 that fits in 480 × 480 (never enlarged), about 400 kb/s.
inline constexpr std::string_view AVAssetExportPresetLowQuality = "AVAssetExportPresetLowQuality";
/// Coded pictures as they are; one untouched sound track as it is, several are mixed and encoded.
inline constexpr std::string_view AVAssetExportPresetPassthrough = "AVAssetExportPresetPassthrough";

/// The values are fixed: completions compare them as numbers.
enum class AVAssetExportSessionStatus : int {
  unknown = 0,
  waiting = 1,
  exporting = 2,
  completed = 3,
  failed = 4,
  cancelled = 5,
};

/// How one track came into the file.
struct CLIPWORKS_API ExportedTrack {
  AVMediaType mediaType = AVMediaType::video;
  /// True when coded samples were copied, false when they were encoded.
  bool copied = false;
  /// The encoder that served; empty when copied.
  std::string encoder;
  /// One sentence: why the track could not be copied, or what was dropped; empty when there is nothing to say.
  std::string remark;
};

/// Renders an asset into one file. One export a session.
///
///     unknown ── exportAsynchronously ──> waiting ──> exporting ──> completed
///                                            └───────────┴────────> failed | cancelled
///
/// The session keeps itself alive from `exportAsynchronously` until its completion handler has been called and
/// destroyed. The file appears under its name only when it is whole; a failed or cancelled session leaves none.
/// Configure it on one thread before it starts; `progress`, `status`, `error`, `exportedTracks` and `cancelExport`
/// may be used from any thread at any time.
class CLIPWORKS_API AVAssetExportSession : public std::enable_shared_from_this<AVAssetExportSession> {
 public:
  /// `AVAssetExportSession(asset:presetName:)`. Null when the preset is unknown, or an encoder that it needs does not
  /// exist or is withheld (`EncoderAvailability`).
  [[nodiscard]] static std::shared_ptr<AVAssetExportSession> make(const std::shared_ptr<AVAsset>& asset,
                                                                  std::string_view presetName);
  virtual ~AVAssetExportSession() = default;
  AVAssetExportSession(const AVAssetExportSession&) = delete;
  AVAssetExportSession& operator=(const AVAssetExportSession&) = delete;

  // Settings, read when the export starts.

  /// Where the file goes. Its directory must exist; a file of that name must not.
  virtual void setOutputURL(const URL& outputURL) = 0;
  [[nodiscard]] virtual std::optional<URL> outputURL() const = 0;
  /// MPEG-4 (the default), QuickTime movie or M4A; another type fails the export.
  virtual void setOutputFileType(AVFileType outputFileType) = 0;
  /// The most bytes that the file may have; 0, the default, is no limit. An export that reaches it fails with
  /// `AVError::maximumFileSizeReached`.
  virtual void setFileLengthLimit(std::int64_t fileLengthLimit) = 0;
  [[nodiscard]] virtual std::int64_t fileLengthLimit() const = 0;
  /// The index always comes first in the file, so that playing can start before all of it is there; kept for callers
  /// that ask for it.
  virtual void setShouldOptimizeForNetworkUse(bool shouldOptimizeForNetworkUse) = 0;
  [[nodiscard]] virtual bool shouldOptimizeForNetworkUse() const = 0;
  /// How the tracks of pictures are put together to one of a constant rate; null, the default, keeps every picture's
  /// own time, and its size and orientation. Copied when the export starts.
  virtual void setVideoComposition(std::shared_ptr<const AVMutableVideoComposition> videoComposition) = 0;
  [[nodiscard]] virtual std::shared_ptr<const AVMutableVideoComposition> videoComposition() const = 0;
  /// How loud each track of sound is; null, the default, leaves all as they are. Read when the export starts.
  virtual void setAudioMix(std::shared_ptr<const AVMutableAudioMix> audioMix) = 0;
  [[nodiscard]] virtual std::shared_ptr<const AVMutableAudioMix> audioMix() const = 0;
  /// Whether the date, place and device of the recording are kept (the default). They are taken from the asset of the
  /// first segment of pictures, else of sound.
  virtual void setKeepsRecordingMetadata(bool keepsRecordingMetadata) = 0;

  /// `exportAsynchronously(completionHandler:)`. Returns at once. The handler is called once, on a thread of the
  /// session, possibly before this returns; then it is destroyed. Where the system allows no more threads, the export
  /// has failed when this returns, and the handler was called on the calling thread. A second call on one session
  /// aborts.
  virtual void exportAsynchronously(std::function<void()> completionHandler) = 0;

  /// Ends a running export as soon as its threads notice (well under a second); a finished one stays as it is. Before
  /// the start: the export then ends at once as cancelled.
  virtual void cancelExport() = 0;

  /// Where the export stands; see the diagram above.
  [[nodiscard]] virtual AVAssetExportSessionStatus status() const = 0;
  /// The reason while `status()` is failed, or that the export was cancelled.
  [[nodiscard]] virtual std::optional<NSError> error() const = 0;
  /// From 0 to 1, never falling; 1 only once completed.
  [[nodiscard]] virtual float progress() const = 0;
  /// The preset that the session was made with.
  [[nodiscard]] virtual std::string presetName() const = 0;
  /// Known once completed.
  [[nodiscard]] virtual std::vector<ExportedTrack> exportedTracks() const = 0;

  /// The files some of whose pictures could not be decoded whole, where pictures were encoded; what could be decoded is
  /// in the new file. Known once completed.
  [[nodiscard]] virtual std::vector<DamagedMedia> damagedMedia() const = 0;

  /// The sessions between start and completion, oldest first: for hosts that show progress or cancel what an operation
  /// started, since operations hide their sessions. From any thread.
  [[nodiscard]] static std::vector<std::shared_ptr<AVAssetExportSession>> liveSessions();

 protected:
  AVAssetExportSession() = default;
};

}  // namespace clipworks
