#pragma once

#include <array>
#include <cstdint>
#include <filesystem>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include <clipworks/engine/Error.h>
#include <clipworks/engine/FileHandle.h>
#include <clipworks/engine/Fraction.h>
#include <clipworks/engine/HDRMetadata.h>
#include <clipworks/engine/Handles.h>
#include <clipworks/engine/boxes/MovieBoxes.h>
#include <clipworks/engine/input/InputContext.h>
#include <clipworks/engine/input/InputLimits.h>
#include <clipworks/engine/input/PictureTable.h>
#include <clipworks/engine/input/StreamClock.h>
#include <clipworks/engine/input/StreamPackets.h>
#include <clipworks/engine/pictures/Region.h>

namespace clipworks::engine {

enum class StreamKind { video, audio };

/// What a stream of a file is, in plain values.
struct StreamFacts {
  int index = -1;   ///< of the demuxer
  int trackID = 0;  ///< the file's own number for it, at least 1
  StreamKind kind = StreamKind::video;
  std::string codec;           ///< short name: "h264", "aac"
  std::int32_t timescale = 0;  ///< ticks a second of the stream's times
  std::int64_t bitRate = 0;    ///< bits a second; 0 when unknown
  std::int64_t duration = 0;   ///< of the media, in ticks; 0 when unknown
  std::uint32_t sampleDescriptions = 1;
  std::vector<std::array<std::uint16_t, 2>> codedSizes;  ///< width and height by each description, as far as known

  // Pictures.
  int codedWidth = 0;  ///< as decoded, cropping applied
  int codedHeight = 0;
  Region shown{};           ///< of the coded picture: its clean aperture, else all of it
  double naturalWidth = 0;  ///< after clean aperture and pixel aspect ratio
  double naturalHeight = 0;
  Fraction pixelAspect{1, 1};
  int bitDepth = 8;
  bool is420 = true;
  bool progressive = true;
  bool highDynamicRange = false;  ///< PQ or HLG
  bool isHLG = false;
  int dolbyVisionProfile = 0;  ///< 0: none
  struct {
    std::string primaries = "unknown";
    std::string transfer = "unknown";
    std::string matrix = "unknown";
    bool isFullRange = false;
  } color;                                            ///< as the file tells it, in the library's names
  std::array<double, 6> transform{1, 0, 0, 1, 0, 0};  ///< a b c d tx ty, from coded to upright

  // Sound.
  int channels = 0;
  int sampleRate = 0;             ///< hertz
  bool hasConfiguration = true;   ///< told apart from the coded samples, as movies want it
  std::int64_t encoderDelay = 0;  ///< samples before the sound proper that no edit takes off

  std::vector<MovieBoxes::Edit> edits;  ///< raw; empty when the file has none
};

/// A stream that is neither pictures nor sound.
struct OtherStream {
  std::string kind;
  std::string codec;
  std::string name;
  bool isData = false;  ///< `readDataTracks` tells of it
};

/// A media file looked at once: its streams, header and times. Immutable and thread-safe; the table of a track of
/// pictures is built at the first question. Keeps the file open, so that a file replaced meanwhile stays what it was.
class MediaFile {
 public:
  /// Shares what is known of a file that is open already with the same limits and has not changed since. Fails with one
  /// sentence that names the file, with `beyondLimit` where its pictures have more pixels than `limits` allow. A stream
  /// whose codec they do not let in is described as far as the container does; only decoding it fails.
  [[nodiscard]] static Expected<std::shared_ptr<const MediaFile>> open(const std::filesystem::path& path,
                                                                       const InputLimits& limits = {});
  /// One that is open for reading; `name` is what sentences call it.
  [[nodiscard]] static Expected<std::shared_ptr<const MediaFile>> open(std::shared_ptr<const FileHandle> handle,
                                                                       const std::string& name,
                                                                       const InputLimits& limits = {});

  [[nodiscard]] const std::string& name() const { return name_; }
  /// Those that it was opened with; they hold for whoever decodes it.
  [[nodiscard]] const InputLimits& limits() const { return limits_; }
  /// Fails with `unsupported` where the stream is not decoded: see `decoderFor`.
  [[nodiscard]] Expected<void> requireDecoder(int index) const;
  [[nodiscard]] const std::shared_ptr<const FileHandle>& handle() const { return handle_; }
  /// Video and audio streams only, in the file's order.
  [[nodiscard]] const std::vector<StreamFacts>& streams() const { return streams_; }
  [[nodiscard]] const std::vector<OtherStream>& otherStreams() const { return others_; }
  [[nodiscard]] const StreamFacts& stream(int index) const;
  [[nodiscard]] const AVCodecParameters& parameters(int index) const;
  /// What only the container says of the light that the stream's pictures were mastered for, and of metadata among
  /// their samples that change it (the boxes `mdcv` and `clli`: ISO/IEC 14496-12, 12.1.5; `dvcC` and `dvvC`).
  [[nodiscard]] const HDRMetadata& hdrMetadata(int index) const;
  /// Adds to a decoded picture of the stream what only the container says of the light it was mastered for; what the
  /// picture says itself stays. Fails when out of memory.
  [[nodiscard]] Expected<void> completeMastering(int index, AVFrame& picture) const;
  /// The file's length; 0 when nothing is known.
  [[nodiscard]] std::int64_t duration() const { return duration_; }
  [[nodiscard]] std::int32_t timescale() const { return timescale_; }
  [[nodiscard]] const std::map<std::string, std::string>& metadata() const { return metadata_; }
  /// An MP4 or QuickTime file, whose header tells how long the movie is.
  [[nodiscard]] bool hasMovieHeader() const { return boxes_.has_value(); }
  /// Samples lie in the file as the decoder wants them, each in one piece at `Sample::position`.
  [[nodiscard]] bool samplesAreStoredPlainly() const { return boxes_.has_value(); }

  /// All samples of a stream of pictures, in ticks of `StreamFacts::timescale`.
  [[nodiscard]] Expected<std::shared_ptr<const PictureTable>> pictureTable(int index) const;

  /// The packets of a stream by a demuxer of their own, for one reader.
  [[nodiscard]] Expected<StreamPackets> openStream(int index) const;

 private:
  /// Where the file's timeline begins, by one of its streams.
  struct FirstInstant {
    std::int64_t time = 0;
    AVRational unit{1, 1};
  };
  MediaFile() = default;
  Expected<void> load();
  [[nodiscard]] FirstInstant firstInstant(const AVFormatContext& context) const;
  void describeStream(const AVFormatContext& context, int index, const FirstInstant& first);
  Expected<void> placeVorbis(InputContext& input);
  void describeHDRMetadata(const AVStream& stream, int index);
  [[nodiscard]] Expected<void> checkSizes() const;
  void describeDuration(const AVFormatContext& context);
  Expected<void> measureByPackets();

  std::string name_;
  InputLimits limits_;
  std::shared_ptr<const FileHandle> handle_;
  std::optional<MovieBoxes> boxes_;
  std::vector<StreamFacts> streams_;
  std::vector<OtherStream> others_;
  std::map<int, CodecParameters> parameters_;
  std::map<int, StreamClock> clocks_;
  std::map<int, HDRMetadata> hdrMetadata_;  // of streams of pictures
  std::int64_t duration_ = 0;
  std::int32_t timescale_ = 1'000'000;
  std::map<std::string, std::string> metadata_;

  mutable std::mutex tablesMutex_;
  mutable std::map<int, std::shared_ptr<const PictureTable>> tables_;  // guarded by tablesMutex_
};

}  // namespace clipworks::engine
