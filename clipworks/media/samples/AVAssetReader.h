#pragma once

#include <memory>
#include <optional>
#include <vector>

#include <clipworks/media/asset/AVAsset.h>
#include <clipworks/media/base/Export.h>
#include <clipworks/media/base/NSError.h>
#include <clipworks/media/base/Result.h>
#include <clipworks/media/samples/AVAssetReaderStatus.h>
#include <clipworks/media/samples/AVAssetReaderTrackOutput.h>

namespace clipworks {

/// Reads decoded samples of an asset's tracks, from a file or a composition. Add outputs, start, and draw from them.
/// One thread sets it up; `status`, `error` and `cancelReading` may be used from any.
///
///     unknown ── startReading ──> reading ──> completed | failed | cancelled
class CLIPWORKS_API AVAssetReader {
 public:
  /// `AVAssetReader(asset:)`. Fails, with the reason, for an asset without tracks: a file that cannot be read above
  /// all.
  [[nodiscard]] static Result<std::shared_ptr<AVAssetReader>, NSError> make(const std::shared_ptr<AVAsset>& asset);
  AVAssetReader(const AVAssetReader&) = delete;
  AVAssetReader& operator=(const AVAssetReader&) = delete;

  /// `canAdd(_:)`: whether the output's track can be read as its settings say, and the reader has not started.
  [[nodiscard]] bool canAdd(const AVAssetReaderTrackOutput& output) const;
  /// `add(_:)`, before the start. With an output that cannot be added, the start fails.
  void add(std::shared_ptr<AVAssetReaderTrackOutput> output);

  /// Prepares the outputs; false, and `error` tells why, when one cannot be read or the reader has started before.
  bool startReading();
  /// Outputs give nothing more. A reader that is through, or has failed, stays what it is.
  void cancelReading();

  /// Where it stands; see the diagram above.
  [[nodiscard]] AVAssetReaderStatus status() const;
  /// The reason while `status()` is failed.
  [[nodiscard]] std::optional<NSError> error() const;

 private:
  explicit AVAssetReader(std::shared_ptr<AVAsset> asset);

  std::shared_ptr<AVAsset> asset_;  // kept while it is read
  std::vector<std::shared_ptr<AVAssetReaderTrackOutput>> outputs_;
  std::shared_ptr<ReadingState> state_;
};

}  // namespace clipworks
