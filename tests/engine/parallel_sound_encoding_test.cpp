#include <clipworks/engine/pipeline/ParallelSoundEncoding.h>

#include <future>

#include <tests/engine/EngineTesting.h>

namespace clipworks::engine {
namespace {

using Samples = std::vector<float>;
using Encoding = ParallelSoundEncoding;

constexpr int rate = 48'000;
constexpr int packetSamples = SoundEncoder::samplesPerPacket;
const SoundEncoderSettings mono{rate, 1, 96'000};
const SoundEncoderSettings stereo{rate, 2, 192'000};

double sine(double hertz, std::size_t sample) {
  return std::sin(2 * std::numbers::pi * hertz * static_cast<double>(sample) / rate);
}

/// A gliding tone, noise that comes and goes, and sharp clicks, so that an encoder changes its windows all the time.
Samples restlessSound(int packets) {
  Samples samples(static_cast<std::size_t>(packets) * packetSamples);
  std::mt19937 random(1);
  std::uniform_real_distribution<float> noise(-0.02F, 0.02F);
  for (std::size_t i = 0; i < samples.size(); ++i) {
    samples[i] = static_cast<float>(0.2 * sine(300 + 1e-4 * static_cast<double>(i), i));
    if (i % 33'600 < 14'400) samples[i] += noise(random);
    if (random() % 3500 == 0) samples[i] += 0.6F;
  }
  return samples;
}

/// What an encoder needs longest to settle on.
Samples lastingTone(int packets) {
  Samples samples(static_cast<std::size_t>(packets) * packetSamples);
  for (std::size_t i = 0; i < samples.size(); ++i) samples[i] = static_cast<float>(0.3 * sine(440, i));
  return samples;
}

Samples portion(const Samples& sound, std::int64_t packet, int channels = 1) {
  const auto from = sound.begin() + packet * packetSamples * channels;
  return {from, from + std::min<std::ptrdiff_t>(packetSamples * channels, sound.end() - from)};
}

std::int64_t packetsIn(const Samples& sound, int channels = 1) {
  return (std::ssize(sound) / channels + packetSamples - 1) / packetSamples;
}

std::vector<Packet> encodedByOne(const Samples& sound) {
  auto encoder = must(SoundEncoder::open(mono));
  std::vector<Packet> packets;
  for (std::int64_t i = 0; i <= packetsIn(sound); ++i) {
    const auto samples = i < packetsIn(sound) ? portion(sound, i) : Samples{};
    must(samples.empty() ? encoder.finish() : encoder.push(samples.data(), static_cast<int>(samples.size())));
    while (auto packet = must(encoder.pull())) packets.push_back(std::move(*packet));
  }
  return packets;
}

/// By as many encodings as there are ranges of sections, on `encoders` threads each.
std::vector<Packet> encodedInSections(const Samples& sound, const std::vector<Encoding::Sections>& ranges,
                                      unsigned encoders, const SoundEncoderSettings& settings = mono) {
  std::vector<Packet> packets;
  for (const auto& range : ranges) {
    const auto encoding = must(Encoding::open(settings, range, {encoders, encoders}));
    const auto giving = std::async(std::launch::async, [&] {
      const auto end = range.end ? Encoding::endPacket(*range.end) : packetsIn(sound, settings.channels);
      for (std::int64_t i = Encoding::firstPacket(range.first); i < end; ++i) {
        if (!encoding->push(portion(sound, i, settings.channels))) return;
      }
      encoding->finish();
    });
    while (auto packet = must(encoding->pull())) packets.push_back(std::move(*packet));
  }
  return packets;
}

/// What is heard of it, interleaved, without the encoder's delay.
Samples decoded(const std::vector<Packet>& packets, const SoundEncoderSettings& settings) {
  const auto format = must(SoundEncoder::open(settings)).format();
  const CodecContext decoder(avcodec_alloc_context3(avcodec_find_decoder(AV_CODEC_ID_AAC)));
  avcodec_parameters_to_context(decoder.get(), format.get());
  if (avcodec_open2(decoder.get(), nullptr, nullptr) != 0) throw std::runtime_error("no decoder of AAC");
  Samples samples;
  const Frame frame = makeFrame();
  for (const auto& packet : packets) {
    if (avcodec_send_packet(decoder.get(), packet.get()) != 0) throw std::runtime_error("a packet cannot be decoded");
    while (avcodec_receive_frame(decoder.get(), frame.get()) == 0) {
      for (int i = 0; i < frame->nb_samples * settings.channels; ++i) {
        const auto* channel = reinterpret_cast<const float*>(frame->extended_data[i % settings.channels]);
        samples.push_back(channel[i / settings.channels]);
      }
    }
  }
  samples.erase(samples.begin(), samples.begin() + packetSamples * settings.channels);
  return samples;
}

/// Mean square of what `packet` samples of the sound lost.
double lossIn(std::int64_t packet, const Samples& sound, const Samples& heard) {
  double sum = 0;
  for (auto i = static_cast<std::size_t>(packet * packetSamples), end = i + packetSamples; i < end; ++i)
    sum += (sound[i] - heard[i]) * (sound[i] - heard[i]);
  return sum / packetSamples;
}

double sizeOf(const std::vector<Packet>& packets) {
  return std::accumulate(packets.begin(), packets.end(), 0.0,
                         [](double sum, const Packet& p) { return sum + p->size; });
}

/// Times and bytes.
std::vector<std::pair<std::int64_t, std::string>> contentOf(const std::vector<Packet>& packets) {
  std::vector<std::pair<std::int64_t, std::string>> content;
  for (const auto& packet : packets)
    content.emplace_back(packet->pts, std::string(packet->data, packet->data + packet->size));
  return content;
}

// Windows that do not fit lose as much as the clicks are loud, in one packet.
TEST(ParallelSoundEncoding, LosesNoMoreAtItsJoinsThanOneEncoder) {
  constexpr auto section = Encoding::sectionPackets;
  for (const auto& sound : {restlessSound(5 * section), lastingTone(5 * section)}) {
    const auto one = encodedByOne(sound);
    const auto many = encodedInSections(sound, {{}}, 3);
    ASSERT_EQ(many.size(), one.size());
    for (std::size_t i = 0; i < many.size(); ++i) ASSERT_EQ(many[i]->pts, one[i]->pts) << "packet " << i;
    EXPECT_NEAR(sizeOf(many), sizeOf(one), 0.01 * sizeOf(one));

    // Two encoders share bits out differently among the packets, by a few decibels; in half a second it evens out.
    const auto heardOfOne = decoded(one, mono);
    const auto heard = decoded(many, mono);
    constexpr std::int64_t halfSecond = rate / 2 / packetSamples;
    double decibels = 0;
    for (std::int64_t join = section; join < packetsIn(sound) - halfSecond; join += section) {
      for (std::int64_t packet = join - 2; packet < join + halfSecond; ++packet) {
        const double here = lossIn(packet, sound, heard);
        const double hereOfOne = lossIn(packet, sound, heardOfOne);
        EXPECT_LT(here, 30 * hereOfOne + 1e-5) << "packet " << packet;
        decibels += 10 * std::log10(here / hereOfOne);
      }
    }
    EXPECT_LT(decibels / (4.0 * (halfSecond + 2)), 1) << "on average";
  }
}

TEST(ParallelSoundEncoding, GivesTheSamePacketsHoweverTheWorkIsShared) {
  // Ends around a join, where the last section is little more than an overlap.
  for (const int more : {-10, 1, 5}) {
    SCOPED_TRACE(std::to_string(more) + " packets behind the join");
    const auto sound = restlessSound(2 * Encoding::sectionPackets + more);
    const auto packets = contentOf(encodedInSections(sound, {{}}, 1));
    EXPECT_TRUE(packets == contentOf(encodedInSections(sound, {{}}, 4)));
    EXPECT_TRUE(packets == contentOf(encodedInSections(sound, {{0, 1}, {1, std::nullopt}}, 2)));
    EXPECT_EQ(packets.size(), encodedByOne(sound).size());
  }
}

TEST(ParallelSoundEncoding, EndsWithTheFailureOfItsSoundAndWhenAbandoned) {
  const auto sound = restlessSound(1);
  auto encoding = must(Encoding::open(mono, {}, {1, 1}));
  ASSERT_TRUE(encoding->push(sound));
  encoding->fail({ErrorKind::internal, "no more sound", 0});
  EXPECT_EQ(encoding->pull().error().sentence, "no more sound");

  encoding = must(Encoding::open(mono, {}, {1, 1}));
  auto pulling = std::async(std::launch::async, [&] { return encoding->pull().has_value(); });
  encoding->abandon();
  ASSERT_EQ(pulling.wait_for(std::chrono::seconds(10)), std::future_status::ready) << "pull still waits";
  EXPECT_FALSE(pulling.get());
  int taken = 0;
  while (taken < 2 * Encoding::sectionPackets && encoding->push(sound)) ++taken;
  EXPECT_LT(taken, 2 * Encoding::sectionPackets);
}

/// Decibels by which what both sides have in common (`sign` 1), or what makes them differ (-1), stands above what
/// `heard` made different of it.
double clarity(const Samples& sound, const Samples& heard, float sign) {
  double signal = 0;
  double noise = 0;
  for (std::size_t i = 0; i < std::min(sound.size(), heard.size()); i += 2) {
    const float right = sound[i] + sign * sound[i + 1];
    signal += right * right;
    noise += std::pow(right - heard[i] - sign * heard[i + 1], 2);
  }
  return 10 * std::log10(signal / noise);
}

// From the first second on, which is the hardest.
TEST(EncodedStereo, KeepsATonePerSideOnItsSide) {
  Samples sound;
  for (std::size_t i = 0; i < 2 * rate; ++i)
    sound.push_back(static_cast<float>(0.3 * sine(i % 2 == 0 ? 3039 : 2962, i / 2)));
  const auto heard = decoded(encodedInSections(sound, {{}}, 1, stereo), stereo);
  for (const float sign : {1.0F, -1.0F}) EXPECT_GE(clarity(sound, heard, sign), 53);
}

}  // namespace
}  // namespace clipworks::engine
