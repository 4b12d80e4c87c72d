// What the commands make, judged by ffmpeg.

#include <algorithm>
#include <cmath>
#include <numeric>
#include <regex>
#include <tuple>

#include <tests/app/ProgramUnderTest.h>
#include <tests/support/MediaJudge.h>

namespace clipworks::test {
namespace {

using nlohmann::json;
using testing::HasSubstr;
using testing::MatchesRegex;

std::string smallClip(int frames, const std::string& encoder = "libx264") {
  return BarCodeClip({.width = 160, .height = 90, .frames = frames, .videoCodec = encoder, .preset = "ultrafast"})
      .path();
}

TEST(Loop, PlaysTheClipThreeTimes) {
  const Made made({"--codec", "hevc", "loop", BarCodeClip().path(), "--count", "3"});
  EXPECT_EQ(MediaJudge(made.file).stream("video").codec, "hevc");
  const auto pictures = MediaJudge(made.file).pictures();
  ASSERT_EQ(pictures.size(), 180U);
  for (std::size_t i = 0; i < pictures.size(); ++i) {
    EXPECT_EQ(pictures[i].number, static_cast<int>(i % 60));
    EXPECT_NEAR(pictures[i].seconds, static_cast<double>(i) / 30, 0.002);
  }
  const Sound sound = MediaJudge(made.file).sound();
  for (int second = 0; second < 6; ++second) EXPECT_EQ(toneSecondAt(sound, second + 0.5), second % 2) << second;
}

TEST(Loop, WritesToTheCurrentDirectoryByDefault) {
  const TemporaryDirectory current;
  const TemporaryDirectory temp;
  const Arguments words{"--temp", temp.path(), "--codec", "h264", "loop", smallClip(10, "libx265"), "--count", "1"};
  const auto result = runClipworks(words, {.workingDirectory = current.path()});
  EXPECT_THAT(result.standardOutput, MatchesRegex("[^/\n]+\\.mp4\n")) << result;
  const auto name = result.standardOutput.substr(0, result.standardOutput.find('\n'));
  EXPECT_EQ(namesIn(current.path()), Names{name});
  EXPECT_EQ(MediaJudge(current.file(name)).stream("video").codec, "h264");
  EXPECT_EQ(namesIn(temp.path()), Names{});
}

TEST(Movies, LoseTheRecordingsDateOnlyWhenToldTo) {
  struct {
    Arguments words;
    std::string name;  // as a regular expression
    Names types{"audio", "video"};
    bool isDated = true;
  } const cases[] = {
      {{"loop", datedClip(), "--count", "2"}, "[a-z0-9-]+\\.mp4"},
      {{"loop", datedClip(), "--count", "2", "--strip-metadata"}, "[a-z0-9-]+\\.mp4", {"audio", "video"}, false},
      {{"reverse", datedClip(), "--video-only"}, "reversed_video\\.mov", {"video"}},
      {{"reverse", datedClip(), "--audio-only"}, "reversed_audio\\.m4a", {"audio"}},
      {{"reverse", datedClip(), "--strip-metadata", "--name", "a"}, "a\\.mp4", {"audio", "video"}, false}};
  for (const auto& [words, name, types, isDated] : cases) {
    SCOPED_TRACE(testing::PrintToString(words));
    const Made made(words);
    EXPECT_THAT(made.file.filename(), MatchesRegex(name));
    Names found;
    for (const auto& stream : MediaJudge(made.file).streams()) found.insert(stream.type);
    EXPECT_EQ(found, types);
    EXPECT_EQ(MediaJudge(made.file).warnings(), "");
    const auto tags = runProgram({"ffprobe", "-v", "error", "-show_entries", "format_tags", made.file}).standardOutput;
    EXPECT_EQ(tags.find("2024-05-06T07:08:09") != std::string::npos, isDated) << tags;
    EXPECT_EQ(tags.find("2024") != std::string::npos, isDated) << tags;
  }
}

TEST(Movies, TellProgramsHowFarTheyAre) {
  for (const auto& [words, leastValues] :
       {std::pair<Arguments, std::size_t>{{"loop", BarCodeClip().path(), "--count", "2"}, 2},
        {{"reverse", datedClip()}, 21}}) {
    SCOPED_TRACE(words.front());
    const TemporaryDirectory outputs;
    const TemporaryDirectory temp;
    Arguments all{"--json", "--temp", temp.path()};
    all.insert(all.end(), words.begin(), words.end());
    const auto result = runClipworks(outputs.path(), all);
    ASSERT_EQ(result.exitCode, 0) << result;
    EXPECT_EQ(result.standardError, "");
    std::vector<double> values;
    for (const auto& event : eventsOf(result, "progress")) values.push_back(event.at("value"));
    ASSERT_GE(values.size(), leastValues) << "the pictures tell how far they are\n" << result;
    EXPECT_TRUE(std::is_sorted(values.begin(), values.end())) << result;
    EXPECT_EQ(std::tuple(values.front(), values.back(), std::count(values.begin(), values.end(), 1)),
              std::tuple(0, 1, 1));
    EXPECT_EQ(namesIn(temp.path()), Names{});
    const auto names = namesIn(outputs.path());
    ASSERT_EQ(names.size(), 1U);
    EXPECT_EQ(eventsOf(result).back().at("event"), "done");
    EXPECT_EQ(eventsOf(result).back().at("outputs"), json({outputs.file(*names.begin()).string()}));
  }
}

TEST(Reverse, PlaysTheClipBackwardsUnderItsName) {
  const Made made({"reverse", datedClip(), "--name", "back"});
  EXPECT_EQ(made.file.filename(), "back.mp4");
  std::vector<int> backwards(60);
  std::iota(backwards.rbegin(), backwards.rend(), 0);
  EXPECT_EQ(numbersOf(MediaJudge(made.file).pictures()), backwards);
  EXPECT_EQ(toneSecondAt(MediaJudge(made.file).sound(), 0.5), 1);
}

TEST(Reverse, IsNotHeldToAPoorDataRate) {
  const std::string clip = BarCodeClip({.outputArguments = {"-b:v", "20k"}}).path();
  const Made made({"reverse", clip, "--video-only"});
  const auto compared = runProgram({"ffmpeg", "-nostdin", "-hide_banner", "-i", made.file, "-i", clip, "-lavfi",
                                    "[1:v]reverse[b];[0:v][b]psnr", "-f", "null", "-"});
  std::smatch least;
  ASSERT_TRUE(std::regex_search(compared.standardError, least, std::regex(" min:([0-9.]+)"))) << compared;
  EXPECT_GT(std::stod(least[1]), 32);
}

TEST(Speed, SlowsAStretchDownAndCopiesThePictures) {
  const BarCodeClip clip;  // 60 pictures in two seconds
  const Made made({"speed", clip.path(), "--from", "0.5", "--to", "1.5", "--ratio", "3", "--name", "slow"});
  EXPECT_EQ(made.file.filename(), "slow.mp4");
  const auto pictures = MediaJudge(made.file).pictures();
  EXPECT_EQ(pictures.size(), 60U);
  EXPECT_EQ(numberAt(pictures, 2.01), 30);
  EXPECT_EQ(numberAt(pictures, 3.99), 59);
  EXPECT_EQ(MediaJudge(made.file).pictureHashes(), MediaJudge(clip.path()).pictureHashes()) << "not encoded again";
}

TEST(Narration, IsHeardWhereItWasAsked) {
  // The ffmpeg program folds two equal channels of AAC into one that is 3 dB louder.
  const double foldGain = std::sqrt(2);
  const std::tuple<const char*, const char*, int> formats[] = {
      {"pcm_s16le", ".wav", 44'100}, {"aac", ".m4a", 48'000}, {"flac", ".flac", 48'000}};
  for (const auto& [encoder, ending, rate] : formats) {
    SCOPED_TRACE(encoder);
    const TemporaryDirectory pieces;
    const std::string piece = pieces.file(std::string("a@b: c") + ending);
    const ClipOptions tones{
        .frames = 0, .audioCodec = encoder, .sampleRate = rate, .audioSeconds = 1, .extension = ending};
    fs::copy_file(BarCodeClip(tones).path(), piece);
    const Made made({"narrate", BarCodeClip({.frames = 120}).path(), "--piece", piece + "@2.25:0.5", "--base-volume",
                     "0", "--piece", piece + "@0.5"});
    EXPECT_EQ(made.file.extension(), ".mp4");
    EXPECT_EQ(MediaJudge(made.file).stream("video").codec, "h264");
    EXPECT_EQ(MediaJudge(made.file).pictures().size(), 120U);
    const Sound heard = MediaJudge(made.file).sound();
    const Sound tone = makeTone(heard.rate, 0, 1);
    for (const auto& [at, volume] : {std::pair(0.5, 1.0), std::pair(2.25, 0.5)}) {
      EXPECT_NEAR(lagMilliseconds(tone, heard.part(at, at + 1)).value(), 0, 1) << at;
      EXPECT_NEAR(heard.part(at + 0.1, at + 0.9).level() / tone.part(0.1, 0.9).level(), volume * foldGain, 0.03) << at;
    }
    EXPECT_LT(heard.part(1.6, 2.2).level(), 0.003) << "the clip's own sound";
  }
}

/// A clip whose matrix shrinks its pictures to nothing.
fs::path shapelessClip(const TemporaryDirectory& directory) {
  fs::copy_file(smallClip(5), directory.file("shapeless.mp4"));
  setMatrix(directory.file("shapeless.mp4"), {});
  return directory.file("shapeless.mp4");
}

TEST(Compress, WritesWhatItCanAndNamesTheRest) {
  const TemporaryDirectory inputs;
  const TemporaryDirectory outputs;
  const auto result =
      runClipworks(outputs.path(), {"--json", "compress", smallClip(20), inputs.file("none.mp4"), soundAlone(),
                                    smallClip(10), shapelessClip(inputs), "--preset", "144p", "--bitrate", "0"});
  EXPECT_EQ(result.exitCode, 1) << result;
  EXPECT_THAT(result.standardError,
              MatchesRegex("[^\n]*mp4: [0-9.]+ kB, now [0-9.]+ kB: [a-z0-9]+-compressed.mp4\n"
                           "clipworks: none.mp4 cannot be opened: [^\n]*\n"
                           "clipworks: [^\n]*m4a has no video track; compressing it needs one\n"
                           "[^\n]*mp4: [0-9.]+ kB, now [0-9.]+ kB: [a-z0-9]+-compressed.mp4\n"
                           "clipworks: shapeless.mp4 shows 0 × 0 pixels, a shape that a height of 144 [^\n]*\n"
                           "clipworks: 3 of 5 files could not be compressed: none.mp4, [^\n]*\n"));
  const json last = eventsOf(result).back();
  EXPECT_EQ(last.at("event"), "error");
  ASSERT_EQ(last.at("failed").size(), 3U) << result;
  EXPECT_EQ(last.at("failed").at(1).at("input"), soundAlone());
  ASSERT_EQ(last.at("outputs").size(), 2U) << result;
  EXPECT_EQ(namesIn(outputs.path()).size(), 2U);
  const MediaJudge first(last.at("outputs").at(0).get<std::string>());
  EXPECT_EQ(first.pictures().size(), 20U) << "in the order of the clips";
  EXPECT_EQ(first.stream("video").height, 144);
}

TEST(Preview, HoldsTheFirstSeconds) {
  const Made made({"preview", slowClip(), "--preset", "144p"});
  EXPECT_NEAR(MediaJudge(made.file).duration(), 5, 0.05);
  EXPECT_EQ(MediaJudge(made.file).pictures().size(), 150U);
}

/// Of a rate that varies, with the second picture only 1/600 s behind the first, and times that decimals do not hold.
std::string unevenClip() {
  return BarCodeClip({.frameTimes = {0, 1, 20, 41, 61, 200, 219, 240, 700, 710},
                      .lastFrameLength = 20,
                      .timescale = 600,
                      .outputArguments = {"-metadata", "creation_time=2024-05-06T07:08:09Z"}})
      .path();
}

TEST(Frame, IsThatVeryPicture) {
  const std::pair<const char*, int> places[] = {
      {"0", 0},    {"0.001666666", 0}, {"0.001666667", 1},  {"0.00166666666666666666", 0},
      {"0.35", 5}, {"0:1.1667", 8},    {"00:00:00.069", 3}, {"1.216", 9},
      {"#0", 0},   {"#1", 1},          {"#6", 6},           {"#9", 9}};
  for (const auto& [place, number] : places) {
    SCOPED_TRACE(place);
    const Made made({"frame", unevenClip(), "--at", place, "--format", "png", "--name", "still"});
    EXPECT_EQ(made.file.filename(), "still.png");
    EXPECT_EQ(numbersOf(MediaJudge(made.file).pictures()), std::vector<int>{number});
  }
}

TEST(Frame, KeepsTheRecordingsDateUnlessToldOtherwise) {
  const auto dateOf = [](const fs::path& file) {
    return runProgram({"exiftool", "-s3", "-DateTimeOriginal", file}).standardOutput;
  };
  const Made kept({"frame", unevenClip(), "--at", "0"});
  EXPECT_THAT(kept.file.filename(), MatchesRegex("[a-z0-9]+-frame\\.jpg"));
  EXPECT_EQ(dateOf(kept.file), "2024:05:06 07:08:09\n");
  EXPECT_EQ(dateOf(Made({"frame", unevenClip(), "--at", "0", "--strip-metadata"}).file), "");
}

}  // namespace
}  // namespace clipworks::test
