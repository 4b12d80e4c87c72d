#include <clipworks/reverse/VideoReverseConverter.h>

#include <algorithm>
#include <chrono>
#include <cmath>
#include <filesystem>
#include <fstream>
#include <future>
#include <memory>
#include <mutex>
#include <optional>
#include <ostream>
#include <random>
#include <regex>
#include <string>
#include <type_traits>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <clipworks/filedeck/FileSystem.h>
#include <clipworks/media/asset/AVAsset.h>
#include <clipworks/media/base/FileManager.h>

#include <tests/support/BarCodeClip.h>
#include <tests/support/MediaJudge.h>
#include <tests/support/PrintedLinesCapture.h>
#include <tests/support/RunProgram.h>
#include <tests/support/TemporaryDirectory.h>

namespace clipworks::test {
namespace {

namespace fs = std::filesystem;
using testing::Contains;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::StartsWith;
using testing::UnorderedElementsAre;
constexpr std::chrono::seconds patience{300};
using Outcome = Result<URL, VideoReverseConverter::ConversionError>;

/// Waits for a completion; notices, too, that it will never come.
class Awaited {
 public:
  VideoReverseConverter::Completion completion() {
    return [promise = std::move(promise_)](const Outcome& outcome) { promise->set_value(outcome); };
  }
  /// Nothing when the completion was destroyed uncalled.
  std::optional<Outcome> get() {
    if (future_.wait_for(patience) != std::future_status::ready) {
      ADD_FAILURE() << "the reversal did not end";
      return std::nullopt;
    }
    try {
      return future_.get();
    } catch (const std::future_error&) {
      return std::nullopt;
    }
  }

 private:
  std::shared_ptr<std::promise<Outcome>> promise_ = std::make_shared<std::promise<Outcome>>();
  std::future<Outcome> future_ = promise_->get_future();
};

class ProgressLog final : public VideoReverseDelegate {
 public:
  void didUpdateReverseProgress(float progress) override {
    const std::lock_guard lock(mutex_);
    values_.push_back(progress);
  }
  std::vector<float> values() {
    const std::lock_guard lock(mutex_);
    return values_;
  }

 private:
  std::mutex mutex_;
  std::vector<float> values_;  // guarded by mutex_
};

class Reverser : public testing::Test {
 protected:
  void SetUp() override {
    FileSystem::shared().setTempURL(URL(temp_.path()));
    FileManager::default_().setDocumentDirectory(URL(documents_.path()));
  }
  static std::vector<std::string> namesIn(const fs::path& directory) {
    std::vector<std::string> names;
    for (const auto& entry : fs::directory_iterator(directory)) names.push_back(entry.path().filename());
    return names;
  }
  /// The reversed file; fails the test without one.
  static fs::path reversed(const fs::path& clip, const std::optional<std::string>& name = std::nullopt) {
    const auto converter = VideoReverseConverter::make(URL(clip));
    Awaited awaited;
    converter->reverse(name, awaited.completion());
    const auto outcome = awaited.get();
    EXPECT_TRUE(outcome && *outcome) << "the reversal failed";
    return outcome && *outcome ? (*outcome)->path() : fs::path();
  }

