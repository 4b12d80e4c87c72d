#include <clipworks/reverse/VideoReverseConverter.h>

#include <cmath>
#include <fstream>
#include <regex>

#include <clipworks/media/asset/AVAsset.h>
#include <clipworks/media/base/FileManager.h>
#include <tests/support/OperationTest.h>

namespace clipworks::test {
namespace {

namespace fs = std::filesystem;
using testing::Contains;
using testing::ElementsAre;
using testing::IsEmpty;
using Outcome = Result<URL, VideoReverseConverter::ConversionError>;
using Names = std::set<std::string>;

struct ProgressLog final : public VideoReverseDelegate {
  void didUpdateReverseProgress(float progress) override { values.push_back(progress); }
  std::vector<float> values;  // each before the completion
};

class Reverser : public OperationTest {
 protected:
  void SetUp() override {
    FileSystem::shared().setTempURL(URL(outputs_.path()));
    FileManager::default_().setDocumentDirectory(URL(documents_.path()));
  }
  static Outcome reversed(const URL& clip, const std::optional<std::string>& name = {}) {
    const auto converter = VideoReverseConverter::make(clip);
    return eventually<Outcome>([&](auto done) { converter->reverse(name, done); }).value();
  }
  static fs::path reversedPictures(const fs::path& clip, const std::shared_ptr<ProgressLog>& log = {}) {
    const auto converter = VideoReverseConverter::make(URL(clip));
    converter->setDelegate(log);
    return eventually<Outcome>([&](auto done) { converter->reverseVideoOnly(done); }).value().value().path();
  }
  static float dataRate(const fs::path& file) {
    return AVAsset::make(URL(file))->tracks(AVMediaTypeVideo).at(0)->estimatedDataRate();
  }
  /// Runs ffmpeg in the documents' directory, its arguments between spaces; what it wrote to standard output.
  std::string ffmpeg(const std::string& arguments) const {
    std::istringstream in("ffmpeg -nostdin -v error -y " + arguments);
    const std::vector<std::string> words(std::istream_iterator<std::string>(in), {});
    return outputOf(words, {.workingDirectory = documents_.path()});
  }

