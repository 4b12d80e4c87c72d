#include <clipworks/media/composition/AVMutableComposition.h>

#include <limits>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "FakeTrack.h"

namespace clipworks::test {
namespace {

TEST(Composition, NumbersItsTracks) {
  const auto composition = AVMutableComposition::make();
  const auto add = [&](CMPersistentTrackID preferred) {
    const auto track = composition->addMutableTrack(AVMediaTypeVideo, preferred);
    return track ? track->trackID() : -1;
  };
  constexpr auto most = std::numeric_limits<CMPersistentTrackID>::max();
  EXPECT_EQ(add(2), 2);
  EXPECT_EQ(add(kCMPersistentTrackID_Invalid), 1);
  EXPECT_EQ(add(2), 3);
  EXPECT_EQ(add(most), most);
  EXPECT_EQ(add(most), 4);
  EXPECT_EQ(add(-1), -1);
  EXPECT_EQ(composition->tracks().size(), 5U);
  EXPECT_EQ(composition->compositionTracks()[2], composition->tracks()[2]);
}

TEST(Composition, LastsAsLongAsItsLongestTrack) {
  const auto composition = AVMutableComposition::make();
  EXPECT_EQ(text(composition->duration()), "0");
  const auto source = plainTrack("A", {10, 1});
  const auto first = composition->addMutableTrack(AVMediaTypeVideo, 0);
  const auto second = composition->addMutableTrack(AVMediaTypeVideo, 0);
  EXPECT_EQ(text(composition->duration()), "0");
  ASSERT_TRUE(first->insertTimeRange(seconds(0, 2), source, {1, 1}));
  ASSERT_TRUE(second->insertTimeRange(seconds(8, 11), source, {1, 2}));
  EXPECT_EQ(text(composition->duration()), "7/2") << "padding counts";
  EXPECT_EQ(text(first->timeRange()), "0..3") << "no track is lengthened to another's length";
}

TEST(CompositionTrack, TakesItsFiguresFromTheFirstMediaAndItsTransformFromNone) {
  const auto inner = std::make_shared<AVMutableCompositionTrack>(AVMediaTypeVideo, 1);
  AVMutableCompositionTrack track(AVMediaTypeVideo, 5);
  EXPECT_EQ(track.codecName(), "");
  EXPECT_EQ(track.naturalTimeScale(), 0);
  ASSERT_TRUE(inner->insertTimeRange(seconds(0, 2), plainTrack("A", {10, 1}), {1, 1}));
  ASSERT_TRUE(track.insertTimeRange(seconds(1, 2), inner, {3, 1}));
  EXPECT_EQ(track.codecName(), "h264");
  EXPECT_EQ(track.naturalSize(), (CGSize{1920, 1080}));
  EXPECT_EQ(track.naturalTimeScale(), 15'360);
  EXPECT_EQ(track.preferredTransform(), CGAffineTransformIdentity);
  EXPECT_EQ(track.media(), nullptr);
  track.setPreferredTransform({0, 1, -1, 0, 1080, 0});
  EXPECT_EQ(track.preferredTransform(), (CGAffineTransform{0, 1, -1, 0, 1080, 0}));
}

TEST(CompositionTrack, KeepsTheTracksThatItUses) {
  AVMutableCompositionTrack track(AVMediaTypeVideo, 1);
  std::weak_ptr<FakeTrack> source;
  {
    const auto made = plainTrack("A", {10, 1});
    source = made;
    ASSERT_TRUE(track.insertTimeRange(seconds(0, 2), made, kCMTimeZero));
  }
  EXPECT_FALSE(source.expired());
  track.removeTimeRange(seconds(0, 2));
  EXPECT_TRUE(source.expired());
}

}  // namespace
}  // namespace clipworks::test
