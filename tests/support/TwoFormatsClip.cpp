#include <tests/support/TwoFormatsClip.h>

#include <cstdint>
#include <fstream>
#include <stdexcept>
#include <string>

#include <tests/support/RunProgram.h>
#include <tests/support/TemporaryDirectory.h>

namespace clipworks::test {
namespace {

std::string u32(std::size_t number) {
  std::string bytes;
  for (int shift = 24; shift >= 0; shift -= 8) bytes += static_cast<char>(number >> shift);
  return bytes;
}
std::size_t u32At(const std::string& bytes, std::size_t at) {
  std::size_t number = 0;
  for (const char byte : bytes.substr(at, 4)) number = number << 8 | static_cast<unsigned char>(byte);
  return number;
}

/// Where the box of a type begins; all that are asked for lie behind the samples.
std::size_t boxAt(const std::string& bytes, const char* type) { return bytes.rfind(type) - 4; }

/// What a full box holds behind its version and flags.
std::string contentOf(const std::string& bytes, const char* type) {
  const std::size_t at = boxAt(bytes, type);
  return bytes.substr(at + 12, u32At(bytes, at) - 12);
}

void setContent(std::string& bytes, const char* type, const std::string& content) {
  const std::size_t before = u32At(bytes, boxAt(bytes, type));
  bytes.replace(boxAt(bytes, type) + 12, before - 12, content);
  for (const char* box : {type, "stbl", "minf", "mdia", "trak", "moov"}) {
    const std::size_t at = boxAt(bytes, box);
    bytes.replace(at, 4, u32(u32At(bytes, at) + content.size() + 12 - before));
  }
}

std::string made(const std::vector<std::string>& input, const std::filesystem::path& path) {
  std::vector<std::string> command{"ffmpeg", "-nostdin", "-v", "error", "-y", "-f"};
  command.insert(command.end(), input.begin(), input.end());
  command.push_back(path);
  if (const auto result = runProgram(command); !result.succeeded()) throw std::runtime_error(result.standardError);
  return fileBytes(path);
}

}  // namespace

std::filesystem::path twoFormatsClip() {
  static const TemporaryDirectory directory;
  const std::filesystem::path path = directory.file("two_formats.mp4");
  if (std::filesystem::exists(path)) return path;
  std::string formats = u32(2);
  for (const std::string half : {"white:s=256x128", "red:s=128x128"}) {
    const std::string clip = made({"lavfi", "-i", "color=c=" + half + ":r=25", "-frames:v", "12", "-c:v", "libx264",
                                   "-pix_fmt", "yuv420p", "-bf", "0", "-g", "6"},
                                  directory.file(half.substr(0, half.find(':')) + ".mp4"));
    formats += contentOf(clip, "stsd").substr(4);
  }
  std::ofstream(directory.file("list")) << "file white.mp4\nfile red.mp4\n";
  std::string bytes = made({"concat", "-auto_convert", "0", "-i", directory.file("list"), "-c", "copy"}, path);
  // All samples are in one chunk, of the first format.
  std::size_t second = u32At(contentOf(bytes, "stco"), 4);
  const std::size_t first = second;
  for (std::size_t i = 0; i < 12; ++i) second += u32At(contentOf(bytes, "stsz"), 8 + 4 * i);
  setContent(bytes, "stsd", formats);
  setContent(bytes, "stsc", u32(2) + u32(1) + u32(12) + u32(1) + u32(2) + u32(12) + u32(2));
  setContent(bytes, "stco", u32(2) + u32(first) + u32(second));
  std::ofstream(path, std::ios::binary) << bytes;
  return path;
}

}  // namespace clipworks::test
