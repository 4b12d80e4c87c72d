#include <clipworks/engine/boxes/DataTracks.h>

#include <algorithm>
#include <initializer_list>
#include <optional>
#include <span>
#include <utility>

#include <clipworks/engine/Limits.h>
#include <clipworks/engine/boxes/BoxBuilder.h>
#include <clipworks/engine/boxes/BoxSequence.h>
#include <clipworks/engine/boxes/FourCC.h>
#include <clipworks/engine/boxes/FullBoxCursor.h>
#include <clipworks/engine/boxes/MovieIndex.h>
#include <clipworks/engine/boxes/TrackBoxes.h>

namespace clipworks::engine {
namespace {

using Bytes = std::span<const std::byte>;

const char* const contradiction = "its tables contradict one another";

/// With a head of its true size: one may claim more than its parent has.
void putBox(BoxBuilder& builder, const Box& box) {
  builder.box(box.type, [&] { builder.put(box.content); });
}

/// All boxes of `parent` of these types, behind one another.
std::vector<std::byte> boxesOf(Bytes parent, std::initializer_list<std::uint32_t> types) {
  BoxBuilder found;
  BoxSequence boxes(parent);
  while (const auto box = boxes.next()) {
    if (std::find(types.begin(), types.end(), box->type) != types.end()) putBox(found, *box);
  }
  return found.take();
}

/// The end of `tkhd`: ISO/IEC 14496-12, 8.3.2.
void readPresentation(Bytes tkhd, DataTrackFormat& format) {
  auto cursor = FullBoxCursor::open(tkhd);
  if (!cursor) return;
  constexpr std::uint32_t flagBits = 0xFFFFFF;
  format.flags = BoxCursor(tkhd).read<std::uint32_t>() & flagBits;
  cursor->skip(3 * cursor->timeBytes() + 2 * sizeof(std::uint32_t));
  constexpr std::size_t presentationBytes = 60;
  const Bytes rest = cursor->rest();
  if (rest.size() >= presentationBytes) format.presentation.assign(rest.begin(), rest.begin() + presentationBytes);
}

/// `hdlr`: ISO/IEC 14496-12, 8.4.3. QuickTime writes the length of the name before it.
void readHandler(Bytes hdlr, DataTrackFormat& format) {
  BoxCursor cursor(hdlr);
  cursor.skip(2 * sizeof(std::uint32_t));
  format.handler = cursor.read<std::uint32_t>();
  for (std::byte& byte : format.handlerMaker) byte = std::byte{cursor.read<std::uint8_t>()};
  Bytes name = cursor.rest();
  if (!name.empty() && std::to_integer<std::size_t>(name.front()) == name.size() - 1) name = name.subspan(1);
  for (const std::byte byte : name) {
    if (byte == std::byte{}) break;
    format.name += static_cast<char>(byte);
  }
}

std::uint16_t languageOf(Bytes mdhd) {
  auto cursor = FullBoxCursor::open(mdhd);
  if (!cursor) return 0;
  cursor->skip(3 * cursor->timeBytes() + sizeof(std::uint32_t));
  return cursor->read<std::uint16_t>();
}

/// Whether entry `number`, from 1, of `dref` says that the samples lie in the same file: ISO/IEC 14496-12, 8.7.2.
bool isSelfContained(Bytes dref, std::size_t number) {
  BoxCursor cursor(dref);
  cursor.skip(2 * sizeof(std::uint32_t));
  BoxSequence entries(cursor.rest());
  for (std::size_t i = 1; auto entry = entries.next(); ++i) {
    if (i == number) return (BoxCursor(entry->content).read<std::uint32_t>() & 1) != 0;
  }
  return false;
}

/// What a track may ask of us.
struct Bounds {
  std::uint64_t fileSize = 0;
  std::uint64_t samples = 0;
};

/// Walks over the tables of a track and lists its samples.
class SampleLister {
 public:
  SampleLister(Bytes stbl, const MovieBoxes::Track& listed, const Bounds& bounds, DataTrack& track)
      : stbl_(stbl), listed_(listed), bounds_(bounds), track_(track) {}

  /// What is wrong; empty when all samples are listed.
  std::string list() {
    if (listed_.sampleCount == 0) return "it has no samples";
    if (listed_.sampleCount > bounds_.samples) return "it has more samples than are accepted";
    if (!listed_.pictureOffsets.empty()) return "its samples are not stored in their order";
    if (auto flaw = listSizes(); !flaw.empty()) return flaw;
    listTimes();
    if (lengths_ < track_.samples.size() || listed_.mediaTimescale == 0) return contradiction;
    markSync();
    return listPlaces();
  }

