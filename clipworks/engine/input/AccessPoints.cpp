#include <clipworks/engine/input/AccessPoints.h>

namespace clipworks::engine {
namespace {

// Bytes of the length before each unit: ISO/IEC 14496-15, 5.3.3.1 (avcC) and 8.3.3.1 (hvcC). 0 when there is no such
// record: the units then have start codes.
int lengthBytes(const AVCodecParameters& p) {
  const bool avc = p.codec_id == AV_CODEC_ID_H264;
  const int at = avc ? 4 : 21;
  if (p.extradata_size <= at || p.extradata[0] != 1) return 0;
  return (p.extradata[at] & 3) + 1;
}

}  // namespace

bool isClosedAccessPoint(const AVPacket& packet, const AVCodecParameters& parameters) {
  const bool avc = parameters.codec_id == AV_CODEC_ID_H264;
  if (!avc && parameters.codec_id != AV_CODEC_ID_HEVC) return true;
  const int prefix = lengthBytes(parameters);
  if (prefix == 0) return false;
  std::int64_t at = 0;
  while (at + prefix < packet.size) {
    std::int64_t length = 0;
    for (int i = 0; i < prefix; ++i) length = length << 8 | packet.data[at + i];
    at += prefix;
    const int header = packet.data[at];
    const int type = avc ? header & 0x1f : header >> 1 & 0x3f;
    constexpr int avcIdr = 5;
    if (avc && type >= 1 && type <= avcIdr) return type == avcIdr;
    constexpr int hevcIdrWithLeading = 19;
    constexpr int hevcIdr = 20;
    constexpr int firstNonPicture = 32;
    if (!avc && type < firstNonPicture) return type == hevcIdrWithLeading || type == hevcIdr;
    at += length;
  }
  return false;
}

}  // namespace clipworks::engine
