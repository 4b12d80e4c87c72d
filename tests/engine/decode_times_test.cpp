#include <clipworks/engine/pipeline/DecodeTimes.h>

#include <algorithm>
#include <cstdint>
#include <numeric>
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
  DecodeTimes decodeTimes(depth, usualInterval(runs.front().times));
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

TEST(DecodeTimes, AreEvenForEvenPicturesAtTheJoinsToo) {
  for (const std::int64_t interval : {1, 3000}) {
    const SourceRun run{every(interval, 13), pyramid(13)};
    const Stamped stamped = stamp({run, run, run}, {13 * interval, 13 * interval, 13 * interval});
    expectPlayable(stamped);
    std::vector<std::int64_t> steps(stamped.decode.size());
    std::adjacent_difference(stamped.decode.begin(), stamped.decode.end(), steps.begin());
    steps.erase(steps.begin());
    EXPECT_THAT(steps, Each(interval));
  }
}

TEST(DecodeTimes, LeaveHiddenPicturesATickBehindTheEndAndTheirPlaceBeforeTheStart) {
  PictureRun run;
  run.hiddenBefore = {{0, -200}, {1, -100}};
  run.pictures = {{2, 0}, {3, 100}, {4, 200}};
  run.hiddenAfter = {{5, 300}};
  DecodeTimes decodeTimes(1, 100);
  decodeTimes.beginRun(run, 1000);
  std::vector<std::int64_t> decode;
  for (const std::int64_t shown : {800, 900, 1000, 1100, 1300, 1200}) decode.push_back(decodeTimes.next(shown));
  EXPECT_THAT(decode, testing::ElementsAre(699, 799, 899, 999, 1099, 1100));
}

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
        at += upTo(6) == 1 ? upTo(200'000) : upTo(4) == 1 ? 1 : upTo(4000);
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
  EXPECT_EQ(reorderDepth({0, 1, 2, 3}), 0);
  EXPECT_EQ(reorderDepth({0, 3, 1, 2, 6, 4, 5}), 1) << "two B pictures that nothing refers to";
  EXPECT_EQ(reorderDepth(pyramid(9)), 2) << "a B picture that others refer to";
}

TEST(UsualInterval, IsTheMedianSoThatGapsDoNotCount) {
  EXPECT_EQ(usualInterval({7}), 0);
  EXPECT_EQ(usualInterval({0, 3000, 6000, 9000, 192'000, 195'000}), 3000);
}

}  // namespace
}  // namespace clipworks::test
