#include <clipworks/engine/pipeline/SoundLaneReader.h>

#include <tests/engine/EngineTesting.h>
#include <tests/support/Tone.h>

namespace clipworks::engine {
namespace {

using File = std::shared_ptr<const MediaFile>;

constexpr int rate = 48'000;

SoundLane laneOf(const File& file, std::vector<SoundPiece> pieces) {
  return {file, streamOf(*file, StreamKind::audio)->index, std::move(pieces), 1.0F};
}

/// `count` samples of the lane at its track's own rate and layout, interleaved.
std::vector<float> played(const SoundLane& lane, std::int64_t count) {
  const StreamFacts& facts = lane.file->stream(lane.stream);
  std::vector<float> samples(static_cast<std::size_t>(count * facts.channels));
  must(must(SoundLaneReader::open(lane, facts.sampleRate, facts.channels, 0))->addNext(count, samples.data()));
  return samples;
}

// A stretched tone has its pitch and any phase at all, so some of these seams join opposite phases.
TEST(SoundLaneReader, KeepsTheLevelOfATonesSeams) {
  const test::TemporaryDirectory directory;
  double lowest = 1;
  double highest = 1;
  for (const int hertz : {200, 300, 400, 500, 700, 1000, 2000}) {
    const auto file = directory.file(std::to_string(hertz) + ".wav");
    runFFmpeg({"-f", "lavfi", "-i", "sine=" + std::to_string(hertz) + ":r=48000:d=3,volume=4", file});
    for (const double ratio : {0.6, 0.8, 1.3, 2.0}) {
      const std::int64_t stretch = std::llround(ratio * rate);
      const SoundLane lane =
          laneOf(must(MediaFile::open(file)),
                 {{0, rate, 0, rate}, {rate, rate, rate, stretch}, {2 * rate, rate, rate + stretch, rate}});
      const test::Sound sound{rate, played(lane, 2 * rate + stretch)};
      const double tone = sound.part(0.5, 0.75).level();
      ASSERT_GT(tone, 0.1);
      for (const double seam : {1.0, 1.0 + ratio}) {
        constexpr double window = 0.005;  // holds whole half periods of all these tones
        for (double at = seam - window; at < seam + 3 * window; at += window / 10) {
          lowest = std::min(lowest, sound.part(at, at + window).level() / tone);
          highest = std::max(highest, sound.part(at, at + window).level() / tone);
        }
      }
    }
  }
  EXPECT_GT(20 * std::log10(lowest), -1.5);
  EXPECT_LT(20 * std::log10(highest), 1.5);
}

/// How many of all samples are another sound through a mirror than forwards, by more than `tolerance`: 0 … 1.
double mirrorFaults(const File& file, std::int64_t length, float tolerance) {
  SoundLane lane = laneOf(file, {{0, length, 0, length}});
  const auto forwards = played(lane, length);
  lane.mirror = length;
  const auto backwards = played(lane, length);
  const auto channels = forwards.size() / static_cast<std::size_t>(length);
  double faults = 0;
  for (std::size_t i = 0; i < forwards.size(); ++i) {
    const std::size_t mirrored = forwards.size() - channels * (i / channels + 1) + i % channels;
    faults += std::abs(forwards[i] - backwards[mirrored]) > tolerance ? 1 : 0;
  }
  return faults / static_cast<double>(forwards.size());
}

/// Seven seconds, longer than five blocks, of which the sides are unlike.
File sweepsIn(const std::filesystem::path& path, const std::vector<std::string>& encoding) {
  const std::string sides = "0.3*sin(2*PI*t*(300+40*t))+0.1*random(0)|0.2*sin(2*PI*t*(500+90*t))";
  runFFmpeg({"-f", "lavfi", "-i", "aevalsrc=" + sides + ":d=7:s=48000", path}, encoding);
  return must(MediaFile::open(path));
}

TEST(MirroredSound, IsTheSoundInReverseOrder) {
  // Without the noise that an AAC decoder may fill in, which differs after a jump. Opus takes its time to settle.
  const std::tuple<const char*, std::vector<std::string>, float> kinds[] = {
      {"plain.wav", {"-c:a", "pcm_s16le"}, 0.0F},
      {"plain.mov", {"-c:a", "pcm_s16le"}, 0.0F},
      {"flac.ogg", {"-c:a", "flac"}, 0.0F},
      {"aac.m4a", {"-aac_pns", "0"}, 1e-4F},
      {"aac.mkv", {"-c:a", "aac", "-aac_pns", "0"}, 1e-4F},
      {"aac.ts", {"-c:a", "aac", "-aac_pns", "0"}, 1e-4F},
      {"mp3.mp3", {"-b:a", "128k"}, 1e-4F},
      {"opus.webm", {"-c:a", "libopus"}, 5e-3F},
      {"vorbis.ogg", {"-c:a", "libvorbis"}, 1e-4F}};
  const test::TemporaryDirectory directory;
  for (const auto& [name, encoding, tolerance] : kinds) {
    const auto file = sweepsIn(directory.file(name), encoding);
    const int fileRate = streamOf(*file, StreamKind::audio)->sampleRate;
    EXPECT_EQ(mirrorFaults(file, 15 * fileRate / 2, tolerance), 0) << name << " with silence behind the end";
  }
}

// All that lies above the reading takes it for the sound of a file that was recorded backwards.
TEST(MirroredSound, IsStretchedAndFadedAsAFileInReverse) {
  const test::TemporaryDirectory directory;
  // From before the media's end to behind its start, at three paces.
  const std::vector<SoundPiece> pieces{
      {-rate, 2 * rate, 0, 3 * rate}, {rate, 2 * rate, 3 * rate, 2 * rate}, {3 * rate, 5 * rate, 5 * rate, 2 * rate}};
  SoundLane mirrored = laneOf(sweepsIn(directory.file("forwards.wav"), {}), pieces);
  mirrored.mirror = 7 * rate;
  const auto sound = played(mirrored, 8 * rate);
  const auto reverse = sweepsIn(directory.file("backwards.wav"), {"-af", "areverse"});
  EXPECT_EQ(sound, played(laneOf(reverse, pieces), 8 * rate));
  EXPECT_TRUE(std::any_of(sound.begin() + 12 * rate, sound.end() - 2 * rate, [](float s) { return s != 0; }));
}

}  // namespace
}  // namespace clipworks::engine
