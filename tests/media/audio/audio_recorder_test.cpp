#include <clipworks/media/audio/AVAudioRecorder.h>

#include <cmath>
#include <condition_variable>
#include <filesystem>
#include <future>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <clipworks/engine/capture/SoundCapture.h>
#include <clipworks/media/asset/AVAsset.h>
#include <clipworks/media/audio/AVAudioSession.h>
#include <clipworks/media/audio/AudioQueue.h>
#include <clipworks/media/base/SettingsKeys.h>

#include <tests/support/RecordedSound.h>
#include <tests/support/ScriptedCapture.h>
#include <tests/support/TemporaryDirectory.h>

namespace clipworks::test {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

constexpr std::chrono::seconds patience{30};
/// A second of sound, and no more.
const std::vector<ScriptedCapture::Step> oneSecond{{0, 22'050}, {22'050, 22'050}};

/// Notes what it hears.
class Listener : public AVAudioRecorderDelegate {
 public:
  void audioRecorderDidFinishRecording(const std::shared_ptr<AVAudioRecorder>& recorder, bool successfully) override {
    const std::lock_guard lock(mutex_);
    heard_.push_back(successfully);
    thread_ = std::this_thread::get_id();
    if (const auto error = recorder->error()) error_ = error->localizedDescription();
    changed_.notify_all();
  }

  /// All that was heard, once it is `count` things; fewer when they do not come.
  [[nodiscard]] std::vector<bool> wait(std::size_t count) {
    std::unique_lock lock(mutex_);
    EXPECT_TRUE(changed_.wait_for(lock, patience, [&] { return heard_.size() >= count; })) << "nobody was told";
    return heard_;
  }
  [[nodiscard]] std::vector<bool> heard() const {
    const std::lock_guard lock(mutex_);
    return heard_;
  }
  [[nodiscard]] std::thread::id thread() const { return thread_; }
  [[nodiscard]] const std::string& error() const { return error_; }

 private:
  mutable std::mutex mutex_;
  std::condition_variable changed_;
  std::vector<bool> heard_;
  std::thread::id thread_;
  std::string error_;
};

class Recorder : public testing::Test {
 protected:
  ~Recorder() override { engine::setSoundCaptureOpener({}); }

  std::shared_ptr<AVAudioRecorder> make() {
    auto recorder = AVAudioRecorder::make(URL(directory_.file("piece.m4a")), {});
    EXPECT_TRUE(recorder) << recorder.error().localizedDescription();
    (*recorder)->setDelegate(listener_);
    return *recorder;
  }

  static void waitForSound(const AVAudioRecorder& recorder, double seconds) {
    const auto end = std::chrono::steady_clock::now() + patience;
    while (recorder.currentTime() < seconds && std::chrono::steady_clock::now() < end) std::this_thread::yield();
    EXPECT_GE(recorder.currentTime(), seconds) << "no sound comes";
  }

  static void withoutMicrophone() {
    engine::setSoundCaptureOpener(
        [](const engine::PcmFormat&) -> engine::Expected<std::unique_ptr<engine::SoundCapture>> {
          return engine::failed(engine::ErrorKind::noDevice, "there is no microphone");
        });
  }

  TemporaryDirectory directory_;
  std::shared_ptr<Listener> listener_ = std::make_shared<Listener>();
};

TEST_F(Recorder, TellsItsDelegateOnceWhenTheFileIsClosed) {
  const ScriptedMicrophone microphone(oneSecond);
  auto recorder = make();
  EXPECT_FALSE(std::filesystem::exists(recorder->url().path())) << "making a recorder makes no file";
  ASSERT_TRUE(recorder->record());
  EXPECT_TRUE(recorder->isRecording());
  EXPECT_FALSE(recorder->record()) << "it records already";
  waitForSound(*recorder, 0.9);
  recorder->stop();
  recorder->stop();
  EXPECT_FALSE(recorder->isRecording());
  recorder.reset();  // it keeps itself alive
  EXPECT_THAT(listener_->wait(1), ElementsAre(true));
  EXPECT_NE(listener_->thread(), std::this_thread::get_id());
  const auto asset = AVAsset::make(URL(directory_.file("piece.m4a")));
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
    EXPECT_EQ(listener_->wait(i).size(), i);
  }
  EXPECT_THAT(listener_->heard(), ElementsAre(true, true));
}

TEST_F(Recorder, EndsUnsuccessfullyWhenTheMicrophoneGoes) {
  const ScriptedMicrophone microphone({{0, 44'100}, {.fails = true}});
  const auto recorder = make();
  ASSERT_TRUE(recorder->record());
  EXPECT_THAT(listener_->wait(1), ElementsAre(false));
  EXPECT_FALSE(recorder->isRecording());
  EXPECT_THAT(listener_->error(), HasSubstr("went away"));
  recorder->stop();  // too late, and nothing more is told
  EXPECT_THAT(listener_->heard(), ElementsAre(false));
  EXPECT_GT(recordedSamples(directory_.file("piece.m4a")).size(), 40'000U);
}

TEST_F(Recorder, WithoutAMicrophoneDoesNotBegin) {
  withoutMicrophone();
  const auto recorder = make();
  EXPECT_FALSE(recorder->prepareToRecord());
  EXPECT_THAT(listener_->heard(), IsEmpty());
  EXPECT_FALSE(recorder->record());
  std::promise<void> answered;  // behind what the recorder could have told
  audioQueue().async([&] { answered.set_value(); });
  answered.get_future().wait();
  EXPECT_THAT(listener_->heard(), IsEmpty()) << "what did not begin does not end";
  ASSERT_TRUE(recorder->error());
  EXPECT_THAT(recorder->error()->localizedDescription(), HasSubstr("there is no microphone"));
  EXPECT_FALSE(std::filesystem::exists(recorder->url().path()));
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

struct SettingsCase {
  std::string name;
  SettingsDictionary settings;
  bool isAccepted;

  friend std::ostream& operator<<(std::ostream& out, const SettingsCase& c) { return out << c.name; }
};

class RecorderSettings : public testing::TestWithParam<SettingsCase> {};

TEST_P(RecorderSettings, AreTakenOrRefusedWhenTheRecorderIsMade) {
  const TemporaryDirectory directory;
  const auto recorder = AVAudioRecorder::make(URL(directory.file("piece.m4a")), GetParam().settings);
  ASSERT_EQ(recorder.has_value(), GetParam().isAccepted);
  if (recorder) return;
  EXPECT_EQ(recorder.error().code(), static_cast<int>(AVError::operationNotSupportedForAsset));
}

INSTANTIATE_TEST_SUITE_P(Values, RecorderSettings,
                         testing::Values(SettingsCase{"mono_at_a_rate_given_as_a_fraction",
                                                      {{AVSampleRateKey, 48'000.0}, {AVNumberOfChannelsKey, 1}},
                                                      true},
                                         SettingsCase{"AAC", {{AVFormatIDKey, kAudioFormatMPEG4AAC}}, false},
                                         SettingsCase{"24_bits", {{AVLinearPCMBitDepthKey, 24}}, false},
                                         SettingsCase{"floating_point", {{AVLinearPCMIsFloatKey, true}}, false},
                                         SettingsCase{"high_byte_first", {{AVLinearPCMIsBigEndianKey, true}}, false},
                                         SettingsCase{"six_channels", {{AVNumberOfChannelsKey, 6}}, false},
                                         SettingsCase{"no_rate", {{AVSampleRateKey, 0}}, false},
                                         SettingsCase{"a_text_for_a_rate", {{AVSampleRateKey, "44100"}}, false}),
                         [](const auto& testCase) { return testCase.param.name; });

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
