#include <clipworks/engine/input/CodedUnits.h>

#include <algorithm>
#include <charconv>
#include <string_view>
#include <system_error>

#include <clipworks/engine/CodedUnitTypes.h>

namespace clipworks::engine {
namespace {

constexpr int noLayer = 8;  // TemporalId is 6 at most

bool isAvc(const AVCodecParameters& p) { return p.codec_id == AV_CODEC_ID_H264; }

// Bytes of the length before each unit: ISO/IEC 14496-15, 5.3.3.1 (avcC) and 8.3.3.1 (hvcC). 0 when there is no such
// record: the units then have start codes.
int lengthBytes(const AVCodecParameters& p) {
  if (!isAvc(p) && p.codec_id != AV_CODEC_ID_HEVC) return 0;
  const int at = isAvc(p) ? 4 : 21;
  if (p.extradata_size <= at || p.extradata[0] != 1) return 0;
  return (p.extradata[at] & 3) + 1;
}

// sps_max_sub_layers_minus1: ITU-T H.265, 7.3.2.2.1.
int highestLayerOf(const std::uint8_t* sequenceParameters) { return sequenceParameters[0] >> 1 & 7; }

// The highest of all sequence parameter sets in the decoder configuration record (ISO/IEC 14496-15, 8.3.3.1).
int highestLayerInRecord(const AVCodecParameters& p) {
  constexpr int arraysAt = 22;
  int highest = -1;
  int at = arraysAt + 1;
  const auto u16 = [&](int i) { return p.extradata[i] << 8 | p.extradata[i + 1]; };
  for (int array = p.extradata_size > arraysAt ? p.extradata[arraysAt] : 0; array > 0 && at + 3 <= p.extradata_size;
       --array) {
    const int type = p.extradata[at] & 0x3f;
    int units = u16(at + 1);
    for (at += 3; units > 0 && at + 2 <= p.extradata_size; --units) {
      const int length = u16(at);
      at += 2;
      const bool whole = length >= 3 && at + length <= p.extradata_size;
      if (type == hevc::sequenceParameters && whole) highest = std::max(highest, highestLayerOf(p.extradata + at + 2));
      at += length;
    }
  }
  return highest < 0 ? noLayer : highest;
}

}  // namespace

CodedUnits::CodedUnits(const AVPacket& packet, const AVCodecParameters& parameters)
    : data_(packet.data), size_(packet.size), prefix_(lengthBytes(parameters)), avc_(isAvc(parameters)) {}

std::optional<CodedUnit> CodedUnits::next() {
  const int head = avc_ ? 1 : 2;
  while (prefix_ > 0 && at_ + prefix_ + head <= size_) {
    std::int64_t length = 0;
    for (int i = 0; i < prefix_; ++i) length = length << 8 | data_[at_ + i];
    const std::uint8_t* unit = data_ + at_ + prefix_;
    whole_ = whole_ && length >= head && length <= size_ - at_ - prefix_;
    length = std::min(length, size_ - at_ - prefix_);
    at_ += prefix_ + length;
    if (length < head) continue;
    CodedUnit result{.payload = unit + head, .payloadBytes = length - head};
    if (avc_) {
      result.type = unit[0] & 0x1f;
      result.referenceIdc = unit[0] >> 5 & 3;
    } else {
      result.type = unit[0] >> 1 & 0x3f;
      result.layer = (unit[0] & 1) << 5 | unit[1] >> 3;
      result.temporalLayer = (unit[1] & 7) - 1;
    }
    return result;
  }
  return std::nullopt;
}

std::optional<int> x264BuildIn(const AVPacket& sample) {
  // Looked for as text, whatever the form of the sample's units: no byte of it is ever escaped.
  static constexpr std::string_view mark = "x264 - core ";
  constexpr std::size_t digits = 4;
  constexpr int namelessBuild = 67;  // "0000", in the first streams that said so at all
  const std::string_view bytes(reinterpret_cast<const char*>(sample.data), static_cast<std::size_t>(sample.size));
  const std::size_t at = bytes.find(mark);
  if (at == std::string_view::npos) return std::nullopt;
  const std::string_view number = bytes.substr(at + mark.size(), digits);
  int build = 0;
  const auto read = std::from_chars(number.data(), number.data() + number.size(), build);
  if (read.ec != std::errc() || build < 0) return std::nullopt;
  if (number == "0000") return namelessBuild;
  return build > 0 ? std::optional(build) : std::nullopt;
}

bool isClosedAccessPoint(const AVPacket& packet, const AVCodecParameters& parameters) {
  if (!isAvc(parameters) && parameters.codec_id != AV_CODEC_ID_HEVC) return true;
  CodedUnits units(packet, parameters);
  while (const auto unit = units.next()) {
    if (isAvc(parameters)) {
      if (unit->type >= avc::slice && unit->type <= avc::idrSlice) return unit->type == avc::idrSlice;
    } else if (unit->type < hevc::firstNonPicture) {
      return unit->type == hevc::idrWithLeading || unit->type == hevc::idr;
    }
  }
  return false;
}

bool isDecodingStart(const AVPacket& packet, const AVCodecParameters& parameters) {
  if (parameters.codec_id != AV_CODEC_ID_HEVC) return isClosedAccessPoint(packet, parameters);
  CodedUnits units(packet, parameters);
  while (const auto unit = units.next()) {
    if (unit->type < hevc::firstNonPicture)
      return unit->type >= hevc::firstAccessPoint && unit->type <= hevc::cleanAccess;
  }
  return false;
}

void startAnew(AVPacket& packet, const AVCodecParameters& parameters) {
  if (parameters.codec_id != AV_CODEC_ID_HEVC) return;
  if (av_packet_make_writable(&packet) < 0) throw std::bad_alloc();
  CodedUnits units(packet, parameters);
  while (const auto unit = units.next()) {
    if (unit->type != hevc::cleanAccess) continue;
    std::uint8_t& head = packet.data[unit->payload - packet.data - 2];
    head = static_cast<std::uint8_t>((head & 0x81) | hevc::brokenWithoutLeading << 1);
  }
}

DisposablePictures::DisposablePictures(const AVCodecParameters& parameters)
    : parameters_(&parameters),
      highestTemporalLayer_(lengthBytes(parameters) > 0 && !isAvc(parameters) ? highestLayerInRecord(parameters)
                                                                              : noLayer) {}

bool DisposablePictures::isDisposable(const AVPacket& packet) {
  CodedUnits units(packet, *parameters_);
  bool any = false;
  bool all = true;
  while (const auto unit = units.next()) {
    any = true;
    all = isDisposableUnit(*unit) && all;
  }
  return any && all && units.isWhole();
}

bool DisposablePictures::isDisposableUnit(const CodedUnit& unit) {
  if (isAvc(*parameters_)) {
    if (unit.type == avc::slice) return unit.referenceIdc == 0;
    return unit.type == avc::supplement || unit.type == avc::delimiter || unit.type == avc::filler;
  }
  if (unit.type == hevc::sequenceParameters && unit.payloadBytes > 0) {
    const int layer = highestLayerOf(unit.payload);
    highestTemporalLayer_ = highestTemporalLayer_ == noLayer ? layer : std::max(highestTemporalLayer_, layer);
  }
  if (unit.type < hevc::firstNonPicture) {
    return unit.type <= hevc::lastNonReference && unit.type % 2 == 0 && unit.layer == 0 &&
           unit.temporalLayer >= highestTemporalLayer_;
  }
  return unit.type == hevc::delimiter || unit.type == hevc::filler || unit.type == hevc::supplementBefore ||
         unit.type == hevc::supplementAfter || unit.type >= hevc::firstUnspecified;
}

}  // namespace clipworks::engine
