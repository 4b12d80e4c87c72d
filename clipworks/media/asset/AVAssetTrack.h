#pragma once

#include <memory>
#include <optional>
#include <string>
#include <vector>

#include <clipworks/media/asset/AVAssetTrackSegment.h>
#include <clipworks/media/asset/AVMediaTypes.h>
#include <clipworks/media/asset/PictureFormat.h>
#include <clipworks/media/base/Export.h>
#include <clipworks/media/geometry/CGAffineTransform.h>
#include <clipworks/media/geometry/CGSize.h>
#include <clipworks/media/time/CMTimeRange.h>

namespace clipworks {

class MediaTrack;

/// One track of pictures or sound, of a file or of a composition. Thread-safe for reading.
/// All figures are finite; 0 stands for unknown.
class CLIPWORKS_API AVAssetTrack {
 public:
  virtual ~AVAssetTrack() = default;
  AVAssetTrack(const AVAssetTrack&) = delete;
  AVAssetTrack& operator=(const AVAssetTrack&) = delete;

  /// Pictures or sound.
  [[nodiscard]] virtual AVMediaType mediaType() const = 0;
  /// The track's number in its asset, from 1 on.
  [[nodiscard]] virtual CMPersistentTrackID trackID() const = 0;
  /// From the start of the timeline, or of the first segment with media, to the end of the last.
  [[nodiscard]] virtual CMTimeRange timeRange() const = 0;
  /// Size of the pictures after clean aperture and pixel aspect ratio, before the preferred transform.
  [[nodiscard]] virtual CGSize naturalSize() const = 0;
  /// The transform that turns the coded pictures upright, translation included.
  [[nodiscard]] virtual CGAffineTransform preferredTransform() const = 0;
  /// Pictures a second, on average over the track.
  [[nodiscard]] virtual float nominalFrameRate() const = 0;
  /// Bits a second, on average over the track.
  [[nodiscard]] virtual float estimatedDataRate() const = 0;
  /// Ticks a second of the media's own clock.
  [[nodiscard]] virtual std::int32_t naturalTimeScale() const = 0;
  /// In order of presentation, from time zero, without holes.
  [[nodiscard]] virtual std::vector<AVAssetTrackSegment> segments() const = 0;

  /// The codec's short name ("h264", "hevc", "aac"); empty for an empty composition track.
  [[nodiscard]] virtual std::string codecName() const = 0;
  /// Of a file's pictures; nothing for sound and compositions.
  [[nodiscard]] virtual std::optional<PictureFormat> pictureFormat() const { return std::nullopt; }
  /// Where the format of a file's pictures changes on the way: the coded size by each of the formats that the file
  /// describes, in its order. Pictures of all of them come in the first one's size, fitted. Empty where nothing
  /// changes, for sound, and for a composition's track.
  [[nodiscard]] virtual std::vector<CGSize> formatSizes() const { return {}; }
  /// Of sound; 0 for pictures.
  [[nodiscard]] virtual int channelCount() const = 0;
  /// Of sound, in hertz; 0 for pictures.
  [[nodiscard]] virtual double sampleRate() const = 0;

  /// The coded media behind a file's track; null for a composition's. Within the platform only.
  [[nodiscard]] virtual std::shared_ptr<const MediaTrack> media() const = 0;

 protected:
  AVAssetTrack() = default;
};

}  // namespace clipworks
