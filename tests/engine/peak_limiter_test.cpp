#include <clipworks/engine/pipeline/PeakLimiter.h>

#include <algorithm>
#include <cmath>
#include <limits>
#include <ostream>
#include <string>
#include <vector>

#include <gtest/gtest.h>

namespace clipworks::engine {
namespace {

constexpr int rate = 48'000;

/// What comes out for `in` (mono), without the delay.
std::vector<float> limited(const std::vector<float>& in) {
  PeakLimiter limiter(rate, 1);
  std::vector<float> out = in;
  out.resize(in.size() + static_cast<std::size_t>(limiter.delay()));
  limiter.process(out.data(), static_cast<std::int64_t>(out.size()));
  out.erase(out.begin(), out.begin() + limiter.delay());
  return out;
}

/// A second of a tone; `loudness` gives the peak at a sample.
template <class Loudness>
std::vector<float> tone(Loudness loudness) {
  std::vector<float> samples;
  for (int i = 0; i < rate; ++i) samples.push_back(static_cast<float>(loudness(i) * std::sin(0.05 * i)));
  return samples;
}

TEST(PeakLimiter, LeavesWhatFitsBitForBit) {
  const auto in = tone([](int) { return 1.0; });
  EXPECT_EQ(limited(in), in);
}

struct LoudCase {
  std::string name;
  double peak;
  int from;
  int to;

  friend std::ostream& operator<<(std::ostream& out, const LoudCase& c) { return out << c.name; }
};

class LoudStretch : public testing::TestWithParam<LoudCase> {};

TEST_P(LoudStretch, IsTurnedDownWithoutAStepAndLeavesTheRestAlone) {
  const auto& [name, peak, from, to] = GetParam();
  const auto in = tone([&, from = from, to = to, peak = peak](int i) { return i >= from && i < to ? peak : 0.5; });
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
  // No more than the peak needs.
  const auto loudest = *std::max_element(out.begin() + from, out.begin() + to);
  EXPECT_GT(loudest, 0.9F);
}

INSTANTIATE_TEST_SUITE_P(Peaks, LoudStretch,
                         testing::Values(LoudCase{"twice_full_scale_for_a_while", 2, 4800, 9600},
                                         LoudCase{"a_little_over_for_an_instant", 1.05, 6000, 6200},
                                         LoudCase{"a_hundred_times_full_scale", 100, 4800, 9600}),
                         [](const auto& testCase) { return testCase.param.name; });

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
