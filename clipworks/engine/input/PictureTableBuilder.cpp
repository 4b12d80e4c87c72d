#include <clipworks/engine/input/PictureTableBuilder.h>

#include <algorithm>
#include <memory>
#include <optional>
#include <utility>
#include <vector>

#include <clipworks/engine/Limits.h>
#include <clipworks/engine/input/MediaFile.h>
#include <clipworks/engine/input/PictureOrder.h>

namespace clipworks::engine {
namespace {

constexpr const char* tooManyFormats = " changes its format too often";

/// Gathers bytes of one kind that come with packets for the decoder; what comes again is kept once.
class SideData {
 public:
  SideData(AVPacketSideDataType kind, const std::uint8_t* first, int bytes)
      : kind_(kind), known_{std::make_shared<Bytes>(first, first + bytes)}, inForce_(known_.front()) {}

  /// Takes what comes with the packet of a sample, in decoding order. False beyond the limit of different ones.
  bool take(const AVPacket& packet, std::size_t sample) {
    std::size_t bytes = 0;
    const std::uint8_t* data = av_packet_get_side_data(&packet, kind_, &bytes);
    if (data == nullptr || bytes == 0) return true;
    const auto isSame = [&](const auto& other) { return std::equal(other->begin(), other->end(), data, data + bytes); };
    if (isSame(inForce_)) return true;
    auto found = std::find_if(known_.begin(), known_.end(), isSame);
    if (found == known_.end()) {
      if (known_.size() == limits::maxDecoderParameters) return false;
      found = known_.insert(known_.end(), std::make_shared<Bytes>(data, data + bytes));
    }
    inForce_ = *found;
    changes_.push_back({static_cast<std::uint32_t>(sample), inForce_});
    return true;
  }

  std::vector<CodecChange> finish() { return std::move(changes_); }

 private:
  using Bytes = std::vector<std::uint8_t>;
  AVPacketSideDataType kind_;
  std::vector<std::shared_ptr<Bytes>> known_;
  std::shared_ptr<Bytes> inForce_;
  std::vector<CodecChange> changes_;
};

/// Both kinds that a decoder which starts in the middle has to be told.
class CodecChangesReader {
 public:
  explicit CodecChangesReader(const AVCodecParameters& own)
      : parameters_(AV_PKT_DATA_NEW_EXTRADATA, own.extradata, own.extradata_size),
        palettes_(AV_PKT_DATA_PALETTE, nullptr, 0) {}

  bool take(const AVPacket& packet, std::size_t sample) {
    return parameters_.take(packet, sample) && palettes_.take(packet, sample);
  }
  CodecChanges finish() { return {parameters_.finish(), palettes_.finish()}; }

