#include <clipworks/exporter/NextLevelSessionExporter.h>

#include <algorithm>
#include <chrono>
#include <cmath>
#include <filesystem>
#include <fstream>
#include <future>
#include <memory>
#include <optional>
#include <ostream>
#include <regex>
#include <string>
#include <thread>
#include <tuple>
#include <utility>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <clipworks/media/base/SettingsKeys.h>
#include <clipworks/media/composition/AVMutableComposition.h>

#include <tests/support/BarCodeClip.h>
#include <tests/support/MediaJudge.h>
#include <tests/support/RunProgram.h>
#include <tests/support/TemporaryDirectory.h>
#include <tests/support/Tone.h>

namespace clipworks::test {
namespace {

namespace fs = std::filesystem;
using testing::Each;
using testing::Field;
using testing::HasSubstr;
using testing::IsEmpty;

using Outcome = Result<AVAssetExportSessionStatus, NSError>;
constexpr std::chrono::seconds patience{100};

SettingsDictionary pictures(int width, int height, double bitRate,
                            const char* scaling = AVVideoScalingModeResizeAspectFill) {
  return {{AVVideoCodecKey, AVVideoCodecTypeH264},
          {AVVideoWidthKey, width},
          {AVVideoHeightKey, height},
          {AVVideoScalingModeKey, scaling},
          {AVVideoCompressionPropertiesKey,
           SettingsDictionary{{AVVideoAverageBitRateKey, bitRate},
                              {AVVideoProfileLevelKey, AVVideoProfileLevelH264HighAutoLevel}}}};
}

SettingsDictionary sound() {
  return {{AVFormatIDKey, kAudioFormatMPEG4AAC},
          {AVEncoderBitRateKey, 128'000},
          {AVNumberOfChannelsKey, 2},
          {AVSampleRateKey, 44'100.0F}};
}

class Exporter : public testing::Test {
 protected:
  std::shared_ptr<NextLevelSessionExporter> exporterFor(const std::shared_ptr<AVAsset>& asset,
                                                        SettingsDictionary video) {
    auto exporter = NextLevelSessionExporter::make(asset);
    exporter->setOutputURL(URL(output_));
    exporter->setVideoOutputConfiguration(std::move(video));
    exporter->setAudioOutputConfiguration(sound());
    return exporter;
  }
  std::shared_ptr<NextLevelSessionExporter> exporterFor(const fs::path& clip, SettingsDictionary video) {
    return exporterFor(AVAsset::make(URL(clip)), std::move(video));
  }

  /// Exports and waits; nobody but the exporter itself keeps it meanwhile.
  static Outcome finish(std::shared_ptr<NextLevelSessionExporter> exporter, std::vector<float>* progress = nullptr) {
    auto ended = std::make_shared<std::promise<Outcome>>();
    auto result = ended->get_future();
    exporter->exportAsynchronously(
        nullptr,
        [progress](float done) {
          if (progress != nullptr) progress->push_back(done);
        },
        [ended](const Outcome& outcome) { ended->set_value(outcome); });
    exporter.reset();
    if (result.wait_for(patience) != std::future_status::ready) {
      ADD_FAILURE() << "the export did not end in time";
      return failure(makeError(AVError::unknown, "not ended"));
    }
    return result.get();
  }
  static void expectCompleted(const Outcome& outcome) {
    ASSERT_TRUE(outcome) << outcome.error().localizedDescription();
    ASSERT_EQ(*outcome, AVAssetExportSessionStatus::completed);
  }

  TemporaryDirectory directory_;
  fs::path output_ = directory_.path() / "out.mp4";
};

struct Shape {
  const char* sentence;
  ClipOptions options;
  int width;
  int height;
  std::string range = "tv";
};
void PrintTo(const Shape& shape, std::ostream* out) { *out << shape.sentence; }

ClipOptions clip(int width, int height, ClipOptions options = {}) {
  options.width = width;
  options.height = height;
  if (options.frameTimes.empty()) options.frames = 30;
  return options;
}

class ExporterOfShapes : public Exporter, public testing::WithParamInterface<Shape> {};

TEST_P(ExporterOfShapes, DrawsEveryPictureAsTheMatrixSaysAtItsOwnTime) {
  const Shape& shape = GetParam();
  const BarCodeClip source(shape.options);
  expectCompleted(finish(exporterFor(source.path(), pictures(shape.width, shape.height, 0))));

  const MediaJudge judge(output_);
  const auto stream = judge.stream("video");
  EXPECT_EQ(stream.codec, "h264");
  EXPECT_EQ(stream.profile, "High");
  EXPECT_EQ(stream.pixelFormat, shape.range == "pc" ? "yuvj420p" : "yuv420p");
  EXPECT_EQ(stream.width, shape.width + shape.width % 2);
  EXPECT_EQ(stream.height, shape.height + shape.height % 2);
  EXPECT_EQ(stream.colorRange, shape.range);
  EXPECT_FALSE(stream.matrix);
  const auto seen = judge.pictures();
  EXPECT_THAT(seen, Each(Field(&SeenPicture::orientation, Orientation{false, shape.options.rotation / 90})));
  ASSERT_EQ(seen.size(), source.times().size());
  for (std::size_t i = 0; i < seen.size(); ++i) {
    EXPECT_EQ(seen[i].number, static_cast<int>(i));
    EXPECT_NEAR(seen[i].seconds, source.times()[i], 0.001) << i;
  }
  EXPECT_THAT(judge.warnings(), IsEmpty());
}

INSTANTIATE_TEST_SUITE_P(
    Shapes, ExporterOfShapes,
    testing::Values(
        Shape{"made smaller", clip(640, 360), 256, 144},
        Shape{"made larger, to an odd width", clip(320, 180), 853, 480},
        Shape{"of its own size", clip(320, 180), 320, 180},
        Shape{"turned clockwise", clip(320, 180, {.rotation = 90}), 90, 160},
        Shape{"upside down", clip(320, 180, {.rotation = 180}), 256, 144},
        Shape{"turned counterclockwise", clip(320, 180, {.rotation = 270}), 90, 160},
        Shape{"odd sides, turned", clip(321, 181, {.pixelFormat = "yuv444p", .rotation = 90}), 90, 160},
        Shape{"at uneven times", clip(320, 180, {.frameTimes = {0, 40, 200, 233, 1000, 1001, 1900}, .timescale = 1000}),
              160, 90},
        Shape{"anamorphic", clip(320, 360, {.outputArguments = {"-aspect", "16:9"}}), 256, 144},
        Shape{"4:2:2", clip(320, 180, {.pixelFormat = "yuv422p"}), 256, 144},
        Shape{"4:2:2 turned", clip(320, 180, {.pixelFormat = "yuv422p", .rotation = 90}), 90, 160},
        Shape{"of ten bits", clip(320, 180, {.videoCodec = "libx265", .pixelFormat = "yuv420p10le"}), 256, 144},
        Shape{"of full range", clip(320, 180, {.pixelFormat = "yuvj420p"}), 256, 144, "pc"}));

TEST_F(Exporter, ShowsMirroredPicturesAsTheMatrixSays) {
  const BarCodeClip source(clip(320, 180));
  const auto asset = AVAsset::make(URL(source.path()));
  const auto composition = AVMutableComposition::make();
  const auto track = composition->addMutableTrack(AVMediaTypeVideo, kCMPersistentTrackID_Invalid);
  ASSERT_TRUE(
      track->insertTimeRange({kCMTimeZero, asset->duration()}, asset->tracks(AVMediaTypeVideo)[0], kCMTimeZero));
  track->setPreferredTransform({0, 1, 1, 0, 0, 0});
  expectCompleted(finish(exporterFor(composition, pictures(90, 160, 0))));
  EXPECT_THAT(MediaJudge(output_).pictures(), Each(Field(&SeenPicture::orientation, Orientation{true, 3})));
}

struct Scaling {
  const char* mode;
  const char* sameAs;  ///< what the ffmpeg program makes of the source
};

class ExporterScaling : public Exporter, public testing::WithParamInterface<Scaling> {};

TEST_P(ExporterScaling, CropsOrStretchesToAnotherShape) {
  const BarCodeClip source(clip(640, 360));
  expectCompleted(finish(exporterFor(source.path(), pictures(240, 240, 0, GetParam().mode))));
  const auto compared =
      runProgram({"ffmpeg", "-nostdin", "-hide_banner", "-i", output_, "-i", source.path(), "-lavfi",
                  std::string("[1:v]") + GetParam().sameAs + ":flags=lanczos[b];[0:v][b]ssim", "-f", "null", "-"});
  std::smatch all;
  ASSERT_TRUE(std::regex_search(compared.standardError, all, std::regex("All:([0-9.]+)"))) << compared;
  EXPECT_GT(std::stod(all[1]), 0.97);
}

INSTANTIATE_TEST_SUITE_P(Modes, ExporterScaling,
                         testing::Values(Scaling{AVVideoScalingModeResizeAspectFill, "crop=360:360,scale=240:240"},
                                         Scaling{AVVideoScalingModeResize, "scale=240:240"}),
                         [](const auto& testCase) { return std::string(testCase.param.mode).substr(18); });

// Each clip is easy in its first half and noisy in its second, which is where one-pass encoders run over.
TEST_F(Exporter, KeepsAnAverageBitRate) {
  for (const auto& [seconds, least, most] :
       {std::tuple{12, 0.95, 1.05}, std::tuple{4, 0.8, 1.1}, std::tuple{2, 0.7, 1.1}}) {
    fs::remove(output_);
    const fs::path source = directory_.path() / "source.mp4";
    const std::string half = std::to_string(seconds / 2);
    const auto made = runProgram({"ffmpeg", "-nostdin", "-y", "-f", "lavfi", "-i",
                                  "testsrc2=size=320x180:rate=30:duration=" + std::to_string(seconds) +
                                      ",noise=alls=60:allf=t:enable='gte(t," + half + ")'",
                                  "-pix_fmt", "yuv420p", "-preset", "ultrafast", source});
    ASSERT_EQ(made.exitCode, 0) << made;
    expectCompleted(finish(exporterFor(source, pictures(320, 180, 300'000))));
    double bytes = 0;
    for (const auto& sample : MediaJudge(output_).codedSamples("video")) bytes += static_cast<double>(sample.bytes);
    const double share = bytes * 8 / seconds / 300'000;
    EXPECT_LE(share, most) << seconds << " s";
    EXPECT_GE(share, least) << seconds << " s";
  }
}

struct SoundKind {
  const char* sentence;
  int rate;
  int channels;
  double delay = 0;
};
void PrintTo(const SoundKind& kind, std::ostream* out) { *out << kind.sentence; }

class ExporterOfSound : public Exporter, public testing::WithParamInterface<SoundKind> {};

TEST_P(ExporterOfSound, MakesItStereoOfTheAskedRateAndLosesNothing) {
  const auto& kind = GetParam();
  const BarCodeClip source(clip(
      160, 90, {.sampleRate = kind.rate, .channels = kind.channels, .audioSeconds = 1.5, .audioDelay = kind.delay}));
  expectCompleted(finish(exporterFor(source.path(), pictures(160, 90, 100'000))));
  const MediaJudge judge(output_);
  const auto stream = judge.stream("audio");
  EXPECT_EQ(stream.codec, "aac");
  EXPECT_EQ(stream.sampleRate, 44'100);
  EXPECT_EQ(stream.channels, 2);
  const Sound got = judge.sound();
  EXPECT_NEAR(got.seconds(), source.audioEnd(), 0.03);
  const Sound told = makeTone(16'000, 0, source.audioEnd());
  const double from = kind.delay + 0.05;
  const auto lag = lagMilliseconds(told.part(from, source.audioEnd()), got.part(from, source.audioEnd()));
  ASSERT_TRUE(lag);
  EXPECT_NEAR(*lag, 0, 1);
}

INSTANTIATE_TEST_SUITE_P(Kinds, ExporterOfSound,
                         testing::Values(SoundKind{"stereo", 44'100, 2}, SoundKind{"mono, slow", 16'000, 1},
                                         SoundKind{"surround", 48'000, 6}, SoundKind{"starting late", 48'000, 2, 0.4}));

TEST_F(Exporter, ExportsWhatThereIs) {
  expectCompleted(finish(exporterFor(BarCodeClip(clip(160, 90, {.audioCodec = ""})).path(), pictures(160, 90, 0))));
  EXPECT_THAT(MediaJudge(output_).streams(), testing::ElementsAre(Field(&ProbedStream::type, "video")));
  fs::remove(output_);
  expectCompleted(finish(
      exporterFor(BarCodeClip({.frames = 0, .audioSeconds = 1, .extension = ".m4a"}).path(), pictures(160, 90, 0))));
  EXPECT_THAT(MediaJudge(output_).streams(), testing::ElementsAre(Field(&ProbedStream::type, "audio")));
}

TEST_F(Exporter, ExportsAPartOfTheAssetWithWhatTheRecordingSaysOfItself) {
  const BarCodeClip source({.frames = 120, .outputArguments = {"-metadata", "creation_time=2024-05-06T07:08:09Z"}});
  auto exporter = exporterFor(source.path(), pictures(160, 90, 0));
  exporter->setTimeRange({CMTime(1, 1), CMTime(2, 1)});
  expectCompleted(finish(exporter));
  const MediaJudge judge(output_);
  const auto numbers = numbersOf(judge.pictures());
  ASSERT_EQ(numbers.size(), 60U);
  EXPECT_EQ(numbers.front(), 30);
  EXPECT_EQ(numbers.back(), 89);
  EXPECT_EQ(toneSecondAt(judge.sound(), 0.2), 1);
  EXPECT_EQ(toneSecondAt(judge.sound(), 1.7), 2);
  EXPECT_EQ(AVAsset::make(URL(output_))->metadata().at("creation_time"), "2024-05-06T07:08:09.000000Z");
}

TEST_F(Exporter, TellsItsProgressAndLetsGoOfItsHandlers) {
  const BarCodeClip source({.width = 640, .height = 360, .frames = 240});
  std::vector<float> progress;
  expectCompleted(finish(exporterFor(source.path(), pictures(640, 360, 0)), &progress));
  EXPECT_TRUE(std::is_sorted(progress.begin(), progress.end()));
  ASSERT_FALSE(progress.empty());
  EXPECT_GT(progress.front(), 0);
  EXPECT_EQ(progress.back(), 1);

  const auto held = std::make_shared<int>();
  auto gone = std::make_shared<std::promise<void>>();
  fs::remove(output_);
  exporterFor(source.path(), pictures(160, 90, 0))
      ->exportAsynchronously(
          nullptr, [held](float) {}, [held, gone](const Outcome&) { gone->set_value(); });
  ASSERT_EQ(gone->get_future().wait_for(patience), std::future_status::ready);
  while (held.use_count() > 1) std::this_thread::yield();  // the test's time limit is the deadline
}

TEST_F(Exporter, EndsWithoutAFileWhenCancelled) {
  const BarCodeClip source({.width = 640, .height = 360, .frames = 600});
  auto exporter = exporterFor(source.path(), pictures(1920, 1080, 0));
  std::promise<Outcome> ended;
  std::promise<void> running;
  exporter->exportAsynchronously(
      nullptr,
      [&, told = false](float) mutable {
        if (!std::exchange(told, true)) running.set_value();
      },
      [&](const Outcome& outcome) { ended.set_value(outcome); });
  ASSERT_EQ(running.get_future().wait_for(patience), std::future_status::ready);
  exporter->cancelExport();
  auto result = ended.get_future();
  ASSERT_EQ(result.wait_for(patience), std::future_status::ready);
  const Outcome outcome = result.get();
  ASSERT_TRUE(outcome);
  EXPECT_EQ(*outcome, AVAssetExportSessionStatus::cancelled);
  EXPECT_TRUE(fs::is_empty(directory_.path()));
}

struct Refusal {
  const char* key;
  SettingsValue value;
  bool ofSound = false;
};

TEST_F(Exporter, NamesTheSettingThatCannotBeHad) {
  const BarCodeClip source(clip(160, 90));
  const std::vector<Refusal> refusals = {
      {AVVideoCodecKey, "ap4h"},
      {AVVideoWidthKey, 0},
      {AVVideoHeightKey, 20'000},
      {AVVideoScalingModeKey, "AVVideoScalingModeFit"},
      {AVVideoCompressionPropertiesKey, 3},
      {AVVideoCompressionPropertiesKey, SettingsDictionary{{AVVideoAverageBitRateKey, -1}}},
      {AVVideoCompressionPropertiesKey, SettingsDictionary{{AVVideoProfileLevelKey, "H264_Baseline_AutoLevel"}}},
      {"AVVideoColor", "red"},
      {AVFormatIDKey, kAudioFormatLinearPCM, true},
      {AVSampleRateKey, 12'345, true},
      {AVNumberOfChannelsKey, 0, true},
      {AVEncoderBitRateKey, "many", true},
      {"AVEncoderQuality", 3, true},
  };
  for (const auto& refusal : refusals) {
    auto video = pictures(160, 90, 0);
    auto audio = sound();
    (refusal.ofSound ? audio : video).set(refusal.key, refusal.value);
    auto exporter = exporterFor(source.path(), video);
    exporter->setAudioOutputConfiguration(audio);
    const Outcome outcome = finish(exporter);
    ASSERT_FALSE(outcome) << refusal.key;
    const auto* properties = refusal.value.dictionary();
    const std::string named = properties == nullptr ? refusal.key : properties->entries().begin()->first;
    EXPECT_THAT(outcome.error().localizedDescription(), HasSubstr(named));
  }
  EXPECT_TRUE(fs::is_empty(directory_.path()));
}

TEST_F(Exporter, SaysWhyAFileCannotBeRead) {
  const fs::path text = directory_.path() / "notes.mp4";
  std::ofstream(text) << "not a video";
  const Outcome outcome = finish(exporterFor(text, pictures(160, 90, 0)));
  ASSERT_FALSE(outcome);
  EXPECT_THAT(outcome.error().localizedDescription(), HasSubstr("notes.mp4"));
  EXPECT_FALSE(fs::exists(output_));
}

}  // namespace
}  // namespace clipworks::test
