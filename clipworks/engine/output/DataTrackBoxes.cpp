#include <clipworks/engine/output/DataTrackBoxes.h>

#include <algorithm>
#include <array>
#include <cstdint>
#include <map>
#include <span>
#include <string_view>
#include <utility>

#include <clipworks/engine/FFmpeg.h>
#include <clipworks/engine/boxes/BoxBuilder.h>
#include <clipworks/engine/boxes/FourCC.h>

namespace clipworks::engine {
namespace {

/// An entry of the edit list, in ticks of the movie and, but for gaps, of the track.
struct Edit {
  std::int64_t length = 0;
  std::int64_t mediaTime = 0;
};

/// A run of equal values: of lengths (`stts`), or of chunks alike (`stsc`).
struct LengthRun {
  std::uint32_t count = 0;
  std::uint32_t length = 0;
};
struct ChunkRun {
  std::uint32_t first = 0;
  std::uint32_t samples = 0;
  std::uint32_t description = 0;
};

/// The tables of a job, as its placements follow one another without holes; the edits tell where each of them plays.
struct Tables {
  std::vector<Edit> edits;
  std::vector<LengthRun> lengths;
  std::vector<std::uint32_t> sizes;
  std::vector<ChunkRun> chunkRuns;
  std::vector<std::int64_t> chunks;  // their positions
  std::vector<std::uint32_t> syncSamples;
  std::int64_t movieLength = 0;  // in ticks of the movie
  std::int64_t mediaLength = 0;  // in ticks of the track
};

class TableMaker {
 public:
  TableMaker(const DataJob& job, const DataTrackPlace& place) : job_(job), place_(place) {}

  Tables make() {
    for (const DataPlacement& placement : job_.placements) add(placement);
    tables_.movieLength = movieTicks(job_.placements.back().end);
    return std::move(tables_);
  }

 private:
  [[nodiscard]] std::int64_t movieTicks(std::int64_t ticks) const {
    return av_rescale(ticks, place_.movieTimescale, job_.timescale);
  }

  void add(const DataPlacement& placement) {
    addEdit(placement);
    const DataRun& run = job_.runs[placement.run];
    std::int64_t at = place_.runPositions[placement.run];
    std::uint32_t inChunk = 0;
    for (std::size_t i = 0; i < run.samples.size(); ++i) {
      const DataRunSample& sample = run.samples[i];
      const bool isLast = i + 1 == run.samples.size();
      if (inChunk == 0) tables_.chunks.push_back(at);
      at += sample.bytes;
      ++inChunk;
      tables_.sizes.push_back(sample.bytes);
      if (sample.isSync) tables_.syncSamples.push_back(static_cast<std::uint32_t>(tables_.sizes.size()));
      addLength((isLast ? placement.end - placement.start : run.samples[i + 1].time) - sample.time);
      if (isLast || run.samples[i + 1].description != sample.description)
        addChunk(std::exchange(inChunk, 0), sample.description + 1);
    }
    tables_.mediaLength += placement.end - placement.start;
  }

  /// What goes on in time goes on in the media as well.
  void addEdit(const DataPlacement& placement) {
    const std::int64_t start = movieTicks(placement.start);
    const std::int64_t length = movieTicks(placement.end) - start;
    if (placement.start != end_) tables_.edits.push_back({start - movieTicks(end_), -1});
    if (placement.start != end_ || tables_.edits.empty()) tables_.edits.push_back({0, tables_.mediaLength});
    tables_.edits.back().length += length;
    end_ = placement.end;
  }

  void addLength(std::int64_t length) {
    auto& runs = tables_.lengths;
    if (runs.empty() || runs.back().length != length) runs.push_back({0, static_cast<std::uint32_t>(length)});
    ++runs.back().count;
  }

  void addChunk(std::uint32_t samples, std::uint32_t description) {
    auto& runs = tables_.chunkRuns;
    if (runs.empty() || runs.back().samples != samples || runs.back().description != description)
      runs.push_back({static_cast<std::uint32_t>(tables_.chunks.size()), samples, description});
  }

