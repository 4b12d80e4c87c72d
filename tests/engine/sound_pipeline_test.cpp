#include <clipworks/engine/pipeline/PeakLimiter.h>
#include <clipworks/engine/pipeline/SoundLaneReader.h>
#include <clipworks/engine/pipeline/SoundMixer.h>
#include <clipworks/engine/pipeline/SoundParts.h>
#include <clipworks/engine/pipeline/SoundStretcher.h>

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

/// From one sample to the next.
double greatestStep(const test::Sound& sound) {
  double step = 0;
  for (std::size_t i = 1; i < sound.samples.size(); ++i)
    step = std::max(step, std::fabs(double{sound.samples[i]} - sound.samples[i - 1]));
  return step;
}

// A stretched tone has its pitch and any phase at all, so some of these seams join opposite phases.
TEST(SoundLaneReader, KeepsTheLevelOfATonesSeamsWithoutAClick) {
  const test::TemporaryDirectory directory;
  double lowest = 1;
  double highest = 1;
  double steepest = 1;
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
      const double step = greatestStep(sound.part(0.5, 0.75));
      for (const double seam : {1.0, 1.0 + ratio}) {
        constexpr double window = 0.005;  // holds whole half periods of all these tones
        for (double at = seam - window; at < seam + 3 * window; at += window / 10) {
          lowest = std::min(lowest, sound.part(at, at + window).level() / tone);
          highest = std::max(highest, sound.part(at, at + window).level() / tone);
          steepest = std::max(steepest, greatestStep(sound.part(at, at + window)) / step);
        }
      }
    }
  }
  EXPECT_GT(20 * std::log10(lowest), -1.5);
  EXPECT_LT(20 * std::log10(highest), 1.5);
  EXPECT_LT(steepest, 2) << "a click; phases that turn within a seam are steeper than the tone";
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

double tone(std::int64_t position, double hertz) {
  return 0.5 * std::sin(2 * std::numbers::pi * hertz * static_cast<double>(position) / rate);
}

/// The left side of the whole piece, read in odd portions of a source whose left side is `sample`, and whose right
/// side is silent.
std::vector<float> stretched(const SoundPiece& piece, const std::function<double(std::int64_t)>& sample) {
  const auto source = [&sample, next = std::int64_t{INT64_MIN}](std::int64_t position, std::int64_t count,
                                                                float* out) mutable -> Expected<void> {
    EXPECT_GE(position, next) << "asked in rising order";
    next = position + count;
    for (std::int64_t i = 0; i < 2 * count; ++i)
      *out++ = i % 2 == 0 ? static_cast<float>(sample(position + i / 2)) : 0.0F;
    return {};
  };
  const auto stretcher = SoundStretcher::make(piece, rate, 2, source);
  std::vector<float> left;
  std::vector<float> both(2 * 1111);
  while (std::ssize(left) < piece.length) {
    const auto count = std::min<std::int64_t>(1111, piece.length - std::ssize(left));
    must(stretcher->read(count, both.data()));
    for (std::int64_t i = 0; i < count; ++i) left.push_back(both[static_cast<std::size_t>(2 * i)]);
  }
  return left;
}

/// Hertz, by the zero crossings from the first rising one to the last.
double pitch(const std::vector<float>& samples) {
  std::vector<double> crossings;
  for (std::size_t i = 1; i < samples.size(); ++i) {
    if (samples[i - 1] >= 0 || samples[i] < 0) continue;
    crossings.push_back(static_cast<double>(i) - samples[i] / (samples[i] - samples[i - 1]));
  }
  if (crossings.size() < 3) return 0;
  return static_cast<double>(crossings.size() - 1) * rate / (crossings.back() - crossings.front());
}

