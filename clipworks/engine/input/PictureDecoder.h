#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include <clipworks/engine/Error.h>
#include <clipworks/engine/Handles.h>
#include <clipworks/engine/input/CodedPictureReader.h>
#include <clipworks/engine/input/CodedUnits.h>
#include <clipworks/engine/input/DamagedPictures.h>
#include <clipworks/engine/input/MediaFile.h>
#include <clipworks/engine/input/PictureSizes.h>
#include <clipworks/engine/pictures/PlanarPictures.h>
#include <clipworks/engine/pictures/TrackSize.h>

namespace clipworks::engine {

/// The one decode loop for pictures: decodes the samples of one track from any access point on and tells which sample
/// each picture came from. Pictures come as planar YUV of the track's size, whatever their own kind and size. What sits
/// above it decides where to start, what to leave out and what to keep. One thread at a time; the decoder has threads
/// of its own.
class PictureDecoder {
 public:
  struct Picture {
    std::uint32_t sample = 0;  ///< index in the track's table
    Frame frame;
    bool isDamaged = false;  ///< the decoder met an error in it, and made up what it could not decode
  };
  /// Asked in decoding order whether a picture need not be decoded; only those that nothing refers to are left out.
  using IsNotNeeded = std::function<bool(std::uint32_t sample)>;

  /// `threads`: how many the decoder may have at most; 0: as many as suit `usableProcessors`.
  [[nodiscard]] static Expected<PictureDecoder> open(std::shared_ptr<const MediaFile> file, int stream,
                                                     int threads = 0);

  [[nodiscard]] const PictureTable& table() const { return samples_.table(); }
  [[nodiscard]] const std::string& name() const { return file_->name(); }
  /// Counts picture number `picture` of the track as damaged.
  void tellDamage(DamagedPictures* counter, std::size_t picture) const {
    DamagedPictures::tell(counter, *file_, stream_, picture);
  }

  /// From now on, pictures that nothing refers to go without their loop filter.
  void leaveOutFilters() { decoder_->skip_loop_filter = leftOutFilters_ = AVDISCARD_NONREF; }
  /// From now on, all go without: it is found whether they decode, and not how they look.
  void leaveOutAllFilters() { decoder_->skip_loop_filter = leftOutFilters_ = AVDISCARD_ALL; }

  /// Forgets everything; the next sample is this one.
  void startAt(std::uint32_t sample);
  /// Forgets everything and holds no pictures until the next start.
  void stop();
  /// No further sample is read: `next` gives what is still in the decoder.
  void drain();

  /// Whether it was started, and not stopped since.
  [[nodiscard]] bool isRunning() const { return running_; }
  /// The sample that is read next. All before it, from the start on, were decoded or left out.
  [[nodiscard]] std::uint32_t nextSample() const { return nextSample_; }
  /// Whether the picture of the sample is still to come without another start.
  [[nodiscard]] bool reaches(std::uint32_t sample) const;
  /// Whether pictures were left out since the start, and then some turned out to be damaged: what conceals the damage
  /// may depend on them. From the first damage on, nothing is left out any more; starting again makes it good.
  [[nodiscard]] bool isInDoubt() const { return leftOut_ && sawDamage_; }

  /// The next picture in the order of presentation; nothing after the last of those before sample `end`. A broken
  /// picture is passed over. Fails when a sample cannot be read, which is then `nextSample()`.
  [[nodiscard]] Expected<std::optional<Picture>> next(std::uint32_t end, const IsNotNeeded& isNotNeeded);

  /// As it was opened with.
  [[nodiscard]] int threads() const { return threads_; }
  /// How many samples were decoded in all.
  [[nodiscard]] std::int64_t samplesDecoded() const { return samplesDecoded_; }
  /// About how many pictures are in the decoder at most that have not come out yet.
  [[nodiscard]] int delay() const { return decoder_->has_b_frames + decoder_->thread_count; }

 private:
  PictureDecoder(std::shared_ptr<const MediaFile> file, int stream, int threads, CodedPictureReader samples);
  Expected<void> openFor(const CodecChange* change);
  Expected<Frame> finished(Frame frame);
  Expected<void> feed(const IsNotNeeded& isNotNeeded);
  std::optional<std::uint32_t> sampleOf(const AVFrame& frame) const;
  void takeOut(std::uint32_t sample);

  std::shared_ptr<const MediaFile> file_;
  int stream_;
  int threads_;
  CodedPictureReader samples_;
  const CodecChange* codec_ = nullptr;    // that the decoder was opened for; null for the stream's own parameters
  const CodecChange* palette_ = nullptr;  // that the decoder was told last
  CodecParameters parameters_;            // of the decoder
  CodecContext decoder_;
  std::optional<DisposablePictures> disposable_;
  std::optional<PictureSizes> sizes_;  // where fewer pixels are let in than usual
  AVDiscard leftOutFilters_ = AVDISCARD_DEFAULT;
  PlanarPictures planar_;
  int matrix_;  // that RGB is converted by
  bool isGreyFull_;
  TrackSize size_;
  std::uint32_t nextSample_ = 0;
  bool running_ = false;
  bool drained_ = false;    // the end was signalled to the decoder
  bool changes_ = false;    // so it was, for the sample that comes next needs other parameters
  bool leftOut_ = false;    // since the start
  bool sawDamage_ = false;  // ever
  std::int64_t samplesDecoded_ = 0;
  std::vector<std::uint32_t> underWay_;  // samples in the decoder
};

/// Opens a decoder for `parameters`, of a stream of `file`, within the file's limits, that may use `threads` threads
/// (0: as many as suit `usableProcessors`). `x264Build` is that of the encoder as `x264BuildIn` found it, for decoding
/// that does not begin with the stream's first sample.
[[nodiscard]] Expected<CodecContext> openDecoder(const MediaFile& file, const AVCodecParameters& parameters,
                                                 AVRational timeBase, int threads,
                                                 std::optional<int> x264Build = std::nullopt);

}  // namespace clipworks::engine
