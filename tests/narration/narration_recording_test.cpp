#include <clipworks/narration/VideoNarrationUtils.h>

#include <fstream>

#include <clipworks/engine/capture/SoundCapture.h>
#include <tests/support/OperationTest.h>
#include <tests/support/RecordedSound.h>
#include <tests/support/ScriptedCapture.h>

namespace clipworks::test {
namespace {

namespace fs = std::filesystem;
using Finish = Result<NarrationPiece, VideoNarrationUtils::NarrationError>;

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

class NarrationRecording : public OperationTest {
 protected:
  ~NarrationRecording() override { engine::setSoundCaptureOpener({}); }

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

  std::shared_ptr<Listener> listener_ = std::make_shared<Listener>();
  std::shared_ptr<VideoNarrationUtils> narration_ = VideoNarrationUtils::make();
};

TEST_F(NarrationRecording, GivesThePieceToTheDelegate) {
  const ScriptedMicrophone microphone({{0, 44'100}});
  EXPECT_FALSE(narration_->startTime());
  record(CMTime(3000, 600), listener_);
  narration_->finishNarration();
  EXPECT_EQ(narration_->audioRecorder(), nullptr);
  const NarrationPiece piece = waitFor(listener_->finished).value();
  EXPECT_EQ(piece.startTime, CMTime(3000, 600));
  EXPECT_EQ(piece.volume, 1.0F);
  const fs::path path = piece.audioURL.path();
  EXPECT_THAT(path, testing::MatchesRegex(outputs_.file(identifier).string() + "\\.m4a"));
  const auto sound = MediaJudge(path).stream("audio");
  EXPECT_EQ(std::tuple(sound.codec, sound.sampleRate, sound.channels), std::tuple("pcm_s16le", 44'100, 2));
  EXPECT_THAT(printed_.lines(), testing::IsEmpty());
}

TEST_F(NarrationRecording, ReplacedByASecondOneIsHeardOfNoMore) {
  const ScriptedMicrophone microphone({{0, 44'100}});
  const auto replacedListener = std::make_shared<Listener>();
  const fs::path replaced = record(kCMTimeZero, replacedListener)->url().path();
  record(CMTime(7, 1), listener_);
  narration_->finishNarration();
  const NarrationPiece piece = waitFor(listener_->finished).value();
  EXPECT_EQ(piece.startTime, CMTime(7, 1));
  EXPECT_NE(piece.audioURL.path(), replaced);
  EXPECT_GT(recordedSamples(replaced).size(), 40'000U);
}

TEST_F(NarrationRecording, ReportsAMicrophoneThatGoes) {
  const ScriptedMicrophone microphone({{0, 44'100}, {.fails = true}});
  ASSERT_TRUE(narration_->startNarration(kCMTimeZero, listener_));
  EXPECT_FALSE(waitFor(listener_->finished));
  EXPECT_EQ(narration_->audioRecorder(), nullptr) << "none runs any more";
}

TEST_F(NarrationRecording, WithoutAListenerLeavesTheFile) {
  const ScriptedMicrophone microphone({{0, 44'100}});
  const auto recorder = record(kCMTimeZero, listener_);
  listener_.reset();
  narration_->finishNarration();
  // The recorder is free once its delegate was told.
  pumpUntil([&] { return recorder->currentTime() == 0; }, "the recording does not end");
  EXPECT_GT(recordedSamples(recorder->url().path()).size(), 40'000U);
}

TEST_F(NarrationRecording, DoesNotStartWithoutAMicrophoneButKeepsTheTime) {
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
}

TEST_F(NarrationRecording, DoesNotStartWithoutItsDirectory) {
  const ScriptedMicrophone microphone({});
  std::ofstream(outputs_.file("file")) << "no directory";
  FileSystem::shared().setOutputsURL(URL(outputs_.file("file/outputs")));
  EXPECT_FALSE(narration_->startNarration(kCMTimeZero, listener_));
  EXPECT_EQ(narration_->audioRecorder(), nullptr);
  expectAuthorization(true);
}

}  // namespace
}  // namespace clipworks::test
