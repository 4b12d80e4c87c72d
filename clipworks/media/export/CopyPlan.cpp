#include <clipworks/media/export/CopyPlan.h>

#include <algorithm>
#include <optional>
#include <span>
#include <utility>
#include <vector>

#include <clipworks/engine/input/CodedPictureReader.h>
#include <clipworks/engine/input/CodedUnits.h>
#include <clipworks/engine/output/SharedDescription.h>
#include <clipworks/engine/pipeline/CodedPictures.h>

namespace clipworks {
namespace {

bool playsBackwards(const engine::PictureRun& run) {
  return run.pictures.size() > 1 && run.pictures.back().picture < run.pictures.front().picture;
}

bool isPlacedOnce(const engine::PictureJob& job, std::uint32_t run) {
  return std::count_if(job.placements.begin(), job.placements.end(), [run](const auto& p) { return p.run == run; }) ==
         1;
}

// More pictures than an encoder's longest group has would keep a player waiting for the first that is shown.
constexpr std::size_t mostHiddenBefore = 300;

/// Where decoding starts for the first picture of a run that does not begin there: an access point that needs nothing
/// before it, nor before the run's other samples.
std::optional<std::uint32_t> decodingStartOf(engine::CodedPictureReader& reader, const engine::PictureRun& run) {
  const auto& table = reader.table();
  const std::uint32_t firstNeeded = engine::samplesInDecodingOrder(run, table).front().sample;
  for (std::uint32_t start = table.accessPointFor(run.pictures.front().picture);;
       start = table.accessPointBefore(start)) {
    if (firstNeeded - start > mostHiddenBefore) return std::nullopt;
    const auto packet = reader.read(start);
    if (!packet || !table.samples()[start].accessPoint) return std::nullopt;
    if (start <= firstNeeded && engine::isDecodingStart(**packet, run.file->parameters(run.stream))) return start;
    if (start == 0) return std::nullopt;
  }
}

/// The distance of hidden pictures, in ticks. They take nearly no time, so that they add nothing to the length of a
/// track, and players that begin with the first sample whatever the edit says (Firefox) begin at the right picture.
/// Players that count in microseconds still tell them apart.
std::int64_t hiddenStep(std::int32_t timescale) {
  constexpr std::int32_t stepsPerSecond = 50'000;
  return (timescale + stepsPerSecond - 1) / stepsPerSecond;
}

/// The pictures that are decoded before the first one of a run.
void hideBefore(engine::PictureRun& run, std::int64_t step) {
  if (run.file == nullptr) return;
  auto reader = engine::CodedPictureReader::open(run.file, run.stream);
  if (!reader) return;
  const auto& table = reader->table();
  const engine::ShownPicture& first = run.pictures.front();
  const auto start = decodingStartOf(*reader, run);
  if (!start || *start == table.sampleOfPicture(first.picture)) return;
  const std::uint32_t lastNeeded = engine::samplesInDecodingOrder(run, table).back().sample;
  std::int64_t time = first.time;
  for (std::size_t picture = first.picture; picture-- > 0;) {
    // What is shown before the access point is not needed: leading pictures.
    if (table.timeOfPicture(picture) < table.samples()[*start].presentation) break;
    const std::uint32_t sample = table.sampleOfPicture(picture);
    if (sample < *start || sample > lastNeeded) continue;
    run.hiddenBefore.push_back({static_cast<std::uint32_t>(picture), time -= step});
  }
  std::reverse(run.hiddenBefore.begin(), run.hiddenBefore.end());
}

/// The pictures that are decoded before the last one of a run, but shown later: from `end` on.
void hideAfter(engine::PictureRun& run, std::int64_t end, std::int64_t step) {
  if (run.file == nullptr) return;
  const auto table = run.file->pictureTable(run.stream);
  if (!table) return;
  const std::uint32_t lastNeeded = engine::samplesInDecodingOrder(run, **table).back().sample;
  for (std::size_t picture = run.pictures.back().picture + 1; picture < (*table)->pictureCount(); ++picture) {
    if ((*table)->sampleOfPicture(picture) > lastNeeded) continue;
    run.hiddenAfter.push_back({static_cast<std::uint32_t>(picture), end});
    end += step;
  }
}

/// A part of what a run writes.
struct Piece {
  std::size_t first = 0;
  std::size_t end = 0;
  bool copy = false;
};

/// Divides a run into what can be copied, decodable by itself, and the rest.
class RunDivision {
 public:
  /// `comesFirst`: nothing is decoded before it.
  RunDivision(const engine::PictureRun& run, engine::CodedPictureReader& reader, bool comesFirst)
      : run_(run), reader_(reader), comesFirst_(comesFirst), written_(run.written()) {}

  /// Pieces that follow each other, copied ones and others by turns.
  std::vector<Piece> pieces() {
    std::vector<Piece> pieces;
    for (std::size_t first = 0; first < written_.size();) {
      std::size_t end = endOfCopy(first);
      const bool isWhole = first == 0 && end == written_.size();
      const bool copies = isWhole || end - first >= leastCopied;
      end = std::max(end, first + 1);
      if (pieces.empty() || pieces.back().copy || copies) pieces.push_back({first, end, copies});
      pieces.back().end = end;
      first = end;
    }
    return pieces;
  }

