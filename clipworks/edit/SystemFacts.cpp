#include <clipworks/edit/SystemFacts.h>

#include <clipworks/engine/FFmpeg.h>
#include <clipworks/engine/LibraryVersions.h>
#include <clipworks/engine/Memory.h>
#include <clipworks/engine/Processors.h>
#include <clipworks/engine/capture/SoundCapture.h>
#include <clipworks/media/export/EncoderAvailability.h>

namespace clipworks {

SystemFacts systemFacts() {
  SystemFacts facts;
  for (auto& [name, version] : engine::libraryVersions())
    facts.libraries.push_back({std::move(name), std::move(version)});
  facts.encoders = {{"H.264", EncoderAvailability::isAvailable(VideoCodecKind::h264)},
                    {"HEVC", EncoderAvailability::isAvailable(VideoCodecKind::hevc)},
                    {"AAC", avcodec_find_encoder(AV_CODEC_ID_AAC) != nullptr}};
  const auto sound = engine::openSoundCapture({});
  facts.recordsSound = sound.has_value();
  if (!sound) facts.soundError = sound.error().sentence;
  return facts;
}

int usableProcessors() { return engine::usableProcessors(); }

std::int64_t usableMemory() { return engine::usableMemory(); }

}  // namespace clipworks
