#include <clipworks/engine/pipeline/ParallelSoundEncoding.h>

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <numbers>
#include <random>
#include <stdexcept>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include <tests/engine/EncodedSound.h>
#include <tests/support/RunProgram.h>
#include <tests/support/TemporaryDirectory.h>

namespace clipworks::engine {
namespace {

using Samples = std::vector<float>;

/// Left and right, interleaved.
struct Stereo {
  int rate = 48'000;
  Samples samples;

  /// Half of what left and right have in common (`sign` 1) or of what makes them differ (-1).
  [[nodiscard]] std::vector<double> half(double sign) const {
    std::vector<double> half(samples.size() / 2);
    for (std::size_t i = 0; i < half.size(); ++i) half[i] = 0.5 * (samples[2 * i] + sign * samples[2 * i + 1]);
    return half;
  }
};

/// Decibels by which `sound` stands above what `heard` made different.
double clarity(const std::vector<double>& sound, const std::vector<double>& heard) {
  double signal = 0;
  double noise = 1e-12;
  for (std::size_t i = 0; i < std::min(sound.size(), heard.size()); ++i) {
    signal += sound[i] * sound[i];
    noise += (sound[i] - heard[i]) * (sound[i] - heard[i]);
  }
  return 10 * std::log10((signal + 1e-12) / noise);
}

/// Of what both sides have in common, and of what makes them differ.
struct Clarity {
  Clarity(const Stereo& sound, const Stereo& heard)
      : mid(clarity(sound.half(1), heard.half(1))), side(clarity(sound.half(-1), heard.half(-1))) {}
  double mid;
  double side;
};

/// As exports encode it.
Stereo encoded(const Stereo& sound) {
  const SoundEncoderSettings settings{sound.rate, 2, 192'000};
  const auto encoding = ParallelSoundEncoding::open(settings, {}, {1, 16}).value();
  constexpr std::size_t most = 2 * SoundEncoder::samplesPerPacket;
  for (auto from = sound.samples.begin(); from != sound.samples.end();) {
    const auto to = from + std::min<std::ptrdiff_t>(most, sound.samples.end() - from);
    if (!encoding->push(Samples(from, to))) throw std::runtime_error("the encoding refuses sound");
    from = to;
  }
  encoding->finish();
  std::vector<Packet> packets;
  while (auto packet = encoding->pull().value()) packets.push_back(std::move(*packet));
  return {sound.rate, decoded(packets, settings)};
}

void run(const std::vector<std::string>& arguments) {
  std::vector<std::string> command{"ffmpeg", "-v", "error", "-y"};
  command.insert(command.end(), arguments.begin(), arguments.end());
  const auto result = clipworks::test::runProgram(command);
  ASSERT_TRUE(result.succeeded()) << result;
}

Stereo decodedByProgram(const std::filesystem::path& path, int rate, const std::filesystem::path& raw) {
  run({"-i", path.string(), "-map", "0:a:0", "-f", "f32le", raw.string()});
  std::ifstream file(raw, std::ios::binary);
  Stereo sound{rate, Samples(std::filesystem::file_size(raw) / sizeof(float))};
  file.read(reinterpret_cast<char*>(sound.samples.data()),
            static_cast<std::streamsize>(sound.samples.size() * sizeof(float)));
  return sound;
}

/// By the ffmpeg program's own encoder as it is set without options.
Stereo encodedByProgram(const Stereo& sound) {
  const clipworks::test::TemporaryDirectory work;
  const auto raw = work.file("sound.f32").string();
  std::ofstream(raw, std::ios::binary)
      .write(reinterpret_cast<const char*>(sound.samples.data()),
             static_cast<std::streamsize>(sound.samples.size() * sizeof(float)));
  const auto coded = work.file("sound.m4a");
  run({"-f", "f32le", "-ar", std::to_string(sound.rate), "-ac", "2", "-i", raw, "-c:a", "aac", "-b:a", "192k",
       coded.string()});
  return decodedByProgram(coded, sound.rate, work.file("heard.f32"));
}

/// Something like a voice in the middle, noise around it that differs from side to side.
Stereo voiceInARoom() {
  Stereo sound;
  std::mt19937 random(1);
  std::normal_distribution<float> noise(0.0F, 0.02F);
  float left = 0;
  float right = 0;
  for (int i = 0; i < 4 * sound.rate; ++i) {
    const double t = static_cast<double>(i) / sound.rate;
    double voice = 0;
    for (int overtone = 1; overtone <= 12; ++overtone) {
      voice += 0.15 / overtone * std::sin(overtone * (2 * std::numbers::pi * 140 * t + 4 * std::sin(5 * t)));
    }
    voice *= std::max(0.0, std::sin(2 * std::numbers::pi * 3 * t));
    left += 0.3F * (noise(random) - left);
    right += 0.3F * (noise(random) - right);
    sound.samples.push_back(static_cast<float>(voice) + left);
    sound.samples.push_back(static_cast<float>(voice) + right);
  }
  return sound;
}

TEST(EncodedStereo, KeepsWhatMakesItsSidesDiffer) {
  const Stereo sound = voiceInARoom();
  const Clarity ours(sound, encoded(sound));
  const Clarity program(sound, encodedByProgram(sound));
  EXPECT_GE(ours.mid, program.mid - 0.5);
  EXPECT_GE(ours.side, program.side);
}

TEST(EncodedStereo, KeepsATonePerSideOnItsSide) {
  constexpr double onTheLeft = 3039;
  constexpr double onTheRight = 2962;
  const auto angle = [](double hertz, std::size_t i) {
    return 2 * std::numbers::pi * hertz * static_cast<double>(i) / 48'000;
  };
  Stereo sound;
  for (std::size_t i = 0; i < 48'000; ++i) {
    sound.samples.push_back(static_cast<float>(0.3 * std::sin(angle(onTheLeft, i))));
    sound.samples.push_back(static_cast<float>(0.3 * std::sin(angle(onTheRight, i))));
  }
  const Stereo heard = encoded(sound);
  // Whole periods of 1 Hz, so that the tones do not leak into each other.
  const auto level = [&](std::size_t side, double hertz) {
    double re = 0;
    double im = 0;
    for (std::size_t i = 0; i < 48'000; ++i) {  // the first second is the hardest
      re += heard.samples[2 * i + side] * std::cos(angle(hertz, i));
      im += heard.samples[2 * i + side] * std::sin(angle(hertz, i));
    }
    return 20 * std::log10(std::hypot(re, im) / 24'000 / 0.3);
  };
  EXPECT_NEAR(level(0, onTheLeft), 0, 0.1);
  EXPECT_NEAR(level(1, onTheRight), 0, 0.1);
  EXPECT_LT(level(1, onTheLeft), -40);
  EXPECT_LT(level(0, onTheRight), -40);
}

/// The clips in the folder that CLIPWORKS_MEDIA names whose sound has two sides that differ.
std::vector<Stereo> realClips() {
  std::vector<Stereo> clips;
  const char* folder = std::getenv("CLIPWORKS_MEDIA");
  if (folder == nullptr) return clips;
  const clipworks::test::TemporaryDirectory work;
  for (const auto& entry : std::filesystem::recursive_directory_iterator(folder)) {
    const auto path = entry.path().string();
    if (!entry.is_regular_file() || path.find("/corrupt/") != std::string::npos) continue;
    const auto facts = clipworks::test::runProgram({"ffprobe", "-v", "error", "-select_streams", "a:0", "-show_entries",
                                                    "stream=sample_rate,channels", "-of", "csv=p=0:nk=1", path});
    if (facts.standardOutput.find(",2") == std::string::npos) continue;
    const Stereo sound = decodedByProgram(path, std::stoi(facts.standardOutput), work.file("sound.f32"));
    constexpr double least = 1e-8;  // -80 dB of full scale
    double differs = 0;
    for (const double sample : sound.half(-1)) differs += sample * sample;
    if (differs > least * static_cast<double>(sound.samples.size()) / 2) clips.push_back(sound);
  }
  return clips;
}

TEST(EncodedStereo, OfRealClipsIsAsClearAsTheProgramsOwn) {
  const auto clips = realClips();
  if (clips.empty()) GTEST_SKIP() << "CLIPWORKS_MEDIA names no folder with clips in stereo";
  double mid = 0;
  double side = 0;
  for (const auto& sound : clips) {
    const Clarity ours(sound, encoded(sound));
    const Clarity program(sound, encodedByProgram(sound));
    SCOPED_TRACE(std::to_string(sound.samples.size() / 2) + " samples");
    constexpr double tolerance = 2;  // decibels: rate controls settle as they like; the mean is what counts
    EXPECT_GT(ours.mid, program.mid - tolerance);
    EXPECT_GT(ours.side, program.side - tolerance);
    mid += ours.mid - program.mid;
    side += ours.side - program.side;
  }
  EXPECT_GE(mid, 0) << "in " << clips.size() << " clips";
  EXPECT_GE(side, 0) << "in " << clips.size() << " clips";
}

}  // namespace
}  // namespace clipworks::engine
