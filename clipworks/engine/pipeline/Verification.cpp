#include <clipworks/engine/pipeline/Verification.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <map>
#include <optional>
#include <utility>
#include <vector>

#include <clipworks/engine/input/CodedPictureReader.h>
#include <clipworks/engine/input/DamagedPictures.h>
#include <clipworks/engine/input/PictureReader.h>
#include <clipworks/engine/pictures/Colour.h>

namespace clipworks::engine {
namespace {

tl::unexpected<Error> differs(const std::string& how) { return failed(ErrorKind::internal, how); }

std::string seconds(double value) {
  std::array<char, 32> text{};
  std::snprintf(text.data(), text.size(), "%.4f s", value);
  return text.data();
}

/// The mean brightness of the parts of a picture, from 0 to 255; nothing of what has no plane of luma.
using Brightness = std::array<double, 64>;

std::optional<Brightness> brightnessOf(const AVFrame& frame) {
  constexpr int side = 8;
  const AVPixFmtDescriptor* pixels = av_pix_fmt_desc_get(static_cast<AVPixelFormat>(frame.format));
  const auto& luma = pixels->comp[0];
  const bool isPlain = (pixels->flags & (AV_PIX_FMT_FLAG_RGB | AV_PIX_FMT_FLAG_BE | AV_PIX_FMT_FLAG_PAL)) == 0 &&
                       luma.plane == 0 && luma.shift == 0 && luma.step == (luma.depth > 8 ? 2 : 1);
  if (!isPlain || frame.width < side || frame.height < side) return std::nullopt;
  Brightness sums{};
  std::array<std::int64_t, side * side> counts{};
  for (int y = 0; y < frame.height; ++y) {
    const std::uint8_t* row = frame.data[0] + static_cast<std::ptrdiff_t>(y) * frame.linesize[0];
    for (int part = 0; part < side; ++part) {
      const int begin = part * frame.width / side;
      const int end = (part + 1) * frame.width / side;
      std::int64_t sum = 0;
      for (int x = begin; x < end; ++x) sum += luma.step == 1 ? row[x] : row[2 * x] | row[2 * x + 1] << 8;
      const auto place = static_cast<std::size_t>(y * side / frame.height * side + part);
      sums[place] += static_cast<double>(sum);
      counts[place] += end - begin;
    }
  }
  const double scale = 1.0 / (1 << (luma.depth - 8));
  for (std::size_t i = 0; i < sums.size(); ++i) sums[i] *= scale / static_cast<double>(counts[i]);
  return sums;
}

double largestDifference(const Brightness& a, const Brightness& b) {
  double largest = 0;
  for (std::size_t i = 0; i < a.size(); ++i) largest = std::max(largest, std::abs(a[i] - b[i]));
  return largest;
}

/// The brightness of the first and the last picture of a run, as their file has them.
struct Ends {
  std::optional<Brightness> first;
  std::optional<Brightness> last;
};

/// Whether pictures of a run come out as they went in, but for the encoder's losses.
bool staysAlike(const PictureRun& run, const PictureJob& job) {
  if (run.file == nullptr || run.file->stream(run.stream).sampleDescriptions > 1) return false;
  if (run.copy) return true;
  const auto& parameters = run.file->parameters(run.stream);
  return !job.canvas && job.encoder.width == parameters.width && job.encoder.height == parameters.height &&
         run.file->stream(run.stream).progressive && job.encoder.colour == completeColour(parameters);
}

Expected<Ends> endsOf(const PictureRun& run, int threads) {
  Ends ends;
  auto reader = PictureReader::open(run.file, run.stream, threads);
  if (!reader) return tl::make_unexpected(reader.error());
  const auto [earlier, later] = std::minmax(run.pictures.front().picture, run.pictures.back().picture);
  auto frame = reader->picture(earlier);
  if (!frame) return tl::make_unexpected(frame.error());
  ends.first = brightnessOf(**frame);
  if (later != earlier) frame = reader->picture(later);
  if (!frame) return tl::make_unexpected(frame.error());
  ends.last = brightnessOf(**frame);
  if (run.pictures.front().picture != earlier) std::swap(ends.first, ends.last);
  return ends;
}

const StreamFacts* firstOf(const MediaFile& file, StreamKind kind) {
  const auto found = std::find_if(file.streams().begin(), file.streams().end(),
                                  [kind](const StreamFacts& facts) { return facts.kind == kind; });
  return found == file.streams().end() ? nullptr : &*found;
}

/// What the edits of a track show of its media.
struct Shown {
  double start = 0;            // of the movie, in seconds
  double length = 0;           // in seconds
  std::int64_t mediaTime = 0;  // in ticks of the track
};

Shown shownOf(const MediaFile& file, const StreamFacts& facts) {
  if (facts.edits.empty()) return {0, static_cast<double>(facts.duration) / facts.timescale, 0};
  Shown shown;
  for (const auto& edit : facts.edits) {
    const double length = static_cast<double>(edit.duration) / file.timescale();
    if (edit.mediaTime < 0) {
      shown.start += length;
    } else {
      shown.length = length;
      shown.mediaTime = edit.mediaTime;
    }
  }
  return shown;
}

class PictureVerification {
 public:
  PictureVerification(std::shared_ptr<const MediaFile> written, const StreamFacts& facts, const PictureJob& job)
      : written_(std::move(written)), facts_(facts), job_(job), shown_(shownOf(*written_, facts)) {}