TEST(StretchedSound, KeepsItsPitchAndLevelFromTheFirstSampleToTheLast) {
  // The ratio; seconds of the source; what becomes of the pitch.
  const std::tuple<double, double, double> cases[] = {{0.1, 10, 1},       {0.25, 4, 1}, {0.5, 2, 1}, {1.0001, 2, 1},
                                                      {1.5, 2, 1},        {2, 2, 1},    {8, 1, 1},   {32, 0.5, 1},
                                                      {40, 0.5, 1.0 / 40}};  // too slow for the pitch to stay
  for (const auto& [ratio, seconds, factor] : cases) {
    SCOPED_TRACE(ratio);
    constexpr double hertz = 440;
    const auto sourceLength = std::llround(seconds * rate);
    const SoundPiece piece{7 * rate + 123, sourceLength, 0, std::llround(static_cast<double>(sourceLength) * ratio)};
    const test::Sound sound{rate, stretched(piece, [](std::int64_t position) { return tone(position, hertz); })};
    EXPECT_NEAR(pitch(sound.samples) / (hertz * factor), 1.0, 0.005);
    EXPECT_NEAR(sound.part(0, 0.05).level(), 0.354, 0.07) << "at the start";
    EXPECT_NEAR(sound.part(sound.seconds() - 0.05, sound.seconds()).level(), 0.354, 0.07) << "at the end";
  }
}

TEST(StretchedSound, IsHeardWhereItBelongs) {
  // The tone swells and fades twice a second of the source; where it is loudest tells where the source is.
  for (const double ratio : {0.25, 0.5, 1.5, 2.0, 8.0}) {
    const SoundPiece piece{rate, 4 * rate, 0, std::llround(4 * rate * ratio)};
    const auto samples = stretched(piece, [](std::int64_t position) {
      return tone(position, 997) * (1 - std::cos(4 * std::numbers::pi * static_cast<double>(position) / rate));
    });
    double sine = 0;
    double cosine = 0;
    for (std::size_t i = 0; i < samples.size(); ++i) {
      const double phase = 4 * std::numbers::pi * static_cast<double>(i) / (rate * ratio);
      sine += static_cast<double>(samples[i]) * samples[i] * std::sin(phase);
      cosine += static_cast<double>(samples[i]) * samples[i] * std::cos(phase);
    }
    const double laterSeconds = std::atan2(-sine, -cosine) / (4 * std::numbers::pi) * ratio;
    EXPECT_NEAR(laterSeconds, 0, 0.001 * std::max(1.0, ratio / 2)) << ratio;
  }
}

