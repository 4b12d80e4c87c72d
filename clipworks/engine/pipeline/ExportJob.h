#pragma once

#include <algorithm>
#include <array>
#include <cstdint>
#include <filesystem>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include <clipworks/engine/input/MediaFile.h>
#include <clipworks/engine/output/DataJob.h>
#include <clipworks/engine/output/MovieWriter.h>
#include <clipworks/engine/output/OutputFile.h>
#include <clipworks/engine/output/SoundEncoder.h>
#include <clipworks/engine/output/VideoEncoder.h>
#include <clipworks/engine/pictures/AffineMap.h>
#include <clipworks/engine/pictures/PictureConverter.h>

namespace clipworks::engine {

/// A picture of a track, by its number in the order of presentation, and when it comes on screen: in ticks of the
/// output from the start of its run.
struct ShownPicture {
  std::uint32_t picture = 0;
  std::int64_t time = 0;
};

/// What one track gives to the pictures of a rendered run.
struct RunLayer {
  std::shared_ptr<const MediaFile> file;
  int stream = 0;
  /// One number for each picture of the run: none lower than the one before, or none higher, which plays backwards.
  std::vector<std::uint32_t> pictures;
  AffineMap map;  ///< from the decoded picture to the canvas
  double opacity = 1;
};

/// Pictures that are shown one after the other; each is coded once, however often the run is placed. They come from one
/// track of a file, or are rendered from several. Their numbers rise or, in a run that plays backwards, fall
/// throughout; a falling run is never copied, since what is copied decodes forwards only.
struct PictureRun {
  std::shared_ptr<const MediaFile> file;  ///< null for black, and where layers are
  int stream = 0;
  std::vector<ShownPicture> pictures;  ///< with rising times, whichever way the numbers go; for black one, at 0
  std::vector<RunLayer> layers{};      ///< of a rendered run, from the back to the front; there `picture` says nothing
  bool copy = false;                   ///< coded samples of `file` as they are; else decoded and encoded
  /// Of a copied run that comes first, and only there: earlier than `pictures`, written because decoding starts with
  /// them. The track's edit begins behind them.
  std::vector<ShownPicture> hiddenBefore{};
  /// Of a copied run that comes last, and only there: at the job's end and later, written because pictures before them
  /// refer to them. The track's edit ends before them.
  std::vector<ShownPicture> hiddenAfter{};

  /// All that is written, in the order of presentation.
  [[nodiscard]] std::vector<ShownPicture> written() const {
    std::vector<ShownPicture> all = hiddenBefore;
    all.insert(all.end(), pictures.begin(), pictures.end());
    all.insert(all.end(), hiddenAfter.begin(), hiddenAfter.end());
    return all;
  }
};

/// The canvas of rendered pictures, in pixels.
struct Canvas {
  int width = 0;
  int height = 0;
};

/// Where a run plays: from `start` ticks of the output on.
struct RunPlacement {
  std::uint32_t run = 0;
  std::int64_t start = 0;
};

/// One track of pictures to be written. Runs are numbered in the order of their first placement.
struct PictureJob {
  std::int32_t timescale = 0;  ///< ticks a second
  std::vector<PictureRun> runs;
  std::vector<RunPlacement> placements;               ///< with rising starts; a picture stays until the next one
  std::int64_t end = 0;                               ///< where the last picture goes, in ticks
  std::optional<std::array<std::int32_t, 9>> matrix;  ///< of the track header; nothing for the identity
  std::optional<Canvas> canvas;                       ///< when rendered; else every picture stays what it is
  VideoEncoderSettings encoder;                       ///< of what is not copied; its `threads` hold for decoders, too
  PictureConverter::Fit fit = PictureConverter::Fit::pad;
  /// Pictures of different colours are drawn: all are brought to those of the encoder.
  bool mixesColours = false;

