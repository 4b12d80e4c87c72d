#include <clipworks/tophoto/VideoToPhotoUtils.h>

#include <cstdlib>

#include <clipworks/filedeck/FileSystem.h>
#include <clipworks/foundation/OutputLocation.h>
#include <clipworks/media/asset/AVAsset.h>
#include <clipworks/media/dispatch/DispatchQueue.h>
#include <clipworks/media/images/AVAssetImageGenerator.h>
#include <clipworks/media/images/UIImage.h>
#include <clipworks/stillpress/HEICConverter.h>
#include <clipworks/stillpress/JPGConverter.h>
#include <clipworks/stillpress/PNGConverter.h>

namespace clipworks {
namespace {

using ExportError = VideoToPhotoUtils::ExportError;
using ExportFormat = VideoToPhotoUtils::ExportFormat;

std::shared_ptr<AVAssetImageGenerator> exactGenerator(const std::shared_ptr<AVAsset>& asset) {
  const auto generator = AVAssetImageGenerator::make(asset);
  generator->setMaximumSize({0, 0});  // no limit
  generator->setAppliesPreferredTrackTransform(true);
  generator->setRequestedTimeToleranceBefore(kCMTimeZero);
  generator->setRequestedTimeToleranceAfter(kCMTimeZero);
  generator->setCacheLimit(0);  // only one picture is asked for: those on the way to it need not stay
  return generator;
}

std::shared_ptr<ImageConverter> converterFor(ExportFormat format) {
  switch (format) {
    case ExportFormat::jpg:
      return JPGConverter::make();
    case ExportFormat::png:
      return PNGConverter::make();
    case ExportFormat::heic:
      return HEICConverter::make();
  }
  std::abort();  // no such format
}

void reportOnMain(const VideoToPhotoUtils::Completion& onComplete, Result<URL, ExportError> result) {
  DispatchQueue::main().async([onComplete, result = std::move(result)] { onComplete(result); });
}

void saveStill(const UIImage& picture, const std::optional<std::string>& fileName, ExportFormat format,
               const VideoToPhotoUtils::Completion& onComplete) {
  const auto converter = converterFor(format);
  converter->setImage(picture);
  const URL url = prepareOutputLocation(FileSystem::shared().outputsURL(), fileName, "." + converter->fileExtension());
  converter->convert([url, onComplete](const Result<Data, ConverterError>& converted) {
    if (!converted) return reportOnMain(onComplete, failure(ExportError::generic));
    // Kept: a still that cannot be written is reported as a success all the same.
    (void)converted->write(url);
    reportOnMain(onComplete, url);
  });
}

}  // namespace

std::shared_ptr<VideoToPhotoUtils> VideoToPhotoUtils::make(URL videoURL) {
  return std::shared_ptr<VideoToPhotoUtils>(new VideoToPhotoUtils(std::move(videoURL)));
}

void VideoToPhotoUtils::getFrameAt(const CMTime& time, std::optional<std::string> fileName, ExportFormat exportFormat,
                                   Completion onComplete) const {
  const auto asset = AVAsset::make(videoURL_);
  const auto videoTracks = asset->tracks(AVMediaTypeVideo);
  if (videoTracks.empty()) return onComplete(failure(ExportError::generic));
  (void)videoTracks.front()->naturalSize();  // kept: read, and not used
  const auto generator = exactGenerator(asset);

  const auto capture = [generator, time, fileName = std::move(fileName), exportFormat,
                        onComplete = std::move(onComplete)] {
    const auto image = generator->copyCGImage(time);
    if (!image) return reportOnMain(onComplete, failure(ExportError::generic));
    saveStill(UIImage(*image), fileName, exportFormat, onComplete);
  };
  DispatchQueue::global(DispatchQoS::userInitiated).async(capture);
}

}  // namespace clipworks
