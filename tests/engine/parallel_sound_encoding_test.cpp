#include <clipworks/engine/pipeline/ParallelSoundEncoding.h>

#include <algorithm>
#include <cmath>
#include <future>
#include <numbers>
#include <random>

#include <gtest/gtest.h>

#include <tests/engine/EncodedSound.h>

namespace clipworks::engine {
namespace {

constexpr int rate = 48'000;
constexpr int packetSamples = 1024;
const SoundEncoderSettings mono{rate, 1, 96'000};

/// A gliding tone, noise that comes and goes, and sharp clicks, so that an encoder changes its windows all the time.
std::vector<float> restlessSound(int packets) {
  std::vector<float> samples(static_cast<std::size_t>(packets) * packetSamples);
  std::mt19937 random(1);
  std::uniform_real_distribution<float> noise(-1.0F, 1.0F);
  double phase = 0;
  std::size_t nextClick = 0;
  for (std::size_t i = 0; i < samples.size(); ++i) {
    const double seconds = static_cast<double>(i) / rate;
    phase += 2 * std::numbers::pi * (300 + 200 * std::sin(seconds)) / rate;
    samples[i] =
        static_cast<float>(0.2 * std::sin(phase)) + (std::fmod(seconds, 0.7) < 0.3 ? 0.02F : 0.0F) * noise(random);
    if (i == nextClick) {
      samples[i] += 0.6F;
      nextClick = i + 500 + random() % 6000;
    }
  }
  return samples;
}

/// What an encoder needs longest to settle on.
std::vector<float> lastingTone(int packets) {
  std::vector<float> samples(static_cast<std::size_t>(packets) * packetSamples);
  for (std::size_t i = 0; i < samples.size(); ++i) {
    samples[i] = static_cast<float>(0.3 * std::sin(2 * std::numbers::pi * 440 * static_cast<double>(i) / rate));
  }
  return samples;
}

std::vector<float> portion(const std::vector<float>& sound, std::int64_t packet) {
  const auto from = sound.begin() + packet * packetSamples;
  return {from, from + std::min<std::ptrdiff_t>(packetSamples, sound.end() - from)};
}

std::int64_t packetsIn(const std::vector<float>& sound) {
  return (static_cast<std::int64_t>(sound.size()) + packetSamples - 1) / packetSamples;
}

/// By as many encodings as there are ranges of sections, on `encoders` threads each.
std::vector<Packet> encodedInSections(const std::vector<float>& sound,
                                      const std::vector<ParallelSoundEncoding::Sections>& ranges, unsigned encoders) {
  std::vector<Packet> packets;
  for (const auto& range : ranges) {
    const auto encoding = ParallelSoundEncoding::open(mono, range, {encoders, encoders}).value();
    const auto giving = std::async(std::launch::async, [&] {
      const std::int64_t end = range.end ? ParallelSoundEncoding::endPacket(*range.end) : packetsIn(sound);
      for (std::int64_t i = ParallelSoundEncoding::firstPacket(range.first); i < end; ++i) {
        if (!encoding->push(portion(sound, i))) return;
      }
      encoding->finish();
    });
    while (auto packet = encoding->pull().value()) packets.push_back(std::move(*packet));
  }
  return packets;
}

/// Mean square of what `packet` samples of the sound lost.
double lossIn(std::int64_t packet, const std::vector<float>& sound, const std::vector<float>& heard) {
  double sum = 0;
  for (auto i = static_cast<std::size_t>(packet * packetSamples), end = i + packetSamples; i < end; ++i) {
    sum += (sound[i] - heard[i]) * (sound[i] - heard[i]);
  }
  return sum / packetSamples;
}

double sizeOf(const std::vector<Packet>& packets) {
  double size = 0;
  for (const auto& packet : packets) size += packet->size;
  return size;
}

bool areEqual(const std::vector<Packet>& a, const std::vector<Packet>& b) {
  return std::equal(a.begin(), a.end(), b.begin(), b.end(), [](const Packet& one, const Packet& other) {
    return one->pts == other->pts && one->size == other->size &&
           std::equal(one->data, one->data + one->size, other->data);
  });
}

class ParallelSoundEncodingOf : public testing::TestWithParam<std::vector<float> (*)(int packets)> {};

// Windows that do not fit lose as much as the clicks are loud, in one packet.
TEST_P(ParallelSoundEncodingOf, SoundLosesNoMoreAtItsJoinsThanOneEncoder) {
  constexpr auto section = ParallelSoundEncoding::sectionPackets;
  const auto sound = GetParam()(5 * section);
  const auto one = encodedByOne(sound, mono);
  const auto many = encodedInSections(sound, {{}}, 3);
  ASSERT_EQ(many.size(), one.size());
  for (std::size_t i = 0; i < many.size(); ++i) ASSERT_EQ(many[i]->pts, one[i]->pts) << "packet " << i;
  EXPECT_NEAR(sizeOf(many), sizeOf(one), 0.01 * sizeOf(one));

  // Two encoders share bits out differently among the packets, by a few decibels; in half a second it evens out.
  const auto heardOfOne = decoded(one, mono);
  const auto heard = decoded(many, mono);
  constexpr std::int64_t halfSecond = rate / 2 / packetSamples;
  double loss = 0;
  double lossOfOne = 0;
  for (std::int64_t join = section; join < packetsIn(sound) - halfSecond; join += section) {
    for (std::int64_t packet = join - 2; packet < join + halfSecond; ++packet) {
      const double here = lossIn(packet, sound, heard);
      const double hereOfOne = lossIn(packet, sound, heardOfOne);
      EXPECT_LT(here, 30 * hereOfOne + 1e-5) << "packet " << packet;
      loss += std::log10(here);
      lossOfOne += std::log10(hereOfOne);
    }
  }
  EXPECT_LT(10 * (loss - lossOfOne) / (4.0 * (halfSecond + 2)), 1) << "dB on average";
}

INSTANTIATE_TEST_SUITE_P(Sounds, ParallelSoundEncodingOf, testing::Values(restlessSound, lastingTone));

TEST(ParallelSoundEncoding, GivesTheSamePacketsHoweverTheWorkIsShared) {
  constexpr auto section = ParallelSoundEncoding::sectionPackets;
  // Ends around a join, where the last section is little more than an overlap.
  for (const int more : {-10, 1, 5}) {
    const auto sound = restlessSound(2 * section + more);
    const auto packets = encodedInSections(sound, {{}}, 1);
    EXPECT_TRUE(areEqual(packets, encodedInSections(sound, {{}}, 4)));
    EXPECT_TRUE(areEqual(packets, encodedInSections(sound, {{0, 1}, {1, std::nullopt}}, 2)));
    EXPECT_EQ(packets.size(), encodedByOne(sound, mono).size()) << more << "  packets behind the join";
  }
}

TEST(ParallelSoundEncoding, EndsWithTheFailureOfItsSoundAndWhenAbandoned) {
  const auto sound = restlessSound(10);
  auto encoding = ParallelSoundEncoding::open(mono, {}, {1, 1}).value();
  ASSERT_TRUE(encoding->push(portion(sound, 0)));
  encoding->fail({ErrorKind::internal, "no more sound", 0});
  const auto failed = encoding->pull();
  ASSERT_FALSE(failed);
  EXPECT_EQ(failed.error().sentence, "no more sound");

  encoding = ParallelSoundEncoding::open(mono, {}, {1, 1}).value();
  auto pulling = std::async(std::launch::async, [&] { return encoding->pull().has_value(); });
  encoding->abandon();
  ASSERT_EQ(pulling.wait_for(std::chrono::seconds(10)), std::future_status::ready) << "pull still waits";
  EXPECT_FALSE(pulling.get());
  EXPECT_FALSE(encoding->push(portion(sound, 0)) && [&] {
    for (int i = 0; i < 2 * ParallelSoundEncoding::sectionPackets; ++i) {
      if (!encoding->push(portion(sound, 0))) return false;
    }
    return true;
  }());
}

}  // namespace
}  // namespace clipworks::engine