  /// The first run that comes from one track of a file; null where there is none.
  [[nodiscard]] const PictureRun* firstOfFile() const {
    const auto run = std::find_if(runs.begin(), runs.end(), [](const PictureRun& r) { return r.file != nullptr; });
    return run == runs.end() ? nullptr : &*run;
  }
  /// How many of the pictures that are shown are encoded, and how many there are; copies of the same one too.
  [[nodiscard]] std::pair<std::int64_t, std::int64_t> encodedOfShown() const {
    std::pair<std::int64_t, std::int64_t> counts{0, 0};
    for (const RunPlacement& placement : placements) {
      const auto pictures = static_cast<std::int64_t>(runs[placement.run].pictures.size());
      counts.second += pictures;
      if (!runs[placement.run].copy) counts.first += pictures;
    }
    return counts;
  }
  /// Of the runs, whether all are copied, or any. Where only some are, all copied ones share one description, and the
  /// encoder's settings are such that its pictures look like theirs.
  [[nodiscard]] bool copiesAll() const {
    return std::all_of(runs.begin(), runs.end(), [](const PictureRun& run) { return run.copy; });
  }
  [[nodiscard]] bool copiesAny() const {
    return std::any_of(runs.begin(), runs.end(), [](const PictureRun& run) { return run.copy; });
  }
};

/// A stretch of a track's sound and where it plays, all in samples at the track's own rate. Lengths are 1 at least.
struct SoundPiece {
  std::int64_t source = 0;  ///< on the media's clock, or behind the lane's mirror
  std::int64_t sourceLength = 0;
  std::int64_t target = 0;  ///< on the output's timeline
  std::int64_t length = 0;

  /// It plays slower or faster than it was recorded; its pitch stays (`SoundStretcher`).
  [[nodiscard]] bool isStretched() const { return length != sourceLength; }
};

/// All that one track of a file gives to the sound. It is converted to the output's rate in one go, so that nothing
/// happens at its joins.
struct SoundLane {
  std::shared_ptr<const MediaFile> file;
  int stream = 0;
  std::vector<SoundPiece> pieces;  ///< with rising targets, not overlapping
  float volume = 1.0F;             ///< factor of the level, from 0 on
  /// Where the track plays backwards: positions of its pieces count backwards, position p is the sample mirror − 1 − p
  /// of the media's clock, each channel in its place. Such a lane is never copied.
  std::optional<std::int64_t> mirror{};
};

/// One track of sound to be written.
struct SoundJob {
  SoundEncoderSettings encoder;
  std::int64_t length = 0;       ///< in samples at the encoder's rate, or the track's own when copied
  std::vector<SoundLane> lanes;  ///< added up
  bool limited = false;          ///< the sum is kept within full scale; else it comes out as it is
  bool copy = false;             ///< the one piece of the one lane, coded as it is
  int threads = 0;               ///< that encode at most; 0: as many as suit the processors
};

/// All that an export needs to know, without a question left to the platform.
struct ExportJob {
  std::filesystem::path path;
  std::int64_t fileLengthLimit = 0;  ///< bytes; 0 is no limit
  ExistingName existing = ExistingName::kept;
  std::shared_ptr<NewFiles> files;  ///< makes the file; null: the process itself
  bool isStrict = false;            ///< damaged pictures are a failure
  bool verifies = false;  ///< the file is read and decoded once, and compared with this job, before it gets its name
  /// Whether a file of so many bytes will do; one that does not is removed, and the run ends with `lengthLimit`. On the
  /// thread of the run.
  std::function<bool(std::int64_t bytes)> accepts{};
  std::int32_t movieTimescale = 1000;  ///< such that the lengths of both tracks come out whole
  MovieContainer container = MovieContainer::mpeg4;
  std::map<std::string, std::string> metadata;
  std::optional<PictureJob> pictures;
  std::optional<SoundJob> sound;
  std::vector<DataJob> data;

  /// Lets each encoder and decoder have `threads` threads at most.
  void limitThreads(int threads) {
    if (pictures) pictures->encoder.threads = threads;
    if (sound) sound->threads = threads;
  }
};

}  // namespace clipworks::engine
