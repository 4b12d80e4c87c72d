#pragma once

#include <memory>
#include <optional>

#include <clipworks/media/audio/AVAudioRecorderDelegate.h>
#include <clipworks/media/base/Export.h>
#include <clipworks/media/base/NSError.h>
#include <clipworks/media/base/Result.h>
#include <clipworks/media/base/SettingsDictionary.h>
#include <clipworks/media/base/URL.h>

namespace clipworks {

/// Records the microphone into a file: linear PCM in a QuickTime container, whatever the file's ending. The file is
/// written as sound arrives; if the process is killed, it holds all but the last half second.
///
/// The file's first sample is what sounded when `record()` was called, its last what sounded at `stop()`: the latency
/// that the sound server reports is taken off, and while a source is still starting there is silence.
///
///     idle ── record ──> recording ── stop, or the source goes ──> closing ── the delegate is told ──> idle
///
/// From `stop()` on the recorder keeps itself alive until its delegate has been told. One that is released while it
/// records closes its file and tells nobody. Thread-safe.
class CLIPWORKS_API AVAudioRecorder : public std::enable_shared_from_this<AVAudioRecorder> {
 public:
  /// `AVAudioRecorder(url:settings:)`. Settings: `AVFormatIDKey` (linear PCM), `AVSampleRateKey` (8,000 to 192,000),
  /// `AVNumberOfChannelsKey` (1 or 2), `AVLinearPCMBitDepthKey` (16), `AVLinearPCMIsBigEndianKey` and
  /// `AVLinearPCMIsFloatKey` (false). A key left out has the value of 16-bit stereo at 44.1 kHz. Fails with
  /// `AVError::operationNotSupportedForAsset` for other values, and with an error of `NSPOSIXErrorDomain` when nothing
  /// can be written to the file's directory. Makes no file yet.
  [[nodiscard]] static Result<std::shared_ptr<AVAudioRecorder>, NSError> make(URL url, SettingsDictionary settings);
  virtual ~AVAudioRecorder() = default;
  AVAudioRecorder(const AVAudioRecorder&) = delete;
  AVAudioRecorder& operator=(const AVAudioRecorder&) = delete;

  /// Who is told of the end of a recording; nobody at first.
  virtual void setDelegate(std::weak_ptr<AVAudioRecorderDelegate> delegate) = 0;

  /// Opens the capture source and makes the file, replacing one of that name, so that `record()` starts sooner. False
  /// when that fails (`error()` says why), or while a recording runs.
  virtual bool prepareToRecord() = 0;

  /// Starts recording, after preparing where that was not done. False when it cannot (`error()` says why), or while a
  /// recording runs; the delegate is told nothing of what did not begin.
  virtual bool record() = 0;

  /// Ends the recording. Returns at once; the file is closed when the last sound has arrived, and the delegate told.
  /// Without a running recording nothing happens.
  virtual void stop() = 0;

  /// Between `record()` and `stop()`, or the loss of the source.
  [[nodiscard]] virtual bool isRecording() const = 0;
  /// The length of the recording so far, in seconds; 0 when none runs.
  [[nodiscard]] virtual double currentTime() const = 0;
  /// Where the file is.
  [[nodiscard]] virtual const URL& url() const = 0;
  /// As given.
  [[nodiscard]] virtual const SettingsDictionary& settings() const = 0;
  /// Why the last recording failed, or could not start.
  [[nodiscard]] virtual std::optional<NSError> error() const = 0;

  /// Notes the levels since the last call, for the two functions below; they keep their values when no sound has come.
  virtual void updateMeters() = 0;
  /// Level of a channel (from 0) in decibels of full scale, −160 (silence) to 0: root of the mean square.
  [[nodiscard]] virtual float averagePower(int forChannel) const = 0;
  /// The same of the loudest sample.
  [[nodiscard]] virtual float peakPower(int forChannel) const = 0;

 protected:
  AVAudioRecorder() = default;
};

}  // namespace clipworks
