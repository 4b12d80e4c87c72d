#include <clipworks/engine/input/PictureTable.h>

#include <tests/engine/EngineTesting.h>

namespace clipworks::engine {
namespace {

/// Samples with the given presentation times in decoding order; those listed in `accessPoints` are some.
PictureTable table(const std::vector<std::int64_t>& presentations, const std::vector<std::size_t>& accessPoints,
                   std::int64_t trackEnd) {
  std::vector<Sample> samples;
  for (const auto time : presentations) samples.push_back({time, std::ssize(samples) * 10, 0, 100});
  for (const std::size_t i : accessPoints) samples[i].accessPoint = true;
  return {samples, trackEnd};
}

TEST(PictureTable, TellsThePictureOnScreenByHalfOpenIntervals) {
  const PictureTable samples = table({5, 35, 15, 25}, {0}, 45);
  EXPECT_EQ(samples.sampleOfPicture(1), 2U);
  EXPECT_EQ(samples.pictureAt(4), std::nullopt) << "before the first";
  EXPECT_EQ(samples.pictureAt(14), 0U);
  EXPECT_EQ(samples.pictureAt(15), 1U) << "a picture is on screen from its own tick on";
  EXPECT_EQ(samples.pictureAt(1000), 3U) << "the last one stays";
  EXPECT_EQ(samples.firstPictureFrom(15), 1U);
  EXPECT_EQ(samples.firstPictureFrom(16), 2U);
  EXPECT_EQ(samples.firstPictureFrom(36), samples.pictureCount());
}

TEST(PictureTable, LeavesOutSamplesThatAreNeverOnScreen) {
  const PictureTable samples = table({0, 10, 10, 20, 20, 20}, {0}, 30);
  ASSERT_EQ(samples.pictureCount(), 3U);
  EXPECT_EQ(samples.sampleOfPicture(1), 1U) << "the first of equals is shown";
  EXPECT_EQ(samples.sampleOfPicture(2), 3U);
  EXPECT_EQ(samples.firstPictureFrom(11), 2U);
  EXPECT_EQ(samples.samples().size(), 6U) << "all of them are still decoded";
}

TEST(PictureTable, StartsDecodingWhereThePictureHasItsReferences) {
  // Closed 0 20 10 30, then an open group: its access point at 60 is decoded before the pictures at 40 and 50, which
  // refer back across it.
  const PictureTable samples = table({0, 20, 10, 30, 60, 40, 50, 70}, {0, 4}, 80);
  EXPECT_EQ(samples.accessPointFor(3), 0U);
  EXPECT_EQ(samples.accessPointFor(5), 0U) << "a leading picture needs the group before";
  EXPECT_EQ(samples.accessPointFor(6), 4U);
  EXPECT_EQ(table({0, 10, 20}, {1}, 30).accessPointFor(0), 0U) << "the only one comes later";
}

TEST(PictureTable, StartsDecodingAtOrBeforeThePictureItself) {
  // Sample 3 is an access point that shares its time with sample 1, which is the one shown; sample 5 is a leading
  // picture.
  const PictureTable samples = table({0, 30, 10, 30, 60, 50, 70}, {0, 3, 4}, 80);
  const auto accessFor = [&](std::int64_t ticks) { return samples.accessPointFor(*samples.pictureAt(ticks)); };
  EXPECT_EQ(accessFor(30), 0U);
  EXPECT_EQ(accessFor(50), 3U);
  EXPECT_EQ(accessFor(60), 4U);
  EXPECT_EQ(samples.accessPointBefore(4), 3U);
  EXPECT_EQ(samples.accessPointBefore(0), 0U);
  EXPECT_EQ(samples.accessPointAfter(3), 4U);
  EXPECT_EQ(samples.accessPointAfter(4), std::nullopt);
}

TEST(PictureTable, EndsNoSoonerThanItsLastPicture) {
  EXPECT_EQ(table({0, 10, 20}, {0}, 30).trackEnd(), 30);
  EXPECT_EQ(table({0, 10, 20}, {0}, 5).trackEnd(), 21) << "a header that says less is not believed";
  EXPECT_EQ(PictureTable().pictureAt(0), std::nullopt);
}

// As the ffmpeg program plays it, 80 pictures: what comes again is dropped.
TEST(PictureTable, ShowsAFragmentThatBeginsTooEarlyFromTheEndOfTheOneBeforeOn) {
  const test::BarCodeClip clip({.frames = 90,
                                .timescale = 3000,
                                .audioCodec = "",
                                .outputArguments = {"-movflags", "+frag_keyframe+empty_moov"}});
  std::string bytes = bytesOf(clip.path());
  std::size_t tfdt = 0;
  for (int fragment = 0; fragment < 3; ++fragment) tfdt = bytes.find("tfdt", tfdt + 1);
  // Ten pictures of a hundred ticks each.
  ASSERT_EQ(bytes.substr(tfdt + 4, 12), bigEndian(1 << 24) + bigEndian(6000, 8));
  bytes.replace(tfdt + 8, 8, bigEndian(5000, 8));
  const test::TemporaryDirectory directory;
  const auto path = write(directory.file("overlap.mp4"), bytes);

  const auto file = must(MediaFile::open(path));
  const auto table = must(file->pictureTable(file->streams().front().index));
  ASSERT_EQ(table->pictureCount(), 80U);
  for (std::size_t i = 0; i < 80; ++i) EXPECT_EQ(table->timeOfPicture(i), 200 + 100 * static_cast<std::int64_t>(i));
  EXPECT_EQ(table->sampleOfPicture(60), 71U) << "picture 70, the first that comes later than all before";
}

}  // namespace
}  // namespace clipworks::engine
