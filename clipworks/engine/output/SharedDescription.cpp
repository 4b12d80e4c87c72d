#include <clipworks/engine/output/SharedDescription.h>

#include <algorithm>
#include <set>

#include <clipworks/engine/CodedUnitTypes.h>

namespace clipworks::engine {
namespace {

using Bytes = std::vector<std::uint8_t>;
using Unit = std::span<const std::uint8_t>;

constexpr int mostAvcNumber = 31;  // of seq_parameter_set_id, ITU-T H.264, 7.4.2.1.1
// The highest of sequence parameter sets (ITU-T H.265, 7.4.3.2.1); its code has eight bits more than that of 0.
constexpr int hevcNumber = 15;

constexpr int lengthBytes = 4;

int typeOf(bool avc, Unit unit) { return avc ? unit[0] & 0x1f : unit[0] >> 1 & 0x3f; }

/// The units of a stream with start codes (ITU-T H.264 and H.265, annex B).
std::vector<Unit> unitsOf(Unit stream) {
  std::vector<Unit> units;
  const auto startCode = [&stream](std::size_t from) {
    while (from + 3 <= stream.size() && !(stream[from] == 0 && stream[from + 1] == 0 && stream[from + 2] == 1)) ++from;
    return from + 3 <= stream.size() ? from : stream.size();
  };
  for (std::size_t at = startCode(0); at < stream.size();) {
    const std::size_t begin = at + 3;
    at = startCode(begin);
    std::size_t end = at;
    while (end > begin && stream[end - 1] == 0) --end;  // trailing_zero_8bits, or the first byte of a longer start code
    if (end > begin + 2) units.push_back(stream.subspan(begin, end - begin));
  }
  return units;
}

/// Without the bytes that keep start codes out (ITU-T H.264, 7.3.1).
Bytes unescaped(Unit unit) {
  Bytes bytes;
  int zeros = 0;
  for (const std::uint8_t byte : unit) {
    if (zeros >= 2 && byte == 3) {
      zeros = 0;
      continue;
    }
    zeros = byte == 0 ? zeros + 1 : 0;
    bytes.push_back(byte);
  }
  return bytes;
}

Bytes escaped(Unit unit) {
  Bytes bytes;
  bytes.reserve(unit.size() + unit.size() / 64);
  int zeros = 0;
  for (const std::uint8_t byte : unit) {
    if (zeros >= 2 && byte <= 3) {
      bytes.push_back(3);
      zeros = 0;
    }
    zeros = byte == 0 ? zeros + 1 : 0;
    bytes.push_back(byte);
  }
  return bytes;
}

/// The number ue(v) at a bit (ITU-T H.264, 9.1); -1 where there is none.
int numberAt(const Bytes& bytes, std::size_t bit) {
  const auto bitAt = [&bytes](std::size_t at) { return bytes[at / 8] >> (7 - at % 8) & 1; };
  const std::size_t bits = bytes.size() * 8;
  std::size_t zeros = 0;
  while (bit + zeros < bits && bitAt(bit + zeros) == 0) ++zeros;
  constexpr std::size_t mostZeros = 16;
  if (zeros > mostZeros || bit + 2 * zeros >= bits) return -1;
  int value = 0;
  for (std::size_t i = 0; i <= zeros; ++i) value = value << 1 | bitAt(bit + zeros + i);
  return value - 1;
}

/// Writes `hevcNumber` for the 0 at a bit, by which all behind it moves on by a byte. False where there is no 0.
bool renumber(Bytes& bytes, std::size_t bit) {
  const std::size_t at = bit / 8;
  const int before = static_cast<int>(bit % 8);
  const int after = 7 - before;
  if (at >= bytes.size() || (bytes[at] >> after & 1) == 0) return false;
  constexpr int code = 0b000010000;  // ue(v) of 15, nine bits
  const int head = bytes[at] >> (8 - before);
  const int tail = bytes[at] & ((1 << after) - 1);
  const int wider = (head << 9 | code) << after | tail;
  bytes[at] = static_cast<std::uint8_t>(wider >> 8);
  bytes.insert(bytes.begin() + static_cast<std::ptrdiff_t>(at) + 1, static_cast<std::uint8_t>(wider & 0xff));
  return true;
}

/// Where an SPS of HEVC has its number: behind its head, sps_video_parameter_set_id to temporal_id_nesting_flag, and
/// the profile, tier and level of a stream without sub-layers (ITU-T H.265, 7.3.2.2.1 and 7.3.3).
constexpr std::size_t hevcSequenceNumberBit = 16 + 8 + 96;

/// A unit of the encoder of HEVC whose parameter sets, numbered 0, are to be `hevcNumber`.
Expected<Bytes> renumbered(Unit unit) {
  const auto other = [] {
    return failed(ErrorKind::internal, "the encoder's parameter sets are not numbered as expected");
  };
  const int type = typeOf(false, unit);
  Bytes bytes = unescaped(unit);
  constexpr std::size_t head = 16;
  if (type == hevc::videoParameters || type == hevc::sequenceParameters) {
    bytes[2] = static_cast<std::uint8_t>(hevcNumber << 4 | (bytes[2] & 0xf));  // vps_video_parameter_set_id, u(4)
  }
  if (type == hevc::sequenceParameters) {
    const bool hasSubLayers = (bytes[2] >> 1 & 7) != 0;
    if (hasSubLayers || !renumber(bytes, hevcSequenceNumberBit)) return other();
  } else if (type == hevc::pictureParameters) {
    // Its own number, then that of its SPS.
    if (!renumber(bytes, head) || !renumber(bytes, head + 9)) return other();
  } else if (type < hevc::firstNonPicture) {
    // first_slice_segment_in_pic_flag; of access points no_output_of_prior_pics_flag; then the number (7.3.6.1).
    const bool isAccessPoint = type >= hevc::firstAccessPoint && type <= hevc::lastReservedAccessPoint;
    if (!renumber(bytes, head + (isAccessPoint ? 2 : 1))) return other();
  }
  return escaped(bytes);
}

void append(Bytes& bytes, std::size_t number, int width) {
  for (int shift = 8 * (width - 1); shift >= 0; shift -= 8)
    bytes.push_back(static_cast<std::uint8_t>(number >> shift & 0xff));
}

void appendUnit(Bytes& bytes, Unit unit, int width) {
  append(bytes, unit.size(), width);
  bytes.insert(bytes.end(), unit.begin(), unit.end());
}

/// Reads a record step by step; once it has passed its end, all is empty.
class RecordCursor {
 public:
  explicit RecordCursor(Unit record) : left_(record) {}
  Unit take(std::size_t count) {
    if (count > left_.size()) {
      whole_ = false;
      count = left_.size();
    }
    const Unit taken = left_.first(count);
    left_ = left_.subspan(count);
    return taken;
  }
  std::size_t number(std::size_t width) {
    std::size_t value = 0;
    for (const std::uint8_t byte : take(width)) value = value << 8 | byte;
    return value;
  }
  [[nodiscard]] bool isWhole() const { return whole_; }
  [[nodiscard]] Unit rest() const { return left_; }

