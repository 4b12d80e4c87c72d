#pragma once

#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include <clipworks/media/asset/AVAsset.h>
#include <clipworks/media/asset/MediaTrack.h>

namespace clipworks {

/// The asset behind `AVAsset::make`: a file, looked at when the first question comes.
class FileAsset final : public AVAsset {
 public:
  explicit FileAsset(URL url, const InputLimits& limits = {}) : url_(std::move(url)), limits_(limits) {}

  [[nodiscard]] std::optional<URL> url() const override { return url_; }
  [[nodiscard]] CMTime duration() const override;
  [[nodiscard]] std::vector<std::shared_ptr<AVAssetTrack>> tracks() const override;
  [[nodiscard]] std::vector<OtherTrack> otherTracks() const override;
  [[nodiscard]] std::map<std::string, std::string> metadata() const override;
  [[nodiscard]] std::string loadError() const override;

  [[nodiscard]] const InputLimits& limits() const { return limits_; }
  /// Why the file has no tracks; nothing when it has some.
  [[nodiscard]] std::optional<engine::Error> openFailure() const;
  /// Whether it was written since it was opened.
  [[nodiscard]] bool hasChanged() const;

 private:
  void load() const;
  [[nodiscard]] std::optional<engine::Error> loadTracks() const;
  [[nodiscard]] CMTime length() const;

  URL url_;
  InputLimits limits_;
  mutable std::once_flag loaded_;
  // Written once, under loaded_.
  mutable std::shared_ptr<const engine::MediaFile> file_;
  mutable std::vector<std::shared_ptr<AVAssetTrack>> tracks_;
  mutable std::optional<engine::Error> failure_;
};

/// A stream of a file as a track.
class FileAssetTrack final : public AVAssetTrack {
 public:
  explicit FileAssetTrack(std::shared_ptr<const MediaTrack> media);

  [[nodiscard]] AVMediaType mediaType() const override;
  [[nodiscard]] CMPersistentTrackID trackID() const override;
  [[nodiscard]] CMTimeRange timeRange() const override;
  [[nodiscard]] CGSize naturalSize() const override;
  [[nodiscard]] CGAffineTransform preferredTransform() const override;
  [[nodiscard]] float nominalFrameRate() const override;
  [[nodiscard]] float estimatedDataRate() const override;
  [[nodiscard]] std::int32_t naturalTimeScale() const override;
  [[nodiscard]] std::vector<AVAssetTrackSegment> segments() const override;
  [[nodiscard]] std::string codecName() const override;
  [[nodiscard]] std::optional<PictureFormat> pictureFormat() const override;
  [[nodiscard]] std::vector<CGSize> formatSizes() const override;
  [[nodiscard]] int channelCount() const override;
  [[nodiscard]] double sampleRate() const override;
  [[nodiscard]] std::shared_ptr<const MediaTrack> media() const override;

 private:
  [[nodiscard]] const engine::StreamFacts& facts() const { return media_->facts(); }

  std::shared_ptr<const MediaTrack> media_;
  std::shared_ptr<const engine::PictureTable> table_;  // of pictures; null for sound, or when it cannot be read
  std::vector<AVAssetTrackSegment> segments_;
};

}  // namespace clipworks
