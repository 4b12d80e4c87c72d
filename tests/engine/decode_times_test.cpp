#include <clipworks/engine/pipeline/DecodeTimes.h>

#include <algorithm>
#include <cstdint>
#include <numeric>
#include <ostream>
#include <random>
#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace clipworks::test {
namespace {

using engine::DecodeTimes;
using engine::PictureRun;
using engine::reorderDepth;
using engine::usualInterval;
using testing::Each;

/// A run, and the places of its samples in the order of presentation, listed in decoding order.
struct SourceRun {
  std::vector<std::int64_t> times;
  std::vector<std::uint32_t> decodingOrder;
};

PictureRun pictureRun(const SourceRun& run) {
  PictureRun made;
  for (std::uint32_t i = 0; i < run.times.size(); ++i) made.pictures.push_back({i, run.times[i]});
  return made;
}

/// Decoded in the order in which they are shown.
std::vector<std::uint32_t> inOrder(std::size_t count) {
  std::vector<std::uint32_t> order(count);
  std::iota(order.begin(), order.end(), 0U);
  return order;
}

/// Groups I b B b P …: each fourth picture first, then the one between, then the outer two.
std::vector<std::uint32_t> pyramid(std::size_t count) {
  std::vector<std::uint32_t> order{0};
  std::uint32_t last = 0;
  for (; last + 4 < count; last += 4) {
    for (const std::uint32_t ahead : {4U, 2U, 1U, 3U}) order.push_back(last + ahead);
  }
  for (++last; last < count; ++last) order.push_back(last);
  return order;
}

std::vector<std::int64_t> every(std::int64_t interval, std::size_t count) {
  std::vector<std::int64_t> times(count);
  for (std::size_t i = 0; i < count; ++i) times[i] = static_cast<std::int64_t>(i) * interval;
  return times;
}

struct Stamped {
  std::vector<std::int64_t> decode;
  std::vector<std::int64_t> presentation;
};

/// Plays `runs` one after the other, each lasting as long as `lengths` tells.
Stamped stamp(const std::vector<SourceRun>& runs, const std::vector<std::int64_t>& lengths) {
  int depth = 0;
  for (const auto& run : runs) depth = std::max(depth, reorderDepth(run.decodingOrder));
  DecodeTimes decodeTimes(depth, usualInterval(pictureRun(runs.front())));
  Stamped stamped;
  std::int64_t start = 0;
  for (std::size_t i = 0; i < runs.size(); ++i) {
    const PictureRun pictures = pictureRun(runs[i]);
    decodeTimes.beginRun(pictures, start);
    for (const std::uint32_t shown : runs[i].decodingOrder) {
      stamped.presentation.push_back(start + runs[i].times[shown]);
      stamped.decode.push_back(decodeTimes.next(stamped.presentation.back()));
    }
    start += lengths[i];
  }
  return stamped;
}

void expectPlayable(const Stamped& stamped) {
  for (std::size_t i = 0; i < stamped.decode.size(); ++i) {
    ASSERT_LE(stamped.decode[i], stamped.presentation[i]) << "sample " << i << " is decoded after it is shown";
    if (i > 0) {
      ASSERT_LT(stamped.decode[i - 1], stamped.decode[i]) << "sample " << i << " does not rise";
    }
  }
}

enum class Spacing { even, any };

struct RepeatedRun {
  const char* sentence;
  SourceRun run;
  std::int64_t length;
  Spacing spacing;
};
void PrintTo(const RepeatedRun& c, std::ostream* out) { *out << c.sentence; }

class DecodeTimesOfRepeatedRuns : public testing::TestWithParam<RepeatedRun> {};

TEST_P(DecodeTimesOfRepeatedRuns, RiseAndNeverPassThePresentation) {
  const auto& c = GetParam();
  const Stamped stamped = stamp({c.run, c.run, c.run}, {c.length, c.length, c.length});
  expectPlayable(stamped);
  if (c.spacing == Spacing::even) {
    std::vector<std::int64_t> steps(stamped.decode.size());
    std::adjacent_difference(stamped.decode.begin(), stamped.decode.end(), steps.begin());
    steps.erase(steps.begin());
    EXPECT_THAT(steps, Each(c.run.times[1])) << "even pictures are decoded at even times, at the joins too";
  }
}

const std::vector<std::int64_t> gapInTheMiddle{0,       3000,    6000,    9000,    12'000,  192'000, 195'000,
                                               198'000, 201'000, 204'000, 207'000, 210'000, 213'000};
const std::vector<std::int64_t> uneven{0, 3003, 5900, 9100, 12'020, 14'500, 18'100, 21'000, 29'000};
const std::vector<std::int64_t> burst{0, 9000, 9001, 9002, 9003, 9004, 9005, 9006, 18'000};
const std::vector<std::int64_t> twoRates{0,      750,    1500,   2250,   3000,   6000,  9000,
                                         12'000, 15'000, 18'000, 21'000, 24'000, 27'000};

INSTANTIATE_TEST_SUITE_P(
    Runs, DecodeTimesOfRepeatedRuns,
    testing::Values(
        RepeatedRun{"a constant rate in order", {every(3000, 12), inOrder(12)}, 36'000, Spacing::even},
        RepeatedRun{"a constant rate with reordering", {every(3000, 13), pyramid(13)}, 39'000, Spacing::even},
        RepeatedRun{"ticks as long as pictures", {every(1, 13), pyramid(13)}, 13, Spacing::even},
        RepeatedRun{"a gap of two seconds in order", {gapInTheMiddle, inOrder(13)}, 216'000, Spacing::any},
        RepeatedRun{"a gap of two seconds with reordering", {gapInTheMiddle, pyramid(13)}, 216'000, Spacing::any},
        RepeatedRun{"an uneven rate with reordering", {uneven, pyramid(9)}, 32'000, Spacing::any},
        RepeatedRun{"pictures a tick apart within others", {burst, pyramid(9)}, 21'000, Spacing::any},
        RepeatedRun{"a slow half after a fast one", {twoRates, pyramid(13)}, 30'000, Spacing::any},
        RepeatedRun{"a last picture of one tick", {every(3000, 13), pyramid(13)}, 36'001, Spacing::any},
        RepeatedRun{"a single picture", {{0}, {0}}, 3000, Spacing::any}));

TEST(DecodeTimes, HoldForAnyOrderAndSpacingOfDifferentRuns) {
  std::mt19937 random(20'240'513);
  const auto upTo = [&](std::int64_t most) { return std::uniform_int_distribution<std::int64_t>(1, most)(random); };
  for (int round = 0; round < 300; ++round) {
    SCOPED_TRACE("round " + std::to_string(round));
    std::vector<SourceRun> runs;
    std::vector<std::int64_t> lengths;
    for (std::int64_t left = upTo(5); left > 0; --left) {
      SourceRun run;
      std::int64_t at = upTo(2) == 1 ? 0 : upTo(500);
      for (std::int64_t pictures = upTo(20); pictures > 0; --pictures) {
        run.times.push_back(at);
        at += upTo(6) == 1 ? upTo(200'000) : upTo(4000);
      }
      run.decodingOrder = inOrder(run.times.size());
      // Coded orders mix pictures that are near each other; the first stays the first, as in any closed group.
      for (std::size_t i = 1; i + 1 < run.decodingOrder.size(); ++i) {
        const auto other = i + static_cast<std::size_t>(upTo(4)) - 1;
        if (other < run.decodingOrder.size()) std::swap(run.decodingOrder[i], run.decodingOrder[other]);
      }
      runs.push_back(run);
      lengths.push_back(at);
    }
    expectPlayable(stamp(runs, lengths));
    if (HasFatalFailure()) return;
  }
}

TEST(ReorderDepth, CountsThePicturesThatAreDecodedAheadOfTheirTurn) {
  EXPECT_EQ(reorderDepth({}), 0);
  EXPECT_EQ(reorderDepth({0, 1, 2, 3}), 0);
  EXPECT_EQ(reorderDepth({0, 2, 1, 4, 3}), 1) << "single B pictures";
  EXPECT_EQ(reorderDepth({0, 3, 1, 2, 6, 4, 5}), 1) << "two B pictures that nothing refers to";
  EXPECT_EQ(reorderDepth(pyramid(9)), 2) << "a B picture that others refer to";
  EXPECT_EQ(reorderDepth({3, 2, 1, 0}), 3);
}

TEST(UsualInterval, IsTheMedianSoThatGapsDoNotCount) {
  const auto interval = [](const std::vector<std::int64_t>& times) { return usualInterval(pictureRun({times, {}})); };
  EXPECT_EQ(interval({}), 0);
  EXPECT_EQ(interval({7}), 0);
  EXPECT_EQ(interval(every(1001, 30)), 1001);
  EXPECT_EQ(interval(gapInTheMiddle), 3000);
}

}  // namespace
}  // namespace clipworks::test
