#include <clipworks/media/asset/AVAsset.h>

#include <array>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <utility>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <tests/support/BarCodeClip.h>
#include <tests/support/MediaJudge.h>
#include <tests/support/RunProgram.h>
#include <tests/support/TemporaryDirectory.h>

namespace clipworks::test {
namespace {

namespace fs = std::filesystem;
using testing::AllOf;
using testing::HasSubstr;
using testing::Not;

void write(const fs::path& path, const std::string& bytes) { std::ofstream(path, std::ios::binary) << bytes; }

TEST(Asset, WithoutMediaHasNoTracksAndNoLengthAndSaysWhy) {
  const TemporaryDirectory directory;
  write(directory.file("text.mp4"), "Dear diary, today I shot no video.\n");
  write(directory.file("list.mp4"), "ffconcat version 1.0\nfile '" + BarCodeClip().path().string() + "'\n");
  fs::create_directory(directory.file("directory.mp4"));
  fs::copy_file(BarCodeClip().path(), directory.file("cut.mp4"));
  fs::resize_file(directory.file("cut.mp4"), fs::file_size(BarCodeClip().path()) / 2);
  for (const std::string name : {"missing.mp4", "text.mp4", "list.mp4", "directory.mp4", "cut.mp4"}) {
    const auto asset = AVAsset::make(URL(directory.file(name)));
    EXPECT_TRUE(asset->tracks().empty()) << name;
    EXPECT_EQ(asset->duration(), kCMTimeZero) << name;
    EXPECT_TRUE(asset->metadata().empty()) << name;
    EXPECT_THAT(asset->loadError(), AllOf(HasSubstr(name), Not(HasSubstr("\n"))));
  }
}

TEST(Asset, ReadsAMovieByItsContent) {
  const BarCodeClip clip({.frames = 75, .timescale = 30, .sampleRate = 44'100, .channels = 1});
  const TemporaryDirectory directory;
  fs::copy_file(clip.path(), directory.file("holiday.txt"));
  const auto asset = AVAsset::make(URL(directory.file("holiday.txt")));
  EXPECT_EQ(asset->loadError(), "");
  EXPECT_NEAR(asset->duration().seconds(), 2.5, 0.05);
  ASSERT_EQ(asset->tracks().size(), 2U);

  const auto video = asset->tracks(AVMediaTypeVideo).at(0);
  EXPECT_EQ(video->mediaType(), AVMediaType::video);
  EXPECT_EQ(video->codecName(), "h264");
  EXPECT_EQ(video->naturalSize(), (CGSize{320, 180}));
  EXPECT_EQ(video->preferredTransform(), CGAffineTransformIdentity);
  EXPECT_FLOAT_EQ(video->nominalFrameRate(), 30);
  EXPECT_NEAR(video->timeRange().duration.seconds(), 2.5, 0.0005);
  EXPECT_EQ(video->channelCount(), 0);

  const auto audio = asset->tracks(AVMediaTypeAudio).at(0);
  EXPECT_EQ(audio->mediaType(), AVMediaType::audio);
  EXPECT_EQ(audio->codecName(), "aac");
  EXPECT_EQ(audio->channelCount(), 1);
  EXPECT_EQ(audio->sampleRate(), 44'100);
  EXPECT_NE(audio->trackID(), video->trackID());

  fs::remove(directory.file("holiday.txt"));
  EXPECT_NEAR(asset->duration().seconds(), 2.5, 0.05) << "it keeps looking at the file it opened";
}

TEST(Asset, TellsTheTransformWithItsTranslationAndTheSizeBeforeIt) {
  const std::pair<int, CGAffineTransform> turns[] = {
      {90, {0, 1, -1, 0, 180, 0}}, {180, {-1, 0, 0, -1, 320, 180}}, {270, {0, -1, 1, 0, 0, 320}}};
  for (const auto& [degrees, transform] : turns) {
    const auto asset = AVAsset::make(URL(BarCodeClip({.frames = 10, .rotation = degrees}).path()));
    EXPECT_EQ(asset->tracks().front()->preferredTransform(), transform) << degrees;
    EXPECT_EQ(asset->tracks().front()->naturalSize(), (CGSize{320, 180}));
  }
}

TEST(Asset, TurnsByTheMatrixOfTheMovieAfterThatOfTheTrack) {
  const BarCodeClip clip({.frames = 10, .rotation = 90});
  const TemporaryDirectory directory;
  std::ifstream in(clip.path(), std::ios::binary);
  std::string bytes{std::istreambuf_iterator<char>(in), {}};
  constexpr std::size_t matrixBehindType = 40;  // of version 0
  const std::size_t header = bytes.find("mvhd");
  ASSERT_NE(header, std::string::npos);
  ASSERT_EQ(bytes[header + 4], 0);
  const auto transformWith = [&](const std::array<int, 9>& matrix) {
    std::size_t at = header + matrixBehindType;
    for (const int value : matrix) {
      for (const unsigned shift : {24U, 16U, 8U, 0U})
        bytes[at++] = static_cast<char>(static_cast<unsigned>(value) >> shift & 0xFFU);
    }
    write(directory.file("turned.mp4"), bytes);
    return AVAsset::make(URL(directory.file("turned.mp4")))->tracks(AVMediaTypeVideo).at(0)->preferredTransform();
  };
  constexpr int one = 1 << 16;
  EXPECT_EQ(transformWith({0, one, 0, -one, 0, 0, 320 * one, 0, 1 << 30}), (CGAffineTransform{-1, 0, 0, -1, 320, 180}));
  EXPECT_EQ(MediaJudge(directory.file("turned.mp4")).stream("video").rotation, 180);
  EXPECT_EQ(transformWith({0, 0, 0, 0, 0, 0, 0, 0, 1 << 30}), (CGAffineTransform{0, 1, -1, 0, 180, 0})) << "no matrix";
}

TEST(Asset, CountsWidePixelsInTheNaturalSize) {
  const BarCodeClip clip({.width = 360,
                          .height = 288,
                          .audioCodec = "",
                          .outputArguments = {"-bsf:v", "h264_metadata=sample_aspect_ratio=16/15", "-aspect", "4:3"}});
  const auto asset = AVAsset::make(URL(clip.path()));
  ASSERT_EQ(asset->tracks().size(), 1U);
  EXPECT_EQ(asset->tracks().front()->naturalSize().height, 288);
  EXPECT_NEAR(asset->tracks().front()->naturalSize().width, 384, 0.01);
}

TEST(Asset, TurnsAnEmptyEditIntoAHeldStart) {
  const BarCodeClip clip({.frameTimes = {15'000, 18'000, 21'000, 24'000}, .timescale = 30'000, .audioDelay = 0});
  const auto asset = AVAsset::make(URL(clip.path()));
  const auto segments = asset->tracks(AVMediaTypeVideo).at(0)->segments();
  ASSERT_EQ(segments.size(), 2U);
  EXPECT_EQ(segments[0].gap, SegmentGap::hold);
  EXPECT_NEAR(segments[0].target.duration.seconds(), 0.5, 0.001);
  EXPECT_NEAR(asset->tracks(AVMediaTypeVideo).at(0)->timeRange().start.seconds(), 0.5, 0.001);
}

TEST(Asset, LeavesTheEncoderDelayOutOfTheSound) {
  const BarCodeClip clip({.frames = 60});
  const auto segments = AVAsset::make(URL(clip.path()))->tracks(AVMediaTypeAudio).at(0)->segments();
  ASSERT_EQ(segments.size(), 1U);
  EXPECT_EQ(segments[0].source.start, CMTime(1024, 48'000)) << "the delay of the encoder that made the clip";
  EXPECT_NEAR(segments[0].target.duration.seconds(), 2, 0.001);
}

TEST(Asset, LeavesTheDelayOutThatQuickTimeMoviesDoNotTell) {
  // Sound of 2112 samples more than the edit shows, from the media's start on: as cameras' movies have it.
  const BarCodeClip plain({.frames = 60, .extension = ".mov"});
  const TemporaryDirectory directory;
  std::ifstream in(plain.path(), std::ios::binary);
  std::string bytes{std::istreambuf_iterator<char>(in), {}};
  const std::size_t sound = bytes.find("elst", bytes.find("elst") + 4);
  ASSERT_NE(sound, std::string::npos);
  // Version 0, one entry: length in milliseconds at 12, the media's time at 16.
  const auto put = [&](std::size_t at, unsigned value) {
    for (const unsigned shift : {24U, 16U, 8U, 0U}) bytes[at++] = static_cast<char>(value >> shift & 0xFFU);
  };
  ASSERT_EQ(bytes[sound + 4], 0);
  ASSERT_EQ(bytes[sound + 11], 1);
  put(sound + 12, 1900);
  put(sound + 16, 0);
  write(directory.file("camera.mov"), bytes);
  const auto segments = AVAsset::make(URL(directory.file("camera.mov")))->tracks(AVMediaTypeAudio).at(0)->segments();
  ASSERT_EQ(segments.size(), 1U);
  EXPECT_EQ(segments[0].source.start, CMTime(2112, 48'000));
  EXPECT_EQ(segments[0].target.duration, CMTime(1900, 1000));
}

TEST(Asset, ReadsPicturesThatAreRefreshedPieceByPiece) {
  const BarCodeClip clip({.frames = 60,
                          .audioCodec = "",
                          .extension = ".ts",
                          .outputArguments = {"-x264-params", "intra-refresh=1:keyint=20"}});
  std::ifstream in(clip.path(), std::ios::binary);
  std::string bytes{std::istreambuf_iterator<char>(in), {}};
  constexpr std::size_t packet = 188;
  bytes.erase(0, bytes.size() / 3 / packet * packet);  // with the only intra picture
  const TemporaryDirectory directory;
  write(directory.file("tuned_in.ts"), bytes);
  const auto tracks = AVAsset::make(URL(directory.file("tuned_in.ts")))->tracks(AVMediaTypeVideo);
  ASSERT_EQ(tracks.size(), 1U);
  EXPECT_EQ(tracks[0]->naturalSize(), CGSize(320, 180));
}

TEST(Asset, ListsNoCoverArt) {
  const BarCodeClip clip({.frames = 30});
  const TemporaryDirectory directory;
  const std::string cover = directory.file("cover.mp4");
  const ProgramResult made =
      runProgram({"sh", "-c",
                  "ffmpeg -nostdin -v error -i '" + clip.path().string() +
                      "' -f lavfi -i color=red:size=64x64:rate=1:duration=1 "
                      "-map 0 -map 1 -c copy -c:v:1 png -frames:v:1 1 -disposition:v:1 attached_pic '" +
                      cover + "'"});
  ASSERT_TRUE(made.succeeded()) << made;
  EXPECT_EQ(AVAsset::make(URL(cover))->tracks().size(), 2U);
}

}  // namespace
}  // namespace clipworks::test