 private:
  /// `stsz`: ISO/IEC 14496-12, 8.7.3.2.
  std::string listSizes() {
    const auto stsz = findBox(stbl_, {fourCC("stsz")});
    if (!stsz) return "the sizes of its samples are written in a way that is not read";
    BoxCursor cursor(*stsz);
    cursor.skip(sizeof(std::uint32_t));
    const auto sizeOfAll = cursor.read<std::uint32_t>();
    cursor.skip(sizeof(std::uint32_t));
    // What is said of all in one number is believed as far as the file has bytes for it.
    if (sizeOfAll > 0 && listed_.sampleCount > bounds_.fileSize / sizeOfAll) return contradiction;
    track_.samples.resize(static_cast<std::size_t>(listed_.sampleCount));
    for (DataSample& sample : track_.samples) {
      sample.bytes = sizeOfAll > 0 ? sizeOfAll : cursor.read<std::uint32_t>();
      if (sample.bytes > limits::maxSampleBytes) return "one of its samples is larger than is accepted";
    }
    return "";
  }

  void listTimes() {
    std::int64_t time = 0;
    for (const auto& run : listed_.sampleLengths) {
      for (std::uint32_t i = 0; i < run.count && lengths_ < track_.samples.size(); ++i) {
        DataSample& sample = track_.samples[lengths_++];
        sample.time = time;
        sample.length = static_cast<std::uint32_t>(run.value);
        time += run.value;
      }
    }
  }

  void markSync() {
    if (!listed_.hasSyncTable) return;
    for (DataSample& sample : track_.samples) sample.isSync = false;
    for (const std::uint32_t number : listed_.syncSamples) {
      if (number >= 1 && number <= track_.samples.size()) track_.samples[number - 1].isSync = true;
    }
  }

  /// `stsc` and `stco` or `co64`: ISO/IEC 14496-12, 8.7.4 and 8.7.5.
  std::string listPlaces() {
    const auto narrow = findBox(stbl_, {fourCC("stco")});
    const auto wide = narrow ? std::nullopt : findBox(stbl_, {fourCC("co64")});
    const auto stsc = findBox(stbl_, {fourCC("stsc")});
    if (!stsc || (!narrow && !wide)) return contradiction;
    BoxCursor offsets(narrow ? *narrow : *wide);
    offsets.skip(2 * sizeof(std::uint32_t));
    BoxCursor groups(*stsc);
    groups.skip(2 * sizeof(std::uint32_t));
    std::uint32_t perChunk = 0;
    std::uint32_t description = 0;
    auto nextGroup = groups.read<std::uint32_t>();
    std::size_t sample = 0;
    for (std::uint32_t chunk = 1; sample < track_.samples.size(); ++chunk) {
      if (chunk == nextGroup && !groups.isOverrun()) {
        perChunk = groups.read<std::uint32_t>();
        description = groups.read<std::uint32_t>();
        nextGroup = groups.read<std::uint32_t>();
      }
      std::uint64_t at = narrow ? offsets.read<std::uint32_t>() : offsets.read<std::uint64_t>();
      if (offsets.isOverrun() || perChunk == 0 || description == 0 || description > track_.descriptions.size())
        return contradiction;
      for (std::uint32_t i = 0; i < perChunk && sample < track_.samples.size(); ++i, ++sample) {
        DataSample& placed = track_.samples[sample];
        if (at > bounds_.fileSize || placed.bytes > bounds_.fileSize - at)
          return "some of its samples lie outside the file";
        placed.position = at;
        placed.description = description - 1;
        at += placed.bytes;
      }
    }
    return "";
  }

