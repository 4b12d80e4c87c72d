#include <clipworks/narration/VideoNarrationUtils.h>

#include <fstream>

#include <clipworks/engine/capture/SoundCapture.h>
#include <clipworks/foundation/HEVCSupport.h>
#include <tests/support/OperationTest.h>
#include <tests/support/RecordedSound.h>
#include <tests/support/ScriptedCapture.h>

namespace clipworks::test {
namespace {

namespace fs = std::filesystem;
using testing::ElementsAre;
using testing::MatchesRegex;
using testing::SizeIs;
using Created = Result<std::shared_ptr<AVMutableComposition>, NarrationError>;
using Exported = Result<URL, NarrationError>;
using Finish = Result<NarrationPiece, NarrationError>;

template <class Value>
Value waitFor(std::promise<Value>& promise) {
  auto future = promise.get_future();
  if (future.wait_for(std::chrono::seconds(30)) != std::future_status::ready) throw std::runtime_error("nothing comes");
  return future.get();
}

/// Hands on the first thing that it hears.
struct Listener : public VideoNarrationUtilsDelegate {
  void narrationDidFinish(const Finish& result) override { finished.set_value(result); }  // throws at the second
  std::promise<Finish> finished;
};

class Narration : public OperationTest {
 protected:
  ~Narration() override { engine::setSoundCaptureOpener({}); }

  /// A recording of so many seconds: a tone of 3,000 Hz at a tenth of full scale, which no video of these tests has.
  URL tone(double seconds) const {
    const auto path = recordings_.file(std::to_string(seconds) + ".wav");
    const auto source = "aevalsrc=0.1*sin(2*PI*3000*t)|0.1*sin(2*PI*3000*t):s=44100:d=" + std::to_string(seconds);
    outputOf({"ffmpeg", "-v", "error", "-y", "-f", "lavfi", "-i", source, path});
    return URL(path);
  }
  Created compose(const URL& video, const std::vector<NarrationPiece>& pieces, float baseVolume = 1) const {
    return atOnce<Created>([&](auto done) { narration_->createComposition(video, pieces, baseVolume, done); });
  }
  Exported exportIt(ExportQuality quality) const {
    return later<Exported>([&](auto done) { narration_->exportComposition(quality, done); });
  }

  /// Records 0.9 seconds or more; the recording runs on.
  std::shared_ptr<AVAudioRecorder> record(const CMTime& at, const std::shared_ptr<Listener>& listener) const {
    if (!narration_->startNarration(at, listener)) throw std::runtime_error("the recording does not start");
    const auto recorder = narration_->audioRecorder();
    pumpUntil([&] { return recorder->currentTime() >= 0.9; }, "no sound comes");
    return recorder;
  }
  void expectAuthorization(bool expected) const {
    std::promise<std::pair<bool, std::thread::id>> answered;
    narration_->requestAuthorization([&](bool granted) { answered.set_value({granted, std::this_thread::get_id()}); });
    const auto [granted, thread] = waitFor(answered);
    EXPECT_EQ(granted, expected);
    EXPECT_NE(thread, std::this_thread::get_id());
  }