  const DataJob& job_;
  const DataTrackPlace& place_;
  Tables tables_;
  std::int64_t end_ = 0;  // of the placement before
};

using IDsByType = std::map<std::uint32_t, std::vector<std::uint32_t>>;

/// `tref`: ISO/IEC 14496-12, 8.3.3. Nothing where there are no references.
void putReferences(BoxBuilder& builder, const IDsByType& ids) {
  if (ids.empty()) return;
  builder.box(fourCC("tref"), [&] {
    for (const auto& [type, to] : ids) {
      builder.box(type, [&] {
        for (const std::uint32_t id : to) builder.put(id);
      });
    }
  });
}

void putText(BoxBuilder& builder, std::string_view text) { builder.put(std::as_bytes(std::span(text))); }

class TrackMaker {
 public:
  TrackMaker(const std::vector<DataJob>& jobs, std::size_t number, const DataTrackPlace& place)
      : job_(jobs[number]), number_(number), place_(place), tables_(TableMaker(job_, place).make()) {}

  std::vector<std::byte> make() {
    builder_.box(fourCC("trak"), [&] {
      header();
      edits();
      references();
      builder_.box(fourCC("mdia"), [&] {
        mediaHeader();
        handler();
        builder_.put(job_.format.mediaMore);
        builder_.box(fourCC("minf"), [&] { information(); });
      });
      builder_.put(job_.format.trackMore);
    });
    return builder_.take();
  }

 private:
  /// A time of a box of version 0 or 1.
  void time(std::uint8_t version, std::int64_t value) {
    version == 0 ? builder_.put(static_cast<std::uint32_t>(value)) : builder_.put(value);
  }
  static std::uint8_t versionFor(std::int64_t value) { return value > UINT32_MAX ? 1 : 0; }

  /// `tkhd`: ISO/IEC 14496-12, 8.3.2.
  void header() {
    const std::uint8_t version = versionFor(tables_.movieLength);
    builder_.fullBox(fourCC("tkhd"), version, job_.format.flags, [&] {
      time(version, 0);  // when created and modified: not told
      time(version, 0);
      builder_.put(place_.firstID + static_cast<std::uint32_t>(number_));
      builder_.put(std::uint32_t{0});
      time(version, tables_.movieLength);
      if (!job_.format.presentation.empty()) return builder_.put(job_.format.presentation);
      builder_.putZeros(16);
      for (const std::uint32_t element : {0x10000U, 0U, 0U, 0U, 0x10000U, 0U, 0U, 0U, 0x40000000U})
        builder_.put(element);
      builder_.putZeros(8);
    });
  }

  /// `elst`: ISO/IEC 14496-12, 8.6.6.
  void edits() {
    const bool isWide = tables_.movieLength > UINT32_MAX || tables_.mediaLength > INT32_MAX;
    builder_.box(fourCC("edts"), [&] {
      builder_.fullBox(fourCC("elst"), isWide ? 1 : 0, 0, [&] {
        builder_.put(static_cast<std::uint32_t>(tables_.edits.size()));
        for (const Edit& edit : tables_.edits) {
          time(isWide ? 1 : 0, edit.length);
          time(isWide ? 1 : 0, edit.mediaTime);
          builder_.put(std::uint32_t{1 << 16});
        }
      });
    });
  }

  void references() {
    IDsByType ids;
    for (const auto& reference : job_.references) {
      ids[reference.type].push_back(reference.to == DataJob::pictures
                                        ? place_.picturesID
                                        : place_.firstID + static_cast<std::uint32_t>(reference.to));
    }
    putReferences(builder_, ids);
  }

  /// `mdhd`: ISO/IEC 14496-12, 8.4.2. A language of QuickTime's list, below 0x400, says nothing in MP4.
  void mediaHeader() {
    constexpr std::uint16_t undetermined = 0x55C4;
    const std::uint16_t language = job_.format.language;
    const bool isPacked = language >= 0x400 && language != 0x7FFF;
    const std::uint8_t version = versionFor(tables_.mediaLength);
    builder_.fullBox(fourCC("mdhd"), version, 0, [&] {
      time(version, 0);
      time(version, 0);
      builder_.put(job_.timescale);
      time(version, tables_.mediaLength);
      builder_.put(place_.isQuickTime || isPacked ? language : undetermined);
      builder_.put(std::uint16_t{0});
    });
  }

