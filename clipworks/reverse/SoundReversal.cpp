#include <clipworks/reverse/SoundReversal.h>

#include <chrono>
#include <cstddef>
#include <thread>
#include <utility>
#include <vector>

#include <clipworks/media/asset/AVAsset.h>
#include <clipworks/media/base/FileManager.h>
#include <clipworks/media/base/PrintedLines.h>
#include <clipworks/media/base/PrintedText.h>
#include <clipworks/media/base/SettingsKeys.h>
#include <clipworks/media/samples/AVAssetReader.h>
#include <clipworks/media/samples/AVAssetWriter.h>
#include <clipworks/reverse/SampleBufferReversal.h>

namespace clipworks {
namespace {

constexpr std::chrono::milliseconds backOff{1};

auto failed() { return failure(VideoReverseConverter::ConversionError::generic); }

/// All buffers in reading order, with a timing record for each.
struct Sound {
  std::vector<std::shared_ptr<CMSampleBuffer>> samples;
  std::vector<CMSampleTimingInfo> timingInfos;
};

/// Kept as it stands: the array has no room for an entry, so the record stays without times, and what is computed of
/// an invalid time is invalid. The writer then puts the buffers one behind the other.
CMSampleTimingInfo timingOf(const CMSampleBuffer& sampleBuffer) {
  CMSampleTimingInfo timing;
  std::size_t needed = 0;
  CMSampleBufferGetSampleTimingInfoArray(sampleBuffer, 0, &timing, &needed);
  const CMTime duration = CMSampleBufferGetDuration(sampleBuffer);
  timing.presentationTimeStamp = duration - (timing.presentationTimeStamp + duration);
  return timing;
}

/// Nothing when reading does not end well, or there is no sound.
std::optional<Sound> readAll(AVAssetReader& reader, const std::shared_ptr<AVAssetTrack>& audioTrack) {
  const auto output = AVAssetReaderTrackOutput::make(audioTrack, {{AVFormatIDKey, kAudioFormatLinearPCM},
                                                                  {AVLinearPCMBitDepthKey, 16},
                                                                  {AVLinearPCMIsBigEndianKey, false},
                                                                  {AVLinearPCMIsFloatKey, false}});
  reader.add(output);
  reader.startReading();
  Sound sound;
  while (auto sampleBuffer = output->copyNextSampleBuffer()) {
    sound.timingInfos.push_back(timingOf(*sampleBuffer));
    sound.samples.push_back(std::move(sampleBuffer));
  }
  const AVAssetReaderStatus status = reader.status();
  reader.cancelReading();
  if (status != AVAssetReaderStatus::completed || sound.samples.empty()) return std::nullopt;
  return sound;
}

std::shared_ptr<AVAssetWriterInput> makeInput(const Sound& sound) {
  const auto writerInput = AVAssetWriterInput::make(AVMediaTypeAudio,
                                                    {{AVFormatIDKey, kAudioFormatMPEG4AAC},
                                                     {AVSampleRateKey, 44'100},
                                                     {AVNumberOfChannelsKey, 2},
                                                     {AVEncoderBitRateKey, 128'000},
                                                     {AVChannelLayoutKey, SettingsValue::Data()}},
                                                    CMSampleBufferGetFormatDescription(*sound.samples[0]));
  writerInput->setExpectsMediaDataInRealTime(true);
  return writerInput;
}

URL prepareOutput() {
  const URL documents =
      FileManager::default_().urls(SearchPathDirectory::documentDirectory, SearchPathDomainMask::userDomainMask)[0];
  const URL outputURL = documents.appendingPathComponent("reversed_audio.m4a");
  (void)FileManager::default_().removeItem(outputURL);  // kept: that there is none is no concern
  return outputURL;
}

void appendReversed(const Sound& sound, AVAssetWriterInput& writerInput) {
  const std::size_t n = sound.samples.size();
  for (std::size_t i = 0; i < n; ++i) {
    const auto reversed = reverse(sound.samples[n - 1 - i], {sound.timingInfos[i]});
    if (reversed == nullptr) continue;
    while (!writerInput.isReadyForMoreMediaData()) std::this_thread::sleep_for(backOff);
    (void)writerInput.append(reversed);  // kept: whether it was taken is not looked at
  }
}

}  // namespace

void reverseSound(const URL& videoURL, const VideoReverseConverter::Completion& onComplete) {
  const auto asset = AVAsset::make(videoURL);
  const auto reader = AVAssetReader::make(asset);
  if (!reader) return onComplete(failed());
  const auto audioTracks = asset->tracks(AVMediaTypeAudio);
  if (audioTracks.empty()) return onComplete(failed());
  const auto sound = readAll(**reader, audioTracks.front());
  if (!sound) return onComplete(failed());

  const auto writerInput = makeInput(*sound);
  const URL outputURL = prepareOutput();
  const auto made = AVAssetWriter::make(outputURL, AVFileTypeAppleM4A);
  if (!made || !(*made)->canAdd(*writerInput)) return onComplete(failed());
  const auto& writer = *made;
  writer->add(writerInput);
  writer->startWriting();
  writer->startSession(kCMTimeZero);
  appendReversed(*sound, *writerInput);
  writerInput->markAsFinished();
  printLine("Audio writing finished!");
  // The handler holds the writer, which lets it go once it was called.
  writer->finishWriting([writer, outputURL, onComplete] {
    if (writer->status() != AVAssetWriterStatus::completed) {
      printLine("reverse audio: error - " + printedOptional(writer->error()));
      return onComplete(failed());
    }
    printLine("Ended reverse audio!");
    onComplete(outputURL);
  });
}

}  // namespace clipworks