  // Four seconds.
  const URL clip_ = urlIn600ths({.width = 160, .height = 90, .frames = 120, .timescale = 30, .rotation = 90});
  TemporaryDirectory recordings_;
  std::shared_ptr<Listener> listener_ = std::make_shared<Listener>();
  std::shared_ptr<VideoNarrationUtils> narration_ = VideoNarrationUtils::make();
};

TEST_F(Narration, GivesEachPieceATrackAndAVolumeOfItsOwn) {
  const std::vector<NarrationPiece> pieces{{CMTime(1, 1), tone(3), 0.5F},
                                           {CMTime(1, 1), clip_, 2.0F},
                                           {CMTime(3, 2), URL("/nowhere/piece.m4a"), 1.0F},
                                           {CMTime(2, 1), tone(3), 1.0F}};
  const auto composition = compose(clip_, pieces, 0.25F).value();
  EXPECT_EQ(narration_->currentComposition(), composition);
  const auto tracks = composition->compositionTracks();
  ASSERT_EQ(tracks.size(), 5U) << "the piece without sound is left out";
  EXPECT_EQ(tracks[0]->mediaType(), AVMediaType::video);
  EXPECT_EQ(tracks[0]->preferredTransform(), (CGAffineTransform{0, 1, -1, 0, 90, 0}));
  EXPECT_EQ(tracks[1]->compositionSegments().front().target, CMTimeRange(kCMTimeZero, CMTime(2400, 600)));

  const auto& piece = tracks[2]->compositionSegments().back();
  EXPECT_EQ(piece.target, CMTimeRange(CMTime(600, 600), CMTime(1800, 600)));
  EXPECT_EQ(piece.target.duration.timescale, 600) << "a piece is measured in the video's time scale";
  EXPECT_EQ(tracks[3]->compositionSegments().back().target.start, CMTime(600, 600)) << "the same start is no conflict";
  EXPECT_EQ(composition->duration(), CMTime(3000, 600)) << "a piece is not cut at the end of the video";
  EXPECT_EQ(tracks[0]->timeRange().duration, CMTime(2400, 600));

  const auto& parameters = narration_->currentAudioMix()->inputParameters();
  ASSERT_THAT(parameters, SizeIs(4));
  for (std::size_t i = 0; i < 4; ++i) {
    EXPECT_EQ(parameters[i]->trackID(), tracks[i + 1]->trackID());
    EXPECT_EQ(parameters[i]->volume(), (std::vector{0.25F, 0.5F, 2.0F, 1.0F}[i]));
    EXPECT_EQ(parameters[i]->volumeTime(), kCMTimeZero);
  }
}

TEST_F(Narration, OfAVideoThatLacksPicturesOrSoundLeavesTheEarlierOneAlone) {
  EXPECT_FALSE(atOnce<Exported>([&](auto done) { narration_->exportComposition(ExportQuality::low, done); }))
      << "there is none yet";
  const auto earlier = compose(clip_, {}).value();
  const auto mix = narration_->currentAudioMix();
  EXPECT_THAT(mix->inputParameters(), SizeIs(1));
  for (const auto& video : incompleteVideos()) {
    EXPECT_FALSE(compose(video, {})) << video.path();
    EXPECT_EQ(narration_->currentComposition(), earlier);
    EXPECT_EQ(narration_->currentAudioMix(), mix);
  }
  EXPECT_THAT(printed_.lines(), testing::IsEmpty());
}

TEST_F(Narration, PlacesThePieceOverTheVideoInEveryQuality) {
  ASSERT_TRUE(compose(clip_, {{CMTime(1500, 1000), tone(1), 0.5F}}, 0));
  for (const auto& [quality, text, codec] : {std::tuple(ExportQuality::low, "low", "h264"),
                                             std::tuple(ExportQuality::highCompressed, "highCompressed", "hevc"),
                                             std::tuple(ExportQuality::highLossless, "highLossless", "h264")}) {
    SCOPED_TRACE(text);
    EXPECT_EQ(rawValue(quality), text);
    EXPECT_EQ(exportQuality(text), quality);
    const fs::path path = exportIt(quality).value().path();
    EXPECT_THAT(path, MatchesRegex(outputs_.file(identifier).string() + "\\.mp4"));
    const MediaJudge output(path);
    EXPECT_EQ(output.stream("video").codec, codec);
    EXPECT_EQ(output.stream("video").rotation, 90);
    EXPECT_THAT(output.pictures(), SizeIs(120));
    const Sound heard = output.sound(44'100);
    EXPECT_LT(heard.part(0, 1.48).level(), 0.001) << "the video's own sound has volume 0";
    // Half of a sine's level of 0.1 / √2; the ffmpeg program folds two equal channels of AAC into one that is 3 dB
    // louder.
    EXPECT_NEAR(heard.part(1.6, 2.4).level(), 0.05, 0.003);
    EXPECT_LT(heard.part(2.52, 4).level(), 0.001);
    const Sound piece = MediaJudge(tone(1).path()).sound(44'100);
    const auto lag = lagMilliseconds(piece.part(0, 0.9), heard.part(1.5, 2.4), 0.15);  // less than a period of the tone
    EXPECT_NEAR(lag.value(), 0, 0.1);
  }
  EXPECT_EQ(exportQuality("High"), std::nullopt);
  EXPECT_EQ(std::distance(fs::directory_iterator(outputs_.path()), {}), 3) << "each export has a name of its own";
  const auto line = std::string("Has HEVC support: ") + (HEVCSupport::hasHEVCHardwareEncoder() ? "true" : "false");
  EXPECT_THAT(printed_.lines(), ElementsAre(line, line, line));
}

TEST_F(Narration, AnExportThatFailsSaysWhy) {
  ASSERT_TRUE(compose(clip_, {}));
  FileSystem::shared().setOutputsURL(URL("/dev/null/outputs"));
  EXPECT_FALSE(exportIt(ExportQuality::highLossless));
  EXPECT_THAT(printed_.lines(), ElementsAre(MatchesRegex("Has HEVC support: (true|false)"),
                                            MatchesRegex("Failed: Optional\\(.*Code=-[0-9]+ .*\\)")));
}

TEST_F(Narration, GivesTheRecordedPieceToTheDelegateButNotOneThatASecondReplaces) {
  const ScriptedMicrophone microphone({{0, 44'100}});
  EXPECT_FALSE(narration_->startTime());
  const auto replacedListener = std::make_shared<Listener>();
  const fs::path replaced = record(kCMTimeZero, replacedListener)->url().path();
  record(CMTime(3000, 600), listener_);
  narration_->finishNarration();
  EXPECT_EQ(narration_->audioRecorder(), nullptr);
  const NarrationPiece piece = waitFor(listener_->finished).value();
  EXPECT_EQ(std::pair(piece.startTime, piece.volume), std::pair(CMTime(3000, 600), 1.0F));
  const fs::path path = piece.audioURL.path();
  EXPECT_NE(path, replaced);
  EXPECT_THAT(path, testing::MatchesRegex(outputs_.file(identifier).string() + "\\.m4a"));
  const auto sound = MediaJudge(path).stream("audio");
  EXPECT_EQ(std::tuple(sound.codec, sound.sampleRate, sound.channels), std::tuple("pcm_s16le", 44'100, 2));
  EXPECT_GT(recordedSamples(replaced).size(), 40'000U);
  EXPECT_THAT(printed_.lines(), testing::IsEmpty());
}

TEST_F(Narration, ReportsAMicrophoneThatGoes) {
  const ScriptedMicrophone microphone({{0, 44'100}, {.fails = true}});
  ASSERT_TRUE(narration_->startNarration(kCMTimeZero, listener_));
  EXPECT_FALSE(waitFor(listener_->finished));
  EXPECT_EQ(narration_->audioRecorder(), nullptr) << "none runs any more";
}

TEST_F(Narration, LeavesTheFileOfARecordingWithoutAListener) {
  const ScriptedMicrophone microphone({{0, 44'100}});
  const auto recorder = record(kCMTimeZero, listener_);
  listener_.reset();
  narration_->finishNarration();
  // The recorder is free once its delegate was told.
  pumpUntil([&] { return recorder->currentTime() == 0; }, "the recording does not end");
  EXPECT_GT(recordedSamples(recorder->url().path()).size(), 40'000U);
}

TEST_F(Narration, DoesNotStartWithoutAMicrophoneOrItsDirectoryButKeepsTheTime) {
  int opened = 0;
  // Gone at once for the session; then there for the session, gone for the recorder.
  engine::setSoundCaptureOpener(
      [&](const engine::PcmFormat& format) -> engine::Expected<std::unique_ptr<engine::SoundCapture>> {
        if (opened++ != 1) return engine::failed(engine::ErrorKind::noDevice, "there is no microphone");
        return std::make_unique<ScriptedCapture>(std::vector<ScriptedCapture::Step>{}, format, std::nullopt);
      });
  EXPECT_FALSE(narration_->startNarration(CMTime(5, 1), listener_));
  EXPECT_EQ(narration_->startTime(), CMTime(5, 1));
  EXPECT_TRUE(fs::is_empty(outputs_.path()));
  EXPECT_FALSE(narration_->startNarration(kCMTimeZero, listener_));
  EXPECT_EQ(narration_->audioRecorder(), nullptr);
  EXPECT_EQ(opened, 3);
  expectAuthorization(false);

  const ScriptedMicrophone microphone({});
  std::ofstream(outputs_.file("file")) << "no directory";
  FileSystem::shared().setOutputsURL(URL(outputs_.file("file/outputs")));
  EXPECT_FALSE(narration_->startNarration(kCMTimeZero, listener_));
  EXPECT_EQ(narration_->audioRecorder(), nullptr);
  expectAuthorization(true);
}

}  // namespace
}  // namespace clipworks::test
