#include <clipworks/reverse/PictureReversal.h>

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <thread>
#include <utility>
#include <vector>

#include <clipworks/media/asset/AVAsset.h>
#include <clipworks/media/base/FileManager.h>
#include <clipworks/media/base/PrintedLines.h>
#include <clipworks/media/base/PrintedText.h>
#include <clipworks/media/base/SettingsKeys.h>
#include <clipworks/media/dispatch/DispatchSemaphore.h>
#include <clipworks/media/images/AVAssetImageGenerator.h>
#include <clipworks/media/samples/AVAssetReader.h>
#include <clipworks/media/samples/AVAssetWriter.h>
#include <clipworks/media/samples/AVAssetWriterInputPixelBufferAdaptor.h>

namespace clipworks {
namespace {

constexpr std::chrono::milliseconds backOff{1};

auto failed() { return failure(VideoReverseConverter::ConversionError::generic); }

/// What one run has; kept by the generator's handler until the last picture.
struct Run {
  std::shared_ptr<VideoReverseConverter> converter;
  VideoReverseConverter::Completion onComplete;
  std::shared_ptr<AVAssetTrack> videoTrack;
  URL outputURL;
  std::vector<CMTime> timestamps;  // of all pictures, ascending
  std::shared_ptr<AVAssetWriter> writer;
  std::shared_ptr<AVAssetWriterInput> writerInput;
  std::shared_ptr<AVAssetWriterInputPixelBufferAdaptor> adaptor;
  std::shared_ptr<DispatchSemaphore> gate = DispatchSemaphore::make(1);
  std::int64_t frameIndex = 0;  // pictures written so far; between gate's wait and signal only
};

URL prepareOutput() {
  const URL documents =
      FileManager::default_().urls(SearchPathDirectory::documentDirectory, SearchPathDomainMask::userDomainMask)[0];
  const URL outputURL = documents.appendingPathComponent("reversed_video.mov");
  (void)FileManager::default_().removeItem(outputURL);  // kept: that there is none is no concern
  return outputURL;
}

/// The first pass. The pictures are not looked at, and so not decoded; kept: how the reader ended is not asked.
std::vector<CMTime> readTimestamps(AVAssetReader& reader, const std::shared_ptr<AVAssetTrack>& videoTrack) {
  const auto output = AVAssetReaderTrackOutput::make(
      videoTrack, {{kCVPixelBufferPixelFormatTypeKey, kCVPixelFormatType_420YpCbCr8BiPlanarFullRange}});
  reader.add(output);
  reader.startReading();
  printLine("Reading samples to get timestamps");
  std::vector<CMTime> timestamps;
  while (const auto sampleBuffer = output->copyNextSampleBuffer()) {
    timestamps.push_back(CMSampleBufferGetPresentationTimeStamp(*sampleBuffer));
  }
  reader.cancelReading();
  printLine("Finishing first read");
  return timestamps;
}

SettingsDictionary videoSettings(const AVAssetTrack& videoTrack) {
  const CGSize size = videoTrack.naturalSize();
  return {{AVVideoCodecKey, AVVideoCodecTypeH264},
          {AVVideoWidthKey, size.width},
          {AVVideoHeightKey, size.height},
          {AVVideoCompressionPropertiesKey,
           SettingsDictionary{{AVVideoAverageBitRateKey, videoTrack.estimatedDataRate()}}}};
}

/// Puts the input together and starts the writer at the source's first picture: the file keeps the source's timeline.
void startWriter(Run& run) {
  run.writerInput = AVAssetWriterInput::make(AVMediaTypeVideo, videoSettings(*run.videoTrack));
  run.writerInput->setExpectsMediaDataInRealTime(false);
  run.writerInput->setTransform(run.videoTrack->preferredTransform());
  run.adaptor = AVAssetWriterInputPixelBufferAdaptor::make(run.writerInput);
  run.writer->add(run.writerInput);
  run.writer->startWriting();
  if (run.timestamps.empty()) fatalError("VideoReverseConverter: the video track has no samples");
  run.writer->startSession(run.timestamps[0]);
}

void finish(const std::shared_ptr<Run>& run) {
  // Kept: neither the writer's status nor its error is looked at.
  run->writer->finishWriting([outputURL = run->outputURL, onComplete = run->onComplete] {
    printLine("Finished video reversing");
    onComplete(outputURL);
  });
}

/// Writes a picture at the next time of the source, and tells the delegate.
void append(Run& run, const CMTime& requestedTime, const CGImage& image) {
  std::vector<std::uint8_t> bytes = image.copyData();
  const auto pixelBuffer = CVPixelBufferCreateWithBytes(image.width(), image.height(), kCVPixelFormatType_32BGRA,
                                                        bytes.data(), image.bytesPerRow(), nullptr, {});
  // The writer turns the pixels back into video by the numbers by which they were made of it.
  if (pixelBuffer != nullptr) pixelBuffer->setAttachments(image.colorAttachments());
  while (!run.writerInput->isReadyForMoreMediaData()) std::this_thread::sleep_for(backOff);
  printLine("Append image at " + printedNumber(requestedTime.seconds()));
  // Kept: whether it was taken is not looked at.
  (void)run.adaptor->append(pixelBuffer, run.timestamps[static_cast<std::size_t>(run.frameIndex)]);
  ++run.frameIndex;
  if (const auto delegate = run.converter->delegate().lock()) {
    delegate->didUpdateReverseProgress(static_cast<float>(run.frameIndex) / static_cast<float>(run.timestamps.size()));
  }
}

void handle(const std::shared_ptr<Run>& run, const CMTime& requestedTime, const std::shared_ptr<const CGImage>& image) {
  printLine("Got image");
  run->gate->wait();
  // Kept: the gate stays taken, so that every later picture waits there for ever and nothing more is written.
  if (image == nullptr) return run->onComplete(failed());
  append(*run, requestedTime, *image);
  if (run->frameIndex == static_cast<std::int64_t>(run->timestamps.size())) finish(run);
  run->gate->signal();
}

/// The second pass.
void generate(const std::shared_ptr<AVAsset>& asset, const std::shared_ptr<Run>& run) {
  const auto generator = AVAssetImageGenerator::make(asset);
  generator->setMaximumSize(run->videoTrack->naturalSize());
  generator->setRequestedTimeToleranceBefore(kCMTimeZero);
  generator->setRequestedTimeToleranceAfter(kCMTimeZero);
  generator->generateCGImagesAsynchronously(
      {run->timestamps.rbegin(), run->timestamps.rend()},
      [run](const CMTime& requestedTime, const std::shared_ptr<const CGImage>& image, const CMTime&,
            AVAssetImageGeneratorResult, const std::optional<NSError>&) { handle(run, requestedTime, image); });
}

}  // namespace

void reversePictures(const std::shared_ptr<VideoReverseConverter>& converter,
                     const VideoReverseConverter::Completion& onComplete) {
  const auto asset = AVAsset::make(converter->videoURL());
  const URL outputURL = prepareOutput();
  const auto reader = AVAssetReader::make(asset);
  if (!reader) {
    printLine("could not initialize reader.");
    return onComplete(failed());
  }
  const auto videoTracks = asset->tracks(AVMediaTypeVideo);
  if (videoTracks.empty()) {
    printLine("could not retrieve the video track.");
    return onComplete(failed());
  }
  const auto run = std::make_shared<Run>();
  run->converter = converter;
  run->onComplete = onComplete;
  run->videoTrack = videoTracks.front();
  run->outputURL = outputURL;
  run->timestamps = readTimestamps(**reader, run->videoTrack);
  const auto writer = AVAssetWriter::make(outputURL, AVFileTypeQuickTimeMovie);
  if (!writer) {
    printLine("Failed: " + writer.error().localizedDescription());
    return onComplete(failed());
  }
  run->writer = *writer;
  startWriter(*run);
  generate(asset, run);
}

}  // namespace clipworks