  Expected<void> run(const std::function<bool()>& isCancelled) {
    auto opened = PictureReader::open(written_, facts_.index, job_.encoder.threads);
    if (!opened) return tl::make_unexpected(opened.error());
    PictureReader& reader = *opened;
    auto isCopied = areCopiesAlike(reader.table(), isCancelled);
    if (!isCopied) return tl::make_unexpected(isCopied.error());
    // Then nothing is compared as it looks.
    if (*isCopied && job_.copiesAll()) reader.leaveOutAllFilters();
    const auto damaged = std::make_shared<DamagedPictures>();
    reader.countDamageIn(damaged);
    const PictureTable& table = reader.table();
    std::size_t picture = firstShown(table);
    const auto end = table.firstPictureFrom(shown_.mediaTime + std::llround(shown_.length * facts_.timescale));
    const auto wanted = job_.encodedOfShown().second;
    if (static_cast<std::int64_t>(end - picture) != wanted) {
      return differs("it shows " + std::to_string(end - picture) + " pictures, not " + std::to_string(wanted));
    }
    for (const RunPlacement& placement : job_.placements) {
      const PictureRun& run = job_.runs[placement.run];
      for (std::size_t i = 0; i < run.pictures.size(); ++i, ++picture) {
        if (isCancelled()) return failed(ErrorKind::cancelled, "cancelled");
        const double want = static_cast<double>(placement.start + run.pictures[i].time) / job_.timescale;
        if (auto timely = checkTime(table.timeOfPicture(picture), want); !timely) return timely;
        const auto replaced = reader.replacedPictures();
        auto frame = reader.picture(picture);
        if (!frame) return tl::make_unexpected(frame.error());
        // What does not decode in a file that is copied does not decode in the copy.
        if (!run.copy && (reader.replacedPictures() != replaced || !damaged->files().empty()))
          return differs("its picture at " + seconds(want) + " does not decode");
        const bool isEnd = i == 0 || i + 1 == run.pictures.size();
        if (!isEnd || !staysAlike(run, job_) || (run.copy && *isCopied)) continue;
        if (auto same = checkEnd(placement.run, **frame, i == 0, want); !same) return same;
      }
    }
    return {};
  }

 private:
  [[nodiscard]] std::size_t firstShown(const PictureTable& table) const {
    return table.firstPictureFrom(shown_.mediaTime);
  }

