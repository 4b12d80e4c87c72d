#include <clipworks/narration/VideoNarrationUtils.h>

#include <chrono>
#include <filesystem>
#include <fstream>
#include <future>
#include <memory>
#include <optional>
#include <thread>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <clipworks/engine/capture/SoundCapture.h>
#include <clipworks/filedeck/FileSystem.h>

#include <tests/support/MediaJudge.h>
#include <tests/support/PrintedLinesCapture.h>
#include <tests/support/RecordedSound.h>
#include <tests/support/ScriptedCapture.h>
#include <tests/support/TemporaryDirectory.h>

namespace clipworks::test {
namespace {

namespace fs = std::filesystem;
using testing::IsEmpty;
using testing::MatchesRegex;

constexpr std::chrono::seconds patience{30};
using Finish = Result<NarrationPiece, VideoNarrationUtils::NarrationError>;

/// Hands on the first thing that it hears.
class Listener : public VideoNarrationUtilsDelegate {
 public:
  void narrationDidFinish(const Finish& result) override { finished_.set_value(result); }  // throws at the second

  [[nodiscard]] std::optional<Finish> wait() {
    auto finish = finished_.get_future();
    if (finish.wait_for(patience) != std::future_status::ready) return std::nullopt;
    return finish.get();
  }

 private:
  std::promise<Finish> finished_;
};

class NarrationRecording : public testing::Test {
 protected:
  void SetUp() override { FileSystem::shared().setOutputsURL(URL(outputs_.path())); }
  ~NarrationRecording() override { engine::setSoundCaptureOpener({}); }

  static void waitForSound(const VideoNarrationUtils& narration, double seconds) {
    const auto recorder = narration.audioRecorder();
    ASSERT_NE(recorder, nullptr);
    const auto end = std::chrono::steady_clock::now() + patience;
    while (recorder->currentTime() < seconds && std::chrono::steady_clock::now() < end) std::this_thread::yield();
    ASSERT_GE(recorder->currentTime(), seconds) << "no sound comes";
  }

