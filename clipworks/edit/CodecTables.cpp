#include <clipworks/edit/CodecTables.h>

#include <clipworks/engine/Handles.h>
#include <clipworks/engine/LibraryErrors.h>
#include <clipworks/engine/input/KnownFormats.h>

namespace clipworks {
namespace {

// Those with large tables. What is opened here needs to decode nothing.
constexpr AVCodecID decoded[] = {AV_CODEC_ID_H264, AV_CODEC_ID_HEVC, AV_CODEC_ID_VP9,  AV_CODEC_ID_MPEG4,
                                 AV_CODEC_ID_AAC,  AV_CODEC_ID_MP3,  AV_CODEC_ID_OPUS, AV_CODEC_ID_MJPEG};

void open(const AVCodec* codec) {
  if (codec == nullptr) return;  // not built into the library
  const auto context = engine::owned<engine::CodecContext>(avcodec_alloc_context3(codec));
  context->thread_count = 1;
  if (codec->type == AVMEDIA_TYPE_AUDIO) {
    context->sample_rate = 48'000;
    context->sample_fmt = AV_SAMPLE_FMT_FLTP;
    av_channel_layout_default(&context->ch_layout, 2);
  }
  (void)avcodec_open2(context.get(), codec, nullptr);  // Its tables are there, whether or not it could start.
}

}  // namespace

void buildCodecTables() {
  engine::prepareLibraries();
  (void)engine::knownDecoders();
  for (const AVCodecID id : decoded) open(avcodec_find_decoder(id));
  open(avcodec_find_encoder(AV_CODEC_ID_AAC));
}

}  // namespace clipworks