  /// Whether each copied picture has the bytes of its source's, by which it is the same one; false for those that are
  /// stored in another form.
  Expected<bool> areCopiesAlike(const PictureTable& table, const std::function<bool()>& isCancelled) {
    auto copies = CodedPictureReader::open(written_, facts_.index);
    if (!copies) return tl::make_unexpected(copies.error());
    std::size_t picture = firstShown(table);
    for (const RunPlacement& placement : job_.placements) {
      const PictureRun& run = job_.runs[placement.run];
      if (!run.copy) {
        picture += run.pictures.size();
        continue;
      }
      auto originals = CodedPictureReader::open(run.file, run.stream);
      if (!originals) return tl::make_unexpected(originals.error());
      std::vector<std::pair<std::uint32_t, std::uint32_t>> samples;  // of the source and the copy, in decoding order
      for (std::size_t i = 0; i < run.pictures.size() && picture < table.pictureCount(); ++i, ++picture)
        samples.emplace_back(originals->table().sampleOfPicture(run.pictures[i].picture),
                             table.sampleOfPicture(picture));
      std::sort(samples.begin(), samples.end());
      for (const auto& [from, to] : samples) {
        if (isCancelled()) return failed(ErrorKind::cancelled, "cancelled");
        auto original = originals->read(from);
        if (!original) return tl::make_unexpected(original.error());
        auto copy = copies->read(to);
        if (!copy) return tl::make_unexpected(copy.error());
        const AVPacket& a = **original;
        const AVPacket& b = **copy;
        if (a.size != b.size || std::memcmp(a.data, b.data, static_cast<std::size_t>(a.size)) != 0) return false;
      }
    }
    return true;
  }

  [[nodiscard]] Expected<void> checkTime(std::int64_t ticks, double want) const {
    const double time = shown_.start + static_cast<double>(ticks - shown_.mediaTime) / facts_.timescale;
    constexpr double tolerance = 0.0001;
    if (std::abs(time - want) <= tolerance) return {};
    return differs("a picture comes at " + seconds(time) + ", not at " + seconds(want));
  }

  Expected<void> checkEnd(std::uint32_t number, const AVFrame& frame, bool isFirst, double at) {
    auto known = ends_.find(number);
    if (known == ends_.end()) {
      auto ends = endsOf(job_.runs[number], job_.encoder.threads);
      if (!ends) return tl::make_unexpected(ends.error());
      known = ends_.emplace(number, *ends).first;
    }
    const auto& wanted = isFirst ? known->second.first : known->second.last;
    const auto found = brightnessOf(frame);
    // Of codes from 0 to 255: what an encoder at the highest quality never loses in the mean of a sixty-fourth.
    const double tolerance = job_.runs[number].copy ? 0.01 : 4;
    if (!wanted || !found || largestDifference(*wanted, *found) <= tolerance) return {};
    return differs("its picture at " + seconds(at) + " is another one");
  }

  std::shared_ptr<const MediaFile> written_;
  const StreamFacts& facts_;
  const PictureJob& job_;
  Shown shown_;
  std::map<std::uint32_t, Ends> ends_;  // by run
};

/// How long the sound is to be, in samples: what is copied ends with its file's, whatever that file's header says.
std::int64_t wantedLength(const SoundJob& job) {
  if (!job.copy) return job.length;
  const SoundLane& lane = job.lanes.front();
  const StreamFacts& facts = lane.file->stream(lane.stream);
  if (facts.duration <= 0) return job.length;
  const std::int64_t end = av_rescale(facts.duration, facts.sampleRate, facts.timescale);
  return std::min(job.length, end - lane.pieces.front().source);
}

Expected<void> verifySound(const MediaFile& written, const SoundJob& job) {
  const StreamFacts* facts = firstOf(written, StreamKind::audio);
  if (facts == nullptr) return differs("it has no sound");
  const Shown shown = shownOf(written, *facts);
  const double wanted = static_cast<double>(wantedLength(job)) / job.encoder.sampleRate;
  const double end = shown.start + shown.length;
  const double tolerance = 1.0 / written.timescale() + 1.5 / job.encoder.sampleRate;
  if (std::abs(end - wanted) <= tolerance) return {};
  return differs("its sound lasts " + seconds(end) + ", not " + seconds(wanted));
}

}  // namespace

Expected<void> verify(const std::shared_ptr<const MediaFile>& written, const ExportJob& job,
                      const std::function<bool()>& isCancelled) {
  if (job.sound) {
    if (auto right = verifySound(*written, *job.sound); !right) return right;
  }
  if (!job.pictures) return {};
  const StreamFacts* facts = firstOf(*written, StreamKind::video);
  if (facts == nullptr) return differs("it has no pictures");
  return PictureVerification(written, *facts, *job.pictures).run(isCancelled);
}

}  // namespace clipworks::engine
