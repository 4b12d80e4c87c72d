#include <clipworks/engine/pipeline/DecodeTimes.h>

#include <tests/engine/EngineTesting.h>

namespace clipworks::engine {
namespace {

using Ranks = std::vector<std::uint32_t>;

struct SourceRun {
  std::vector<std::int64_t> times;
  Ranks decodingOrder;  // the places of its samples in the order of presentation
  std::int64_t length = 0;
};

/// Groups I b B b P …: each fourth picture first, then the one between, then the outer two.
Ranks pyramid(std::uint32_t count) {
  Ranks order{0};
  std::uint32_t last = 0;
  for (; last + 4 < count; last += 4)
    for (const std::uint32_t ahead : {4U, 2U, 1U, 3U}) order.push_back(last + ahead);
  while (++last < count) order.push_back(last);
  return order;
}

/// Plays `runs` one after the other. Every sample is decoded after the one before it, and no later than it is shown.
std::vector<std::int64_t> decodeTimesOf(const std::vector<SourceRun>& runs) {
  int depth = 0;
  for (const auto& run : runs) depth = std::max(depth, reorderDepth(run.decodingOrder));
  DecodeTimes decodeTimes(depth, usualInterval(runs.front().times));
  std::vector<std::int64_t> decode;
  std::int64_t start = 0;
  for (const auto& run : runs) {
    PictureRun pictures;
    for (const std::int64_t time : run.times)
      pictures.pictures.push_back({static_cast<std::uint32_t>(pictures.pictures.size()), time});
    decodeTimes.beginRun(pictures, start);
    for (const std::uint32_t shown : run.decodingOrder) {
      decode.push_back(decodeTimes.next(start + run.times[shown]));
      EXPECT_LE(decode.back(), start + run.times[shown]) << "sample " << decode.size() << " is decoded too late";
    }
    start += run.length;
  }
  EXPECT_EQ(std::ranges::adjacent_find(decode, std::greater_equal()), decode.end()) << "one does not rise";
  return decode;
}

TEST(DecodeTimes, AreEvenForEvenPicturesAtTheJoinsToo) {
  for (const std::int64_t interval : {1, 3000}) {
    SourceRun run{{}, pyramid(13), 13 * interval};
    for (std::int64_t i = 0; i < 13; ++i) run.times.push_back(i * interval);
    auto steps = decodeTimesOf({run, run, run});
    std::adjacent_difference(steps.begin(), steps.end(), steps.begin());
    steps.erase(steps.begin());
    EXPECT_THAT(steps, testing::Each(interval));
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
  for (int round = 0; round < 300 && !testing::Test::HasFailure(); ++round) {
    SCOPED_TRACE("round " + std::to_string(round));
    std::vector<SourceRun> runs(static_cast<std::size_t>(upTo(5)));
    for (auto& run : runs) {
      run.length = upTo(2) == 1 ? 0 : upTo(500);
      for (std::int64_t pictures = upTo(20); pictures > 0; --pictures) {
        run.times.push_back(run.length);
        run.length += upTo(6) == 1 ? upTo(200'000) : upTo(4) == 1 ? 1 : upTo(4000);
      }
      auto& order = run.decodingOrder;
      order.resize(run.times.size());
      std::iota(order.begin(), order.end(), 0U);
      // Coded orders mix pictures that are near each other; the first stays the first, as in any closed group.
      for (std::size_t i = 1; i + 1 < order.size(); ++i)
        std::swap(order[i], order[std::min(i + static_cast<std::size_t>(upTo(4)) - 1, order.size() - 1)]);
    }
    decodeTimesOf(runs);
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
}  // namespace clipworks::engine
