#include <clipworks/engine/input/SoundReader.h>

#include <tests/engine/EngineTesting.h>
#include <tests/support/Tone.h>

namespace clipworks::engine {
namespace {

/// The first channel of the first track of sound, from the start of its file's timeline.
test::Sound soundOf(const std::filesystem::path& path, double seconds) {
  const auto file = must(MediaFile::open(path));
  const auto& facts = file->streams().front();
  const auto count = static_cast<std::int64_t>(seconds * facts.sampleRate);
  std::vector<float> interleaved(static_cast<std::size_t>(count * facts.channels));
  auto reader = must(SoundReader::open(file, facts.index));
  must(reader.read(facts.encoderDelay, count, interleaved.data()));
  test::Sound sound{facts.sampleRate, {}};
  for (std::size_t i = 0; i < interleaved.size(); i += static_cast<std::size_t>(facts.channels))
    sound.samples.push_back(interleaved[i]);
  return sound;
}

// Encoders put silence before the sound, which these files tell: as the LAME tag, pre-skip or granule positions.
TEST(SoundReader, BeginsWithTheFirstSampleOfAFile) {
  const std::tuple<const char*, const char*, int> files[] = {
      {".mp3", "libmp3lame", 44'100}, {".mp3", "libmp3lame", 22'050}, {".ogg", "libvorbis", 44'100},
      {".opus", "libopus", 48'000},   {".flac", "flac", 44'100},      {".wav", "pcm_s16le", 44'100}};
  for (const auto& [extension, encoder, rate] : files) {
    const test::BarCodeClip clip(
        {.frames = 0, .audioCodec = encoder, .sampleRate = rate, .audioSeconds = 1, .extension = extension});
    const auto lag = lagMilliseconds(test::makeTone(rate, 0, 0.8), soundOf(clip.path(), 0.8));
    EXPECT_NEAR(lag.value_or(NAN), 0, 0.5) << extension << ' ' << rate;
  }
}

// Telephones put several frames of AMR into a sample (3GPP TS 26.244).
TEST(SoundReader, HearsEveryFrameOfASample) {
  const test::TemporaryDirectory directory;
  constexpr std::uint32_t frames = 50;
  constexpr std::uint32_t bytes = 32;  // of a frame at 12.2 kb/s: RFC 4867, 5.3
  std::string amr = "#!AMR\n";
  std::uint32_t noise = 1;
  for (std::uint32_t i = 0; i < frames * bytes; ++i) {
    noise = noise * 1'664'525 + 1'013'904'223;
    amr.push_back(i % bytes == 0 ? '\x3C' : static_cast<char>(noise >> 24));
  }
  const auto plain = directory.file("plain.3gp");
  runFFmpeg({"-i", writeTo(directory.file("plain.amr"), amr), "-c", "copy", plain});
  std::string movie = fileBytes(plain);
  const auto change = [&](const char* box, std::size_t number, std::uint32_t from, std::uint32_t to) {
    const std::size_t at = movie.find(box) + 4 + 4 * number;
    EXPECT_EQ(movie.substr(at, 4), bigEndian(from)) << box << ' ' << number;
    movie.replace(at, 4, bigEndian(to));
  };
  change("stsz", 1, bytes, 5 * bytes);  // version; size of all; count
  change("stsz", 2, frames, frames / 5);
  change("stts", 2, frames, frames / 5);  // version; one run: count, length
  change("stts", 3, 160, 5 * 160);
  change("stsc", 3, frames, frames / 5);  // version; one run: first, samples in each

  const auto heard = soundOf(plain, 1);
  EXPECT_GT(heard.part(0.9, 1).level(), 0.01);
  EXPECT_EQ(soundOf(writeTo(directory.file("packed.3gp"), movie), 1).samples, heard.samples);
}

}  // namespace
}  // namespace clipworks::engine
