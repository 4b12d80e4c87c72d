#include <clipworks/media/audio/AVAudioRecorder.h>

#include <mutex>

#include <clipworks/engine/capture/SoundCapture.h>
#include <clipworks/media/audio/AVAudioSession.h>
#include <clipworks/media/audio/AudioQueue.h>
#include <clipworks/media/base/SettingsKeys.h>

#include <tests/media/MediaTesting.h>
#include <tests/support/RecordedSound.h>
#include <tests/support/ScriptedCapture.h>

namespace clipworks::test {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

/// A second of sound, and no more.
const std::vector<ScriptedCapture::Step> oneSecond{{0, 22'050}, {22'050, 22'050}};

/// Notes what it hears.
struct Listener : AVAudioRecorderDelegate {
  void audioRecorderDidFinishRecording(const std::shared_ptr<AVAudioRecorder>& recorder, bool successfully) override {
    const std::lock_guard lock(mutex);
    heard.push_back(successfully);
    thread = std::this_thread::get_id();
    error = failureOf(recorder->error());
  }
  /// All that was heard, once it is `count` things; fewer when they do not come.
  [[nodiscard]] std::vector<bool> wait(std::size_t count) {
    const auto all = [this] {
      const std::lock_guard lock(mutex);
      return heard;
    };
    EXPECT_TRUE(waitUntil([&] { return all().size() >= count; })) << "nobody was told";
    return all();
  }

  std::mutex mutex;
  std::vector<bool> heard;  // guarded by mutex, like all below
  std::thread::id thread;
  std::string error;
};

class Recorder : public testing::Test {
 protected:
  ~Recorder() override { engine::setSoundCaptureOpener({}); }

  std::shared_ptr<AVAudioRecorder> make() {
    auto recorder = AVAudioRecorder::make(URL(file_), {});
    EXPECT_EQ(failureOf(recorder), "");
    (*recorder)->setDelegate(listener_);
    return *recorder;
  }
  static void waitForSound(const AVAudioRecorder& recorder, double seconds) {
    EXPECT_TRUE(waitUntil([&] { return recorder.currentTime() >= seconds; })) << "no sound comes";
  }
  static void withoutMicrophone() {
    using Opened = engine::Expected<std::unique_ptr<engine::SoundCapture>>;
    engine::setSoundCaptureOpener([](const engine::PcmFormat&) -> Opened {
      return engine::failed(engine::ErrorKind::noDevice, "there is no microphone");
    });
  }

  TemporaryDirectory directory_;
  fs::path file_ = directory_.file("piece.m4a");
  std::shared_ptr<Listener> listener_ = std::make_shared<Listener>();
};

TEST_F(Recorder, TellsItsDelegateOnceWhenTheFileIsClosed) {
  const ScriptedMicrophone microphone(oneSecond);
  auto recorder = make();
  EXPECT_FALSE(fs::exists(file_)) << "making a recorder makes no file";
  ASSERT_TRUE(recorder->record());
  EXPECT_TRUE(recorder->isRecording());
  EXPECT_FALSE(recorder->record()) << "it records already";
  waitForSound(*recorder, 0.9);
  recorder->stop();
  recorder->stop();
  EXPECT_FALSE(recorder->isRecording());
  recorder.reset();  // it keeps itself alive
  EXPECT_THAT(listener_->wait(1), ElementsAre(true));
  EXPECT_NE(listener_->thread, std::this_thread::get_id());
  const auto asset = assetAt(file_);
  EXPECT_EQ(asset->tracks(AVMediaTypeAudio).size(), 1U) << asset->loadError();
}

TEST_F(Recorder, RecordsAgainIntoTheSameFile) {
  const auto recorder = make();
  for (std::size_t i = 1; i <= 2; ++i) {
    const ScriptedMicrophone microphone(oneSecond);
    ASSERT_TRUE(recorder->prepareToRecord());
    ASSERT_TRUE(recorder->record());
    waitForSound(*recorder, 0.9);
    recorder->stop();
    EXPECT_EQ(listener_->wait(i), std::vector<bool>(i, true));
  }
}

TEST_F(Recorder, EndsUnsuccessfullyWhenTheMicrophoneGoes) {
  const ScriptedMicrophone microphone({{0, 44'100}, {.fails = true}});
  const auto recorder = make();
  ASSERT_TRUE(recorder->record());
  EXPECT_THAT(listener_->wait(1), ElementsAre(false));
  EXPECT_FALSE(recorder->isRecording());
  EXPECT_THAT(listener_->error, HasSubstr("went away"));
  recorder->stop();  // too late, and nothing more is told
  EXPECT_THAT(listener_->wait(0), ElementsAre(false));
  EXPECT_GT(recordedSamples(file_).size(), 40'000U);
}

TEST_F(Recorder, WithoutAMicrophoneDoesNotBegin) {
  withoutMicrophone();
  const auto recorder = make();
  EXPECT_FALSE(recorder->prepareToRecord());
  EXPECT_THAT(listener_->wait(0), IsEmpty());
  EXPECT_FALSE(recorder->record());
  std::promise<void> answered;  // behind what the recorder could have told
  audioQueue().async([&] { answered.set_value(); });
  answered.get_future().wait();
  EXPECT_THAT(listener_->wait(0), IsEmpty()) << "what did not begin does not end";
  EXPECT_THAT(failureOf(recorder->error()), HasSubstr("there is no microphone"));
  EXPECT_FALSE(fs::exists(file_));
}

TEST_F(Recorder, MetersTheSoundSinceTheLastLook) {
  const ScriptedMicrophone microphone({{0, 16'384}});  // samples from 1 to 16,384, half of full scale
  const auto recorder = make();
  EXPECT_FLOAT_EQ(recorder->peakPower(0), -160);
  ASSERT_TRUE(recorder->record());
  waitForSound(*recorder, 0.3);
  recorder->updateMeters();
  EXPECT_NEAR(recorder->peakPower(0), 20 * std::log10(0.5), 0.01);
  EXPECT_NEAR(recorder->averagePower(1), 20 * std::log10(0.5 / std::sqrt(3)), 0.01);
  EXPECT_FLOAT_EQ(recorder->peakPower(2), -160) << "there is no third channel";
}

TEST_F(Recorder, SettingsAreTakenOrRefusedWhenItIsMade) {
  EXPECT_TRUE(AVAudioRecorder::make(URL(file_), {{AVSampleRateKey, 48'000.0}, {AVNumberOfChannelsKey, 1}}));
  const SettingsDictionary refused[] = {{{AVFormatIDKey, kAudioFormatMPEG4AAC}},
                                        {{AVLinearPCMBitDepthKey, 24}},
                                        {{AVLinearPCMIsFloatKey, true}},
                                        {{AVLinearPCMIsBigEndianKey, true}},
                                        {{AVNumberOfChannelsKey, 6}},
                                        {{AVSampleRateKey, 0}},
                                        {{AVSampleRateKey, "44100"}}};
  for (const auto& settings : refused) {
    EXPECT_THAT(failureOf(AVAudioRecorder::make(URL(file_), settings)), hasCode(AVError::operationNotSupportedForAsset))
        << "case " << &settings - refused;
  }
}

TEST_F(Recorder, TheSessionKnowsWhetherThereIsAMicrophone) {
  auto& session = AVAudioSession::sharedInstance();
  EXPECT_FALSE(
      session.setCategory("Category", AVAudioSessionModeDefault, AVAudioSessionRouteSharingPolicy::default_, 0));
  ASSERT_TRUE(session.setCategory(AVAudioSessionCategoryPlayAndRecord, AVAudioSessionModeSpokenAudio,
                                  AVAudioSessionRouteSharingPolicy::default_,
                                  AVAudioSessionCategoryOptionDefaultToSpeaker));
  withoutMicrophone();
  EXPECT_FALSE(session.setActive(true, 0));
  EXPECT_TRUE(session.setActive(false, 0));
  const ScriptedMicrophone microphone({});
  EXPECT_TRUE(session.setActive(true, 0));
}

}  // namespace
}  // namespace clipworks::test
