#include <clipworks/engine/pipeline/SoundStretcher.h>

#include <tests/engine/EngineTesting.h>
#include <tests/support/Tone.h>

namespace clipworks::engine {
namespace {

constexpr int rate = 48'000;

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

}  // namespace
}  // namespace clipworks::engine
