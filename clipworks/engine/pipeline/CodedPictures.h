#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <stop_token>
#include <string>
#include <vector>

#include <clipworks/engine/Error.h>
#include <clipworks/engine/HDRMetadata.h>
#include <clipworks/engine/Handles.h>
#include <clipworks/engine/Thread.h>
#include <clipworks/engine/input/CachedPictureReader.h>
#include <clipworks/engine/input/DamagedPictures.h>
#include <clipworks/engine/output/SharedDescription.h>
#include <clipworks/engine/pipeline/BoundedQueue.h>
#include <clipworks/engine/pipeline/ExportJob.h>
#include <clipworks/engine/pipeline/PictureFinish.h>

namespace clipworks::engine {

/// A coded picture of a run, in decoding order.
struct CodedPicture {
  Packet packet;
  std::int64_t time = 0;  ///< when it is shown, in ticks from the start of its run
};

/// The first stage of a track of pictures: gives the coded samples of every run of a job once, run after run. Copies
/// them from their files, or decodes and encodes, run by run, on threads of its own; what plays backwards is decoded in
/// windows that fit `backwardsBytes`. `open`, `next` and `format` on one thread, `abandon` on any.
class CodedPictures {
 public:
  explicit CodedPictures(const PictureJob& job);
  CodedPictures(const CodedPictures&) = delete;
  CodedPictures& operator=(const CodedPictures&) = delete;
  ~CodedPictures();

  /// Opens what is needed and starts the threads. The job must outlive this.
  [[nodiscard]] Expected<void> open();

  [[nodiscard]] const AVCodecParameters& format() const { return *format_; }
  /// Of copied pictures all, of encoded ones what still holds.
  [[nodiscard]] const HDRMetadata& hdrMetadata() const { return hdrMetadata_; }
  [[nodiscard]] int reorderDepth() const { return reorderDepth_; }

  /// The next sample; nothing after the last one of the last run.
  [[nodiscard]] Expected<std::optional<CodedPicture>> next() { return coded_.pop(); }

  void abandon();

  /// Of decoded pictures, the most that are held for a run that plays backwards, all its layers together.
  static constexpr std::size_t backwardsBytes = CachedPictureReader::usualCacheLimit;

  /// The damaged ones of those that were decoded so far.
  [[nodiscard]] const std::shared_ptr<DamagedPictures>& damagedPictures() const { return damaged_; }

  /// Pictures that stand in for others that did not decode; known at the end.
  [[nodiscard]] std::int64_t replacedPictures() const { return replaced_; }

 private:
  struct RawPicture {
    std::vector<Frame> frames;  // one, or one for each layer of the run
    std::size_t run = 0;
    std::int64_t time = 0;  // in ticks of the output
    bool startsRun = false;
  };
  struct FinishedPicture {
    Frame frame;            // as the encoder takes it
    std::int64_t time = 0;  // in ticks of the output
    bool startsRun = false;
  };
  Expected<void> openCopies();
  Expected<void> openEncoder();
  Expected<void> start(void (CodedPictures::*stage)());
  Expected<void> copyRuns();
  Expected<void> copyRun(std::uint32_t number);
  void decodeRuns();
  Expected<void> decodeRun(std::size_t number);
  void finishPictures();
  Expected<void> finishAll();
  void codePictures();
  Expected<void> codeAll();
  Expected<void> passOn();

  const PictureJob& job_;
  CodecParameters format_;
  HDRMetadata hdrMetadata_;
  int reorderDepth_ = 0;
  std::optional<VideoEncoder> encoder_;           // where a run is not copied
  std::optional<SharedDescription> description_;  // where some are
  const std::shared_ptr<DamagedPictures> damaged_ = std::make_shared<DamagedPictures>();
  std::int64_t replaced_ = 0;            // written by the decoding thread before it ends
  std::vector<std::int64_t> runStarts_;  // of the first placements
  std::size_t passedRun_ = 0;            // the run whose samples are given now
  std::size_t passedOfRun_ = 0;
  std::stop_source abandoned_;  // ends the decoding of a window early
  BoundedQueue<RawPicture> raw_;
  BoundedQueue<FinishedPicture> finished_;
  BoundedQueue<CodedPicture> coded_;
  std::vector<Thread> threads_;  // of the stages; they end before what they use
};

/// A sample of a run: its index in the track's table, and its place among `PictureRun::written()`.
struct RunSample {
  std::uint32_t sample = 0;
  std::uint32_t shown = 0;
};
/// The samples of `run`, whose numbers rise, in decoding order.
[[nodiscard]] std::vector<RunSample> samplesInDecodingOrder(const PictureRun& run, const PictureTable& table);

}  // namespace clipworks::engine