  TemporaryDirectory documents_;
};

TEST_F(Reverser, PlaysClipsBackwards) {
  const std::vector<std::pair<const char*, ClipOptions>> cases{
      {"a constant rate", {.frames = 70}},
      {"a variable rate",
       {.frameTimes = {0, 20, 100, 130, 210, 400, 410, 700, 720, 760, 800}, .timescale = 600, .audioSeconds = 1.4}},
      {"a first picture after zero", {.frameTimes = {300, 340, 380, 420, 460, 700}, .timescale = 600}},
      {"a turned recording", {.frames = 40, .rotation = 90}},
      {"a single picture", {.frames = 1}},
      {"HEVC with open groups",
       {.frames = 50, .videoCodec = "libx265", .preset = "ultrafast", .gop = 12, .groups = GroupOfPictures::open}},
      {"mono sound at 22,050 Hz", {.sampleRate = 22'050, .channels = 1}},
      {"an odd size", {.width = 318, .height = 179, .frames = 12, .pixelFormat = "yuv444p"}},
  };
  for (auto [name, options] : cases) {
    SCOPED_TRACE(name);
    // Counts samples at 44,100 and 48,000 Hz, so that the file tells to the sample where its sound ends.
    options.outputArguments = {"-movie_timescale", "7056000"};
    const BarCodeClip clip(options);
    const MediaJudge judge(reversed(URL(clip.path())).value().path());
    const MediaJudge source(clip.path());

    const auto pictures = judge.pictures();
    const std::size_t count = clip.times().size();
    ASSERT_EQ(pictures.size(), count);
    for (std::size_t i = 0; i < count; ++i) {
      EXPECT_EQ(pictures[i].number, static_cast<int>(count - 1 - i)) << "picture " << i;
      EXPECT_NEAR(pictures[i].seconds, clip.times()[i], 1e-3) << "picture " << i;
    }
    EXPECT_EQ(judge.stream("video").matrix, source.stream("video").matrix);
    EXPECT_EQ(judge.warnings(), "");

    const auto stream = judge.stream("audio");
    EXPECT_EQ(std::tuple(stream.codec, stream.sampleRate, stream.channels), std::tuple("aac", 44'100, 2));
    Sound backwards = source.sound(options.sampleRate).part(0, clip.audioEnd());
    std::reverse(backwards.samples.begin(), backwards.samples.end());
    const Sound sound = judge.sound(options.sampleRate);
    if (backwards.seconds() > 0.5) {
      EXPECT_NEAR(lagMilliseconds(backwards, sound).value(), 0, 0.05) << "starts with the pictures";
      EXPECT_GE(likeness(backwards, sound, 0), 0.99);
    }
    EXPECT_THAT(namesIn(documents_.path()), IsEmpty()) << "the halves are gone";
  }
}

TEST_F(Reverser, TellsItsProgressAndItsSteps) {
  const BarCodeClip clip({.width = 160, .height = 90, .frameTimes = {0, 300, 600, 750}, .timescale = 600});
  const auto log = std::make_shared<ProgressLog>();
  const fs::path made = reversedPictures(clip.path(), log);
  EXPECT_EQ(made, documents_.file("reversed_video.mov"));
  EXPECT_THAT(log->values, ElementsAre(0.25F, 0.5F, 0.75F, 1.0F));
  EXPECT_THAT(printed_.lines(),
              ElementsAre("Starting video reversing", "Reading samples to get timestamps", "Finishing first read",
                          "Got image", "Append image at 1.25", "Got image", "Append image at 1.0", "Got image",
                          "Append image at 0.5", "Got image", "Append image at 0.0", "Finished video reversing"));
  EXPECT_EQ(MediaJudge(made).streams().size(), 1U) << "no sound";
}

TEST_F(Reverser, LeavesTheSoundHalfWhereItIs) {
  std::ofstream(documents_.file("reversed_audio.m4a")) << "an older one";
  const auto converter = VideoReverseConverter::make(urlOf({}));
  const auto made = eventually<Outcome>([&](auto done) { converter->reverseAudioOnly(done); }).value().value().path();
  EXPECT_EQ(made, documents_.file("reversed_audio.m4a"));
  EXPECT_THAT(printed_.lines(), ElementsAre("Start reverse audio!", "Audio writing finished!", "Ended reverse audio!"));
  const Sound sound = MediaJudge(made).sound();
  EXPECT_EQ(toneSecondAt(sound, 0.5), 1);
  EXPECT_EQ(toneSecondAt(sound, 1.5), 0);
}

TEST_F(Reverser, ReplacesAnOlderFileOfTheName) {
  std::ofstream(outputs_.file("named.mp4")) << "an older one";
  EXPECT_EQ(reversed(urlOf({.frames = 3}), "named").value().path(), outputs_.file("named.mp4"));
  EXPECT_GT(fs::file_size(outputs_.file("named.mp4")), 100U);
  const auto other = reversed(urlOf({.frames = 3})).value().path();
  EXPECT_THAT(other.filename(), testing::MatchesRegex(identifier + "\\.mp4"));
}

TEST_F(Reverser, BringsDataRatesIntoTheEncodersRange) {
  for (const auto& [arguments, least, most] :
       {std::tuple("color=black:size=64x64:rate=1:duration=10 -pix_fmt yuv420p", 0.0, 1e3),
        std::tuple("testsrc2=size=1920x1080:rate=60:duration=0.05 -c:v v210 -pix_fmt yuv422p10le", 1e9, 1e10)}) {
    const fs::path clip = documents_.file("clip.mov");
    ffmpeg("-f lavfi -i " + std::string(arguments) + " clip.mov");
    ASSERT_GT(dataRate(clip), least);
    ASSERT_LT(dataRate(clip), most);
    EXPECT_EQ(MediaJudge(reversedPictures(clip)).stream("video").frames, MediaJudge(clip).stream("video").frames);
  }
}

// Five slides full of points as thin as the strokes of letters, each for five seconds, at a data rate as low as such
// clips have.
TEST_F(Reverser, KeepsTextReadableAtTheDataRateOfSlides) {
  ffmpeg(
      "-f lavfi -i nullsrc=size=426x240:rate=1/5,geq=lum='if(lt(random(0),0.02),20,240)':cb=128:cr=128 -f lavfi -i "
      "sine=duration=25 -vf scale=1278x720:flags=neighbor,fps=15 -t 25 -c:v libx264 -preset veryfast -crf 28 -g 1000 "
      "-pix_fmt yuv420p -c:a aac slides.mp4");
  const float rate = dataRate(documents_.file("slides.mp4"));
  ASSERT_LT(rate, 100'000);
  EXPECT_NEAR(dataRate(reversedPictures(documents_.file("slides.mp4"))) / rate, 1, 0.25);
  // Once a second: of 375 pictures, the reversed 0th, 15th … are the slides' 374th, 359th …
  const std::string told = ffmpeg(
      "-i reversed_video.mov -i slides.mp4 -lavfi "
      "[0:v]select=eq(mod(n\\,15)\\,0),format=gray,settb=1/15,setpts=N[a];"
      "[1:v]select=eq(mod(n\\,15)\\,14),format=gray,reverse,settb=1/15,setpts=N[b];"
      "[a][b]psnr=stats_file=-,setpts=N/TB -vsync 0 -f null -");
  int count = 0;
  const std::regex value("psnr_y:([0-9.]+|inf)");
  for (std::sregex_iterator at(told.begin(), told.end(), value), end; at != end; ++at, ++count) {
    EXPECT_GE(std::stod((*at)[1]), 35);
  }
  EXPECT_EQ(count, 25) << told;
}

TEST_F(Reverser, FailsWhereAHalfIsMissing) {
  const auto videos = incompleteVideos();
  const std::vector<std::tuple<URL, Names, Names>> cases{
      {videos[2], {"Start reverse audio!", "Starting video reversing", "could not initialize reader."}, {}},
      {videos[0], {"Finished video reversing"}, {"reversed_video.mov"}},
      {videos[1], {"could not retrieve the video track.", "Ended reverse audio!"}, {"reversed_audio.m4a"}},
  };
  for (const auto& [video, lines, left] : cases) {
    EXPECT_FALSE(reversed(video)) << video.path();
    for (const auto& line : lines) EXPECT_THAT(printed_.lines(), Contains(line));
    EXPECT_EQ(namesIn(documents_.path()), left);
  }
  FileManager::default_().setDocumentDirectory(URL(documents_.file("missing")));
  EXPECT_FALSE(reversed(urlOf({.frames = 3})));
  EXPECT_THAT(printed_.lines(), Contains(testing::StartsWith("Failed: nothing can be written to ")));
  EXPECT_THAT(namesIn(outputs_.path()), IsEmpty());
}

TEST_F(Reverser, FallsSilentWhenItIsLetGo) {
  auto converter = VideoReverseConverter::make(urlOf({}));
  const auto outcome =
      eventually<Outcome>([&](auto done) { std::exchange(converter, nullptr)->reverse(std::nullopt, done); });
  EXPECT_FALSE(outcome) << "no completion";
  EXPECT_THAT(namesIn(outputs_.path()), IsEmpty());
}

}  // namespace
}  // namespace clipworks::test