  TemporaryDirectory outputs_;
  std::shared_ptr<Listener> listener_ = std::make_shared<Listener>();
  std::shared_ptr<VideoNarrationUtils> narration_ = VideoNarrationUtils::make();
};

TEST_F(NarrationRecording, GivesThePieceToTheDelegate) {
  const PrintedLinesCapture printed;
  const ScriptedMicrophone microphone({{0, 44'100}});
  EXPECT_FALSE(narration_->startTime());
  ASSERT_TRUE(narration_->startNarration(CMTime(3000, 600), listener_));
  waitForSound(*narration_, 0.9);
  narration_->finishNarration();
  EXPECT_EQ(narration_->audioRecorder(), nullptr);
  const auto finished = listener_->wait();
  ASSERT_TRUE(finished && *finished);
  EXPECT_EQ((*finished)->startTime, CMTime(3000, 600));
  EXPECT_EQ((*finished)->volume, 1.0F);
  const fs::path path = (*finished)->audioURL.path();
  EXPECT_EQ(path.parent_path(), outputs_.path());
  EXPECT_THAT(path.filename().string(), MatchesRegex("[0-9A-F]{8}(-[0-9A-F]{4}){3}-[0-9A-F]{12}\\.m4a"));
  const auto sound = MediaJudge(path).stream("audio");
  EXPECT_EQ(sound.codec, "pcm_s16le");
  EXPECT_EQ(sound.sampleRate, 44'100);
  EXPECT_EQ(sound.channels, 2);
  EXPECT_THAT(printed.lines(), IsEmpty());
}

TEST_F(NarrationRecording, ReplacedByASecondOneIsHeardOfNoMore) {
  const ScriptedMicrophone microphone({{0, 44'100}});
  const auto replacedListener = std::make_shared<Listener>();
  ASSERT_TRUE(narration_->startNarration(kCMTimeZero, replacedListener));
  waitForSound(*narration_, 0.9);
  const fs::path replaced = narration_->audioRecorder()->url().path();
  ASSERT_TRUE(narration_->startNarration(CMTime(7, 1), listener_));
  waitForSound(*narration_, 0.9);
  narration_->finishNarration();
  const auto finished = listener_->wait();
  ASSERT_TRUE(finished && *finished);
  EXPECT_EQ((*finished)->startTime, CMTime(7, 1));
  EXPECT_NE((*finished)->audioURL.path(), replaced);
  EXPECT_GT(recordedSamples(replaced).size(), 40'000U);
}

TEST_F(NarrationRecording, ReportsAMicrophoneThatGoesAsGeneric) {
  const ScriptedMicrophone microphone({{0, 44'100}, {.fails = true}});
  ASSERT_TRUE(narration_->startNarration(kCMTimeZero, listener_));
  const auto finished = listener_->wait();
  ASSERT_TRUE(finished);
  ASSERT_FALSE(*finished);
  EXPECT_EQ(finished->error(), NarrationError::generic);
  EXPECT_EQ(narration_->audioRecorder(), nullptr) << "none runs any more";
}

TEST_F(NarrationRecording, WithoutAListenerLeavesTheFile) {
  const ScriptedMicrophone microphone({{0, 44'100}});
  ASSERT_TRUE(narration_->startNarration(kCMTimeZero, listener_));
  waitForSound(*narration_, 0.9);
  const auto recorder = narration_->audioRecorder();
  listener_.reset();
  narration_->finishNarration();
  const auto end = std::chrono::steady_clock::now() + patience;
  bool isWhole = false;  // the recorder is free once its delegate was told
  while (!isWhole && std::chrono::steady_clock::now() < end) isWhole = recorder->currentTime() == 0;
  EXPECT_TRUE(isWhole) << "the recording does not end";
  EXPECT_GT(recordedSamples(recorder->url().path()).size(), 40'000U);
}

TEST_F(NarrationRecording, DoesNotStartWithoutAMicrophoneButKeepsTheTime) {
  engine::setSoundCaptureOpener(
      [](const engine::PcmFormat&) -> engine::Expected<std::unique_ptr<engine::SoundCapture>> {
        return engine::failed(engine::ErrorKind::noDevice, "there is no microphone");
      });
  EXPECT_FALSE(narration_->startNarration(CMTime(5, 1), listener_));
  EXPECT_EQ(narration_->startTime(), CMTime(5, 1));
  EXPECT_TRUE(fs::is_empty(outputs_.path()));

  std::promise<bool> answered;
  narration_->requestAuthorization([&](bool granted) { answered.set_value(granted); });
  auto answer = answered.get_future();
  ASSERT_EQ(answer.wait_for(patience), std::future_status::ready) << "no answer comes";
  EXPECT_FALSE(answer.get());
}

TEST_F(NarrationRecording, SaysThatItsRecorderDidNotStart) {
  // There for the session, gone for the recorder.
  engine::setSoundCaptureOpener([opened = std::make_shared<int>(0)](const engine::PcmFormat& format)
                                    -> engine::Expected<std::unique_ptr<engine::SoundCapture>> {
    if ((*opened)++ > 0) return engine::failed(engine::ErrorKind::noDevice, "there is no microphone");
    return std::make_unique<ScriptedCapture>(std::vector<ScriptedCapture::Step>{}, format, std::nullopt);
  });
  EXPECT_FALSE(narration_->startNarration(kCMTimeZero, listener_));
  EXPECT_EQ(narration_->audioRecorder(), nullptr);
}

TEST_F(NarrationRecording, DoesNotStartWithoutItsDirectory) {
  const ScriptedMicrophone microphone({});
  std::ofstream(outputs_.file("file")) << "no directory";
  FileSystem::shared().setOutputsURL(URL(outputs_.file("file/outputs")));
  EXPECT_FALSE(narration_->startNarration(kCMTimeZero, listener_));
  EXPECT_EQ(narration_->audioRecorder(), nullptr);

  std::promise<std::thread::id> answered;
  narration_->requestAuthorization([&](bool granted) {
    EXPECT_TRUE(granted);
    answered.set_value(std::this_thread::get_id());
  });
  auto answer = answered.get_future();
  ASSERT_EQ(answer.wait_for(patience), std::future_status::ready) << "no answer comes";
  EXPECT_NE(answer.get(), std::this_thread::get_id());
}

}  // namespace
}  // namespace clipworks::test
