#include <clipworks/engine/input/CodedUnits.h>
#include <clipworks/engine/input/PictureTable.h>
#include <clipworks/engine/pipeline/DecodeTimes.h>

#include <tests/engine/EngineTesting.h>

namespace clipworks::engine {
namespace {

using namespace std::string_literals;

std::string unit(const std::string& bytes) { return std::string(3, '\0') + static_cast<char>(bytes.size()) + bytes; }
std::string avc(int type, int referenceIdc) { return unit({static_cast<char>(referenceIdc << 5 | type), 'x', 'x'}); }
std::string hevc(int type, int temporalLayer = 0) {
  return unit({static_cast<char>(type << 1), static_cast<char>(temporalLayer + 1), 'x', 'x'});
}
std::string hevcParameters(int highestLayer) { return {66, 1, static_cast<char>(highestLayer << 1), 'x'}; }

const std::string avcRecord = "\1\x64\0\x1f\xff\xe0\0"s;
const std::string hevcStart = "\1"s + std::string(20, '\0');
std::string hevcRecord(int highestLayer) {
  return hevcStart + "\xff\1"s + "\x21\0\1\0"s + "\4" + hevcParameters(highestLayer);
}

TEST(DisposablePictures, TellWhatNothingRefersTo) {
  constexpr AVCodecID h264 = AV_CODEC_ID_H264;
  constexpr AVCodecID h265 = AV_CODEC_ID_HEVC;
  // What the last of the samples is.
  const std::tuple<const char*, AVCodecID, std::string, std::vector<std::string>, bool> cases[] = {
      {"a slice that is no reference, behind a delimiter", h264, avcRecord, {avc(9, 0) + avc(1, 0)}, true},
      {"a slice that is a reference", h264, avcRecord, {avc(1, 2)}, false},
      {"a field pair of which one is a reference", h264, avcRecord, {avc(1, 0) + avc(1, 1)}, false},
      {"parameter sets that later pictures need", h264, avcRecord, {avc(8, 3) + avc(1, 0)}, false},
      {"units that do not fill the sample", h264, avcRecord, {avc(1, 0) + "\0\0\0\x7f\1"s}, false},
      {"start codes instead of lengths", h264, "\0\0\0\1\x67"s, {"\0\0\0\1\1xx"s}, false},
      {"a trailing picture of the only layer", h265, hevcRecord(0), {hevc(0)}, true},
      {"a trailing reference", h265, hevcRecord(0), {hevc(1)}, false},
      {"a picture that a higher layer may refer to", h265, hevcRecord(2), {hevc(0, 1)}, false},
      {"a picture of the highest layer", h265, hevcRecord(2), {hevc(0, 2)}, true},
      {"a layer added on the way", h265, hevcRecord(0), {unit(hevcParameters(1)) + hevc(19), hevc(0)}, false},
      {"a record without parameters", h265, hevcStart + "\3\0"s, {hevc(0)}, false},
      {"a record that is cut", h265, hevcRecord(0).substr(0, 27), {hevc(0)}, false},
      {"another codec", AV_CODEC_ID_VP9, "", {"xxxx"}, false}};
  for (const auto& [name, codec, record, samples, isDisposable] : cases) {
    const auto parameters = owned<CodecParameters>(avcodec_parameters_alloc());
    parameters->codec_id = codec;
    parameters->extradata = static_cast<std::uint8_t*>(av_mallocz(record.size() + AV_INPUT_BUFFER_PADDING_SIZE));
    parameters->extradata_size = static_cast<int>(record.size());
    std::ranges::copy(record, parameters->extradata);
    DisposablePictures pictures(*parameters);
    bool last = false;
    for (const std::string& sample : samples) last = pictures.isDisposable(*packetOf(sample));
    EXPECT_EQ(last, isDisposable) << name;
  }
}

TEST(CodedUnits, TellTheBuildOfTheirEncoder) {
  const std::pair<std::string, std::optional<int>> cases[] = {
      {"UUIDx264 - core 78 r1", 78}, {"x264 - core 164", 164}, {"x264 - core 0000", 67}, {"x264 - core 0 ", {}},
      {"x264 - core ", {}},          {"x264 - core x", {}},    {"x265 - core 12", {}},   {"", {}}};
  for (const auto& [says, build] : cases) EXPECT_EQ(x264BuildIn(*packetOf(says)), build) << says;
}

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
  // None before the first; a picture is on screen from its own tick on; the last one stays.
  const std::array seen{samples.pictureAt(4), samples.pictureAt(14), samples.pictureAt(15), samples.pictureAt(1000)};
  EXPECT_THAT(seen, testing::ElementsAre(std::nullopt, 0, 1, 3));
  const std::array next{samples.firstPictureFrom(15), samples.firstPictureFrom(16), samples.firstPictureFrom(36)};
  EXPECT_THAT(next, testing::ElementsAre(1, 2, samples.pictureCount()));
}

TEST(PictureTable, LeavesOutSamplesThatAreNeverOnScreen) {
  const PictureTable samples = table({0, 10, 10, 20, 20, 20}, {0}, 30);
  // The first of equals is shown; all of them are still decoded.
  EXPECT_THAT(
      (std::array{samples.pictureCount(), std::size_t{samples.sampleOfPicture(1)},
                  std::size_t{samples.sampleOfPicture(2)}, samples.firstPictureFrom(11), samples.samples().size()}),
      testing::ElementsAre(3, 1, 3, 2, 6));
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
  EXPECT_THAT((std::array{accessFor(30), accessFor(50), accessFor(60)}), testing::ElementsAre(0, 3, 4));
  EXPECT_THAT((std::array{samples.accessPointBefore(4), samples.accessPointBefore(0)}), testing::ElementsAre(3, 0));
  EXPECT_THAT((std::array{samples.accessPointAfter(3), samples.accessPointAfter(4)}),
              testing::ElementsAre(4, std::nullopt));
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
  std::string bytes = fileBytes(clip.path());
  std::size_t tfdt = 0;
  for (int fragment = 0; fragment < 3; ++fragment) tfdt = bytes.find("tfdt", tfdt + 1);
  // Ten pictures of a hundred ticks each.
  ASSERT_EQ(bytes.substr(tfdt + 4, 12), bigEndian(1 << 24) + bigEndian(6000, 8));
  bytes.replace(tfdt + 8, 8, bigEndian(5000, 8));
  const test::TemporaryDirectory directory;
  const auto path = writeTo(directory.file("overlap.mp4"), bytes);

  const auto file = must(MediaFile::open(path));
  const auto table = must(file->pictureTable(file->streams().front().index));
  ASSERT_EQ(table->pictureCount(), 80U);
  for (std::size_t i = 0; i < 80; ++i) EXPECT_EQ(table->timeOfPicture(i), 200 + 100 * static_cast<std::int64_t>(i));
  EXPECT_EQ(table->sampleOfPicture(60), 71U) << "picture 70, the first that comes later than all before";
}

using Ranks = std::vector<std::uint32_t>;

/// Groups I b B b P …: each fourth picture first, then the one between, then the outer two.
Ranks pyramid(std::uint32_t count) {
  Ranks order{0};
  std::uint32_t last = 0;
  for (; last + 4 < count; last += 4)
    for (const std::uint32_t ahead : {4U, 2U, 1U, 3U}) order.push_back(last + ahead);
  while (++last < count) order.push_back(last);
  return order;
}

TEST(DecodeTimes, AreEvenForEvenPicturesAtTheJoinsToo) {
  constexpr std::int64_t count = 13;
  for (const std::int64_t interval : {1, 3000}) {
    PictureRun run;
    for (std::uint32_t i = 0; i < count; ++i) run.pictures.push_back({i, i * interval});
    DecodeTimes decodeTimes(reorderDepth(pyramid(count)), interval);
    std::vector<std::int64_t> steps;
    for (const std::int64_t start : {std::int64_t{0}, count * interval, 2 * count * interval}) {
      decodeTimes.beginRun(run, start);
      for (const std::uint32_t shown : pyramid(count)) {
        steps.push_back(decodeTimes.next(start + shown * interval));
        EXPECT_LE(steps.back(), start + shown * interval) << "decoded too late";
      }
    }
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
