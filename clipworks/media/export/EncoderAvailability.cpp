#include <clipworks/media/export/EncoderAvailability.h>

#include <atomic>

#include <clipworks/engine/output/VideoEncoder.h>

namespace clipworks {
namespace {

constexpr unsigned fourCC(const char (&code)[5]) {
  return static_cast<unsigned>(code[0]) << 24 | static_cast<unsigned>(code[1]) << 16 |
         static_cast<unsigned>(code[2]) << 8 | static_cast<unsigned>(code[3]);
}

std::atomic<bool>& withheld(VideoCodecKind codec) {
  static std::atomic<bool> h264{false};
  static std::atomic<bool> hevc{false};
  return codec == VideoCodecKind::h264 ? h264 : hevc;
}

bool opens(VideoCodecKind codec, int width, int height) {
  if (withheld(codec)) return false;
  engine::VideoEncoderSettings settings;
  settings.codec = codec == VideoCodecKind::h264 ? engine::VideoCodec::h264 : engine::VideoCodec::hevc;
  settings.width = width;
  settings.height = height;
  settings.timescale = 30;
  settings.speed = "ultrafast";
  try {
    const auto encoder = engine::VideoEncoder::open(settings);
    // One that gets no threads now is there all the same: the export says why it fails, and the next one may not.
    return encoder || encoder.error().kind == engine::ErrorKind::noThreads;
  } catch (const std::bad_alloc&) {
    return false;
  }
}

}  // namespace

void EncoderAvailability::withhold(VideoCodecKind codec) { withheld(codec) = true; }

bool EncoderAvailability::isAvailable(VideoCodecKind codec) {
  // Small: this is asked before every export, and an encoder's memory for large pictures takes time to clear.
  return opens(codec, 320, 180);
}

int VTCopySupportedPropertyDictionaryForEncoder(int width, int height, unsigned codecType) {
  constexpr int noEncoder = -12908;  // the platform's "could not find an encoder"
  if (codecType == fourCC("hvc1")) return opens(VideoCodecKind::hevc, width, height) ? 0 : noEncoder;
  if (codecType == fourCC("avc1")) return opens(VideoCodecKind::h264, width, height) ? 0 : noEncoder;
  return noEncoder;
}

}  // namespace clipworks
