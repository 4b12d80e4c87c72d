#pragma once

#include <memory>
#include <optional>

#include <clipworks/media/asset/AVAssetTrack.h>
#include <clipworks/media/base/Export.h>
#include <clipworks/media/base/NSError.h>
#include <clipworks/media/base/Result.h>
#include <clipworks/media/base/SettingsDictionary.h>
#include <clipworks/media/samples/CMSampleBuffer.h>

namespace clipworks {

class AVAssetReader;
class ReadingState;
class SampleSource;

/// The decoded samples of one track, in order of presentation. One thread at a time; different outputs of a reader may
/// be read on different threads.
///
/// Pictures come as they are coded, not turned, one a buffer; a buffer's picture is decoded when it is looked at, so a
/// pass over the times alone decodes nothing. Sound comes as interleaved 16-bit PCM, with the encoder's padding taken
/// off, up to 8,192 values of each channel a buffer. Edits are honoured; times are those of the track's timeline. Sound
/// begins with its first sample, gaps behind that are silence.
class CLIPWORKS_API AVAssetReaderTrackOutput {
 public:
  /// `AVAssetReaderTrackOutput(track:outputSettings:)`. For pictures the pixel format has to be named (420f or 420v),
  /// for sound the format, linear PCM of 16 bits in the machine's byte order; the track's own rate and channels are
  /// kept.
  [[nodiscard]] static std::shared_ptr<AVAssetReaderTrackOutput> make(std::shared_ptr<AVAssetTrack> track,
                                                                      SettingsDictionary outputSettings);
  ~AVAssetReaderTrackOutput();
  AVAssetReaderTrackOutput(const AVAssetReaderTrackOutput&) = delete;
  AVAssetReaderTrackOutput& operator=(const AVAssetReaderTrackOutput&) = delete;

  /// The track that is read.
  [[nodiscard]] const std::shared_ptr<AVAssetTrack>& track() const { return track_; }

  /// The next samples. Null at the end, when the reader has failed or was cancelled, and before it reads; its status
  /// tells which.
  [[nodiscard]] std::shared_ptr<CMSampleBuffer> copyNextSampleBuffer();

 private:
  AVAssetReaderTrackOutput(std::shared_ptr<AVAssetTrack> track, SettingsDictionary outputSettings);
  friend class AVAssetReader;
  /// Fails with a sentence for settings that ask for what is not made.
  Result<std::unique_ptr<SampleSource>, NSError> open() const;
  void start(std::unique_ptr<SampleSource> source, std::shared_ptr<ReadingState> state);

  std::shared_ptr<AVAssetTrack> track_;
  SettingsDictionary outputSettings_;
  std::shared_ptr<ReadingState> state_;   // null before the reader starts
  std::unique_ptr<SampleSource> source_;  // null before the start and after the end
};

}  // namespace clipworks
