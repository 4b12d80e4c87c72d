#include <fstream>

#include <tests/app/ProgramUnderTest.h>
#include <tests/support/TwoFormatsClip.h>

namespace clipworks::test {
namespace {

using nlohmann::json;
using testing::HasSubstr;

/// Two seconds, turned, dated, with an empty edit before the pictures.
std::string phoneClip() {
  ClipOptions options{
      .timescale = 30, .rotation = 90, .outputArguments = {"-metadata", "creation_time=2024-05-06T07:08:09Z"}};
  for (int i = 0; i < 60; ++i) options.frameTimes.push_back(15 + i);
  return BarCodeClip(options).path();
}

/// The first file that the program tells of.
json toldOf(const std::string& file) {
  const auto events = eventsOf(runClipworks({"--json", "info", file}));
  EXPECT_EQ(events.size(), 1U);
  return events.at(0).at("files").at(0);
}

TEST(Info, TellsPeopleWhatAFileHolds) {
  const auto result = runClipworks({"info", phoneClip()});
  EXPECT_EQ(std::pair(result.exitCode, result.standardError), std::pair(0, std::string()));
  for (const char* words :
       {"2.500 s", "video  h264  320 × 180  rotated 90°  30 fps", "audio  aac   stereo", "0.000 s – 0.500 s",
        "8 bits, SDR, colours unknown/unknown/unknown, limited range, constant rate", "2024-05-06T07:08:09"}) {
    EXPECT_THAT(result.standardOutput, HasSubstr(words));
  }
}

TEST(Info, TellsProgramsEveryFigure) {
  const json file = toldOf(phoneClip());
  EXPECT_EQ(file.at("path"), phoneClip());
  EXPECT_NEAR(file.at("/duration/seconds"_json_pointer).get<double>(), 2.5, 0.001);
  const json& video = file.at("tracks").at(0);
  EXPECT_EQ(json({video.at("width"), video.at("transform"), video.at("/segments/0/empty"_json_pointer)}),
            json({320, {0, 1, -1, 0, 180, 0}, true}));
  EXPECT_NEAR(video.at("frameRate").get<double>(), 30, 0.01);
  EXPECT_GT(video.at("dataRate").get<double>(), 1000);
  EXPECT_NEAR(video.at("/segments/1/target/start/seconds"_json_pointer).get<double>(), 0.5, 0.001);
  const json& audio = file.at("tracks").at(1);
  EXPECT_EQ(json({audio.at("codec"), audio.at("channels"), audio.at("sampleRate")}), json({"aac", 2, 48000}));
}

TEST(Info, TellsWhatMattersOfAPhonesClip) {
  const TemporaryDirectory directory;
  std::ofstream(directory.file("words.srt")) << "1\n00:00:00,000 --> 00:00:01,000\nWords.\n";
  const auto hdr = BarCodeClip({.frameTimes = {0, 40, 90, 120, 170, 210},
                                .timescale = 1000,
                                .videoCodec = "libx265",
                                .preset = "ultrafast",
                                .pixelFormat = "yuv420p10le",
                                .outputArguments = {"-color_primaries", "bt2020", "-color_trc", "arib-std-b67",
                                                    "-colorspace", "bt2020nc"}})
                       .path();
  const auto made = runProgram({"ffmpeg", "-v", "error", "-i", hdr, "-i", directory.file("words.srt"), "-c", "copy",
                                "-c:s", "mov_text", "-tag:v", "hvc1", directory.file("clip.mp4")});
  ASSERT_TRUE(made.succeeded()) << made;
  const auto shown = runClipworks({"info", directory.file("clip.mp4")}).standardOutput;
  EXPECT_THAT(shown, HasSubstr("10 bits, HLG, colours bt2020/arib-std-b67/bt2020nc, limited range, variable rate"));
  EXPECT_THAT(shown, HasSubstr("subtitles  mov_text"));

  const auto plain = BarCodeClip({.outputArguments = {"-movflags", "+faststart"}}).path();
  fs::copy_file(plain, directory.file("cut.mp4"));
  fs::resize_file(directory.file("cut.mp4"), fs::file_size(plain) / 2);
  const json cut = toldOf(directory.file("cut.mp4"));
  EXPECT_GT(cut.at("tracks").at(0).at("pictures").at("missing").get<int>(), 0);
  EXPECT_EQ(cut.at("otherTracks"), json::array());
}

TEST(Info, ShowsTheOthersOfAListWhenOneCannotBeRead) {
  const TemporaryDirectory directory;
  std::ofstream(directory.file("note.mp4")) << "no media\n";
  const Arguments words{"info", phoneClip(), directory.file("note.mp4"), soundAlone()};
  const auto shown = runClipworks(words);
  EXPECT_EQ(shown.exitCode, 1) << shown;
  EXPECT_THAT(shown.standardError, testing::StartsWith("clipworks: note.mp4 "));
  EXPECT_THAT(shown.standardOutput, testing::AllOf(HasSubstr(words[1]), HasSubstr(words[3]), HasSubstr("mono")));

  auto asJson = words;
  asJson.insert(asJson.begin(), "--json");
  const auto told = runClipworks(asJson);
  EXPECT_EQ(told.exitCode, 1) << told;
  const json files = json::parse(told.standardOutput).at("files");
  ASSERT_EQ(files.size(), 3U);
  EXPECT_EQ(files.at(1).at("tracks"), json::array());
  EXPECT_THAT(files.at(1).at("error").get<std::string>(), HasSubstr("note.mp4"));
  EXPECT_EQ(files.at("/2/tracks/0/type"_json_pointer), "audio");
}

TEST(Info, TellsOfAFormatThatChanges) {
  const auto people = runClipworks({"info", twoFormatsClip()});
  EXPECT_THAT(people.standardOutput, HasSubstr("format changes on the way: 256 × 128, then 128 × 128\n")) << people;
  EXPECT_EQ(toldOf(twoFormatsClip()).at("tracks").at(0).at("formats"),
            json::array({{{"width", 256}, {"height", 128}}, {{"width", 128}, {"height", 128}}}));
}

TEST(Program, ExplainsItself) {
  const std::pair<Arguments, Arguments> cases[] = {
      {{"--version"}, {"clipworks 0."}},
      {{"--help"}, {"loop", "info", "--outputs", "Exit codes", "130"}},
      {{"loop", "--help"}, {"--count", "Example"}},
      {{"--licenses"}, {"MIT License", "GPL", "GNU General Public License", "x264", "CLI11"}},
  };
  for (const auto& [arguments, says] : cases) {
    const auto result = runClipworks(arguments);
    EXPECT_EQ(result.exitCode, 0) << result;
    EXPECT_EQ(result.standardError, "");
    for (const auto& text : says) EXPECT_THAT(result.standardOutput, HasSubstr(text));
  }
}

}  // namespace
}  // namespace clipworks::test
