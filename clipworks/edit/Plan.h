#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include <clipworks/edit/Edit.h>
#include <clipworks/edit/Error.h>
#include <clipworks/media/base/Export.h>
#include <clipworks/media/base/Result.h>
#include <clipworks/media/time/CMTimeRange.h>

namespace clipworks {

namespace engine {
struct ExportJob;
}

/// The codec of pictures that are encoded.
enum class CodecChoice {
  /// HEVC where the first file is HEVC and its pictures come as they are coded, not drawn nor backwards, so that they
  /// can be copied; else H.264.
  automatic,
  h264,
  hevc,
};

/// What a plan decides by, beside the edit.
struct PlanOptions {
  CodecChoice codec = CodecChoice::automatic;
  /// Whether the date, place and device of the recording are kept, and its data tracks, which may tell as much.
  bool keepsMetadata = true;
  /// Whether pictures that are not shown may stay in the file, hidden, where a part of a clip begins inside a group of
  /// pictures; else those that are shown of that group are encoded.
  bool hidesPictures = true;
  /// Whether pictures that are encoded are only to be looked at: quickly made, at a lower quality, and every twelfth
  /// can be gone to at once.
  bool isDraft = false;
  /// Threads that each encoder and decoder will have at most, by which its memory is reckoned; 0 is as many as suit the
  /// processors.
  int threads = 0;
};

/// A part of a planned track.
struct PlannedStretch {
  /// What is shown or heard.
  enum class Kind {
    media,  ///< a range of a file
    black,  ///< black pictures, silence
    held,   ///< the picture stays, the sound is silent
  };
  Kind kind = Kind::media;
  CMTimeRange target;  ///< in the new movie
  CMTimeRange source;  ///< on the file's timeline, which starts at zero; of media only
  std::string file;    ///< its name; of media only
  bool backwards = false;
  friend bool operator==(const PlannedStretch&, const PlannedStretch&) = default;
};

/// A track of the new movie.
struct PlannedTrack {
  /// What it holds.
  enum class Kind { pictures, sound, data };
  Kind kind = Kind::pictures;
  /// Coded samples as they are; else encoded.
  bool isCopied = false;
  /// The encoder's name; empty where nothing is encoded.
  std::string encoder;
  /// One sentence: why it is not copied, what is not shown; may be empty.
  std::string remark;
  int width = 0;  ///< of pictures, in pixels as they are coded
  int height = 0;
  std::int64_t pictures = 0;  ///< how many are shown, copies of the same one too
  /// Of them, how many are encoded: where not all can be copied, those at cuts, or of clips that are drawn.
  std::int64_t encodedPictures = 0;
  int sampleRate = 0;        ///< of sound, in hertz
  int channels = 0;          ///< of sound
  std::string holds;         ///< of data: "timed metadata", "time code", "subtitles"
  std::string format;        ///< of data, its four characters: "mebx", "tmcd", "tx3g"
  std::int64_t samples = 0;  ///< of data, those that fill holes too
  std::int64_t bitRate = 0;  ///< bits a second that are asked for; 0: constant quality, or copied
  /// Of pictures one list, of sound one for each that is mixed; data is cut as the pictures are, and has none.
  std::vector<std::vector<PlannedStretch>> stretches;
};

/// Something of the files that the new movie will not have.
struct PlannedLoss {
  std::string what;
  std::string why;
};

/// What will be done, decided to the last: plain data. Reading one costs nothing; nothing has been decoded or written.
struct CLIPWORKS_API Plan {
  CMTime length;
  std::vector<PlannedTrack> tracks;
  std::vector<PlannedLoss> leftOut;
  /// What was changed of what was asked, one sentence each.
  std::vector<std::string> remarks;
  /// Bytes of the new file: what is copied, and what bit rates come to; nothing where pictures are encoded at constant
  /// quality, which nobody knows beforehand.
  std::optional<std::int64_t> bytes;
  /// Bytes of memory that the work will hardly pass: an estimate from above, by the sizes of pictures and the number of
  /// threads.
  std::int64_t memory = 0;
  /// The same where no movie is made, but so many pictures are taken of the edit.
  [[nodiscard]] std::int64_t memoryForPictures(std::size_t count) const;
  /// The same as text for people, some lines.
  [[nodiscard]] std::string text() const;
  /// The same as one line of JSON.
  [[nodiscard]] std::string json() const;

  /// Within the core: what the engine will do.
  std::shared_ptr<const engine::ExportJob> job;
};

/// Decides how `edit` becomes a movie. Reads sample tables, and where pictures may be copied a few samples. Fails with
/// `unsupported` where nothing can make it, or with `damaged`. Any thread.
[[nodiscard]] CLIPWORKS_API Result<Plan, Error> plan(const Edit& edit, const PlanOptions& options = {});

}  // namespace clipworks