  Bytes stbl_;
  const MovieBoxes::Track& listed_;
  const Bounds& bounds_;
  DataTrack& track_;
  std::size_t lengths_ = 0;  // samples whose length is known
};

/// `stsd`: ISO/IEC 14496-12, 8.5.2. False where samples lie in another file.
bool readDescriptions(Bytes minf, Bytes stsd, DataTrack& track) {
  constexpr std::size_t headAndReserved = 8 + 6;
  const auto dref = findBox(minf, {fourCC("dinf"), fourCC("dref")});
  BoxCursor cursor(stsd);
  cursor.skip(2 * sizeof(std::uint32_t));
  BoxSequence entries(cursor.rest());
  while (const auto entry = entries.next()) {
    BoxBuilder builder;
    putBox(builder, *entry);
    auto whole = builder.take();
    if (whole.size() < headAndReserved + 2 || track.descriptions.size() == limits::maxDecoderParameters) break;
    BoxCursor reference(Bytes(whole).subspan(headAndReserved));
    if (!dref || !isSelfContained(*dref, reference.read<std::uint16_t>())) return false;
    whole[headAndReserved] = std::byte{0};
    whole[headAndReserved + 1] = std::byte{1};
    track.descriptions.push_back(std::move(whole));
  }
  return true;
}

void readSamples(Bytes minf, const MovieBoxes::Track& listed, const Bounds& bounds, DataTrack& track) {
  const auto stbl = findBox(minf, {fourCC("stbl")});
  const auto stsd = stbl ? findBox(*stbl, {fourCC("stsd")}) : std::nullopt;
  track.flaw = !stsd                                   ? contradiction
               : !readDescriptions(minf, *stsd, track) ? "its samples lie in another file"
                                                       : SampleLister(*stbl, listed, bounds, track).list();
  if (!track.flaw.empty()) track.samples = {};
}

DataTrack readDataTrack(Bytes trak, MovieBoxes::Track listed, const Bounds& bounds) {
  DataTrack track;
  track.id = listed.id;
  track.timescale = static_cast<std::int32_t>(std::min<std::uint32_t>(listed.mediaTimescale, INT32_MAX));
  if (const auto tkhd = findBox(trak, {fourCC("tkhd")})) readPresentation(*tkhd, track.format);
  track.format.trackMore = boxesOf(trak, {fourCC("udta"), fourCC("meta")});
  const auto mdia = findBox(trak, {fourCC("mdia")}).value_or(Bytes{});
  if (const auto hdlr = findBox(mdia, {fourCC("hdlr")})) readHandler(*hdlr, track.format);
  if (const auto mdhd = findBox(mdia, {fourCC("mdhd")})) track.format.language = languageOf(*mdhd);
  track.format.mediaMore = boxesOf(mdia, {fourCC("elng")});
  const auto minf = findBox(mdia, {fourCC("minf")}).value_or(Bytes{});
  track.format.mediaHeader = boxesOf(minf, {fourCC("gmhd"), fourCC("nmhd"), fourCC("sthd")});
  readSamples(minf, listed, bounds, track);
  track.edits = std::move(listed.edits);
  return track;
}

/// `tref`: ISO/IEC 14496-12, 8.3.3.
void readReferences(Bytes trak, std::uint32_t from, std::vector<TrackReference>& references) {
  constexpr std::size_t most = std::size_t{limits::maxTracks} * limits::maxTracks;
  BoxSequence types(findBox(trak, {fourCC("tref")}).value_or(Bytes{}));
  while (const auto type = types.next()) {
    for (BoxCursor ids(type->content); !ids.rest().empty() && references.size() < most;)
      references.push_back({from, type->type, ids.read<std::uint32_t>()});
  }
}

}  // namespace

std::uint32_t DataTrack::sampleFormat() const {
  if (descriptions.empty()) return 0;
  BoxCursor cursor(descriptions.front());
  cursor.skip(sizeof(std::uint32_t));
  return cursor.read<std::uint32_t>();
}

bool isDataHandler(std::uint32_t handler) {
  static constexpr std::array<std::uint32_t, 7> handlers{fourCC("meta"), fourCC("data"), fourCC("tmcd"), fourCC("text"),
                                                         fourCC("sbtl"), fourCC("subt"), fourCC("clcp")};
  return std::find(handlers.begin(), handlers.end(), handler) != handlers.end();
}

Expected<DataTracks> readDataTracks(const FileHandle& file) {
  const auto index = readMovieIndex(file.descriptor());
  if (!index) return tl::make_unexpected(index.error());
  const bool isFragmented = index->hasFragments || findBox(index->content, {fourCC("mvex")});
  DataTracks found;
  Bounds bounds{static_cast<std::uint64_t>(std::max<std::int64_t>(file.size(), 0)), limits::maxDataSamples};
  BoxSequence boxes(index->content);
  while (const auto box = boxes.next()) {
    if (box->type != fourCC("trak")) continue;
    auto listed = readTrack(box->content);
    if (!listed) return tl::make_unexpected(listed.error());
    readReferences(box->content, listed->id, found.references);
    if (!isDataHandler(listed->handler) || found.tracks.size() == limits::maxTracks) continue;
    found.tracks.push_back(readDataTrack(box->content, std::move(*listed), bounds));
    bounds.samples -= found.tracks.back().samples.size();
    if (!isFragmented) continue;
    found.tracks.back().flaw = "its file is written in fragments";
    found.tracks.back().samples = {};
  }
  return found;
}

}  // namespace clipworks::engine