  /// Why its pieces are not one that is copied.
  [[nodiscard]] std::string obstacle(const std::vector<Piece>& pieces) {
    if (pieces.size() == 1 && pieces.front().copy) return {};
    if (pieces.front().copy) return "it is cut inside a group of pictures";
    return reader_.table().samples()[sampleOf(0)].accessPoint ? "it starts with an open group of pictures"
                                                              : "it starts inside a group of pictures";
  }

 private:
  // A seam is worth it only where it spares more than a moment of encoding.
  static constexpr std::size_t leastCopied = 8;
  // Pictures are never decoded that far ahead of their turn.
  static constexpr std::uint32_t mostReordered = 64;

  [[nodiscard]] std::uint32_t sampleOf(std::size_t place) const {
    return reader_.table().sampleOfPicture(written_[place].picture);
  }

  /// The end of the longest piece from `first` on whose samples follow each other in the file, from one where decoding
  /// can start; `first` where it cannot.
  std::size_t endOfCopy(std::size_t first) {
    const auto& samples = reader_.table().samples();
    const std::uint32_t start = sampleOf(first);
    if (!samples[start].accessPoint) return first;
    const auto packet = reader_.read(start);
    const auto& parameters = run_.file->parameters(run_.stream);
    if (!packet || !engine::isDecodingStart(**packet, parameters)) return first;
    const bool skipsLeading = (comesFirst_ && first == 0) || parameters.codec_id == AV_CODEC_ID_H264 ||
                              parameters.codec_id == AV_CODEC_ID_HEVC;
    std::vector<bool> isIn;
    const auto isIncluded = [&](std::uint32_t sample) {
      return (sample - start < isIn.size() && isIn[sample - start]) ||
             (skipsLeading && samples[sample].presentation < samples[start].presentation);
    };
    std::size_t end = first;
    std::uint32_t unbroken = start;
    std::uint32_t last = start;
    for (std::size_t place = first; place < written_.size() && last - unbroken < mostReordered; ++place) {
      const std::uint32_t sample = sampleOf(place);
      if (sample < start) break;
      last = std::max(last, sample);
      if (isIn.size() <= last - start) isIn.resize(last - start + 1);
      isIn[sample - start] = true;
      while (unbroken < last && isIncluded(unbroken + 1)) ++unbroken;
      if (unbroken == last) end = place + 1;
    }
    return end;
  }

