#include <cstdint>
#include <fstream>
#include <iterator>
#include <ostream>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include <clipworks/engine/input/SoundReader.h>

#include <tests/support/BarCodeClip.h>
#include <tests/support/RunProgram.h>
#include <tests/support/TemporaryDirectory.h>
#include <tests/support/Tone.h>

namespace clipworks::test {
namespace {

/// The first channel of the first track of sound, from the start of its file's timeline.
Sound soundOf(const std::filesystem::path& path, double seconds) {
  auto file = engine::MediaFile::open(path).value();
  const auto& facts = file->streams().front();
  auto reader = engine::SoundReader::open(file, facts.index).value();
  const auto count = static_cast<std::int64_t>(seconds * facts.sampleRate);
  std::vector<float> interleaved(static_cast<std::size_t>(count * facts.channels));
  EXPECT_TRUE(reader.read(facts.encoderDelay, count, interleaved.data()));
  Sound sound{facts.sampleRate, {}};
  for (std::size_t i = 0; i < interleaved.size(); i += static_cast<std::size_t>(facts.channels)) {
    sound.samples.push_back(interleaved[i]);
  }
  return sound;
}

struct SoundFile {
  const char* extension;
  const char* encoder;
  int rate = 44'100;
};
void PrintTo(const SoundFile& file, std::ostream* out) { *out << file.extension << ' ' << file.encoder; }

class SoundFiles : public testing::TestWithParam<SoundFile> {};

// Encoders put silence before the sound, which these files tell: as the LAME tag, pre-skip or granule positions.
TEST_P(SoundFiles, BeginWithTheirFirstSample) {
  const auto [extension, encoder, rate] = GetParam();
  const BarCodeClip clip(
      {.frames = 0, .audioCodec = encoder, .sampleRate = rate, .audioSeconds = 1, .extension = extension});
  const auto lag = lagMilliseconds(makeTone(rate, 0, 0.8), soundOf(clip.path(), 0.8));
  ASSERT_TRUE(lag);
  EXPECT_NEAR(*lag, 0, 0.5);
}

INSTANTIATE_TEST_SUITE_P(All, SoundFiles,
                         testing::Values(SoundFile{".mp3", "libmp3lame"}, SoundFile{".mp3", "libmp3lame", 22'050},
                                         SoundFile{".ogg", "libvorbis"}, SoundFile{".opus", "libopus", 48'000},
                                         SoundFile{".flac", "flac"}, SoundFile{".wav", "pcm_s16le"}));

// The box's content behind its name in `file`; big-endian numbers in it are changed in place.
class Box {
 public:
  Box(std::string& file, const char* name) : file_(file), at_(file.find(name) + 4) {}
  std::uint32_t operator[](std::size_t number) const {
    std::uint32_t value = 0;
    for (std::size_t i = 0; i < 4; ++i) value = value << 8 | static_cast<std::uint8_t>(file_[at_ + 4 * number + i]);
    return value;
  }
  void set(std::size_t number, std::uint32_t value) {
    for (std::size_t i = 0; i < 4; ++i) file_[at_ + 4 * number + i] = static_cast<char>(value >> (8 * (3 - i)) & 0xFF);
  }

 private:
  std::string& file_;
  std::size_t at_;
};

// Telephones put several frames of AMR into a sample (3GPP TS 26.244).
TEST(SoundReader, HearsEveryFrameOfASample) {
  const TemporaryDirectory directory;
  constexpr std::uint32_t framesPerSample = 5;
  constexpr std::uint32_t frames = 50;
  constexpr std::uint32_t bytes = 32;  // of a frame at 12.2 kb/s: RFC 4867, 5.3
  std::string amr = "#!AMR\n";
  std::uint32_t noise = 1;
  for (std::uint32_t i = 0; i < frames * bytes; ++i) {
    noise = noise * 1'664'525 + 1'013'904'223;
    amr.push_back(i % bytes == 0 ? '\x3C' : static_cast<char>(noise >> 24));
  }
  std::ofstream(directory.file("plain.amr"), std::ios::binary) << amr;
  const auto made = runProgram(
      {"ffmpeg", "-v", "error", "-i", directory.file("plain.amr"), "-c", "copy", directory.file("plain.3gp")});
  ASSERT_TRUE(made.succeeded()) << made;
  std::ifstream in(directory.file("plain.3gp"), std::ios::binary);
  std::string movie{std::istreambuf_iterator<char>(in), {}};
  Box sizes(movie, "stsz");  // version; size of all; count
  ASSERT_EQ(sizes[1], bytes);
  sizes.set(1, bytes * framesPerSample);
  sizes.set(2, frames / framesPerSample);
  Box lengths(movie, "stts");  // version; one run: count, length
  ASSERT_EQ(lengths[1], 1U);
  lengths.set(2, frames / framesPerSample);
  lengths.set(3, lengths[3] * framesPerSample);
  Box chunks(movie, "stsc");  // version; one run: first, samples in each
  ASSERT_EQ(chunks[3], frames);
  chunks.set(3, frames / framesPerSample);
  std::ofstream(directory.file("packed.3gp"), std::ios::binary) << movie;

  const double seconds = frames * 0.02;
  const Sound plain = soundOf(directory.file("plain.3gp"), seconds);
  EXPECT_GT(plain.part(0.9 * seconds, seconds).level(), 0.01);
  EXPECT_EQ(soundOf(directory.file("packed.3gp"), seconds).samples, plain.samples);
}

}  // namespace
}  // namespace clipworks::test
