#include <sys/mman.h>
#include <unistd.h>

#include <cmath>
#include <string>

#include <clipworks/media/asset/AVAsset.h>
#include <clipworks/media/asset/AVAssetTrack.h>
#include <clipworks/media/base/SettingsKeys.h>
#include <clipworks/media/images/AVAssetImageGenerator.h>
#include <clipworks/media/samples/AVAssetReader.h>
#include <clipworks/media/samples/AVAssetReaderTrackOutput.h>
#include <clipworks/media/samples/CMSampleBuffer.h>
#include <fuzz/FuzzInput.h>

// Whole files of any kind: opened, asked for all that assets tell, read through the reader and the image generator.

namespace {

using namespace clipworks;
using fuzz::require;

constexpr int buffersRead = 12;           // of each track
constexpr double mostPixels = 640 * 480;  // decoding more takes too long for each of millions of inputs

/// One file in memory for the whole run.
URL fileOf(const std::uint8_t* data, std::size_t size) {
  static const int fd = ::memfd_create("clip", MFD_CLOEXEC);
  require(::ftruncate(fd, 0) == 0, "the file can be emptied");
  require(::pwrite(fd, data, size, 0) == static_cast<ssize_t>(size), "the file can be written");
  return URL("/proc/self/fd/" + std::to_string(fd));
}

void checkTrack(const AVAssetTrack& track) {
  require(std::isfinite(track.nominalFrameRate()) && track.nominalFrameRate() >= 0, "frame rates are finite");
  require(std::isfinite(track.estimatedDataRate()) && track.estimatedDataRate() >= 0, "data rates are finite");
  const CGSize natural = track.naturalSize();
  require(std::isfinite(natural.width) && std::isfinite(natural.height), "sizes are finite");
  require(track.mediaType() != AVMediaTypeVideo || (natural.width > 0 && natural.height > 0), "pictures have a size");
  CMTime end = kCMTimeZero;
  for (const auto& segment : track.segments()) {
    require(segment.target.start == end, "each segment starts where the one before it ends");
    end = segment.target.end();
  }
}

SettingsDictionary decodedAs(AVMediaType type) {
  if (type == AVMediaTypeVideo) {
    return {{kCVPixelBufferPixelFormatTypeKey, kCVPixelFormatType_420YpCbCr8BiPlanarFullRange}};
  }
  return {{AVFormatIDKey, kAudioFormatLinearPCM}};
}

void readSome(const std::shared_ptr<AVAsset>& asset, const std::shared_ptr<AVAssetTrack>& track) {
  const auto reader = AVAssetReader::make(asset);
  if (!reader) return;
  const auto output = AVAssetReaderTrackOutput::make(track, decodedAs(track->mediaType()));
  if (!(*reader)->canAdd(*output)) return;
  (*reader)->add(output);
  if (!(*reader)->startReading()) {
    require((*reader)->error().has_value(), "a failure has a reason");
    return;
  }
  for (int i = 0; i < buffersRead; ++i) {
    const auto buffer = output->copyNextSampleBuffer();
    if (buffer == nullptr) return;
    (void)CMSampleBufferGetImageBuffer(*buffer);
  }
  (*reader)->cancelReading();
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const auto asset = AVAsset::make(fileOf(data, size));
  const CMTime duration = asset->duration();
  const auto tracks = asset->tracks();
  require(!tracks.empty() || !asset->loadError().empty(), "what cannot be read says why");
  require(duration.isNumeric() && duration >= kCMTimeZero, "an asset has a length");
  (void)asset->metadata();
  for (const auto& track : tracks) {
    checkTrack(*track);
    const CGSize natural = track->naturalSize();
    if (natural.width * natural.height <= mostPixels) readSome(asset, track);
  }
  for (const auto& track : asset->tracks(AVMediaTypeVideo)) {
    const CGSize natural = track->naturalSize();
    if (natural.width * natural.height > mostPixels) return 0;
  }
  const auto image = AVAssetImageGenerator::make(asset)->copyCGImage(CMTimeMultiplyByRatio(duration, 1, 2));
  require(image.has_value() || !image.error().localizedDescription().empty(), "a failure has a sentence");
  return 0;
}
