#include <clipworks/exporter/NextLevelSessionExporter.h>

#include <algorithm>
#include <regex>

#include <clipworks/media/base/SettingsKeys.h>
#include <tests/support/OperationTest.h>

namespace clipworks::test {
namespace {

namespace fs = std::filesystem;
using testing::Each;
using testing::Field;
using testing::HasSubstr;
using Outcome = Result<AVAssetExportSessionStatus, NSError>;

SettingsDictionary pictures(int width, int height, double bitRate = 0,
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

class Exporter : public OperationTest {
 protected:
  using Asset = std::shared_ptr<AVAsset>;
  std::shared_ptr<NextLevelSessionExporter> exporterFor(const Asset& asset, SettingsDictionary video) const {
    auto exporter = NextLevelSessionExporter::make(asset);
    exporter->setOutputURL(URL(output_));
    exporter->setVideoOutputConfiguration(std::move(video));
    exporter->setAudioOutputConfiguration(sound());
    return exporter;
  }

  using Progress = NextLevelSessionExporter::ProgressHandler;
  /// Exports and waits; nobody but the exporter itself keeps it meanwhile.
  static Outcome finish(std::shared_ptr<NextLevelSessionExporter> exporter, const Progress& progress = {}) {
    const Start<Outcome> start = [&](auto done) {
      std::exchange(exporter, nullptr)->exportAsynchronously(nullptr, progress, done);
    };
    return eventually(start).value();
  }
  /// What a completed export has made, in place of an earlier one's.
  MediaJudge made(const Asset& asset, SettingsDictionary video, const Progress& progress = {}) const {
    fs::remove(output_);
    const Outcome outcome = finish(exporterFor(asset, std::move(video)), progress);
    if (!outcome) throw std::runtime_error(outcome.error().localizedDescription());
    EXPECT_EQ(*outcome, AVAssetExportSessionStatus::completed);
    return MediaJudge(output_);
  }
  static Asset asset(const ClipOptions& options) { return AVAsset::make(urlOf(options)); }

  const fs::path output_ = outputs_.file("out.mp4");
};

TEST_F(Exporter, DrawsEveryPictureAsTheMatrixSaysAtItsOwnTime) {
  const std::vector<std::tuple<const char*, ClipOptions, int, int>> shapes{
      {"made smaller", {.width = 640, .height = 360, .frames = 30}, 256, 144},
      {"made larger, to an odd width", {.frames = 30}, 853, 480},
      {"turned clockwise", {.frames = 30, .rotation = 90}, 90, 160},
      {"turned counterclockwise", {.frames = 30, .rotation = 270}, 90, 160},
      {"odd, turned", {.width = 321, .height = 181, .frames = 30, .pixelFormat = "yuv444p", .rotation = 90}, 90, 160},
      {"uneven times", {.frameTimes = {0, 40, 200, 233, 1000, 1001, 1900}, .timescale = 1000}, 160, 90},
      {"anamorphic",
       {.width = 320, .height = 360, .frames = 30, .audioCodec = "", .outputArguments = {"-aspect", "16:9"}},
       256,
       144},
      {"4:2:2", {.frames = 30, .pixelFormat = "yuv422p"}, 256, 144},
      {"of ten bits", {.frames = 30, .videoCodec = "libx265", .pixelFormat = "yuv420p10le"}, 256, 144},
      {"of full range", {.frames = 30, .pixelFormat = "yuvj420p"}, 256, 144},
  };
  for (const auto& [name, options, width, height] : shapes) {
    SCOPED_TRACE(name);
    const auto times = BarCodeClip(options).times();
    const MediaJudge judge = made(asset(options), pictures(width, height));
    const auto stream = judge.stream("video");
    const bool isFull = options.pixelFormat == "yuvj420p";
    EXPECT_EQ(std::tuple(stream.codec, stream.profile, stream.pixelFormat, stream.colorRange),
              std::tuple("h264", "High", isFull ? "yuvj420p" : "yuv420p", isFull ? "pc" : "tv"));
    EXPECT_EQ(std::pair(stream.width, stream.height), std::pair(width + width % 2, height));
    EXPECT_FALSE(stream.matrix);
    EXPECT_EQ(judge.streams().size(), options.audioCodec.empty() ? 1U : 2U);
    const auto seen = judge.pictures();
    EXPECT_THAT(seen, Each(Field(&SeenPicture::orientation, Orientation{false, options.rotation / 90})));
    ASSERT_EQ(seen.size(), times.size());
    for (std::size_t i = 0; i < seen.size(); ++i) {
      EXPECT_EQ(seen[i].number, static_cast<int>(i));
      EXPECT_NEAR(seen[i].seconds, times[i], 0.001) << i;
    }
    EXPECT_EQ(judge.warnings(), "");
  }
}

TEST_F(Exporter, CropsOrStretchesToAnotherShape) {
  const BarCodeClip source({.width = 640, .height = 360, .frames = 30});
  for (const auto& [mode, sameAs] : {std::pair(AVVideoScalingModeResizeAspectFill, "crop=360:360,scale=240:240"),
                                     std::pair(AVVideoScalingModeResize, "scale=240:240")}) {
    made(AVAsset::make(URL(source.path())), pictures(240, 240, 0, mode));
    const auto compared =
        runProgram({"ffmpeg", "-nostdin", "-hide_banner", "-i", output_, "-i", source.path(), "-lavfi",
                    std::string("[1:v]") + sameAs + ":flags=lanczos[b];[0:v][b]ssim", "-f", "null", "-"});
    std::smatch all;
    ASSERT_TRUE(std::regex_search(compared.standardError, all, std::regex("All:([0-9.]+)"))) << compared;
    EXPECT_GT(std::stod(all[1]), 0.97) << mode;
  }
}

// Each clip is easy in its first half and noisy in its second, which is where one-pass encoders run over.
TEST_F(Exporter, KeepsAnAverageBitRate) {
  for (const auto& [seconds, least, most] :
       {std::tuple{12, 0.95, 1.05}, std::tuple{4, 0.8, 1.1}, std::tuple{2, 0.7, 1.1}}) {
    const fs::path source = outputs_.file("source.mp4");
    outputOf({"ffmpeg", "-nostdin", "-y", "-f", "lavfi", "-i",
              "testsrc2=size=320x180:rate=30:duration=" + std::to_string(seconds) +
                  ",noise=alls=60:allf=t:enable='gte(t," + std::to_string(seconds / 2) + ")'",
              "-pix_fmt", "yuv420p", "-preset", "ultrafast", source});
    const auto stream = made(AVAsset::make(URL(source)), pictures(320, 180, 300'000)).stream("video");
    const double share = static_cast<double>(stream.bitRate) / 300'000;
    EXPECT_TRUE(share >= least && share <= most) << share << " in " << seconds << " s";
  }
}

TEST_F(Exporter, MakesSoundStereoOfTheAskedRateAndLosesNothing) {
  for (const auto& [frames, rate, channels, delay] : {std::tuple(30, 44'100, 2, 0.0), std::tuple(30, 16'000, 1, 0.0),
                                                      std::tuple(0, 48'000, 6, 0.0), std::tuple(30, 48'000, 2, 0.4)}) {
    SCOPED_TRACE(rate * channels);
    const ClipOptions options{
        .frames = frames, .sampleRate = rate, .channels = channels, .audioSeconds = 1.5, .audioDelay = delay};
    const double end = BarCodeClip(options).audioEnd();
    const MediaJudge judge = made(asset(options), pictures(160, 90, 100'000));
    const auto stream = judge.stream("audio");
    EXPECT_EQ(std::tuple(stream.codec, stream.sampleRate, stream.channels), std::tuple("aac", 44'100, 2));
    const Sound got = judge.sound();
    EXPECT_NEAR(got.seconds(), end, 0.03);
    const Sound told = makeTone(16'000, 0, end);
    EXPECT_NEAR(lagMilliseconds(told.part(delay + 0.05, end), got.part(delay + 0.05, end)).value(), 0, 1);
  }
}

TEST_F(Exporter, ExportsAPartOfTheAssetWithWhatTheRecordingSaysOfItself) {
  const ClipOptions options{.frames = 120, .outputArguments = {"-metadata", "creation_time=2024-05-06T07:08:09Z"}};
  const auto exporter = exporterFor(asset(options), pictures(160, 90));
  exporter->setTimeRange({CMTime(1, 1), CMTime(2, 1)});
  EXPECT_EQ(finish(exporter).value(), AVAssetExportSessionStatus::completed);
  const MediaJudge judge(output_);
  const auto numbers = numbersOf(judge.pictures());
  ASSERT_EQ(numbers.size(), 60U);
  EXPECT_EQ(std::pair(numbers.front(), numbers.back()), std::pair(30, 89));
  EXPECT_EQ(toneSecondAt(judge.sound(), 0.2), 1);
  EXPECT_EQ(toneSecondAt(judge.sound(), 1.7), 2);
  EXPECT_EQ(AVAsset::make(URL(output_))->metadata().at("creation_time"), "2024-05-06T07:08:09.000000Z");
}

TEST_F(Exporter, TellsItsProgressAndLetsGoOfItsHandlers) {
  const auto held = std::make_shared<int>();
  std::vector<float> progress;
  made(asset({.width = 640, .height = 360, .frames = 240}), pictures(640, 360),
       [held, &progress](float done) { progress.push_back(done); });
  EXPECT_TRUE(std::is_sorted(progress.begin(), progress.end()));
  ASSERT_FALSE(progress.empty());
  EXPECT_GT(progress.front(), 0);
  EXPECT_EQ(progress.back(), 1);

  const auto handler = [held](const auto&) {};
  exporterFor(asset({.width = 160, .height = 90, .frames = 30}), pictures(160, 90))
      ->exportAsynchronously(nullptr, handler, handler);
  pumpUntil([&] { return held.use_count() == 2; }, "another handler than this one is kept");
}

TEST_F(Exporter, EndsWithoutAFileWhenCancelled) {
  const auto exporter = exporterFor(asset({.width = 640, .height = 360, .frames = 600}), pictures(1920, 1080));
  std::atomic<bool> isRunning = false;
  const Progress tell = [&](float) { isRunning = true; };
  const auto cancel = [&] {
    if (isRunning) exporter->cancelExport();
  };
  const Start<Outcome> start = [&](auto done) { exporter->exportAsynchronously(nullptr, tell, done); };
  EXPECT_EQ(eventually(start, cancel).value().value(), AVAssetExportSessionStatus::cancelled);
  EXPECT_TRUE(fs::is_empty(outputs_.path()));
}

TEST_F(Exporter, NamesTheSettingThatCannotBeHad) {
  const auto source = asset({.width = 160, .height = 90, .frames = 30});
  const std::vector<std::tuple<const char*, SettingsValue, bool>> refusals{
      {AVVideoCodecKey, "ap4h", false},
      {AVVideoWidthKey, 0, false},
      {AVVideoHeightKey, 20'000, false},
      {AVVideoScalingModeKey, "AVVideoScalingModeFit", false},
      {AVVideoCompressionPropertiesKey, 3, false},
      {AVVideoCompressionPropertiesKey, SettingsDictionary{{AVVideoAverageBitRateKey, -1}}, false},
      {AVVideoCompressionPropertiesKey, SettingsDictionary{{AVVideoProfileLevelKey, "H264_Baseline_AutoLevel"}}, false},
      {"AVVideoColor", "red", false},
      {AVFormatIDKey, kAudioFormatLinearPCM, true},
      {AVSampleRateKey, 12'345, true},
      {AVNumberOfChannelsKey, 0, true},
      {AVEncoderBitRateKey, "many", true},
      {"AVEncoderQuality", 3, true},
  };
  for (const auto& [key, value, isOfSound] : refusals) {
    auto video = pictures(160, 90);
    auto audio = sound();
    (isOfSound ? audio : video).set(key, value);
    auto exporter = exporterFor(source, video);
    exporter->setAudioOutputConfiguration(audio);
    const Outcome outcome = finish(exporter);
    ASSERT_FALSE(outcome) << key;
    const auto* properties = value.dictionary();
    const std::string named = properties == nullptr ? key : properties->entries().begin()->first;
    EXPECT_THAT(outcome.error().localizedDescription(), HasSubstr(named));
  }
  EXPECT_TRUE(fs::is_empty(outputs_.path()));
}

}  // namespace
}  // namespace clipworks::test