  /// `hdlr`: ISO/IEC 14496-12, 8.4.3, and as the QuickTime file format has it.
  void handler() {
    constexpr std::size_t longestName = 255;
    const std::string_view name = std::string_view(job_.format.name).substr(0, longestName);
    builder_.fullBox(fourCC("hdlr"), 0, 0, [&] {
      builder_.put(place_.isQuickTime ? fourCC("mhlr") : 0);
      builder_.put(job_.format.handler);
      place_.isQuickTime ? builder_.put(job_.format.handlerMaker) : builder_.putZeros(job_.format.handlerMaker.size());
      if (place_.isQuickTime) builder_.put(static_cast<std::uint8_t>(name.size()));
      putText(builder_, name);
      if (!place_.isQuickTime) builder_.putZeros(1);
    });
  }

  void information() {
    if (job_.format.mediaHeader.empty()) builder_.fullBox(fourCC("nmhd"), 0, 0, [] {});
    builder_.put(job_.format.mediaHeader);
    if (place_.isQuickTime) {
      builder_.fullBox(fourCC("hdlr"), 0, 0, [&] {
        builder_.put(fourCC("dhlr"));
        builder_.put(fourCC("url "));
        builder_.putZeros(12 + 1);  // maker and flags; no name
      });
    }
    builder_.box(fourCC("dinf"), [&] {
      builder_.fullBox(fourCC("dref"), 0, 0, [&] {
        builder_.put(std::uint32_t{1});
        builder_.fullBox(fourCC("url "), 0, 1, [] {});  // in the same file
      });
    });
    builder_.box(fourCC("stbl"), [&] { sampleTables(); });
  }

  template <class Entry, class Put>
  void table(std::uint32_t type, const std::vector<Entry>& entries, Put put) {
    builder_.fullBox(type, 0, 0, [&] {
      builder_.put(static_cast<std::uint32_t>(entries.size()));
      for (const Entry& entry : entries) put(entry);
    });
  }

  void sampleTables() {
    table(fourCC("stsd"), job_.descriptions, [&](const auto& description) { builder_.put(description); });
    table(fourCC("stts"), tables_.lengths, [&](const LengthRun& run) {
      builder_.put(run.count);
      builder_.put(run.length);
    });
    if (tables_.syncSamples.size() < tables_.sizes.size())
      table(fourCC("stss"), tables_.syncSamples, [&](std::uint32_t sample) { builder_.put(sample); });
    table(fourCC("stsc"), tables_.chunkRuns, [&](const ChunkRun& run) {
      builder_.put(run.first);
      builder_.put(run.samples);
      builder_.put(run.description);
    });
    builder_.fullBox(fourCC("stsz"), 0, 0, [&] {
      builder_.put(std::uint32_t{0});  // each its own
      builder_.put(static_cast<std::uint32_t>(tables_.sizes.size()));
      for (const std::uint32_t size : tables_.sizes) builder_.put(size);
    });
    table(fourCC("co64"), tables_.chunks, [&](std::int64_t position) { builder_.put(position); });
  }

  const DataJob& job_;
  std::size_t number_;
  const DataTrackPlace& place_;
  Tables tables_;
  BoxBuilder builder_;
};

}  // namespace

std::vector<std::byte> dataTrackBox(const std::vector<DataJob>& jobs, std::size_t number, const DataTrackPlace& place) {
  return TrackMaker(jobs, number, place).make();
}

std::vector<std::byte> picturesReferencesBox(const std::vector<DataJob>& jobs, std::uint32_t firstID) {
  IDsByType ids;
  for (std::size_t i = 0; i < jobs.size(); ++i) {
    for (const std::uint32_t type : jobs[i].picturesReferTo)
      ids[type].push_back(firstID + static_cast<std::uint32_t>(i));
  }
  BoxBuilder builder;
  putReferences(builder, ids);
  return builder.take();
}

}  // namespace clipworks::engine
