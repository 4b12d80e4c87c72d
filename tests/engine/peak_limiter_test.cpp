#include <clipworks/engine/pipeline/PeakLimiter.h>

#include <tests/engine/EngineTesting.h>

namespace clipworks::engine {
namespace {

constexpr int rate = 48'000;

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
std::vector<float> tone(double peak, int from, int to) {
  std::vector<float> samples;
  for (int i = 0; i < rate; ++i)
    samples.push_back(static_cast<float>((i >= from && i < to ? peak : 0.5) * std::sin(0.05 * i)));
  return samples;
}

TEST(PeakLimiter, LeavesWhatFitsBitForBit) {
  const auto in = tone(1, 0, rate);
  EXPECT_EQ(limited(in), in);
}

TEST(PeakLimiter, TurnsALoudStretchDownWithoutAStepAndLeavesTheRestAlone) {
  const std::tuple<double, int, int> cases[] = {{2, 4800, 9600}, {1.05, 6000, 6200}, {100, 4800, 9600}};
  for (const auto& [peak, from, to] : cases) {
    SCOPED_TRACE(peak);
    const auto in = tone(peak, from, to);
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