 private:
  Unit left_;
  bool whole_ = true;
};

Unit recordOf(const AVCodecParameters& p) { return {p.extradata, static_cast<std::size_t>(p.extradata_size)}; }

constexpr std::size_t avcSetsAt = 5;    // of avcC: numOfSequenceParameterSets, 5.3.3.1.2
constexpr std::size_t hevcSetsAt = 22;  // of hvcC: numOfArrays, 8.3.3.1.2

tl::unexpected<Error> unsuitable(const char* why) { return failed(ErrorKind::unsupported, why); }

}  // namespace

Expected<SharedDescription> SharedDescription::of(const AVCodecParameters& copied) {
  SharedDescription shared;
  shared.avc_ = copied.codec_id == AV_CODEC_ID_H264;
  if (!shared.avc_ && copied.codec_id != AV_CODEC_ID_HEVC) return unsuitable("no encoder of its codec is here");
  const Unit record = recordOf(copied);
  const std::size_t setsAt = shared.avc_ ? avcSetsAt : hevcSetsAt;
  if (record.size() <= setsAt || record[0] != 1) return unsuitable("its parameter sets are not in its description");
  if ((record[setsAt - 1] & 3) + 1 != lengthBytes) return unsuitable("its units are counted in few bytes");
  RecordCursor cursor(record.subspan(setsAt));
  const std::size_t arrays = shared.avc_ ? 2 : cursor.number(1);
  for (std::size_t array = 0; array < arrays && cursor.isWhole(); ++array) {
    std::size_t type = shared.avc_ ? 0 : cursor.number(1) & 0x3f;
    std::size_t count = cursor.number(shared.avc_ ? 1 : 2);
    if (shared.avc_) {
      type = array == 0 ? avc::sequenceParameters : avc::pictureParameters;
      if (array == 0) count &= 0x1f;
    }
    for (; count > 0 && cursor.isWhole(); --count) {
      const Unit unit = cursor.take(cursor.number(2));
      shared.sets_.push_back({static_cast<int>(type), {unit.begin(), unit.end()}});
    }
  }
  if (!cursor.isWhole()) return unsuitable("its parameter sets are damaged");

  std::set<int> taken;
  for (const ParameterSet& set : shared.sets_) {
    const Bytes bytes = unescaped(set.unit);
    // Behind the head; an SPS of H.264 has its profile and level first (7.3.2.1.1).
    if (shared.avc_) taken.insert(numberAt(bytes, set.type == avc::sequenceParameters ? 32 : 8));
    if (!shared.avc_ && set.type == hevc::pictureParameters) taken.insert(numberAt(bytes, 16));
    if (!shared.avc_ && set.type == hevc::sequenceParameters) taken.insert(numberAt(bytes, hevcSequenceNumberBit));
    if (!shared.avc_ && set.type == hevc::videoParameters && bytes.size() > 2) taken.insert(bytes[2] >> 4);
  }
  shared.number_ = shared.avc_ ? mostAvcNumber : hevcNumber;
  while (shared.avc_ && shared.number_ > 0 && taken.contains(shared.number_)) --shared.number_;
  if (taken.contains(shared.number_)) return unsuitable("its parameter sets take all numbers");

  // profile_idc of H.264; the libraries' numbers are the same.
  shared.profile_ = shared.avc_ ? record[1] : copied.profile;
  const bool known = !shared.avc_ || shared.profile_ == FF_PROFILE_H264_BASELINE ||
                     shared.profile_ == FF_PROFILE_H264_MAIN || shared.profile_ == FF_PROFILE_H264_HIGH;
  if (!known) return unsuitable("no encoder of its profile is here");
  shared.copied_ = owned<CodecParameters>(avcodec_parameters_alloc());
  if (avcodec_parameters_copy(shared.copied_.get(), &copied) < 0) throw std::bad_alloc();
  return shared;
}

SharedDescription::Bytes SharedDescription::avcRecordWith(const std::vector<ParameterSet>& sets) const {
  Bytes record(recordOf(*copied_).begin(), recordOf(*copied_).begin() + avcSetsAt);
  for (const int type : {avc::sequenceParameters, avc::pictureParameters}) {
    const auto isOfType = [type](const ParameterSet& set) { return set.type == type; };
    const auto count =
        std::count_if(sets_.begin(), sets_.end(), isOfType) + std::count_if(sets.begin(), sets.end(), isOfType);
    const int reserved = type == avc::sequenceParameters ? 0xe0 : 0;
    record.push_back(static_cast<std::uint8_t>(reserved | static_cast<int>(count)));
    for (const auto* list : {&sets_, &sets}) {
      for (const ParameterSet& set : *list) {
        if (isOfType(set)) appendUnit(record, set.unit, 2);
      }
    }
  }
  // The level is what a decoder needs for all of them.
  for (const ParameterSet& set : sets) {
    if (set.type == avc::sequenceParameters && set.unit.size() > 3) record[3] = std::max(record[3], set.unit[3]);
  }
  // What High profiles add behind the sets (5.3.3.1.2) stays: depth and chroma are those of the copied samples.
  RecordCursor cursor(recordOf(*copied_).subspan(avcSetsAt));
  for (const int mask : {0x1f, 0xff}) {
    for (std::size_t count = cursor.number(1) & static_cast<std::size_t>(mask); count > 0; --count)
      cursor.take(cursor.number(2));
  }
  record.insert(record.end(), cursor.rest().begin(), cursor.rest().end());
  return record;
}

SharedDescription::Bytes SharedDescription::hevcRecordWith(const std::vector<ParameterSet>& sets) const {
  Bytes record(recordOf(*copied_).begin(), recordOf(*copied_).begin() + hevcSetsAt);
  std::vector<int> types;
  for (const auto* list : {&sets_, &sets}) {
    for (const ParameterSet& set : *list) {
      if (std::find(types.begin(), types.end(), set.type) == types.end()) types.push_back(set.type);
    }
  }
  record.push_back(static_cast<std::uint8_t>(types.size()));
  for (const int type : types) {
    const auto isOfType = [type](const ParameterSet& set) { return set.type == type; };
    record.push_back(static_cast<std::uint8_t>(type));  // array_completeness 0: samples may hold sets, too
    append(record,
           static_cast<std::size_t>(std::count_if(sets_.begin(), sets_.end(), isOfType) +
                                    std::count_if(sets.begin(), sets.end(), isOfType)),
           2);
    for (const auto* list : {&sets_, &sets}) {
      for (const ParameterSet& set : *list) {
        if (isOfType(set)) appendUnit(record, set.unit, 2);
      }
    }
  }
  return record;
}

Expected<CodecParameters> SharedDescription::with(const AVCodecParameters& encoded) const {
  std::vector<ParameterSet> sets;
  for (const Unit unit : unitsOf(recordOf(encoded))) {
    const int type = typeOf(avc_, unit);
    const bool isSet = avc_ ? type == avc::sequenceParameters || type == avc::pictureParameters
                            : type >= hevc::videoParameters && type <= hevc::pictureParameters;
    if (!isSet) continue;
    if (avc_) {
      sets.push_back({type, {unit.begin(), unit.end()}});
    } else {
      auto own = renumbered(unit);
      if (!own) return tl::make_unexpected(own.error());
      sets.push_back({type, std::move(*own)});
    }
  }
  if (sets.empty()) return failed(ErrorKind::internal, "the encoder told no parameter sets");
  const Bytes record = avc_ ? avcRecordWith(sets) : hevcRecordWith(sets);
  CodecParameters both = owned<CodecParameters>(avcodec_parameters_alloc());
  if (avcodec_parameters_copy(both.get(), copied_.get()) < 0) throw std::bad_alloc();
  av_freep(&both->extradata);
  both->extradata = static_cast<std::uint8_t*>(av_mallocz(record.size() + AV_INPUT_BUFFER_PADDING_SIZE));
  if (both->extradata == nullptr) throw std::bad_alloc();
  std::copy(record.begin(), record.end(), both->extradata);
  both->extradata_size = static_cast<int>(record.size());
  return both;
}

Expected<Packet> SharedDescription::asCopied(const AVPacket& encoded) const {
  Bytes sample;
  for (const Unit unit : unitsOf({encoded.data, static_cast<std::size_t>(encoded.size)})) {
    if (avc_) {
      appendUnit(sample, unit, lengthBytes);
      continue;
    }
    auto own = renumbered(unit);
    if (!own) return tl::make_unexpected(own.error());
    appendUnit(sample, *own, lengthBytes);
  }
  Packet packet = makePacket();
  if (av_new_packet(packet.get(), static_cast<int>(sample.size())) < 0 ||
      av_packet_copy_props(packet.get(), &encoded) < 0)
    throw std::bad_alloc();
  std::copy(sample.begin(), sample.end(), packet->data);
  return packet;
}

}  // namespace clipworks::engine
