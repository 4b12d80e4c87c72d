#include <clipworks/media/asset/FileAsset.h>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <exception>

#include <clipworks/media/asset/FileSegments.h>

namespace clipworks {
namespace {

float finite(double figure) { return std::isfinite(figure) ? static_cast<float>(figure) : 0.0F; }

}  // namespace

std::shared_ptr<AVAsset> AVAsset::make(URL url, const InputLimits& limits) {
  return std::make_shared<FileAsset>(std::move(url), limits);
}

std::vector<std::shared_ptr<AVAssetTrack>> AVAsset::tracks(AVMediaType withMediaType) const {
  auto found = tracks();
  std::erase_if(found, [withMediaType](const auto& track) { return track->mediaType() != withMediaType; });
  return found;
}

void FileAsset::load() const {
  std::call_once(loaded_, [this] {
    try {
      failure_ = loadTracks();
    } catch (const std::exception& thrown) {
      failure_ = {engine::ErrorKind::internal, url_.lastPathComponent() + " cannot be read: " + thrown.what()};
    }
    if (failure_) tracks_.clear();
  });
}

std::optional<engine::Error> FileAsset::loadTracks() const {
  static_assert(InputLimits{}.mostPixels == engine::limits::maxPixels);
  auto file = engine::MediaFile::open(url_.path(), {limits_.mostPixels, limits_.takesAnyCodec});
  if (!file) return file.error();
  for (const auto& stream : (*file)->streams()) {
    auto track = std::make_shared<FileAssetTrack>(std::make_shared<const MediaTrack>(*file, stream.index));
    if (!track->segments().empty()) tracks_.push_back(std::move(track));
  }
  file_ = *file;
  if (tracks_.empty())
    return engine::Error{engine::ErrorKind::notMedia, file_->name() + " holds no pictures and no sound"};
  // A header may tell less than the tracks hold, and more.
  double seconds = length().seconds();
  for (const auto& track : tracks_) seconds = std::max(seconds, track->timeRange().end().seconds());
  if (limits_.mostSeconds <= 0 || seconds <= limits_.mostSeconds) return std::nullopt;
  file_ = nullptr;
  char figures[96];
  (void)std::snprintf(figures, sizeof figures, " lasts %.3f seconds; %g are allowed", seconds, limits_.mostSeconds);
  return engine::Error{engine::ErrorKind::beyondLimit, (*file)->name() + figures};
}

CMTime FileAsset::duration() const {
  load();
  return length();
}

/// Of what is loaded.
CMTime FileAsset::length() const {
  if (file_ == nullptr) return kCMTimeZero;
  const CMTime told(file_->duration(), file_->timescale());
  if (file_->hasMovieHeader()) return told;
  // Other containers may tell when their last picture comes rather than when it ends.
  CMTime end = told;
  for (const auto& track : tracks_) {
    if (track->mediaType() == AVMediaType::video) end = CMTimeMaximum(end, track->timeRange().end());
  }
  return end;
}

std::vector<std::shared_ptr<AVAssetTrack>> FileAsset::tracks() const {
  load();
  return tracks_;
}

std::vector<OtherTrack> FileAsset::otherTracks() const {
  load();
  std::vector<OtherTrack> others;
  if (file_ == nullptr) return others;
  for (const auto& other : file_->otherStreams()) others.push_back({other.kind, other.codec, other.name, other.isData});
  return others;
}

std::map<std::string, std::string> FileAsset::metadata() const {
  load();
  return file_ == nullptr ? std::map<std::string, std::string>{} : file_->metadata();
}

std::string FileAsset::loadError() const {
  load();
  return failure_ ? failure_->sentence : "";
}

std::optional<engine::Error> FileAsset::openFailure() const {
  load();
  return failure_;
}

bool FileAsset::hasChanged() const {
  load();
  return file_ != nullptr && file_->handle()->hasChanged();
}

FileAssetTrack::FileAssetTrack(std::shared_ptr<const MediaTrack> media) : media_(std::move(media)) {
  FilePresentation presentation;
  presentation.edits = facts().edits;
  presentation.movieTimescale = media_->file()->timescale();
  presentation.mediaTimescale = facts().timescale;
  presentation.mediaDuration = facts().duration;
  if (facts().kind == engine::StreamKind::video) {
    if (auto table = media_->file()->pictureTable(facts().index)) table_ = *table;
    if (table_ == nullptr || table_->pictureCount() == 0) return;  // no samples: not listed
    presentation.mediaDuration = table_->trackEnd();
  } else {
    presentation.encoderDelay = facts().encoderDelay * facts().timescale / std::max(facts().sampleRate, 1);
    if (presentation.mediaDuration <= 0) {
      const CMTime whole(media_->file()->duration(), media_->file()->timescale());
      presentation.mediaDuration =
          whole.convertScale(facts().timescale, CMTimeRoundingMethod::roundHalfAwayFromZero).value;
    }
  }
  segments_ = segmentsFromEdits(presentation);
}

AVMediaType FileAssetTrack::mediaType() const {
  return facts().kind == engine::StreamKind::video ? AVMediaType::video : AVMediaType::audio;
}

CMPersistentTrackID FileAssetTrack::trackID() const { return facts().trackID; }

CMTimeRange FileAssetTrack::timeRange() const {
  const auto first = std::find_if(segments_.begin(), segments_.end(), [](const auto& s) { return !s.isEmpty(); });
  if (first == segments_.end()) return kCMTimeRangeZero;
  return CMTimeRange::fromTo(first->target.start, segments_.back().target.end());
}

CGSize FileAssetTrack::naturalSize() const { return {facts().naturalWidth, facts().naturalHeight}; }

CGAffineTransform FileAssetTrack::preferredTransform() const {
  const auto& t = facts().transform;
  return {t[0], t[1], t[2], t[3], t[4], t[5]};
}

float FileAssetTrack::nominalFrameRate() const {
  if (table_ == nullptr || facts().timescale <= 0) return 0;
  const std::int64_t length = table_->trackEnd() - table_->timeOfPicture(0);
  if (length <= 0) return 0;
  return finite(static_cast<double>(table_->pictureCount()) * facts().timescale / static_cast<double>(length));
}

float FileAssetTrack::estimatedDataRate() const {
  if (table_ == nullptr) return static_cast<float>(facts().bitRate);
  const std::int64_t length = table_->trackEnd() - table_->timeOfPicture(0);
  if (length <= 0) return 0;
  return finite(8.0 * static_cast<double>(table_->totalBytes()) * facts().timescale / static_cast<double>(length));
}

std::int32_t FileAssetTrack::naturalTimeScale() const { return facts().timescale; }
std::vector<AVAssetTrackSegment> FileAssetTrack::segments() const { return segments_; }
std::vector<CGSize> FileAssetTrack::formatSizes() const {
  std::vector<CGSize> sizes;
  if (facts().sampleDescriptions < 2) return sizes;
  for (const auto& [width, height] : facts().codedSizes) sizes.push_back({double(width), double(height)});
  // Of the first format its own pictures tell, which descriptions often do not.
  if (!sizes.empty()) sizes.front() = {double(facts().codedWidth), double(facts().codedHeight)};
  return sizes;
}

std::string FileAssetTrack::codecName() const { return facts().codec; }
std::optional<PictureFormat> FileAssetTrack::pictureFormat() const {
  if (table_ == nullptr) return std::nullopt;
  const auto& color = facts().color;
  PictureFormat format{facts().bitDepth,
                       PictureFormat::DynamicRange::standard,
                       facts().dolbyVisionProfile,
                       color.primaries,
                       color.transfer,
                       color.matrix,
                       color.isFullRange,
                       !facts().progressive,
                       table_->hasConstantRate(),
                       static_cast<std::int64_t>(table_->longestGroup()),
                       0};
  if (facts().highDynamicRange) {
    format.dynamicRange = facts().isHLG ? PictureFormat::DynamicRange::hlg : PictureFormat::DynamicRange::pq;
  }
  if (media_->file()->samplesAreStoredPlainly())
    format.missingPictures = table_->samplesBeyond(media_->file()->handle()->size());
  return format;
}

int FileAssetTrack::channelCount() const { return facts().channels; }
double FileAssetTrack::sampleRate() const { return facts().sampleRate; }
std::shared_ptr<const MediaTrack> FileAssetTrack::media() const { return media_; }

}  // namespace clipworks