 private:
  SideData parameters_;
  SideData palettes_;
};

// Expands `stts` and `ctts` beside the demuxer's index, which knows place, size and access points but no presentation
// times. Nothing when they contradict each other, or the index is not the whole track.
std::optional<PictureTable> tableFromIndex(AVStream& stream, const MovieBoxes::Track& track, CodecChanges changes) {
  const int count = avformat_index_get_entries_count(&stream);
  if (count <= 0 || static_cast<std::uint64_t>(count) != track.sampleCount) return std::nullopt;
  std::vector<Sample> samples(static_cast<std::size_t>(count));
  std::size_t at = 0;
  std::int64_t decode = 0;
  for (const auto& run : track.sampleLengths) {
    for (std::uint32_t i = 0; i < run.count && at < samples.size(); ++i, ++at) {
      samples[at].decode = decode;
      samples[at].presentation = decode;
      decode += run.value;
    }
  }
  if (at != samples.size()) return std::nullopt;
  at = 0;
  for (const auto& run : track.pictureOffsets) {
    for (std::uint32_t i = 0; i < run.count && at < samples.size(); ++i, ++at) samples[at].presentation += run.value;
  }
  const AVIndexEntry* first = avformat_index_get_entry(&stream, 0);
  for (int i = 0; i < count; ++i) {
    const AVIndexEntry* entry = avformat_index_get_entry(&stream, i);
    Sample& sample = samples[static_cast<std::size_t>(i)];
    if (entry->timestamp - first->timestamp != sample.decode) return std::nullopt;
    sample.position = entry->pos;
    sample.bytes = entry->size;
    sample.accessPoint = (entry->flags & AVINDEX_KEYFRAME) != 0;
  }
  const std::int64_t lastLength = track.sampleLengths.empty() ? 0 : track.sampleLengths.back().value;
  std::int64_t lastShown = 0;
  for (const auto& sample : samples) lastShown = std::max(lastShown, sample.presentation);
  return PictureTable(std::move(samples), lastShown + lastLength, std::move(changes));
}

/// Where a fragment's decode times begin before those of the one before it end, its pictures that are not later than
/// all of the earlier one's are not shown, as the ffmpeg program does: they are decoded only.
void dropOverlaps(std::vector<Sample>& samples) {
  std::int64_t latest = INT64_MIN;      // presentation so far
  std::int64_t decoded = INT64_MIN;     // decode time so far
  std::int64_t overlapped = INT64_MIN;  // presentation up to the last fragment that fell back
  for (Sample& sample : samples) {
    if (sample.decode <= decoded) overlapped = latest;
    decoded = sample.decode;
    // The table shows one picture of each time, the first in decoding order.
    sample.presentation = std::max(sample.presentation, overlapped);
    latest = std::max(latest, sample.presentation);
  }
}

/// What a stream's packets tell.
struct ListedSamples {
  std::vector<Sample> samples;
  std::vector<bool> isTold;  // by the container, when it is shown
  std::int64_t end = 0;      // where the last picture goes, in ticks
  CodecChanges changes;
};

Expected<void> order(const MediaFile& file, int index, ListedSamples& listed) {
  if (std::find(listed.isTold.begin(), listed.isTold.end(), false) == listed.isTold.end()) return {};
  auto packets = file.openStream(index);
  if (!packets) return tl::make_unexpected(packets.error());
  return orderPictures(*packets, listed.samples, listed.isTold);
}

Expected<ListedSamples> listPackets(const MediaFile& file, int index) {
  auto packets = file.openStream(index);
  if (!packets) return tl::make_unexpected(packets.error());
  ListedSamples listed;
  CodecChangesReader changes(file.parameters(index));
  std::vector<std::int64_t> lengths;
  Packet packet = makePacket();
  auto got = packets->read(*packet);
  for (; got && *got; got = packets->read(*packet)) {
    Sample sample;
    const std::int64_t fallback = listed.samples.empty() ? 0 : listed.samples.back().decode + 1;
    sample.decode = packet->dts != AV_NOPTS_VALUE ? packet->dts : fallback;
    listed.isTold.push_back(packet->pts != AV_NOPTS_VALUE);
    sample.presentation = listed.isTold.back() ? packet->pts : sample.decode;
    sample.position = packet->pos;
    sample.bytes = packet->size;
    sample.accessPoint = (packet->flags & AV_PKT_FLAG_KEY) != 0;
    if (!changes.take(*packet, listed.samples.size())) {
      return failed(ErrorKind::tooLarge, file.name() + tooManyFormats);
    }
    listed.samples.push_back(sample);
    lengths.push_back(std::max<std::int64_t>(packet->duration, 0));
    if (listed.samples.size() > limits::maxSamples) {
      return failed(ErrorKind::tooLarge, file.name() + " has too many pictures");
    }
    av_packet_unref(packet.get());
  }
  if (!got) return tl::make_unexpected(got.error());
  if (auto ordered = order(file, index, listed); !ordered) return tl::make_unexpected(ordered.error());
  for (std::size_t i = 0; i < lengths.size(); ++i) {
    listed.end = std::max(listed.end, listed.samples[i].presentation + lengths[i]);
  }
  listed.changes = changes.finish();
  return listed;
}

/// The demuxer tells what belongs to a sample description as it comes to its samples.
Expected<CodecChanges> readCodecChanges(const MediaFile& file, int index) {
  auto packets = file.openStream(index);
  if (!packets) return tl::make_unexpected(packets.error());
  CodecChangesReader changes(file.parameters(index));
  std::size_t sample = 0;
  Packet packet = makePacket();
  auto got = packets->read(*packet);
  for (; got && *got; got = packets->read(*packet)) {
    if (!changes.take(*packet, sample++)) return failed(ErrorKind::tooLarge, file.name() + tooManyFormats);
    av_packet_unref(packet.get());
  }
  if (!got) return tl::make_unexpected(got.error());
  return changes.finish();
}

Expected<std::optional<PictureTable>> tableFromBoxes(const MediaFile& file, int index, const MovieBoxes::Track& track) {
  CodecChanges changes;
  if (track.sampleDescriptions > 1 || file.parameters(index).format == AV_PIX_FMT_PAL8) {
    auto told = readCodecChanges(file, index);
    if (!told) return tl::make_unexpected(told.error());
    changes = std::move(*told);
  }
  auto packets = file.openStream(index);
  if (!packets) return tl::make_unexpected(packets.error());
  return tableFromIndex(packets->stream(), track, std::move(changes));
}

}  // namespace

Expected<PictureTable> buildPictureTable(const MediaFile& file, int index, const PictureTableSource& source) {
  if (source.track != nullptr) {
    auto table = tableFromBoxes(file, index, *source.track);
    if (!table) return tl::make_unexpected(table.error());
    if (*table) return std::move(**table);
  }
  auto listed = listPackets(file, index);
  if (!listed) return tl::make_unexpected(listed.error());
  if (source.isFragmented) dropOverlaps(listed->samples);
  return PictureTable(std::move(listed->samples), listed->end, std::move(listed->changes));
}

}  // namespace clipworks::engine
