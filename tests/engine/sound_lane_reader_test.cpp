#include <clipworks/engine/pipeline/SoundLaneReader.h>

#include <algorithm>
#include <cmath>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include <tests/support/RunProgram.h>
#include <tests/support/TemporaryDirectory.h>

namespace clipworks::engine {
namespace {

constexpr int rate = 48'000;

double level(const std::vector<float>& samples, std::int64_t from, std::int64_t count) {
  double sum = 0;
  for (std::int64_t i = from; i < from + count; ++i) {
    sum += static_cast<double>(samples[static_cast<std::size_t>(i)]) * samples[static_cast<std::size_t>(i)];
  }
  return std::sqrt(sum / static_cast<double>(count));
}

/// The lane from its start on.
std::vector<float> readOut(const SoundLane& lane, std::int64_t count) {
  auto reader = SoundLaneReader::open(lane, rate, 1, 0).value();
  std::vector<float> samples(static_cast<std::size_t>(count));
  EXPECT_TRUE(reader->addNext(count, samples.data()));
  return samples;
}

// A stretched tone has its pitch and any phase at all, so some of these seams join opposite phases.
TEST(SoundLaneReader, KeepsTheLevelOfATonesSeams) {
  const test::TemporaryDirectory directory;
  double lowest = 1;
  double highest = 1;
  for (const int hertz : {200, 300, 400, 500, 700, 1000, 2000}) {
    const auto file = directory.file(std::to_string(hertz) + ".wav");
    const auto source = "sine=" + std::to_string(hertz) + ":r=" + std::to_string(rate) + ":d=3,volume=4";
    const auto made = test::runProgram({"ffmpeg", "-v", "error", "-f", "lavfi", "-i", source, file.string()});
    ASSERT_TRUE(made.succeeded()) << made;
    for (const double ratio : {0.6, 0.8, 1.3, 2.0}) {
      const std::int64_t stretch = std::llround(ratio * rate);
      SoundLane lane{MediaFile::open(file).value(), 0, {}, 1.0F};
      lane.pieces = {{0, rate, 0, rate}, {rate, rate, rate, stretch}, {2 * rate, rate, rate + stretch, rate}};
      const auto samples = readOut(lane, 2 * rate + stretch);
      const double tone = level(samples, rate / 2, rate / 4);
      ASSERT_GT(tone, 0.1);
      for (const std::int64_t seam : {std::int64_t{rate}, rate + stretch}) {
        constexpr std::int64_t window = rate / 200;  // holds whole half periods of all these tones
        for (std::int64_t at = seam - window; at < seam + 3 * window; at += window / 10) {
          lowest = std::min(lowest, level(samples, at, window) / tone);
          highest = std::max(highest, level(samples, at, window) / tone);
        }
      }
    }
  }
  EXPECT_GT(20 * std::log10(lowest), -1.5);
  EXPECT_LT(20 * std::log10(highest), 1.5);
}

}  // namespace
}  // namespace clipworks::engine