TEST(StretchedSound, IsAMeanOfItsSourceWhereItIsTooFastForThePitchToStay) {
  const auto samples = stretched({500, 100'000, 0, 1000},
                                 [](std::int64_t position) { return static_cast<double>(position - 500) / 100'000; });
  for (std::size_t i = 0; i < samples.size(); ++i)
    ASSERT_NEAR(samples[i], (static_cast<double>(i) + 0.5) / 1000, 0.0005) << i;
}

constexpr int packetSamples = 1024;

/// A minute and a half of sound in a file of that name, seconds 10 to 12 of it at half speed.
SoundJob jobOf(const std::string& name, std::int64_t fileRate = rate) {
  static const test::TemporaryDirectory directory;
  const auto source = "aevalsrc=0.3*sin(2*PI*t*(300+20*t)):d=90:s=" + std::to_string(fileRate);
  runFFmpeg({"-f", "lavfi", "-i", source, directory.file(name)});
  SoundLane lane{must(MediaFile::open(directory.file(name))), 0, {}, 1.0F};
  lane.pieces = {{0, 10 * fileRate, 0, 10 * fileRate},
                 {10 * fileRate, 2 * fileRate, 10 * fileRate, 4 * fileRate},
                 {12 * fileRate, 78 * fileRate, 14 * fileRate, 78 * fileRate}};
  return {{rate, 1, 96'000}, 92 * std::int64_t{rate}, {lane}, false, false};
}

std::vector<float> mixed(const SoundJob& job, std::int64_t from, std::int64_t to) {
  auto mixer = must(SoundMixer::open(job, from));
  std::vector<float> all;
  for (std::vector<float> samples; from < to; from += packetSamples) {
    must(mixer.next(packetSamples, samples));
    all.insert(all.end(), samples.begin(), samples.end());
  }
  return all;
}

TEST(SoundParts, BehindAStretchSoundAsIfMixedInOneGo) {
  auto backwards = jobOf("backwards.mka");
  backwards.lanes.front().mirror = 90 * std::int64_t{rate};
  for (const SoundJob& stretched : {jobOf("steady.mp4"), backwards}) {
    SCOPED_TRACE(stretched.lanes.front().file->name());
    const auto parts = must(soundParts(stretched));
    ASSERT_EQ(parts.size(), 2U);
    EXPECT_EQ(parts[0].end, parts[1].first);
    const std::int64_t start = ParallelSoundEncoding::firstPacket(parts[1].first) * packetSamples;
    EXPECT_GE(start, 14 * rate);
    const auto whole = mixed(stretched, 0, start + 10 * rate);
    const auto part = mixed(stretched, start, start + 10 * rate);
    // Less than the noise that an AAC decoder fills in, which differs after a jump.
    EXPECT_THAT(part, testing::Pointwise(testing::FloatNear(1e-5F), std::vector(whole.begin() + start, whole.end())));
  }
}

TEST(SoundParts, IsOneWhereWhatFollowsNeedsWhatCameBefore) {
  auto limited = jobOf("limited.mp4");
  limited.limited = true;
  for (const SoundJob& job : {limited, jobOf("converted.mp4", 44'100), jobOf("without_index.mka")})
    EXPECT_EQ(must(soundParts(job)).size(), 1U) << job.lanes.front().file->name();
}

/// What comes out for `in` (mono), without the delay.
std::vector<float> limited(const std::vector<float>& in) {
  PeakLimiter limiter(rate, 1);
  std::vector<float> out = in;
  out.resize(in.size() + static_cast<std::size_t>(limiter.delay()));
  limiter.process(out.data(), std::ssize(out));
  out.erase(out.begin(), out.begin() + limiter.delay());
  return out;
}

/// A second of a tone of half the full scale, which is `peak` in a stretch.
std::vector<float> peaking(double peak, int from, int to) {
  std::vector<float> samples;
  for (int i = 0; i < rate; ++i)
    samples.push_back(static_cast<float>((i >= from && i < to ? peak : 0.5) * std::sin(0.05 * i)));
  return samples;
}

TEST(PeakLimiter, LeavesWhatFitsBitForBit) {
  const auto in = peaking(1, 0, rate);
  EXPECT_EQ(limited(in), in);
}

TEST(PeakLimiter, TurnsALoudStretchDownWithoutAStepAndLeavesTheRestAlone) {
  const std::tuple<double, int, int> cases[] = {{2, 4800, 9600}, {1.05, 6000, 6200}, {100, 4800, 9600}};
  for (const auto& [peak, from, to] : cases) {
    SCOPED_TRACE(peak);
    const auto in = peaking(peak, from, to);
    const auto out = limited(in);
    const auto lookAhead = static_cast<int>(PeakLimiter::lookAheadSeconds * rate);
    double before = 1;
    for (int i = 0; i < rate; ++i) {
      const auto at = static_cast<std::size_t>(i);
      ASSERT_LE(std::fabs(out[at]), 1.0F) << i;
      const bool isFarFromPeak = i < from - lookAhead || i > to + rate * 3 / 4;
      ASSERT_TRUE(!isFarFromPeak || out[at] == in[at]) << "changed at " << i;
      if (std::fabs(in[at]) < 0.01) continue;
      const double gain = static_cast<double>(out[at]) / in[at];
      ASSERT_NEAR(gain, before, 0.03) << "the gain steps at " << i;
      before = gain;
    }
    EXPECT_GT(*std::max_element(out.begin() + from, out.begin() + to), 0.9F) << "no more than the peak needs";
  }
}

TEST(PeakLimiter, MakesSilenceOfWhatIsNoNumber) {
  std::vector<float> in(1000, 0.25F);
  in[500] = std::numeric_limits<float>::quiet_NaN();
  in[501] = std::numeric_limits<float>::infinity();
  auto expected = in;
  expected[500] = expected[501] = 0;
  EXPECT_EQ(limited(in), expected);
}

}  // namespace
}  // namespace clipworks::engine
