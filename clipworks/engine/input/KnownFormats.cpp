#include <clipworks/engine/input/KnownFormats.h>

#include <algorithm>

// What telephones, cameras and screen recorders write, and what people keep their clips in. The libraries know some
// four hundred decoders more, most of them for formats of other ages that nobody looks after; a file must not be able
// to choose among those. A parser is chosen by the codec, and has no list of its own.

namespace clipworks::engine {
namespace {

// Playlists and scripts above all are refused.
constexpr const char* containers =
    "mov,mp4,m4a,3gp,3g2,mj2,matroska,webm,avi,mpegts,mpeg,asf,flv,wav,w64,aiff,caf,mp3,aac,flac,ogg,amr";

constexpr AVCodecID codecs[] = {
    // Pictures of telephones, of browsers, and of cameras of today.
    AV_CODEC_ID_H264, AV_CODEC_ID_HEVC, AV_CODEC_ID_VP8, AV_CODEC_ID_VP9, AV_CODEC_ID_AV1,
    // Of older telephones and cameras: 3GPP files, DVDs, AVCHD and HDV, Motion JPEG, DV.
    AV_CODEC_ID_H263, AV_CODEC_ID_MPEG4, AV_CODEC_ID_MPEG1VIDEO, AV_CODEC_ID_MPEG2VIDEO, AV_CODEC_ID_MJPEG,
    AV_CODEC_ID_DVVIDEO,
    // What editing cameras, recorders beside a camera, and recorders of screens write; PNG is cover art, too.
    AV_CODEC_ID_PRORES, AV_CODEC_ID_DNXHD, AV_CODEC_ID_V210, AV_CODEC_ID_RAWVIDEO, AV_CODEC_ID_PNG, AV_CODEC_ID_QTRLE,
    // Sound, coded with loss and without.
    AV_CODEC_ID_AAC, AV_CODEC_ID_AAC_LATM, AV_CODEC_ID_MP3, AV_CODEC_ID_MP2, AV_CODEC_ID_OPUS, AV_CODEC_ID_VORBIS,
    AV_CODEC_ID_AC3, AV_CODEC_ID_EAC3, AV_CODEC_ID_AMR_NB, AV_CODEC_ID_AMR_WB, AV_CODEC_ID_FLAC, AV_CODEC_ID_ALAC,
    AV_CODEC_ID_ADPCM_IMA_QT, AV_CODEC_ID_ADPCM_IMA_WAV, AV_CODEC_ID_ADPCM_MS, AV_CODEC_ID_PCM_MULAW,
    AV_CODEC_ID_PCM_ALAW,
    // Samples as they are; the last two are those of camcorders' AVCHD and DVDs.
    AV_CODEC_ID_PCM_U8, AV_CODEC_ID_PCM_S8, AV_CODEC_ID_PCM_S16LE, AV_CODEC_ID_PCM_S16BE, AV_CODEC_ID_PCM_S24LE,
    AV_CODEC_ID_PCM_S24BE, AV_CODEC_ID_PCM_S32LE, AV_CODEC_ID_PCM_S32BE, AV_CODEC_ID_PCM_F32LE, AV_CODEC_ID_PCM_F32BE,
    AV_CODEC_ID_PCM_F64LE, AV_CODEC_ID_PCM_F64BE, AV_CODEC_ID_PCM_BLURAY, AV_CODEC_ID_PCM_DVD};

/// Files are looked at with another decoder where the usual one is slow to start.
const AVCodec* decoderToLook(const AVCodec& usual) {
  if ((usual.capabilities & AV_CODEC_CAP_AVOID_PROBING) == 0) return nullptr;
  void* place = nullptr;
  while (const AVCodec* other = av_codec_iterate(&place)) {
    const bool isFit = (other->capabilities & (AV_CODEC_CAP_AVOID_PROBING | AV_CODEC_CAP_EXPERIMENTAL)) == 0;
    if (other->id == usual.id && av_codec_is_decoder(other) != 0 && isFit) return other;
  }
  return nullptr;
}

std::string listDecoders() {
  std::string names;
  for (const AVCodecID id : codecs) {
    const AVCodec* usual = avcodec_find_decoder(id);
    if (usual == nullptr) continue;  // not built into the library
    for (const AVCodec* decoder : {usual, decoderToLook(*usual)}) {
      if (decoder != nullptr) names += (names.empty() ? "" : ",") + std::string(decoder->name);
    }
  }
  return names;
}

}  // namespace

const char* knownContainers() { return containers; }

const std::string& knownDecoders() {
  static const auto& names = *new std::string(listDecoders());  // never destroyed: read until the process ends
  return names;
}

Expected<const AVCodec*> decoderFor(const AVCodecParameters& parameters, const InputLimits& limits,
                                    const std::string& name) {
  const std::string what = name + " holds " + (parameters.codec_type == AVMEDIA_TYPE_VIDEO ? "pictures" : "sound") +
                           " coded as " + avcodec_get_name(parameters.codec_id);
  const bool isKnown = std::find(std::begin(codecs), std::end(codecs), parameters.codec_id) != std::end(codecs);
  if (!isKnown && !limits.takesAnyCodec) {
    return failed(ErrorKind::unsupported,
                  what + ", which is not among the codecs that are decoded by default; any codec can be allowed");
  }
  const AVCodec* codec = avcodec_find_decoder(parameters.codec_id);
  if (codec == nullptr) return failed(ErrorKind::unsupported, what + ", which nothing here decodes");
  return codec;
}

}  // namespace clipworks::engine
