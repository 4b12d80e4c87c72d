#pragma once

#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include <clipworks/media/asset/AVAssetTrack.h>
#include <clipworks/media/asset/AVMediaTypes.h>
#include <clipworks/media/asset/InputLimits.h>
#include <clipworks/media/base/Export.h>
#include <clipworks/media/base/URL.h>
#include <clipworks/media/time/CMTime.h>

namespace clipworks {

/// Media to look at, compose or export: a file, or a composition. Thread-safe for reading; a file's tracks and
/// duration are loaded once, at the first question, on the asking thread.
class CLIPWORKS_API AVAsset : public std::enable_shared_from_this<AVAsset> {
 public:
  /// `AVAsset(url:)`, `assetWithURL:`. Never fails; a file that cannot be read, or holds no known media, has no
  /// tracks and no length, and `loadError()` says why. Files are read by content, not by name; only local files are
  /// opened, whatever their content refers to,
  /// and only what `limits` let in.
  [[nodiscard]] static std::shared_ptr<AVAsset> make(URL url, const InputLimits& limits = {});

  virtual ~AVAsset() = default;
  AVAsset(const AVAsset&) = delete;
  AVAsset& operator=(const AVAsset&) = delete;

  /// The file that was asked for; nothing for compositions.
  [[nodiscard]] virtual std::optional<URL> url() const { return std::nullopt; }
  /// The file's length as its movie header tells it, in the movie's own time scale; zero when nothing is known.
  /// Of a composition: the end of the track that ends last.
  [[nodiscard]] virtual CMTime duration() const = 0;

  /// All tracks, in the file's order.
  [[nodiscard]] virtual std::vector<std::shared_ptr<AVAssetTrack>> tracks() const = 0;

  /// `tracks(withMediaType:)`.
  [[nodiscard]] std::vector<std::shared_ptr<AVAssetTrack>> tracks(AVMediaType withMediaType) const;

  /// What else the file holds: subtitles, timed metadata, cover art. Empty for compositions.
  [[nodiscard]] virtual std::vector<OtherTrack> otherTracks() const { return {}; }

  /// What the recording says of itself (date, place, device, title), by the container's own keys.
  /// Empty for compositions.
  [[nodiscard]] virtual std::map<std::string, std::string> metadata() const = 0;

  /// One sentence that says why the file has no tracks; empty when it has some. For people, not for programs.
  [[nodiscard]] virtual std::string loadError() const = 0;

 protected:
  AVAsset() = default;
};

}  // namespace clipworks
