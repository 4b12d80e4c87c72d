#include <clipworks/media/asset/FileSegments.h>

#include <tests/media/MediaTesting.h>
#include <tests/media/composition/FakeTrack.h>

namespace clipworks::test {
namespace {

using testing::AllOf;
using testing::HasSubstr;
using testing::Not;

TEST(Asset, WithoutMediaHasNoTracksAndNoLengthAndSaysWhy) {
  const TemporaryDirectory directory;
  writeTo(directory.file("text.mp4"), "Dear diary, today I shot no video.\n");
  writeTo(directory.file("list.mp4"), "ffconcat version 1.0\nfile '" + BarCodeClip().path().string() + "'\n");
  const std::string whole = fileBytes(BarCodeClip().path());
  writeTo(directory.file("cut.mp4"), whole.substr(0, whole.size() / 2));
  fs::create_directory(directory.file("directory.mp4"));
  for (const std::string name : {"missing.mp4", "text.mp4", "list.mp4", "directory.mp4", "cut.mp4"}) {
    const auto asset = assetAt(directory.file(name));
    EXPECT_TRUE(asset->tracks().empty() && asset->metadata().empty()) << name;
    EXPECT_EQ(asset->duration(), kCMTimeZero) << name;
    EXPECT_THAT(asset->loadError(), AllOf(HasSubstr(name), Not(HasSubstr("\n"))));
  }
}

TEST(Asset, ReadsAMovieByItsContent) {
  const BarCodeClip clip({.frames = 75, .timescale = 30, .sampleRate = 44'100, .channels = 1});
  const TemporaryDirectory directory;
  fs::copy_file(clip.path(), directory.file("holiday.txt"));
  const auto asset = assetAt(directory.file("holiday.txt"));
  EXPECT_EQ(asset->loadError(), "");
  EXPECT_NEAR(asset->duration().seconds(), 2.5, 0.05);
  ASSERT_EQ(asset->tracks().size(), 2U);

  const auto video = asset->tracks(AVMediaTypeVideo).at(0);
  const auto audio = asset->tracks(AVMediaTypeAudio).at(0);
  EXPECT_EQ(video->codecName() + ' ' + audio->codecName(), "h264 aac");
  EXPECT_EQ(video->naturalSize(), (CGSize{320, 180}));
  EXPECT_FLOAT_EQ(video->nominalFrameRate(), 30);
  EXPECT_NEAR(video->timeRange().duration.seconds(), 2.5, 0.0005);
  EXPECT_EQ(std::tuple(video->channelCount(), audio->channelCount(), audio->sampleRate()), std::tuple(0, 1, 44'100));
  EXPECT_NE(audio->trackID(), video->trackID());

  fs::remove(directory.file("holiday.txt"));
  EXPECT_NEAR(asset->duration().seconds(), 2.5, 0.05) << "it keeps looking at the file it opened";
}

TEST(Asset, TurnsByTheMatrixOfTheMovieAfterThatOfTheTrack) {
  std::string bytes = fileBytes(BarCodeClip({.frames = 10, .rotation = 90}).path());
  const TemporaryDirectory directory;
  const fs::path turned = directory.file("turned.mp4");
  const std::size_t header = bytes.find("mvhd");
  ASSERT_EQ(bytes.at(header + 4), 0) << "of version 0";
  const auto transformWith = [&](const std::vector<int>& matrix) {
    for (std::size_t i = 0; i < 9; ++i) putNumber(bytes, header + 40 + i * 4, static_cast<std::uint32_t>(matrix[i]));
    return assetAt(writeTo(turned, bytes))->tracks(AVMediaTypeVideo).at(0)->preferredTransform();
  };
  constexpr int one = 1 << 16;
  EXPECT_EQ(transformWith({0, one, 0, -one, 0, 0, 320 * one, 0, 1 << 30}), (CGAffineTransform{-1, 0, 0, -1, 320, 180}));
  EXPECT_EQ(MediaJudge(turned).stream("video").rotation, 180);
  EXPECT_EQ(transformWith({0, 0, 0, 0, 0, 0, 0, 0, 1 << 30}), (CGAffineTransform{0, 1, -1, 0, 180, 0})) << "no matrix";
}

TEST(Asset, LeavesTheDelayOutThatQuickTimeMoviesDoNotTell) {
  // Sound of 2112 samples more than the edit shows, from the media's start on: as cameras' movies have it.
  std::string bytes = fileBytes(BarCodeClip({.frames = 60, .extension = ".mov"}).path());
  const std::size_t sound = bytes.find("elst", bytes.find("elst") + 4);
  // Version 0, one entry: length in milliseconds at 12, the media's time at 16.
  ASSERT_EQ(bytes.at(sound + 4), 0);
  ASSERT_EQ(bytes[sound + 11], 1);
  putNumber(bytes, sound + 12, 1900);
  putNumber(bytes, sound + 16, 0);
  const TemporaryDirectory directory;
  const auto asset = assetAt(writeTo(directory.file("camera.mov"), bytes));
  const auto segments = asset->tracks(AVMediaTypeAudio).at(0)->segments();
  ASSERT_EQ(segments.size(), 1U);
  EXPECT_EQ(segments[0].source.start, CMTime(2112, 48'000));
  EXPECT_EQ(segments[0].target.duration, CMTime(1900, 1000));
}

TEST(Asset, ReadsPicturesThatAreRefreshedPieceByPiece) {
  ClipOptions options{.frames = 60, .audioCodec = "", .extension = ".ts"};
  options.outputArguments = {"-x264-params", "intra-refresh=1:keyint=20"};
  std::string bytes = fileBytes(BarCodeClip(options).path());
  constexpr std::size_t packet = 188;
  bytes.erase(0, bytes.size() / 3 / packet * packet);  // with the only intra picture
  const TemporaryDirectory directory;
  const auto tracks = assetAt(writeTo(directory.file("tuned_in.ts"), bytes))->tracks(AVMediaTypeVideo);
  ASSERT_EQ(tracks.size(), 1U);
  EXPECT_EQ(tracks[0]->naturalSize(), CGSize(320, 180));
}

TEST(Asset, ListsNoCoverArt) {
  const TemporaryDirectory directory;
  const fs::path cover = directory.file("cover.mp4");
  run("ffmpeg -v error -i " + BarCodeClip({.frames = 30}).path().string() +
      " -f lavfi -i color=red:size=64x64:rate=1:duration=1 -map 0 -map 1 -c copy -c:v:1 png -frames:v:1 1 " +
      "-disposition:v:1 attached_pic " + cover.string());
  EXPECT_EQ(assetAt(cover)->tracks().size(), 2U);
}

using MovieEdit = engine::MovieBoxes::Edit;
using Lines = std::vector<std::string>;

constexpr std::int32_t normal = 1 << 16;
constexpr std::int32_t movie = 600;
constexpr std::int32_t media = 30'000;

TEST(FileSegments, PresentTheMediaAsTheEditsSay) {
  struct {
    const char* sentence;
    std::vector<MovieEdit> edits;
    Lines expected;
    std::int64_t encoderDelay = 0;
    std::int64_t mediaDuration = 90'000;
  } const cases[] = {
      {"without edits all of the media plays", {}, {"media 0..3 at 0..3"}},
      {"without edits the encoder's delay is left out", {}, {"media 1/20..3 at 0..59/20"}, 1500},
      {"media shorter than the encoder's delay is nothing", {}, {}, 2112, 1000},
      {"a trimmed clip lies inside the media", {{1200, 15'000, normal}}, {"media 1/2..5/2 at 0..2"}},
      {"an empty edit in front holds until the track begins",
       {{300, -1, normal}, {1800, 0, normal}},
       {"hold at 0..1/2", "media 0..3 at 1/2..7/2"}},
      {"an empty edit between others is a hole",
       {{600, 0, normal}, {300, -1, normal}, {600, 30'000, normal}},
       {"media 0..1 at 0..1", "empty at 1..3/2", "media 1..2 at 3/2..5/2"}},
      {"rate 0 holds one picture", {{300, 30'000, 0}}, {"media 1..1 at 0..1/2"}},
      {"rate 2 plays twice as much of the media", {{600, 6000, 2 * normal}}, {"media 1/5..11/5 at 0..1"}},
      {"a negative rate, which nothing plays, holds", {{600, 6000, -normal}}, {"media 1/5..1/5 at 0..1"}},
      {"an edit without a length reaches to the end", {{0, 30'000, normal}}, {"media 1..3 at 0..2"}},
      {"an edit without a length beyond the media is nothing", {{0, 90'000, normal}}, {}},
      {"an edit after the encoder's delay keeps its length", {{600, 0, normal}}, {"media 1/10..11/10 at 0..1"}, 3000},
      {"a stretch may play twice", {{600, 0, normal}, {600, 0, normal}}, {"media 0..1 at 0..1", "media 0..1 at 1..2"}},
  };
  for (const auto& [sentence, edits, expected, encoderDelay, mediaDuration] : cases) {
    EXPECT_EQ(lines(segmentsFromEdits({edits, movie, media, mediaDuration, encoderDelay})), expected) << sentence;
  }
}

TEST(FileSegments, AreNothingWithoutATimeScaleAndSurviveTheLongestEdits) {
  for (const auto& edits : {std::vector<MovieEdit>{}, {{600, 0, normal}}})
    EXPECT_TRUE(segmentsFromEdits({edits, movie, 0, 90'000, 0}).empty());
  const std::vector<MovieEdit> longest{{UINT64_MAX, 0, 32'767 * normal}, {UINT64_MAX, INT64_MAX, normal}};
  for (const auto& segment : segmentsFromEdits({longest, movie, media, 90'000, 0}))
    EXPECT_GE(segment.target.duration.seconds(), 0);
}

}  // namespace
}  // namespace clipworks::test
