#include <clipworks/engine/pipeline/SoundStretcher.h>

#include <algorithm>
#include <cmath>
#include <functional>
#include <numbers>
#include <ostream>
#include <string>
#include <vector>

#include <gtest/gtest.h>

namespace clipworks::engine {
namespace {

constexpr int rate = 48'000;

double tone(std::int64_t position, double hertz) {
  return 0.5 * std::sin(2 * std::numbers::pi * hertz * static_cast<double>(position) / rate);
}

/// A source whose left side is `sample`, and whose right side is silent.
SoundStretcher::ReadSource leftSide(std::function<double(std::int64_t)> sample) {
  return [sample, next = std::int64_t{INT64_MIN}](std::int64_t position, std::int64_t count,
                                                  float* out) mutable -> Expected<void> {
    EXPECT_GE(position, next) << "asked in rising order";
    next = position + count;
    for (std::int64_t i = 0; i < count; ++i) {
      *out++ = static_cast<float>(sample(position + i));
      *out++ = 0.0F;
    }
    return {};
  };
}

/// The left side of the whole piece, read in odd portions.
std::vector<float> stretched(const SoundPiece& piece, std::function<double(std::int64_t)> sample) {
  const auto stretcher = SoundStretcher::make(piece, rate, 2, leftSide(std::move(sample)));
  std::vector<float> left;
  std::vector<float> both(2 * 1111);
  while (static_cast<std::int64_t>(left.size()) < piece.length) {
    const auto count = std::min<std::int64_t>(1111, piece.length - static_cast<std::int64_t>(left.size()));
    const auto read = stretcher->read(count, both.data());
    EXPECT_TRUE(read) << (read ? "" : read.error().sentence);
    if (!read) break;
    for (std::int64_t i = 0; i < count; ++i) left.push_back(both[static_cast<std::size_t>(2 * i)]);
  }
  return left;
}

/// Hertz, by the zero crossings from the first rising one to the last.
double pitch(const std::vector<float>& samples) {
  std::vector<double> crossings;
  for (std::size_t i = 1; i < samples.size(); ++i) {
    if (samples[i - 1] < 0 && samples[i] >= 0) {
      crossings.push_back(static_cast<double>(i) - samples[i] / (samples[i] - samples[i - 1]));
    }
  }
  if (crossings.size() < 3) return 0;
  return static_cast<double>(crossings.size() - 1) * rate / (crossings.back() - crossings.front());
}

double level(const std::vector<float>& samples, double fromSeconds, double toSeconds) {
  double sum = 0;
  const auto from = static_cast<std::size_t>(fromSeconds * rate);
  const auto to = std::min(samples.size(), static_cast<std::size_t>(toSeconds * rate));
  for (std::size_t i = from; i < to; ++i) sum += static_cast<double>(samples[i]) * samples[i];
  return std::sqrt(sum / static_cast<double>(to - from));
}

struct RatioCase {
  std::string name;
  double ratio;
  double sourceSeconds;
  double pitchFactor;  ///< what becomes of the pitch

  friend std::ostream& operator<<(std::ostream& out, const RatioCase& c) { return out << c.name; }
};

class StretchedTone : public testing::TestWithParam<RatioCase> {};

TEST_P(StretchedTone, KeepsItsPitchAndLevelFromTheFirstSampleToTheLast) {
  const auto& [name, ratio, seconds, factor] = GetParam();
  constexpr double hertz = 440;
  const auto sourceLength = std::llround(seconds * rate);
  const SoundPiece piece{7 * rate + 123, sourceLength, 0, std::llround(static_cast<double>(sourceLength) * ratio)};
  const auto samples = stretched(piece, [](std::int64_t position) { return tone(position, hertz); });
  ASSERT_EQ(static_cast<std::int64_t>(samples.size()), piece.length);
  EXPECT_NEAR(pitch(samples) / (hertz * factor), 1.0, 0.005);
  const double length = static_cast<double>(piece.length) / rate;
  EXPECT_NEAR(level(samples, 0, 0.05), 0.354, 0.07) << "at the start";
  EXPECT_NEAR(level(samples, length - 0.05, length), 0.354, 0.07) << "at the end";
}

INSTANTIATE_TEST_SUITE_P(
    Ratios, StretchedTone,
    testing::Values(RatioCase{"ten_times_faster", 0.1, 10, 1}, RatioCase{"four_times_faster", 0.25, 4, 1},
                    RatioCase{"twice_as_fast", 0.5, 2, 1}, RatioCase{"a_hair_slower", 1.0001, 2, 1},
                    RatioCase{"slower_by_half", 1.5, 2, 1}, RatioCase{"half_as_fast", 2, 2, 1},
                    RatioCase{"eight_times_slower", 8, 1, 1}, RatioCase{"thirty_two_times_slower", 32, 0.5, 1},
                    RatioCase{"too_slow_for_the_pitch_to_stay", 40, 0.5, 1.0 / 40}),
    [](const auto& testCase) { return testCase.param.name; });

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
  const SoundPiece piece{500, 100'000, 0, 1000};
  const auto samples =
      stretched(piece, [](std::int64_t position) { return static_cast<double>(position - 500) / 100'000; });
  for (std::size_t i = 0; i < samples.size(); ++i)
    ASSERT_NEAR(samples[i], (static_cast<double>(i) + 0.5) / 1000, 0.0005) << i;
}

}  // namespace
}  // namespace clipworks::engine