  TemporaryDirectory temp_;
  TemporaryDirectory documents_;
  PrintedLinesCapture printed_;
};

/// How alike two stretches of sound are: the cosine of the angle between them.
double likeness(const Sound& a, const Sound& b) {
  double product = 0;
  double ofA = 0;
  double ofB = 0;
  for (std::size_t i = 0; i < std::min(a.samples.size(), b.samples.size()); ++i) {
    product += static_cast<double>(a.samples[i]) * static_cast<double>(b.samples[i]);
    ofA += static_cast<double>(a.samples[i]) * static_cast<double>(a.samples[i]);
    ofB += static_cast<double>(b.samples[i]) * static_cast<double>(b.samples[i]);
  }
  return product / std::sqrt(ofA * ofB);
}

struct ClipCase {
  std::string name;
  ClipOptions options;
  friend std::ostream& operator<<(std::ostream& out, const ClipCase& c) { return out << c.name; }
};

class ReverserClips : public Reverser, public testing::WithParamInterface<ClipCase> {};

TEST_P(ReverserClips, PlayBackwards) {
  ClipOptions options = GetParam().options;
  // Counts samples at 44,100 and 48,000 Hz, so that the file tells to the sample where its sound ends.
  options.outputArguments = {"-movie_timescale", "7056000"};
  const BarCodeClip clip(options);
  const fs::path file = reversed(clip.path());
  const MediaJudge judge(file);
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
  EXPECT_EQ(stream.codec, "aac");
  EXPECT_EQ(stream.sampleRate, 44'100);
  EXPECT_EQ(stream.channels, 2);
  Sound backwards = source.sound(options.sampleRate).part(0, clip.audioEnd());
  std::reverse(backwards.samples.begin(), backwards.samples.end());
  const Sound sound = judge.sound(options.sampleRate);
  if (backwards.seconds() > 0.5) {
    const auto lag = lagMilliseconds(backwards, sound);
    ASSERT_TRUE(lag);
    EXPECT_NEAR(*lag, 0, 0.05) << "starts with the pictures";
    EXPECT_GE(likeness(backwards, sound), 0.99);
  }
  EXPECT_THAT(namesIn(documents_.path()), IsEmpty()) << "the halves are gone";
}

INSTANTIATE_TEST_SUITE_P(
    Of, ReverserClips,
    testing::Values(
        ClipCase{"a_constant_rate", {.frames = 70}},
        ClipCase{"a_variable_rate",
                 {.frameTimes = {0, 20, 100, 130, 210, 400, 410, 700, 720, 760, 800},
                  .timescale = 600,
                  .audioSeconds = 1.4}},
        ClipCase{"a_first_picture_after_zero", {.frameTimes = {300, 340, 380, 420, 460, 700}, .timescale = 600}},
        ClipCase{"a_turned_recording", {.frames = 40, .rotation = 90}}, ClipCase{"a_single_picture", {.frames = 1}},
        ClipCase{
            "HEVC_with_open_groups",
            {.frames = 50, .videoCodec = "libx265", .preset = "ultrafast", .gop = 12, .groups = GroupOfPictures::open}},
        ClipCase{"mono_sound_at_22050", {.frames = 60, .sampleRate = 22'050, .channels = 1}},
        ClipCase{"an_odd_size", {.width = 318, .height = 179, .frames = 12, .pixelFormat = "yuv444p"}}),
    [](const auto& testCase) { return testCase.param.name; });

TEST_F(Reverser, TellsItsProgressAndItsSteps) {
  const BarCodeClip clip({.width = 160, .height = 90, .frameTimes = {0, 300, 600, 750}, .timescale = 600});
  const auto converter = VideoReverseConverter::make(URL(clip.path()));
  const auto log = std::make_shared<ProgressLog>();
  converter->setDelegate(log);
  Awaited awaited;
  converter->reverseVideoOnly(awaited.completion());
  const auto outcome = awaited.get();
  ASSERT_TRUE(outcome && *outcome);
  EXPECT_EQ((*outcome)->path(), documents_.path() / "reversed_video.mov");
  EXPECT_THAT(log->values(), ElementsAre(0.25F, 0.5F, 0.75F, 1.0F));
  EXPECT_THAT(printed_.lines(),
              ElementsAre("Starting video reversing", "Reading samples to get timestamps", "Finishing first read",
                          "Got image", "Append image at 1.25", "Got image", "Append image at 1.0", "Got image",
                          "Append image at 0.5", "Got image", "Append image at 0.0", "Finished video reversing"));
  EXPECT_TRUE(AVAsset::make(**outcome)->tracks(AVMediaTypeAudio).empty());
}

TEST_F(Reverser, LeavesTheSoundHalfWhereItIs) {
  std::ofstream(documents_.path() / "reversed_audio.m4a") << "an older one";
  const auto converter = VideoReverseConverter::make(URL(BarCodeClip().path()));
  Awaited awaited;
  converter->reverseAudioOnly(awaited.completion());
  const auto outcome = awaited.get();
  ASSERT_TRUE(outcome && *outcome);
  EXPECT_EQ((*outcome)->path(), documents_.path() / "reversed_audio.m4a");
  EXPECT_THAT(printed_.lines(), ElementsAre("Start reverse audio!", "Audio writing finished!", "Ended reverse audio!"));
  const Sound sound = MediaJudge((*outcome)->path()).sound();
  EXPECT_EQ(toneSecondAt(sound, 0.5), 1);
  EXPECT_EQ(toneSecondAt(sound, 1.5), 0);
}

TEST_F(Reverser, ReplacesAnOlderFileOfTheName) {
  std::ofstream(temp_.path() / "named.mp4") << "an older one";
  EXPECT_EQ(reversed(BarCodeClip({.frames = 3}).path(), "named"), temp_.path() / "named.mp4");
  EXPECT_GT(fs::file_size(temp_.path() / "named.mp4"), 100U);
  const auto other = reversed(BarCodeClip({.frames = 3}).path());
  EXPECT_THAT(other.filename().string(), testing::MatchesRegex("[0-9A-F]{8}(-[0-9A-F]{4}){3}-[0-9A-F]{12}\\.mp4"));
}

/// Runs ffmpeg; what it wrote to standard output.
std::string ffmpeg(std::vector<std::string> arguments) {
  arguments.insert(arguments.begin(), {"ffmpeg", "-nostdin", "-v", "error", "-y"});
  const auto result = runProgram(arguments);
  EXPECT_EQ(result.exitCode, 0) << result;
  return result.standardOutput;
}

struct RateCase {
  std::string name;
  std::string pictures;  // ffmpeg's
  std::vector<std::string> encoder;
  double least;  // bits a second
  double most;
  friend std::ostream& operator<<(std::ostream& out, const RateCase& c) { return out << c.name; }
};

class ReverserRates : public Reverser, public testing::WithParamInterface<RateCase> {};

TEST_P(ReverserRates, AreBroughtIntoTheEncodersRange) {
  const fs::path clip = temp_.path() / "clip.mov";
  std::vector<std::string> arguments{"-f", "lavfi", "-i", GetParam().pictures};
  arguments.insert(arguments.end(), GetParam().encoder.begin(), GetParam().encoder.end());
  arguments.push_back(clip);
  ffmpeg(arguments);
  const auto track = AVAsset::make(URL(clip))->tracks(AVMediaTypeVideo).at(0);
  ASSERT_GT(track->estimatedDataRate(), GetParam().least);
  ASSERT_LT(track->estimatedDataRate(), GetParam().most);
  const auto converter = VideoReverseConverter::make(URL(clip));
  Awaited awaited;
  converter->reverseVideoOnly(awaited.completion());
  const auto outcome = awaited.get();
  ASSERT_TRUE(outcome && *outcome);
  ASSERT_TRUE(fs::exists((*outcome)->path()));
  EXPECT_EQ(MediaJudge((*outcome)->path()).stream("video").frames, MediaJudge(clip).stream("video").frames);
}

INSTANTIATE_TEST_SUITE_P(
    Of, ReverserRates,
    testing::Values(
        RateCase{"a_black_picture", "color=black:size=64x64:rate=1:duration=10", {"-pix_fmt", "yuv420p"}, 0, 1000},
        RateCase{"uncompressed_pictures",
                 "testsrc2=size=1920x1080:rate=60:duration=0.05",
                 {"-c:v", "v210", "-pix_fmt", "yuv422p10le"},
                 1e9,
                 1e10}),
    [](const auto& testCase) { return testCase.param.name; });

/// Five slides of lines of strokes as thin as those of letters, each for five seconds, at a data rate as low as such
/// clips have.
class Slides {
 public:
  static constexpr int lines = 8;
  static constexpr int pitch = 70;
  static constexpr int top = 80;

  explicit Slides(const fs::path& directory) : path_(directory / "slides.mp4") {
    for (unsigned slide = 0; slide < 5; ++slide) draw(directory / ("slide" + std::to_string(slide) + ".pgm"), slide);
    ffmpeg({"-framerate", "1/5",      "-i",       directory / "slide%d.pgm",
            "-f",         "lavfi",    "-i",       "sine=duration=25",
            "-vf",        "fps=15",   "-c:v",     "libx264",
            "-preset",    "veryfast", "-crf",     "28",
            "-g",         "1000",     "-pix_fmt", "yuv420p",
            "-c:a",       "aac",      path_});
  }
  [[nodiscard]] const fs::path& path() const { return path_; }

  /// The least that `filter` ("psnr" or "ssim", told by `pattern` for each picture) finds between some pictures of
  /// `reversed` and these backwards, after `preparation`.
  [[nodiscard]] double least(const fs::path& reversed, const std::string& preparation, const std::string& filter,
                             const std::string& pattern) const {
    const auto chain = [&](const std::string& input, int first, const std::string& order) {
      return "[" + input + ":v]select=eq(mod(n\\,15)\\," + std::to_string(first) + "),format=gray," + order +
             "settb=1/15,setpts=N," + preparation + "[p" + input + "];";
    };
    // 375 pictures: the reversed 0th, 15th … are these 374th, 359th …
    const std::string told =
        ffmpeg({"-i", reversed, "-i", path_, "-lavfi",
                chain("0", 0, "") + chain("1", 14, "reverse,") + "[p0][p1]" + filter + "=stats_file=-,setpts=N/TB",
                "-vsync", "0", "-f", "null", "-"});
    double least = 1e9;
    int count = 0;
    const std::regex value(pattern);
    for (std::sregex_iterator at(told.begin(), told.end(), value), end; at != end; ++at, ++count) {
      if ((*at)[1] != "inf") least = std::min(least, std::stod((*at)[1]));
    }
    EXPECT_EQ(count % 25, 0) << told;
    EXPECT_GT(count, 0) << told;
    return least;
  }

 private:
  static void draw(const fs::path& file, unsigned seed) {
    constexpr int width = 1280;
    constexpr int height = 720;
    std::string pixels(static_cast<std::size_t>(width * height), '\xf0');
    std::mt19937 random(seed);
    for (int line = 0; line < lines; ++line) {
      for (int x = 100; x < 1100; x += 20) {
        for (int stroke = 0; stroke < 3; ++stroke) {
          const bool upright = random() % 2 == 0;
          const int left = x + static_cast<int>(random() % 12);
          const int upper = top + line * pitch + 16 + static_cast<int>(random() % 20);
          for (int along = 0; along < 12; ++along) {
            const int at = upright ? (upper + along) * width + left : upper * width + left + along;
            const int across = upright ? 1 : width;
            for (int i = 0; i < 3; ++i) pixels.at(static_cast<std::size_t>(at + i * across)) = '\x14';
          }
        }
      }
    }
    std::ofstream(file, std::ios::binary) << "P5\n" << width << ' ' << height << "\n255\n" << pixels;
  }

  fs::path path_;
};

TEST_F(Reverser, KeepsTextReadableAtTheDataRateOfSlides) {
  const Slides slides(temp_.path());
  const auto rate = [](const fs::path& file) {
    return AVAsset::make(URL(file))->tracks(AVMediaTypeVideo).at(0)->estimatedDataRate();
  };
  ASSERT_LT(rate(slides.path()), 100'000);
  const auto converter = VideoReverseConverter::make(URL(slides.path()));
  Awaited awaited;
  converter->reverseVideoOnly(awaited.completion());
  const auto outcome = awaited.get();
  ASSERT_TRUE(outcome && *outcome);
  const fs::path file = (*outcome)->path();
  EXPECT_GE(slides.least(file, "null", "psnr", "psnr_y:([0-9.]+|inf)"), 35);
  const std::string eachLine = "crop=1020:" + std::to_string(Slides::lines * Slides::pitch) +
                               ":90:" + std::to_string(Slides::top) + ",untile=1x" + std::to_string(Slides::lines);
  EXPECT_GE(slides.least(file, eachLine, "ssim", "All:([0-9.]+)"), 0.95);
  EXPECT_NEAR(rate(file) / rate(slides.path()), 1, 0.25);
}

struct FailureCase {
  std::string name;
  fs::path (*source)(const fs::path& directory);
  std::vector<std::string> lines;
  std::vector<std::string> left;  // in the documents directory
  friend std::ostream& operator<<(std::ostream& out, const FailureCase& c) { return out << c.name; }
};

class ReverserFailure : public Reverser, public testing::WithParamInterface<FailureCase> {};

TEST_P(ReverserFailure, IsGeneric) {
  const TemporaryDirectory sources;
  const auto converter = VideoReverseConverter::make(URL(GetParam().source(sources.path())));
  Awaited awaited;
  converter->reverse(std::nullopt, awaited.completion());
  const auto outcome = awaited.get();
  ASSERT_TRUE(outcome) << "it has to be called";
  EXPECT_FALSE(*outcome);
  for (const auto& line : GetParam().lines) EXPECT_THAT(printed_.lines(), Contains(line));
  EXPECT_THAT(namesIn(documents_.path()), testing::UnorderedElementsAreArray(GetParam().left));
  EXPECT_THAT(namesIn(temp_.path()), IsEmpty());
}

INSTANTIATE_TEST_SUITE_P(
    For, ReverserFailure,
    testing::Values(FailureCase{"a_file_that_cannot_be_read",
                                [](const fs::path& directory) { return directory / "missing.mp4"; },
                                {"Start reverse audio!", "Starting video reversing", "could not initialize reader."},
                                {}},
                    FailureCase{"a_video_without_sound",
                                [](const fs::path&) { return BarCodeClip({.frames = 5, .audioCodec = ""}).path(); },
                                {"Finished video reversing"},
                                {"reversed_video.mov"}},
                    FailureCase{"sound_without_pictures",
                                [](const fs::path&) {
                                  return BarCodeClip({.frames = 0, .audioSeconds = 1, .extension = ".m4a"}).path();
                                },
                                {"could not retrieve the video track.", "Ended reverse audio!"},
                                {"reversed_audio.m4a"}}),
    [](const auto& testCase) { return testCase.param.name; });

TEST_F(Reverser, FailsWhereTheHalvesCannotBeWritten) {
  FileManager::default_().setDocumentDirectory(URL(documents_.path() / "missing"));
  const auto converter = VideoReverseConverter::make(URL(BarCodeClip({.frames = 3}).path()));
  Awaited awaited;
  converter->reverse(std::nullopt, awaited.completion());
  const auto outcome = awaited.get();
  ASSERT_TRUE(outcome);
  EXPECT_FALSE(*outcome);
  EXPECT_THAT(printed_.lines(), Contains(StartsWith("Failed: nothing can be written to ")));
}

TEST_F(Reverser, FallsSilentWhenItIsLetGo) {
  Awaited awaited;
  auto converter = VideoReverseConverter::make(URL(BarCodeClip().path()));
  converter->reverse(std::nullopt, awaited.completion());
  converter.reset();
  EXPECT_FALSE(awaited.get()) << "no completion";
  EXPECT_THAT(namesIn(temp_.path()), IsEmpty());
}

static_assert(!std::is_default_constructible_v<VideoReverseConverter>);

}  // namespace
}  // namespace clipworks::test
