#include <clipworks/engine/boxes/TrackBoxes.h>

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <span>
#include <string>
#include <utility>
#include <vector>

#include <clipworks/engine/Limits.h>
#include <clipworks/engine/boxes/BoxCursor.h>
#include <clipworks/engine/boxes/BoxSequence.h>
#include <clipworks/engine/boxes/FourCC.h>
#include <clipworks/engine/boxes/FullBoxCursor.h>

namespace clipworks::engine {
namespace {

using Bytes = std::span<const std::byte>;
using Track = MovieBoxes::Track;
using Run = MovieBoxes::Run;

/// How the value of a run is meant.
enum class ValueSign { unsignedValue, signedValue };

tl::unexpected<Error> beyondLimit(const std::string& what, std::uint64_t limit) {
  return failed(ErrorKind::tooLarge, "A track has more than " + std::to_string(limit) + " " + what + ".");
}

/// The entries of `entryBytes` each that are both announced by the count at `cursor` and there behind it.
std::size_t readEntryCount(BoxCursor& cursor, std::size_t entryBytes) {
  const std::size_t announced = cursor.read<std::uint32_t>();
  return std::min(announced, cursor.rest().size() / entryBytes);
}

/// `tkhd`: ISO/IEC 14496-12, 8.3.2. Matrix and size are taken together or not at all.
void readTrackHeader(Bytes tkhd, Track& track) {
  auto cursor = FullBoxCursor::open(tkhd);
  if (!cursor) {
    return;
  }
  constexpr std::size_t reservedLayerGroupVolume = 8 + 2 + 2 + 2 + 2;
  cursor->skip(2 * cursor->timeBytes());  // when created and modified
  track.id = cursor->read<std::uint32_t>();
  cursor->skip(4 + cursor->timeBytes());  // reserved; the duration, which follows from the edits
  cursor->skip(reservedLayerGroupVolume);
  std::array<std::int32_t, 9> matrix{};
  for (std::int32_t& element : matrix) {
    element = cursor->read<std::int32_t>();
  }
  const auto width = cursor->read<std::uint32_t>();
  const auto height = cursor->read<std::uint32_t>();
  if (!cursor->isOverrun()) {
    track.matrix = matrix;
    track.width = width;
    track.height = height;
  }
}

/// `mdhd`: ISO/IEC 14496-12, 8.4.2.
void readMediaHeader(Bytes mdhd, Track& track) {
  auto cursor = FullBoxCursor::open(mdhd);
  if (!cursor) {
    return;
  }
  cursor->skip(2 * cursor->timeBytes());  // when created and modified
  track.mediaTimescale = cursor->read<std::uint32_t>();
  track.mediaDuration = cursor->readWholeDuration();
}

/// `hdlr` of the media: ISO/IEC 14496-12, 8.4.3.
void readHandler(Bytes hdlr, Track& track) {
  BoxCursor cursor(hdlr);
  cursor.skip(8);  // version and flags; 0, or QuickTime's 'mhlr'
  track.handler = cursor.read<std::uint32_t>();
}

/// `elst`: ISO/IEC 14496-12, 8.6.6.
Expected<void> readEdits(Bytes elst, Track& track) {
  auto cursor = FullBoxCursor::open(elst);
  if (!cursor) {
    return {};
  }
  const std::size_t count = readEntryCount(*cursor, 2 * cursor->timeBytes() + sizeof(std::int32_t));
  if (count > limits::maxEdits) {
    return beyondLimit("edits", limits::maxEdits);
  }
  track.edits.resize(count);
  for (MovieBoxes::Edit& edit : track.edits) {
    edit.duration = cursor->readTime();
    edit.mediaTime = cursor->readSignedTime();
    edit.rate = cursor->read<std::int32_t>();
  }
  return {};
}

/// The boxes behind the fixed part of a visual sample description: ISO/IEC 14496-12, 12.1.3 and 12.1.4.
void readVisualDescription(Bytes description, Track& track) {
  constexpr std::size_t fixedBytes = 78;  // the same in QuickTime
  BoxCursor fixed(description);
  fixed.skip(fixedBytes);
  if (const auto clap = findBox(fixed.rest(), {fourCC("clap")})) {
    BoxCursor cursor(*clap);
    std::array<std::int32_t, 8> aperture{};
    for (std::int32_t& part : aperture) {
      part = cursor.read<std::int32_t>();
    }
    if (!cursor.isOverrun()) {
      track.cleanAperture = aperture;
    }
  }
  if (const auto pasp = findBox(fixed.rest(), {fourCC("pasp")})) {
    BoxCursor cursor(*pasp);
    const auto horizontal = cursor.read<std::uint32_t>();
    const auto vertical = cursor.read<std::uint32_t>();
    if (!cursor.isOverrun()) {
      track.pixelAspect = {horizontal, vertical};
    }
  }
}

/// `stsd`: ISO/IEC 14496-12, 8.5.2. Counts the descriptions that are there, up to as many as announced.
void readSampleDescriptions(Bytes stsd, Track& track) {
  BoxCursor cursor(stsd);
  cursor.skip(4);  // version and flags
  const auto announced = cursor.read<std::uint32_t>();
  BoxSequence descriptions(cursor.rest());
  while (track.sampleDescriptions < announced) {
    const auto description = descriptions.next();
    if (!description) {
      break;
    }
    if (track.handler == fourCC("vide") && track.codedSizes.size() < limits::maxDecoderParameters) {
      constexpr std::size_t beforeSize = 24;  // ISO/IEC 14496-12, 12.1.3; the same in QuickTime
      BoxCursor size(description->content);
      size.skip(beforeSize);
      const auto width = size.read<std::uint16_t>();
      const auto height = size.read<std::uint16_t>();
      track.codedSizes.push_back({width, height});
    }
    if (track.sampleDescriptions == 0 && track.handler == fourCC("vide")) {
      readVisualDescription(description->content, track);
    }
    ++track.sampleDescriptions;
  }
}

/// `stts` and `ctts`: ISO/IEC 14496-12, 8.6.1. Runs of no sample are left out.
Expected<std::vector<Run>> readRuns(Bytes table, ValueSign sign) {
  BoxCursor cursor(table);
  cursor.skip(4);  // version and flags; the version of `ctts` is not to be relied on, see below
  const std::size_t entries = readEntryCount(cursor, 2 * sizeof(std::uint32_t));
  std::vector<Run> runs;
  runs.reserve(std::min<std::size_t>(entries, limits::maxSamples));
  for (std::size_t i = 0; i < entries; ++i) {
    Run run;
    run.count = cursor.read<std::uint32_t>();
    run.value = sign == ValueSign::signedValue ? std::int64_t{cursor.read<std::int32_t>()}
                                               : std::int64_t{cursor.read<std::uint32_t>()};
    if (run.count > 0) {
      runs.push_back(run);
    }
  }
  return runs;
}

/// `stss`: ISO/IEC 14496-12, 8.6.2.
Expected<void> readSyncSamples(Bytes stss, Track& track) {
  BoxCursor cursor(stss);
  cursor.skip(4);  // version and flags
  const std::size_t count = readEntryCount(cursor, sizeof(std::uint32_t));
  if (count > limits::maxSamples) {
    return beyondLimit("samples", limits::maxSamples);
  }
  track.hasSyncTable = !cursor.isOverrun();
  track.syncSamples.resize(count);
  for (std::uint32_t& sample : track.syncSamples) {
    sample = cursor.read<std::uint32_t>();
  }
  return {};
}

/// `stsz`: ISO/IEC 14496-12, 8.7.3.2. Where sizes are listed, only samples that have one are counted.
std::uint64_t countSamples(Bytes stsz) {
  BoxCursor cursor(stsz);
  cursor.skip(4);  // version and flags
  const auto sizeOfAll = cursor.read<std::uint32_t>();
  const std::uint64_t announced = cursor.read<std::uint32_t>();
  return sizeOfAll != 0 ? announced : std::min<std::uint64_t>(announced, cursor.rest().size() / sizeof(std::uint32_t));
}

/// `stz2`: ISO/IEC 14496-12, 8.7.3.3: sizes of 4, 8 or 16 bits.
std::uint64_t countCompactSamples(Bytes stz2) {
  BoxCursor cursor(stz2);
  cursor.skip(4 + 3);  // version and flags; reserved
  const auto bits = cursor.read<std::uint8_t>();
  const std::uint64_t announced = cursor.read<std::uint32_t>();
  if (bits != 4 && bits != 8 && bits != 16) {
    return 0;
  }
  return std::min<std::uint64_t>(announced, cursor.rest().size() * 8 / bits);
}

void readSampleCount(Bytes stbl, Track& track) {
  if (const auto stsz = findBox(stbl, {fourCC("stsz")})) {
    track.sampleCount = countSamples(*stsz);
  } else if (const auto stz2 = findBox(stbl, {fourCC("stz2")})) {
    track.sampleCount = countCompactSamples(*stz2);
  }
}

/// The runs of the first table of `type`; none without one.
Expected<std::vector<Run>> readRunsIn(Bytes stbl, std::uint32_t type, ValueSign sign) {
  const auto table = findBox(stbl, {type});
  return table ? readRuns(*table, sign) : std::vector<Run>{};
}

/// Samples are listed one by one later, but for plain PCM, which counts every instant of sound as one: a single run of
/// samples of length 1, read chunk by chunk.
Expected<void> checkSampleLimit(const Track& track) {
  if (track.sampleLengths.size() == 1 && track.sampleLengths.front().value == 1 && track.handler == fourCC("soun")) {
    return {};
  }
  std::uint64_t lengths = 0;
  for (const auto& run : track.sampleLengths) {
    lengths += run.count;
  }
  std::uint64_t offsets = 0;
  for (const auto& run : track.pictureOffsets) {
    offsets += run.count;
  }
  if (std::max({track.sampleCount, lengths, offsets}) > limits::maxSamples) {
    return beyondLimit("samples", limits::maxSamples);
  }
  return {};
}

/// `stbl`, after the handler is known.
Expected<void> readSampleTable(Bytes stbl, Track& track) {
  if (const auto stsd = findBox(stbl, {fourCC("stsd")})) {
    readSampleDescriptions(*stsd, track);
  }
  auto lengths = readRunsIn(stbl, fourCC("stts"), ValueSign::unsignedValue);
  if (!lengths) {
    return tl::make_unexpected(lengths.error());
  }
  track.sampleLengths = std::move(*lengths);
  // The standard's version 0 is unsigned, but writers put negative offsets there too, as QuickTime always does; a real
  // offset never comes near the top bit.
  auto offsets = readRunsIn(stbl, fourCC("ctts"), ValueSign::signedValue);
  if (!offsets) {
    return tl::make_unexpected(offsets.error());
  }
  track.pictureOffsets = std::move(*offsets);
  if (const auto stss = findBox(stbl, {fourCC("stss")})) {
    if (auto read = readSyncSamples(*stss, track); !read) {
      return read;
    }
  }
  readSampleCount(stbl, track);
  return checkSampleLimit(track);
}

}  // namespace

Expected<Track> readTrack(Bytes trak) {
  Track track;
  if (const auto tkhd = findBox(trak, {fourCC("tkhd")})) {
    readTrackHeader(*tkhd, track);
  }
  if (const auto mdhd = findBox(trak, {fourCC("mdia"), fourCC("mdhd")})) {
    readMediaHeader(*mdhd, track);
  }
  if (const auto hdlr = findBox(trak, {fourCC("mdia"), fourCC("hdlr")})) {
    readHandler(*hdlr, track);
  }
  if (const auto elst = findBox(trak, {fourCC("edts"), fourCC("elst")})) {
    if (const auto read = readEdits(*elst, track); !read) {
      return tl::make_unexpected(read.error());
    }
  }
  if (const auto stbl = findBox(trak, {fourCC("mdia"), fourCC("minf"), fourCC("stbl")})) {
    if (const auto read = readSampleTable(*stbl, track); !read) {
      return tl::make_unexpected(read.error());
    }
  }
  return track;
}

}  // namespace clipworks::engine
