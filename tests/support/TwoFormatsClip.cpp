#include <tests/support/TwoFormatsClip.h>

#include <cstdint>
#include <fstream>
#include <span>
#include <stdexcept>
#include <string>

#include <clipworks/engine/boxes/BoxSequence.h>
#include <clipworks/engine/boxes/FourCC.h>

#include <tests/support/RunProgram.h>
#include <tests/support/TemporaryDirectory.h>

namespace clipworks::test {
namespace {

using engine::fourCC;

constexpr std::uint32_t pictures = 12;  // in each half

std::string u32(std::uint32_t number) {
  std::string bytes;
  for (int shift = 24; shift >= 0; shift -= 8) bytes += static_cast<char>(number >> shift);
  return bytes;
}
std::string box(const std::string& type, const std::string& content) {
  return u32(static_cast<std::uint32_t>(content.size() + 8)) + type + content;
}
std::string fullBox(const std::string& type, const std::string& content) { return box(type, u32(0) + content); }

struct Half {
  std::string samples;      // all of them
  std::string sizes;        // as in `stsz`
  std::string description;  // the one in `stsd`, head included
};

Half makeHalf(const TemporaryDirectory& directory, const std::string& colour, const std::string& size) {
  const std::string path = directory.file("half.mp4");
  const auto made = runProgram({"ffmpeg", "-v", "error", "-y", "-f", "lavfi", "-i",
                                "color=c=" + colour + ":s=" + size + ":r=25", "-frames:v", std::to_string(pictures),
                                "-c:v", "libx264", "-pix_fmt", "yuv420p", "-bf", "0", "-g", "6", path});
  if (!made.succeeded()) throw std::runtime_error(made.standardError);
  const std::string bytes = fileBytes(path);
  const auto content = std::as_bytes(std::span(bytes));
  const auto text = [](std::span<const std::byte> part) {
    return std::string(reinterpret_cast<const char*>(part.data()), part.size());
  };
  const auto stbl =
      *engine::findBox(content, {fourCC("moov"), fourCC("trak"), fourCC("mdia"), fourCC("minf"), fourCC("stbl")});
  return {text(*engine::findBox(content, {fourCC("mdat")})), text(*engine::findBox(stbl, {fourCC("stsz")})).substr(12),
          text(*engine::findBox(stbl, {fourCC("stsd")})).substr(8)};
}

std::string trackOf(const Half& first, const Half& second, std::uint32_t start) {
  const std::string matrix = u32(1 << 16) + std::string(12, '\0') + u32(1 << 16) + std::string(12, '\0') + u32(1 << 30);
  const std::string table =
      fullBox("stsd", u32(2) + first.description + second.description) +
      fullBox("stts", u32(1) + u32(2 * pictures) + u32(1)) +
      fullBox("stss", u32(4) + u32(1) + u32(7) + u32(13) + u32(19)) +
      fullBox("stsc", u32(2) + u32(1) + u32(pictures) + u32(1) + u32(2) + u32(pictures) + u32(2)) +
      fullBox("stsz", u32(0) + u32(2 * pictures) + first.sizes + second.sizes) +
      fullBox("stco", u32(2) + u32(start) + u32(start + static_cast<std::uint32_t>(first.samples.size())));
  const std::string media = fullBox("mdhd", u32(0) + u32(0) + u32(25) + u32(2 * pictures) + u32(0)) +
                            fullBox("hdlr", u32(0) + "vide" + std::string(13, '\0')) +
                            box("minf", fullBox("vmhd", std::string(8, '\0')) + box("stbl", table));
  const std::string header = u32(0) + u32(0) + u32(1) + u32(0) + u32(2 * pictures) + std::string(16, '\0') + matrix +
                             u32(256 << 16) + u32(128 << 16);
  return box("trak", fullBox("tkhd", header) + box("mdia", media));
}

}  // namespace

std::filesystem::path twoFormatsClip() {
  static const TemporaryDirectory directory;
  const std::filesystem::path path = directory.file("two_formats.mp4");
  if (std::filesystem::exists(path)) return path;
  const Half first = makeHalf(directory, "white", "256x128");
  const Half second = makeHalf(directory, "red", "128x128");
  const std::string type = box("ftyp", "isom" + u32(512) + "isom");
  const std::string media = box("mdat", first.samples + second.samples);
  const std::string movie = fullBox("mvhd", u32(0) + u32(0) + u32(25) + u32(2 * pictures) + std::string(80, '\0'));
  std::ofstream(path, std::ios::binary) << type << media
                                        << box("moov", movie + trackOf(first, second,
                                                                       static_cast<std::uint32_t>(type.size()) + 8));
  return path;
}

}  // namespace clipworks::test