  const engine::PictureRun& run_;
  engine::CodedPictureReader& reader_;
  bool comesFirst_;
  std::vector<engine::ShownPicture> written_;
};

/// A piece of a run as a run of its own, and where it starts, in ticks from the start of the run.
std::pair<engine::PictureRun, std::int64_t> runOf(const engine::PictureRun& run, const Piece& piece) {
  const std::size_t hidden = run.hiddenBefore.size();
  const std::size_t shownEnd = hidden + run.pictures.size();
  engine::PictureRun part{run.file, run.stream, {}};
  part.copy = piece.copy;
  const auto written = run.written();
  const std::int64_t start = piece.first <= hidden ? 0 : written[std::min(piece.first, shownEnd - 1)].time;
  for (std::size_t i = piece.first; i < piece.end; ++i) {
    const engine::ShownPicture shown{written[i].picture, written[i].time - start};
    if (i >= hidden && i < shownEnd) {
      part.pictures.push_back(shown);
    } else if (piece.copy) {
      (i < hidden ? part.hiddenBefore : part.hiddenAfter).push_back(shown);
    }
  }
  return {std::move(part), start};
}

/// Has the pieces of each run in its place.
void divide(engine::PictureJob& job, const std::vector<std::vector<Piece>>& pieces) {
  std::vector<engine::PictureRun> runs;
  std::vector<std::vector<engine::RunPlacement>> placed;  // by run of before, from its start
  for (std::size_t i = 0; i < job.runs.size(); ++i) {
    placed.emplace_back();
    if (pieces[i].empty()) {
      placed.back().push_back({static_cast<std::uint32_t>(runs.size()), 0});
      runs.push_back(std::move(job.runs[i]));
      continue;
    }
    for (const Piece& piece : pieces[i]) {
      auto [part, start] = runOf(job.runs[i], piece);
      if (part.pictures.empty()) continue;
      placed.back().push_back({static_cast<std::uint32_t>(runs.size()), start});
      runs.push_back(std::move(part));
    }
  }
  std::vector<engine::RunPlacement> placements;
  for (const auto& placement : job.placements) {
    for (const auto& part : placed[placement.run]) placements.push_back({part.run, placement.start + part.start});
  }
  job.runs = std::move(runs);
  job.placements = std::move(placements);
}

/// Whether one sample description serves the pictures of both.
bool isCodedAlike(const engine::PictureRun& a, const engine::PictureRun& b) {
  if (a.file == b.file && a.stream == b.stream) return true;
  const auto& one = a.file->parameters(a.stream);
  const auto& other = b.file->parameters(b.stream);
  const auto setsOf = [](const AVCodecParameters& p) {
    return std::span<const std::uint8_t>(p.extradata, static_cast<std::size_t>(p.extradata_size));
  };
  const auto& pixels = a.file->stream(a.stream);
  const auto& others = b.file->stream(b.stream);
  return one.codec_id == other.codec_id && one.width == other.width && one.height == other.height &&
         others.sampleDescriptions == 1 && std::ranges::equal(setsOf(one), setsOf(other)) &&
         pixels.pixelAspect == others.pixelAspect && engine::completeColour(one) == engine::completeColour(other);
}

/// Whether the pictures of the job's encoder can stand among copied ones of `media`.
bool standsAmong(const engine::VideoEncoderSettings& encoder, const engine::PictureRun& media) {
  const auto& parameters = media.file->parameters(media.stream);
  const auto& facts = media.file->stream(media.stream);
  return encoder.width == parameters.width && encoder.height == parameters.height &&
         encoder.bitDepth == facts.bitDepth && encoder.pixelAspect == facts.pixelAspect &&
         encoder.colour == engine::completeColour(parameters) && engine::SharedDescription::of(parameters).has_value();
}

/// What of `media` keeps all pictures like its own from being copied into a file of `preset`.
std::string obstacleOf(const engine::PictureRun& media, const ExportPreset& preset) {
  const auto& facts = media.file->stream(media.stream);
  if (!preset.keepsCodedPictures) return "the preset asks for smaller pictures";
  if (preset.videoCodec) {
    const bool hevc = *preset.videoCodec == engine::VideoCodec::hevc;
    if (facts.codec != (hevc ? "hevc" : "h264")) return "it is coded as " + facts.codec;
    if (!facts.is420 || facts.bitDepth > (hevc ? 10 : 8)) return "its pixels are not of the preset's kind";
    if (!facts.progressive) return "it is interlaced";
  }
  if (facts.sampleDescriptions > 1) return "its format changes on the way";
  return {};
}

void keepHiddenPictures(engine::PictureJob& job) {
  const engine::RunPlacement first = job.placements.front();
  const engine::RunPlacement last = job.placements.back();
  if (isPlacedOnce(job, first.run) && !playsBackwards(job.runs[first.run]))
    hideBefore(job.runs[first.run], hiddenStep(job.timescale));
  if (isPlacedOnce(job, last.run) && !playsBackwards(job.runs[last.run]))
    hideAfter(job.runs[last.run], job.end - last.start, hiddenStep(job.timescale));
}

/// The pieces of every run; none of one that is not copied at all. `obstacle` becomes the first reason for which not
/// all is copied.
std::vector<std::vector<Piece>> piecesOf(const engine::PictureJob& job, const engine::PictureRun& media,
                                         std::string& obstacle) {
  std::vector<std::vector<Piece>> pieces(job.runs.size());
  const auto blame = [&obstacle](std::string reason) {
    if (obstacle.empty()) obstacle = std::move(reason);
  };
  for (std::uint32_t i = 0; i < job.runs.size(); ++i) {
    const engine::PictureRun& run = job.runs[i];
    if (run.file == nullptr) {
      blame(run.layers.empty() ? "it has stretches without pictures" : "it joins pictures that are drawn anew");
    } else if (playsBackwards(run)) {
      blame("it plays backwards");
    } else if (!isCodedAlike(run, media)) {
      blame("it joins videos that are coded differently");
    } else if (auto reader = engine::CodedPictureReader::open(run.file, run.stream); !reader) {
      blame(reader.error().sentence);
    } else {
      RunDivision division(run, *reader, i == job.placements.front().run && isPlacedOnce(job, i));
      pieces[i] = division.pieces();
      blame(division.obstacle(pieces[i]));
    }
  }
  return pieces;
}

}  // namespace

std::string chooseCopies(engine::PictureJob& job, const ExportPreset& preset) {
  const engine::PictureRun* media = job.firstOfFile();
  if (media == nullptr) return "it is drawn anew";
  std::string obstacle = obstacleOf(*media, preset);
  if (!obstacle.empty()) return obstacle;
  const bool isLike = standsAmong(job.encoder, *media);
  if (job.canvas && !isLike) return "it is drawn anew";
  if (preset.hidesPictures) keepHiddenPictures(job);
  const auto pieces = piecesOf(job, *media, obstacle);
  // What is to have a rate is not left to what the copied pictures have.
  const bool mixes = preset.videoCodec && preset.videoBitRate == 0 && isLike;
  if (obstacle.empty() || mixes) divide(job, pieces);
  for (auto& run : job.runs) {
    if (run.copy) continue;
    run.hiddenBefore.clear();
    run.hiddenAfter.clear();
  }
  return obstacle;
}

}  // namespace clipworks
